// Brisel Live for LV2 hosts, one plug-in with a stereo input and one with a mono input. A thin
// shell: the sound is the engine's. It asks nothing of its host: without a map of URIs it does not
// hear the host's tempo, and that is all.
#include <lv2/atom/atom.h>
#include <lv2/atom/util.h>
#include <lv2/core/lv2.h>
#include <lv2/time/time.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <optional>

#include "core/cpu.h"
#include "live/engine/reverb.h"
#include "live/lv2/ports.h"

namespace brisel::live::lv2 {

namespace {

// The engine takes blocks of any length and cuts the longer ones itself.
constexpr uint32_t kUsualBlock = 1024; // frames

constexpr float kFall = 24.0f; // dB a second, of the level meters

// The numbers of the URIs that tell a tempo; all 0 where the host has no map.
struct Urids {
    LV2_URID blank, object, position, beats_per_minute;
    LV2_URID types[4]; // of a number: Float, Double, Int, Long

    explicit Urids(const LV2_URID_Map* map) {
        const auto number = [=](const char* uri) { return map ? map->map(map->handle, uri) : 0; };
        blank = number(LV2_ATOM__Blank);
        object = number(LV2_ATOM__Object);
        position = number(LV2_TIME__Position);
        beats_per_minute = number(LV2_TIME__beatsPerMinute);
        const char* const names[] = {LV2_ATOM__Float, LV2_ATOM__Double, LV2_ATOM__Int,
                                     LV2_ATOM__Long};
        std::ranges::transform(names, types, number);
    }

    // The number in an atom, of whatever type hosts use; nothing for another atom, or none.
    std::optional<double> value(const LV2_Atom* atom) const {
        if (!atom) return std::nullopt;
        const auto read = [=]<class Number>(Number number) -> std::optional<double> {
            if (atom->size < sizeof number) return std::nullopt;
            std::memcpy(&number, atom + 1, sizeof number);
            return static_cast<double>(number);
        };
        if (atom->type == types[0]) return read(float{});
        if (atom->type == types[1]) return read(double{});
        if (atom->type == types[2]) return read(int32_t{});
        if (atom->type == types[3]) return read(int64_t{});
        return std::nullopt;
    }

    // Quarter notes a minute, of an event that tells a tempo. The metre's beat does not count: a
    // host that plays 120 quarters a minute in 6/8 tells 120 and a beat of an eighth (Ardour 7).
    std::optional<double> tempo(const LV2_Atom& event) const {
        if (position == 0 || (event.type != object && event.type != blank)) return std::nullopt;
        const auto& body = reinterpret_cast<const LV2_Atom_Object&>(event);
        if (body.body.otype != position) return std::nullopt;
        const LV2_Atom* beats = nullptr;
        lv2_atom_object_get(&body, beats_per_minute, &beats, 0);
        return value(beats);
    }
};

class Plugin {
public:
    Plugin(bool mono, const LV2_URID_Map* map) : mono_(mono), urids_(map) {}

    bool prepare(double rate) {
        rate_ = rate;
        activate();
        return reverb_.exists() && reverb_.prepare(rate, kUsualBlock);
    }

    void connect(uint32_t index, void* data) {
        const uint32_t port = port_at(index, mono_);
        if (port >= kPorts) return;
        if (port >= kFirstParameter)
            controls_[port - kFirstParameter] = static_cast<const float*>(data);
        else if (port == kTime)
            time_ = static_cast<const LV2_Atom_Sequence*>(data);
        else
            signals_[port] = static_cast<float*>(data);
    }

    // The values come with the first block: before it, ports need not be connected.
    void activate() {
        fresh_ = true;
        std::ranges::fill(taken_, NAN);
        std::ranges::fill(levels_, 0.0f);
    }

    void run(uint32_t frames) {
        Event events[kParameters];
        const std::span<const Event> changes(events, take_controls(events));
        if (fresh_) {
            for (const Event& change : changes)
                reverb_.values().set_plain(change.parameter, change.value);
            reverb_.reset();
            fresh_ = false;
        }
        render(frames, changes);
        show_meters(frames);
    }

private:
    // The parameters whose ports have changed, as events; returns their number. A NaN changes
    // nothing.
    size_t take_controls(Event (&events)[kParameters]) {
        size_t count = 0;
        for (uint16_t id = 0; id < kParameters; ++id) {
            if (!controls_[id]) continue;
            const float number = *controls_[id];
            if (std::isnan(number) || number == taken_[id]) continue;
            taken_[id] = number;
            events[count++] = {0, id, false, from_port(static_cast<Id>(id), number)};
        }
        return count;
    }

    // A new tempo holds from its own frame on, wherever the host's block begins.
    void render(uint32_t frames, std::span<const Event> changes) {
        uint32_t done = 0;
        const auto render_to = [&](uint32_t end) {
            const auto at = [=](float* signal) { return signal ? signal + done : nullptr; };
            const float* const in[2] = {at(signals_[kInLeft]), at(signals_[kInRight])};
            float* const out[2] = {at(signals_[kOutLeft]), at(signals_[kOutRight])};
            reverb_.process(in, out, end - done, changes, tempo_ ? &*tempo_ : nullptr);
            changes = {};
            done = end;
        };
        if (time_) {
            LV2_ATOM_SEQUENCE_FOREACH(time_, event) {
                const std::optional<double> tempo = urids_.tempo(event->body);
                if (!tempo || (tempo_ && tempo_->beats_per_minute == *tempo)) continue;
                const auto frame = std::clamp<int64_t>(event->time.frames, done, frames);
                if (frame > done) render_to(static_cast<uint32_t>(frame));
                tempo_ = Tempo{*tempo};
            }
        }
        render_to(frames);
    }

    // Peaks rise at once and fall evenly, so that a host that looks now and then misses none.
    void show_meters(uint32_t frames) {
        const Meters meters = reverb_.read_meters();
        const float peaks[] = {meters.input, meters.wet, meters.output};
        const float fall = std::pow(10.0f, -kFall / 20.0f * static_cast<float>(frames / rate_));
        for (uint32_t k = 0; k < 3; ++k) {
            levels_[k] = std::max(peaks[k], levels_[k] * fall);
            show(kInputLevel + k, std::clamp(decibels(levels_[k]), kLeastLevel, kMostLevel));
        }
        show(kDucking, std::clamp(-decibels(meters.duck), 0.0f, kMostDucking));
    }

    void show(uint32_t port, float number) {
        if (signals_[port]) *signals_[port] = number;
    }

    static float decibels(float gain) { return 20.0f * std::log10(std::max(gain, 1e-6f)); }

    const bool mono_;
    const Urids urids_;
    double rate_ = 0.0; // Hz
    Reverb reverb_;

    float* signals_[kFirstParameter] = {}; // sound and meters, by port
    const LV2_Atom_Sequence* time_ = nullptr;
    const float* controls_[kParameters] = {};

    bool fresh_ = true;             // activated, and not run since
    float taken_[kParameters] = {}; // numbers on the ports in force; NaN for none
    float levels_[3] = {};          // of the meters, linear
    std::optional<Tempo> tempo_;
};

Plugin& plugin_of(LV2_Handle handle) {
    return *static_cast<Plugin*>(handle);
}

LV2_Handle instantiate(const LV2_Descriptor* descriptor, double rate, const char*,
                       const LV2_Feature* const* features) {
    const LV2_URID_Map* map = nullptr;
    for (; features && *features; ++features)
        if (std::strcmp((*features)->URI, LV2_URID__map) == 0)
            map = static_cast<const LV2_URID_Map*>((*features)->data);
    const bool mono = std::strcmp(descriptor->URI, kMonoUri) == 0;
    auto* plugin = new (std::nothrow) Plugin(mono, map);
    if (plugin && plugin->prepare(rate)) return plugin;
    delete plugin;
    return nullptr;
}

constexpr LV2_Descriptor describe(const char* uri) {
    return {uri,
            instantiate,
            [](LV2_Handle handle, uint32_t index, void* data) {
                plugin_of(handle).connect(index, data);
            },
            [](LV2_Handle handle) { plugin_of(handle).activate(); },
            [](LV2_Handle handle, uint32_t frames) { plugin_of(handle).run(frames); },
            nullptr,
            [](LV2_Handle handle) { delete &plugin_of(handle); },
            [](const char*) -> const void* { return nullptr; }};
}

constexpr LV2_Descriptor kPlugins[] = {describe(kStereoUri), describe(kMonoUri)};

} // namespace

} // namespace brisel::live::lv2

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    using brisel::live::lv2::kPlugins;
    if (!brisel::processor_serves_or_complain()) return nullptr;
    return index < std::size(kPlugins) ? &kPlugins[index] : nullptr;
}
