// A strict host of brisel-live.clap: it offers what hosts offer, notes every call back and the
// thread it came on, and checks each block as a validator does.
#ifndef BRISEL_TESTS_LIVE_STRICT_HOST_H
#define BRISEL_TESTS_LIVE_STRICT_HOST_H

#include <array>
#include <atomic>
#include <set>
#include <thread>

#include "live/clap/plugin.h"
#include "tests/clap_host.h"
#include "tests/compare.h"

namespace strict_host {

using namespace brisel::live;
using Frames = std::vector<float>;
using Stereo = std::array<Frames, 2>;

inline const clap_plugin_entry_t& entry() {
    static const host::Library library(BRISEL_LIVE_CLAP_FILE);
    return *library.entry();
}

// A host's list of events of any kind, in the order in which they are added.
class Events {
public:
    Events() = default;
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;
    Events& value(uint32_t id, double value, uint32_t time = 0) {
        return add(clap_event_param_value_t{{}, id, nullptr, -1, -1, -1, -1, value},
                   CLAP_EVENT_PARAM_VALUE, time);
    }
    Events& modulation(uint32_t id, double amount, uint32_t time = 0) {
        return add(clap_event_param_mod_t{{}, id, nullptr, -1, -1, -1, -1, amount},
                   CLAP_EVENT_PARAM_MOD, time);
    }
    Events& tempo(double tempo, uint32_t time, uint32_t flags = CLAP_TRANSPORT_HAS_TEMPO) {
        clap_event_transport_t event = {};
        event.flags = flags;
        event.tempo = tempo;
        return add(event, CLAP_EVENT_TRANSPORT, time);
    }
    template <class Event>
    Events& add(Event event, uint16_t type, uint32_t time, uint16_t space = 0,
                uint32_t size = sizeof(Event)) {
        event.header = {size, time, space, type, 0};
        auto& bytes = events_.emplace_back(sizeof event / 4);
        std::memcpy(bytes.data(), &event, sizeof event);
        return *this;
    }
    Events& add_missing() {
        events_.emplace_back();
        return *this;
    }
    const clap_input_events_t* list() const { return &list_; }

private:
    using List = std::vector<std::vector<uint32_t>>;
    static const List& of(const clap_input_events_t* list) {
        return static_cast<const Events*>(list->ctx)->events_;
    }
    List events_;
    clap_input_events_t list_ = {
        this, [](auto* list) { return static_cast<uint32_t>(of(list).size()); },
        [](auto* list, uint32_t index) {
            const auto& bytes = of(list).at(index);
            return bytes.empty() ? nullptr
                                 : reinterpret_cast<const clap_event_header_t*>(bytes.data());
        }};
};

// The host of one instance.
class Host {
public:
    int rescans = 0, tail_changes = 0, loaded = 0, errors = 0, windows_closed = 0;
    std::set<clap_id> timers; // registered
    clap_id last_timer = 0;
    std::set<int> fds;                              // registered
    std::atomic<std::thread::id> audio_thread = {}; // none when it is no thread's turn
    const clap_host_t clap = {{1, 2, 8}, this,          "strict",     "",           "",
                              "1",       get_extension, [](auto*) {}, [](auto*) {}, [](auto*) {}};

private:
    static Host& of(const clap_host_t* host) { return *static_cast<Host*>(host->host_data); }
    static const void* get_extension(const clap_host_t*, const char* id) {
        static constexpr clap_host_params_t kHostParams = {
            [](auto* h, uint32_t flags) {
                EXPECT_FALSE(of(h).audio_thread == std::this_thread::get_id());
                EXPECT_EQ(flags, uint32_t{CLAP_PARAM_RESCAN_VALUES});
                ++of(h).rescans;
            },
            [](auto*, clap_id, uint32_t) {}, [](auto*) {}};
        static constexpr clap_host_tail_t kHostTail = {[](auto* h) {
            EXPECT_TRUE(of(h).audio_thread == std::this_thread::get_id());
            ++of(h).tail_changes;
        }};
        static constexpr clap_host_preset_load_t kHostPresetLoad = {
            [](auto* h, uint32_t, const char*, const char*, int32_t, const char*) {
                ++of(h).errors;
            },
            [](auto* h, uint32_t, const char*, const char*) { ++of(h).loaded; }};
        static constexpr clap_host_timer_support_t kHostTimer = {
            [](auto* h, uint32_t, clap_id* timer) {
                of(h).timers.insert(*timer = ++of(h).last_timer);
                return true;
            },
            [](auto* h, clap_id timer) { return of(h).timers.erase(timer) == 1; }};
        static constexpr clap_host_posix_fd_support_t kHostFd = {
            [](auto* h, int fd, clap_posix_fd_flags_t) { return of(h).fds.insert(fd).second; },
            [](auto*, int, clap_posix_fd_flags_t) { return false; },
            [](auto* h, int fd) { return of(h).fds.erase(fd) == 1; }};
        static constexpr clap_host_gui_t kHostGui = {
            [](auto*) {}, [](auto*, uint32_t, uint32_t) { return false; },
            [](auto*) { return false; }, [](auto*) { return false; },
            [](auto* h, bool) { ++of(h).windows_closed; }};
        const std::string_view asked = id;
        if (asked == CLAP_EXT_TIMER_SUPPORT) return &kHostTimer;
        if (asked == CLAP_EXT_POSIX_FD_SUPPORT) return &kHostFd;
        if (asked == CLAP_EXT_GUI) return &kHostGui;
        if (asked == CLAP_EXT_PARAMS) return &kHostParams;
        if (asked == CLAP_EXT_TAIL) return &kHostTail;
        return asked == CLAP_EXT_PRESET_LOAD ? &kHostPresetLoad : nullptr;
    }
};

// What the plug-in says to the host: kind, parameter, value.
struct Said {
    uint16_t type;
    clap_id id;
    double value;
    bool operator==(const Said&) const = default;
};

// One initialised instance and its host.
class Instance : public Host, public host::Plugin {
public:
    Instance() : Plugin(entry(), "com.tamrockaudio.brisel-live", &clap) { EXPECT_TRUE(usable); }
    ~Instance() { stop(); }

    bool start(double rate = 48000.0, uint32_t most_frames = 512) {
        stop();
        return started_ = activate(rate, most_frames);
    }
    void stop() {
        if (std::exchange(started_, false)) deactivate();
    }

    struct Block {
        clap_process_status status;
        uint64_t mask;
        Stereo out;
    };
    // Renders `frames` of the input from `at` on, this thread being the audio thread; ports as wide
    // as given, `in_place` between two of one width. Every sample must be written, finite, and no
    // subnormal; none behind them touched.
    Block render(const Stereo& input, size_t at, uint32_t frames, const Events* events = nullptr,
                 bool in_place = false, uint32_t inputs = 2, uint32_t outputs = 2) {
        compare::Guarded in[2] = {part(input[0], at, frames), part(input[1], at, frames)};
        compare::Guarded out[2] = {compare::Guarded(frames, 1), compare::Guarded(frames, 2)};
        for (auto& channel : out) std::fill_n(channel.data(), frames, std::nanf(""));
        auto* to = in_place ? in : out;
        float* in_channels[] = {in[0].data(), in[1].data()};
        float* out_channels[] = {to[0].data(), to[1].data()};
        const clap_audio_buffer_t from = {in_channels, nullptr, inputs, 0, 0};
        clap_audio_buffer_t into = {out_channels, nullptr, outputs, 0, ~uint64_t{0}};
        const clap_output_events_t heard = {this, hear};
        const clap_process_t call = {
            -1, frames, nullptr, &from, &into, 1, 1, events ? events->list() : nullptr, &heard};
        audio_thread = std::this_thread::get_id();
        Block block = {plugin->process(plugin, &call), into.constant_mask, {}};
        audio_thread = std::thread::id();
        for (uint32_t c = 0; c < outputs; ++c) {
            block.out[c].assign(to[c].data(), to[c].data() + frames);
            EXPECT_TRUE(std::ranges::all_of(
                block.out[c],
                [](float x) { return std::isfinite(x) && (x == 0.0f || std::isnormal(x)); }))
                << "channel " << c;
        }
        EXPECT_TRUE(in[0].intact() && in[1].intact() && out[0].intact() && out[1].intact());
        return block;
    }
    void flush(const Events& events) {
        const clap_output_events_t heard = {this, hear};
        params->flush(plugin, events.list(), &heard);
    }
    std::string text(uint32_t id, double value) const {
        char text[CLAP_NAME_SIZE];
        EXPECT_TRUE(params->value_to_text(plugin, id, value, text, sizeof text)) << id;
        return text;
    }
    Settings settings() const {
        Settings all;
        for (uint32_t id = 0; id < kParameters; ++id) all[id] = value(id);
        return all;
    }

    // A state, moved at most `chunk` bytes a call; of a context, where one is given.
    std::string saved(uint32_t context = 0, size_t chunk = 23) {
        host::Stream stream{{}, chunk};
        const clap_ostream_t to = stream.to();
        EXPECT_TRUE(context ? of_context()->save(plugin, &to, context) : state->save(plugin, &to));
        return {stream.bytes.begin(), stream.bytes.end()};
    }
    bool loads(const std::string& bytes, uint32_t context = 0, size_t chunk = 17) {
        host::Stream stream{{bytes.begin(), bytes.end()}, chunk};
        const clap_istream_t from = stream.from();
        return context ? of_context()->load(plugin, &from, context) : state->load(plugin, &from);
    }

    // What a window does: it works on the instance's own values.
    Values& window() const { return clap::self(plugin).reverb.values(); }

    std::vector<Said> said;
    size_t room = 1000; // events that the output list takes

private:
    const clap_plugin_state_context_t* of_context() const {
        return extension<clap_plugin_state_context_t>(CLAP_EXT_STATE_CONTEXT);
    }
    static compare::Guarded part(const Frames& input, size_t at, uint32_t frames) {
        return compare::Guarded(std::span(input).subspan(at, frames));
    }
    static bool hear(const clap_output_events_t* list, const clap_event_header_t* event) {
        auto& self = *static_cast<Instance*>(list->ctx);
        if (self.said.size() == self.room) return false;
        EXPECT_EQ(event->time, 0u);
        const auto* value = reinterpret_cast<const clap_event_param_value_t*>(event);
        self.said.push_back({event->type, value->param_id,
                             event->type == CLAP_EVENT_PARAM_VALUE ? value->value : 0.0});
        return true;
    }

    bool started_ = false;
};

} // namespace strict_host

#endif
