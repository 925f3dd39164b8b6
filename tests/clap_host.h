// A small host of brisel.clap for tests: the library loaded at run time and found through its one
// symbol, event lists, state streams that move a few bytes at a time, one instance with its
// extensions; and what the plug-in should say of its parameters. BRISEL_CLAP_FILE names the library.
#ifndef BRISEL_TESTS_CLAP_HOST_H
#define BRISEL_TESTS_CLAP_HOST_H

#include <clap/clap.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace test_host {

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInf = std::numeric_limits<double>::infinity();

struct Row {
    const char* label;
    double min, max, def;
    uint32_t flags;
};
inline constexpr Row kRows[12] = {{"Size", 0.005, 0.5, 0.04, 0x20},
                                  {"Decay", 0.1, 10, 2, 0x20},
                                  {"Brisel", 0, 3, 2, 0x21},
                                  {"Damp", 0, 1, 0.3, 0x20},
                                  {"Mix", 0, 1, 0.3, 0x20},
                                  {"Width", 0, 1, 0.8, 0x20},
                                  {"Modulate", 0, 1, 1, 0x21},
                                  {"Early Reflections", 0, 1, 0, 0x21},
                                  {"ER Size", 0.001, 0.5, 0.06, 0x20},
                                  {"ER Level", 0, 1, 0.5, 0x20},
                                  {"EQ Low (dB)", -24, 24, 0, 0x20},
                                  {"EQ High (dB)", -24, 24, 0, 0x20}};
// The ids that tests name.
inline constexpr uint32_t kSize = 0, kDecay = 1, kStages = 2, kDamp = 3, kMix = 4, kModulate = 6,
                          kEarly = 7;

inline double clamped(uint32_t id, double value) {
    return value < kRows[id].min ? kRows[id].min : value > kRows[id].max ? kRows[id].max : value;
}

inline const clap_plugin_entry_t& entry() {
    static const auto* const found = [] {
        void* library = dlopen(BRISEL_CLAP_FILE, RTLD_NOW | RTLD_LOCAL);
        return static_cast<const clap_plugin_entry_t*>(library ? dlsym(library, "clap_entry")
                                                               : nullptr);
    }();
    if (!found) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::abort();
    }
    return *found;
}

inline const clap_plugin_factory_t* factory() {
    return static_cast<const clap_plugin_factory_t*>(entry().get_factory("clap.plugin-factory"));
}

// A host's event list; for a missing event get() answers with null.
class Events {
public:
    Events() = default;
    Events(uint32_t id, double value) { add(id, value); }
    Events& add(uint32_t id, double value, uint16_t space = 0, uint16_t type = 5,
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
    static constexpr uint32_t kMissing = 0xFFFFFFF0;
    static const Events& of(const clap_input_events_t* list) {
        return *static_cast<const Events*>(list->ctx);
    }
    static uint32_t size(const clap_input_events_t* list) {
        return static_cast<uint32_t>(of(list).events_.size());
    }
    static const clap_event_header_t* get(const clap_input_events_t* list, uint32_t index) {
        const clap_event_param_value_t& event = of(list).events_.at(index);
        return event.param_id == kMissing ? nullptr : &event.header;
    }
    Events(const Events&) = delete;
    std::vector<clap_event_param_value_t> events_;
    clap_input_events_t list_ = {this, size, get};
};

// Both ends of a state stream: moves at most `chunk` bytes a call, `capacity` in all; a full one says
// -1 or 0.
struct Stream {
    std::vector<unsigned char> bytes;
    size_t chunk = 5, capacity = 4096, at = 0;

    static int64_t write(const clap_ostream_t* stream, const void* data, uint64_t size) {
        auto& s = *static_cast<Stream*>(stream->ctx);
        const size_t n = std::min({size_t{size}, s.chunk, s.capacity - s.bytes.size()});
        const auto* from = static_cast<const unsigned char*>(data);
        s.bytes.insert(s.bytes.end(), from, from + n);
        return n > 0 ? static_cast<int64_t>(n) : s.capacity % 2 ? -1 : 0;
    }
    static int64_t read(const clap_istream_t* stream, void* data, uint64_t size) {
        auto& s = *static_cast<Stream*>(stream->ctx);
        const size_t n = std::min({size_t{size}, s.chunk, s.bytes.size() - s.at});
        std::copy_n(s.bytes.data() + s.at, n, static_cast<unsigned char*>(data));
        s.at += n;
        return static_cast<int64_t>(n);
    }
};

using Values = std::array<double, 12>;

inline std::vector<unsigned char> state_of(const Values& values, const char* magic = "QVB1",
                                           uint32_t version = 1) {
    std::vector<unsigned char> bytes(104);
    std::memcpy(bytes.data(), magic, 4);
    std::memcpy(bytes.data() + 4, &version, 4);
    std::memcpy(bytes.data() + 8, values.data(), 96);
    return bytes;
}

template <class T>
const T* extension(const clap_plugin_t* plugin, const char* id) {
    return static_cast<const T*>(plugin->get_extension(plugin, id));
}

// One instance, initialised, with its extensions.
struct Plugin {
    const clap_plugin_t* plugin =
        factory()->create_plugin(factory(), nullptr, "com.tamrockaudio.brisel");
    const clap_plugin_params_t* params = extension<clap_plugin_params_t>(plugin, "clap.params");
    const clap_plugin_state_t* state = extension<clap_plugin_state_t>(plugin, "clap.state");
    const clap_plugin_tail_t* tail_ext = extension<clap_plugin_tail_t>(plugin, "clap.tail");
    const clap_plugin_audio_ports_t* ports =
        extension<clap_plugin_audio_ports_t>(plugin, "clap.audio-ports");

    Plugin() { EXPECT_TRUE(plugin->init(plugin)); }
    Plugin(const Plugin&) = delete;
    ~Plugin() { plugin->destroy(plugin); }

    bool activate(double rate, uint32_t max_frames) {
        return plugin->activate(plugin, rate, 1, max_frames) && plugin->start_processing(plugin);
    }
    int32_t process(uint32_t frames, std::vector<float*> in, std::vector<float*> out,
                    const Events* events = nullptr) {
        const clap_audio_buffer_t input = {in.data(), nullptr, static_cast<uint32_t>(in.size()), 0,
                                           0};
        clap_audio_buffer_t output = {out.data(), nullptr, static_cast<uint32_t>(out.size()), 0, 0};
        const clap_process_t process = {
            -1, frames, nullptr, &input, &output, 1, 1, events ? events->list() : nullptr, nullptr};
        return plugin->process(plugin, &process);
    }
    void flush(const Events& events) { params->flush(plugin, events.list(), nullptr); }
    uint32_t tail() { return tail_ext->get(plugin); }
    double value(uint32_t id) {
        double value = -12345;
        EXPECT_TRUE(params->get_value(plugin, id, &value));
        return value;
    }
    Values values() {
        Values all;
        for (uint32_t id = 0; id < 12; ++id) all[id] = value(id);
        return all;
    }
    bool load(Stream stream) {
        const clap_istream_t in = {&stream, Stream::read};
        return state->load(plugin, &in);
    }
    bool save(Stream& stream) {
        const clap_ostream_t out = {&stream, Stream::write};
        return state->save(plugin, &out);
    }
    std::string text(uint32_t id, double value, uint32_t capacity = 64) {
        std::vector<char> buffer(capacity + 1, '#');
        EXPECT_TRUE(params->value_to_text(plugin, id, value, buffer.data(), capacity));
        EXPECT_EQ(buffer.back(), '#');
        return buffer.data();
    }
};

inline bool same_bits(const Values& a, const Values& b) {
    return std::memcmp(a.data(), b.data(), sizeof a) == 0;
}

} // namespace test_host

#endif
