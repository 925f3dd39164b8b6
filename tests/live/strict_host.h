// A strict host of brisel-live.clap: it offers what hosts offer, notes every call back and the thread it
// came on, and checks each block as a validator does.
#ifndef BRISEL_TESTS_LIVE_STRICT_HOST_H
#define BRISEL_TESTS_LIVE_STRICT_HOST_H

#include <dlfcn.h>

#include <array>
#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "live/clap/plugin.h"
#include "tests/compare.h"

namespace strict_host {

using namespace brisel::live;
using Frames = std::vector<float>;

inline const clap_plugin_entry_t& entry() {
    static const auto* const found = [] {
        void* library = dlopen(BRISEL_LIVE_CLAP_FILE, RTLD_NOW | RTLD_LOCAL);
        if (!library) std::abort();
        return static_cast<const clap_plugin_entry_t*>(dlsym(library, "clap_entry"));
    }();
    return *found;
}

template <class Factory>
const Factory* factory(const char* id) {
    return static_cast<const Factory*>(entry().get_factory(id));
}

// A host's list of events of any kind, in the order in which they are added.
class Events {
public:
    Events() = default;
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;
    Events& value(uint32_t id, double value, uint32_t time = 0) {
        return add(
            clap_event_param_value_t{header<clap_event_param_value_t>(CLAP_EVENT_PARAM_VALUE, time),
                                     id, nullptr, -1, -1, -1, -1, value});
    }
    Events& modulation(uint32_t id, double amount, uint32_t time = 0) {
        return add(
            clap_event_param_mod_t{header<clap_event_param_mod_t>(CLAP_EVENT_PARAM_MOD, time), id,
                                   nullptr, -1, -1, -1, -1, amount});
    }
    Events& tempo(double tempo, uint32_t time, uint32_t flags = CLAP_TRANSPORT_HAS_TEMPO) {
        clap_event_transport_t event = {};
        event.header = header<clap_event_transport_t>(CLAP_EVENT_TRANSPORT, time);
        event.flags = flags;
        event.tempo = tempo;
        return add(event);
    }
    template <class Event>
    Events& add(const Event& event) {
        auto& bytes = events_.emplace_back(sizeof event / 4);
        std::memcpy(bytes.data(), &event, sizeof event);
        return *this;
    }
    Events& add_missing() {
        events_.emplace_back();
        return *this;
    }
    template <class Event>
    static clap_event_header_t header(uint16_t type, uint32_t time) {
        return {sizeof(Event), time, CLAP_CORE_EVENT_SPACE_ID, type, 0};
    }
    const clap_input_events_t* list() const { return &list_; }

private:
    static const Events& of(const clap_input_events_t* list) {
        return *static_cast<const Events*>(list->ctx);
    }
    static uint32_t size(const clap_input_events_t* list) {
        return static_cast<uint32_t>(of(list).events_.size());
    }
    static const clap_event_header_t* get(const clap_input_events_t* list, uint32_t index) {
        const auto& bytes = of(list).events_.at(index);
        return bytes.empty() ? nullptr : reinterpret_cast<const clap_event_header_t*>(bytes.data());
    }
    std::vector<std::vector<uint32_t>> events_;
    clap_input_events_t list_ = {this, size, get};
};

// What the plug-in says to the host: kind, parameter, value.
struct Said {
    uint16_t type;
    clap_id id;
    double value;
    bool operator==(const Said&) const = default;
};

// One initialised instance and its host. process() plays the audio thread.
class Instance {
public:
    Instance() {
        host_ = {.clap_version = {1, 2, 8},
                 .host_data = this,
                 .name = "test",
                 .vendor = "",
                 .url = "",
                 .version = "1",
                 .get_extension = get_extension,
                 .request_restart = [](const clap_host_t*) {},
                 .request_process = [](const clap_host_t*) {},
                 .request_callback = [](const clap_host_t*) {}};
        const auto* plugins = factory<clap_plugin_factory_t>(CLAP_PLUGIN_FACTORY_ID);
        plugin = plugins->create_plugin(plugins, &host_, "com.tamrockaudio.brisel-live");
        EXPECT_TRUE(plugin && plugin->init(plugin));
        params = extension<clap_plugin_params_t>(CLAP_EXT_PARAMS);
        state = extension<clap_plugin_state_t>(CLAP_EXT_STATE);
        context = extension<clap_plugin_state_context_t>(CLAP_EXT_STATE_CONTEXT);
        tail = extension<clap_plugin_tail_t>(CLAP_EXT_TAIL);
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    ~Instance() {
        deactivate();
        plugin->destroy(plugin);
    }

    template <class Extension>
    const Extension* extension(const char* id) const {
        return static_cast<const Extension*>(plugin->get_extension(plugin, id));
    }
    bool activate(double rate = 48000.0, uint32_t most_frames = 512) {
        deactivate();
        active = plugin->activate(plugin, rate, 1, most_frames) && plugin->start_processing(plugin);
        return active;
    }
    void deactivate() {
        if (!std::exchange(active, false)) return;
        plugin->stop_processing(plugin);
        plugin->deactivate(plugin);
    }

    struct Block {
        clap_process_status status;
        uint64_t mask;
        Frames left, right; // right: of a stereo output
    };
    // Renders `frames` of the input from `at` on, with one or two channels in and out; `in_place` with
    // two of both. Every sample must be written, finite, and no subnormal; none behind them touched.
    Block process(const std::array<Frames, 2>& input, size_t at, uint32_t frames,
                  const Events* events = nullptr, bool in_place = false, uint32_t inputs = 2,
                  uint32_t outputs = 2, const clap_event_transport_t* transport = nullptr) {
        constexpr float kUnwritten = std::numeric_limits<float>::quiet_NaN();
        compare::Guarded in[2] = {part(input[0], at, frames), part(input[1], at, frames)};
        compare::Guarded out[2] = {compare::Guarded(frames, 1), compare::Guarded(frames, 2)};
        for (auto& channel : out) std::fill_n(channel.data(), frames, kUnwritten);
        auto* to = in_place ? in : out;
        float* in_channels[] = {in[0].data(), in[1].data()};
        float* out_channels[] = {to[0].data(), to[1].data()};
        const clap_audio_buffer_t from = {in_channels, nullptr, inputs, 0, 0};
        clap_audio_buffer_t into = {out_channels, nullptr, outputs, 0, ~uint64_t{0}};
        const clap_output_events_t said_list = {this, try_push};
        const clap_process_t call = {
            -1,        frames, transport, &from, &into, 1, 1, events ? events->list() : nullptr,
            &said_list};
        on_audio_thread = true;
        Block block = {plugin->process(plugin, &call), into.constant_mask, {}, {}};
        on_audio_thread = false;
        for (uint32_t c = 0; c < outputs; ++c) {
            (c ? block.right : block.left).assign(to[c].data(), to[c].data() + frames);
            for (uint32_t t = 0; t < frames; ++t) {
                const float x = to[c].data()[t];
                if (std::isfinite(x) && (x == 0.0f || std::isnormal(x))) continue;
                ADD_FAILURE() << "channel " << c << " frame " << t << " of " << frames << ": " << x;
                break;
            }
        }
        EXPECT_TRUE(in[0].intact() && in[1].intact() && out[0].intact() && out[1].intact());
        return block;
    }

    void flush(const Events& events) {
        const clap_output_events_t said_list = {this, try_push};
        params->flush(plugin, events.list(), &said_list);
    }
    double value(uint32_t id) const {
        double value = -12345;
        EXPECT_TRUE(params->get_value(plugin, id, &value));
        return value;
    }
    Settings values() const {
        Settings all;
        for (uint32_t id = 0; id < kParameters; ++id) all[id] = value(id);
        return all;
    }
    std::string text(uint32_t id, double value) const {
        char text[CLAP_NAME_SIZE];
        EXPECT_TRUE(params->value_to_text(plugin, id, value, text, sizeof text)) << id;
        return text;
    }

    // A state, moved at most `chunk` bytes a call. An empty one: saving was refused.
    std::string save(uint32_t for_what = 0, size_t chunk = 23) const {
        Stream stream = {"", chunk, 0};
        const clap_ostream_t out = {&stream, write};
        const bool saved =
            for_what ? context->save(plugin, &out, for_what) : state->save(plugin, &out);
        return saved ? stream.bytes : "";
    }
    bool load(const std::string& bytes, uint32_t for_what = 0, size_t chunk = 17) const {
        Stream stream = {bytes, chunk, 0};
        const clap_istream_t in = {&stream, read};
        return for_what ? context->load(plugin, &in, for_what) : state->load(plugin, &in);
    }

    // What a window does: it works on the instance's own values.
    Values& window() const { return clap::self(plugin).reverb.values(); }

    const clap_plugin_t* plugin;
    const clap_plugin_params_t* params;
    const clap_plugin_state_t* state;
    const clap_plugin_state_context_t* context;
    const clap_plugin_tail_t* tail;
    bool active = false;
    std::atomic<bool> on_audio_thread{false};
    int rescans = 0, tail_changes = 0, loaded = 0, errors = 0, windows_closed = 0;
    std::set<clap_id> timers; // registered
    clap_id last_timer = 0;
    std::set<int> fds; // registered
    std::vector<Said> said;
    size_t room = 1000; // events that the output list takes

private:
    struct Stream {
        std::string bytes;
        size_t chunk, at;
    };
    static int64_t write(const clap_ostream_t* stream, const void* data, uint64_t size) {
        auto& s = *static_cast<Stream*>(stream->ctx);
        const size_t n = std::min<size_t>(size, s.chunk);
        s.bytes.append(static_cast<const char*>(data), n);
        return static_cast<int64_t>(n);
    }
    static int64_t read(const clap_istream_t* stream, void* data, uint64_t size) {
        auto& s = *static_cast<Stream*>(stream->ctx);
        const size_t n = std::min({size_t{size}, s.chunk, s.bytes.size() - s.at});
        s.bytes.copy(static_cast<char*>(data), n, s.at);
        s.at += n;
        return static_cast<int64_t>(n);
    }
    static compare::Guarded part(const Frames& input, size_t at, uint32_t frames) {
        return compare::Guarded(std::span(input).subspan(at, frames));
    }
    static Instance& of(const clap_host_t* host) {
        return *static_cast<Instance*>(host->host_data);
    }
    static bool try_push(const clap_output_events_t* list, const clap_event_header_t* event) {
        auto& self = *static_cast<Instance*>(list->ctx);
        if (self.said.size() == self.room) return false;
        EXPECT_EQ(event->time, 0u);
        const auto* value = reinterpret_cast<const clap_event_param_value_t*>(event);
        self.said.push_back({event->type, value->param_id,
                             event->type == CLAP_EVENT_PARAM_VALUE ? value->value : 0.0});
        return true;
    }
    static const void* get_extension(const clap_host_t*, const char* id) {
        static constexpr clap_host_params_t kParams = {
            [](const clap_host_t* h, uint32_t flags) {
                EXPECT_FALSE(of(h).on_audio_thread);
                EXPECT_EQ(flags, uint32_t{CLAP_PARAM_RESCAN_VALUES});
                ++of(h).rescans;
            },
            [](const clap_host_t*, clap_id, uint32_t) {}, [](const clap_host_t*) {}};
        static constexpr clap_host_tail_t kTail = {[](const clap_host_t* h) {
            EXPECT_TRUE(of(h).on_audio_thread);
            ++of(h).tail_changes;
        }};
        static constexpr clap_host_preset_load_t kPresetLoad = {
            [](const clap_host_t* h, uint32_t, const char*, const char*, int32_t, const char*) {
                ++of(h).errors;
            },
            [](const clap_host_t* h, uint32_t, const char*, const char*) { ++of(h).loaded; }};
        static constexpr clap_host_timer_support_t kTimer = {
            [](const clap_host_t* h, uint32_t, clap_id* timer) {
                of(h).timers.insert(*timer = ++of(h).last_timer);
                return true;
            },
            [](const clap_host_t* h, clap_id timer) { return of(h).timers.erase(timer) == 1; }};
        static constexpr clap_host_posix_fd_support_t kFd = {
            [](const clap_host_t* h, int fd, clap_posix_fd_flags_t) {
                return of(h).fds.insert(fd).second;
            },
            [](const clap_host_t*, int, clap_posix_fd_flags_t) { return false; },
            [](const clap_host_t* h, int fd) { return of(h).fds.erase(fd) == 1; }};
        static constexpr clap_host_gui_t kGui = {
            [](const clap_host_t*) {}, [](const clap_host_t*, uint32_t, uint32_t) { return false; },
            [](const clap_host_t*) { return false; }, [](const clap_host_t*) { return false; },
            [](const clap_host_t* h, bool) { ++of(h).windows_closed; }};
        const std::string_view asked = id;
        if (asked == CLAP_EXT_TIMER_SUPPORT) return &kTimer;
        if (asked == CLAP_EXT_POSIX_FD_SUPPORT) return &kFd;
        if (asked == CLAP_EXT_GUI) return &kGui;
        if (asked == CLAP_EXT_PARAMS) return &kParams;
        if (asked == CLAP_EXT_TAIL) return &kTail;
        return asked == CLAP_EXT_PRESET_LOAD ? &kPresetLoad : nullptr;
    }

    clap_host_t host_;
};

} // namespace strict_host

#endif
