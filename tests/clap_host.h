// A small CLAP host for tests, fuzz targets and benchmarks: loads a plug-in file or takes its
// entry, makes one instance by its id, hands it blocks of any length with channels and events of
// any kind, and saves and loads states in pieces. It checks nothing: that is its caller's part.
#ifndef BRISEL_TESTS_CLAP_HOST_H
#define BRISEL_TESTS_CLAP_HOST_H

#include <clap/clap.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace host {

inline constexpr const char* kBrisel = "com.tamrockaudio.brisel";

// A plug-in file, open as long as the object lives.
class Library {
public:
    explicit Library(const std::string& file, int flags = RTLD_NOW | RTLD_LOCAL)
        : file_(file), handle_(dlopen(file.c_str(), flags)) {}
    ~Library() { close(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // Null when the file is no plug-in; the reason is in dlerror().
    const clap_plugin_entry_t* entry() const {
        return static_cast<const clap_plugin_entry_t*>(handle_ ? dlsym(handle_, "clap_entry")
                                                               : nullptr);
    }
    // Whether nothing of it stays behind.
    bool close() {
        if (handle_) dlclose(std::exchange(handle_, nullptr));
        void* left = dlopen(file_.c_str(), RTLD_NOW | RTLD_NOLOAD);
        return !left || (dlclose(left), false);
    }

private:
    std::string file_;
    void* handle_;
};

inline const clap_plugin_factory_t* factory(const clap_plugin_entry_t& entry) {
    return static_cast<const clap_plugin_factory_t*>(entry.get_factory(CLAP_PLUGIN_FACTORY_ID));
}

// A host that offers nothing.
inline const clap_host_t kHost = {{1, 2, 8},
                                  nullptr,
                                  "Brisel tests",
                                  "Tamrock Audio",
                                  "",
                                  "",
                                  [](auto*, auto*) -> const void* { return nullptr; },
                                  [](auto*) {},
                                  [](auto*) {},
                                  [](auto*) {}};

// An event list; for a missing event get() answers with null.
class Events {
public:
    Events() = default;
    Events(clap_id id, double value) { add(id, value); }
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;
    Events& add(clap_id id, double value, uint16_t space = CLAP_CORE_EVENT_SPACE_ID,
                uint16_t type = CLAP_EVENT_PARAM_VALUE,
                uint32_t claimed_size = sizeof(clap_event_param_value_t)) {
        clap_event_param_value_t event = {};
        event.header = {claimed_size, 3, space, type, 0};
        event.param_id = id;
        event.note_id = -1;
        event.value = value;
        events_.push_back(event);
        return *this;
    }
    Events& add_missing() { return add(kMissing, 0); }
    const clap_input_events_t* list() const { return &list_; }

private:
    static constexpr clap_id kMissing = 0xFFFFFFF0;
    static const std::vector<clap_event_param_value_t>& of(const clap_input_events_t* list) {
        return static_cast<const Events*>(list->ctx)->events_;
    }
    std::vector<clap_event_param_value_t> events_;
    clap_input_events_t list_ = {
        this,
        [](const clap_input_events_t* list) { return static_cast<uint32_t>(of(list).size()); },
        [](const clap_input_events_t* list, uint32_t index) {
            const clap_event_param_value_t& event = of(list).at(index);
            return event.param_id == kMissing ? nullptr : &event.header;
        }};
};

// Both ends of a state stream: moves at most `chunk` bytes a call, `capacity` in all, and then says
// `end`.
struct Stream {
    std::vector<unsigned char> bytes;
    size_t chunk = 5, capacity = 4096, at = 0;
    int64_t end = 0;

    clap_ostream_t to() {
        bytes.reserve(capacity);
        return {this, [](const clap_ostream_t* stream, const void* data, uint64_t size) {
                    auto& s = *static_cast<Stream*>(stream->ctx);
                    const size_t n = std::min({size_t{size}, s.chunk, s.capacity - s.bytes.size()});
                    const auto* from = static_cast<const unsigned char*>(data);
                    s.bytes.insert(s.bytes.end(), from, from + n);
                    return n > 0 ? static_cast<int64_t>(n) : s.end;
                }};
    }
    clap_istream_t from() {
        return {this, [](const clap_istream_t* stream, void* data, uint64_t size) {
                    auto& s = *static_cast<Stream*>(stream->ctx);
                    const size_t n = std::min({size_t{size}, s.chunk, s.bytes.size() - s.at});
                    std::copy_n(s.bytes.data() + s.at, n, static_cast<unsigned char*>(data));
                    s.at += n;
                    return n > 0 ? static_cast<int64_t>(n) : s.end;
                }};
    }
};

// One instance; not usable when the entry knows no such id or its init fails.
class Plugin {
public:
    explicit Plugin(const clap_plugin_entry_t& entry, const char* id = kBrisel,
                    const clap_host_t* host = &kHost)
        : plugin(factory(entry)->create_plugin(factory(entry), host, id)) {
        if (!plugin) return;
        usable = plugin->init(plugin);
        params = extension<clap_plugin_params_t>(CLAP_EXT_PARAMS);
        state = extension<clap_plugin_state_t>(CLAP_EXT_STATE);
        tail_ext = extension<clap_plugin_tail_t>(CLAP_EXT_TAIL);
        ports = extension<clap_plugin_audio_ports_t>(CLAP_EXT_AUDIO_PORTS);
    }
    ~Plugin() {
        if (plugin) plugin->destroy(plugin);
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    template <class Extension>
    const Extension* extension(const char* id) const {
        return static_cast<const Extension*>(plugin->get_extension(plugin, id));
    }
    bool activate(double rate, uint32_t max_frames) const {
        return plugin->activate(plugin, rate, 1, max_frames) && plugin->start_processing(plugin);
    }
    void deactivate() const {
        plugin->stop_processing(plugin);
        plugin->deactivate(plugin);
    }
    // Ports of as many channels as are given.
    clap_process_status process(uint32_t frames, std::initializer_list<float*> in,
                                std::initializer_list<float*> out,
                                const Events* events = nullptr) const {
        return process(frames, in.begin(), in.size(), out.begin(), out.size(), events);
    }
    clap_process_status process(uint32_t frames, float* const* in, size_t ins, float* const* out,
                                size_t outs, const Events* events = nullptr) const {
        const clap_audio_buffer_t input = {const_cast<float**>(in), nullptr,
                                           static_cast<uint32_t>(ins), 0, 0};
        clap_audio_buffer_t output = {const_cast<float**>(out), nullptr,
                                      static_cast<uint32_t>(outs), 0, 0};
        const clap_process_t block = {
            -1, frames, nullptr, &input, &output, 1, 1, events ? events->list() : nullptr, nullptr};
        return plugin->process(plugin, &block);
    }
    void flush(const Events& events) const { params->flush(plugin, events.list(), nullptr); }
    uint32_t tail() const { return tail_ext->get(plugin); }
    // -12345 where there is no such value.
    double value(clap_id id) const {
        double value = -12345;
        params->get_value(plugin, id, &value);
        return value;
    }
    std::vector<double> values() const {
        std::vector<double> all;
        for (uint32_t id = 0; id < params->count(plugin); ++id) all.push_back(value(id));
        return all;
    }
    bool load(Stream& stream) const {
        const clap_istream_t from = stream.from();
        return state->load(plugin, &from);
    }
    bool load(std::vector<unsigned char> bytes, size_t chunk = 5) const {
        Stream stream{std::move(bytes), chunk};
        return load(stream);
    }
    bool save(Stream& stream) const {
        const clap_ostream_t to = stream.to();
        return state->save(plugin, &to);
    }

    const clap_plugin_t* plugin;
    bool usable = false;
    const clap_plugin_params_t* params = nullptr;
    const clap_plugin_state_t* state = nullptr;
    const clap_plugin_tail_t* tail_ext = nullptr;
    const clap_plugin_audio_ports_t* ports = nullptr;
};

// A saved state of Brisel: a header, then the values in the order of their ids.
inline std::vector<unsigned char> state_of(const std::vector<double>& values,
                                           const char* magic = "QVB1", uint32_t version = 1) {
    std::vector<unsigned char> bytes(8 + sizeof(double) * values.size());
    std::memcpy(bytes.data(), magic, 4);
    std::memcpy(bytes.data() + 4, &version, 4);
    std::copy_n(reinterpret_cast<const unsigned char*>(values.data()), bytes.size() - 8,
                bytes.data() + 8);
    return bytes;
}

inline bool same_bits(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), 8 * a.size()) == 0;
}

} // namespace host

#endif
