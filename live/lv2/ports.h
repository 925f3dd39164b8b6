// The ports of brisel-live.lv2: which there are, in which order, and what a number on a parameter's
// port means. Read by the plug-in, its window and the program that describes them to hosts.
#ifndef BRISEL_LIVE_LV2_PORTS_H
#define BRISEL_LIVE_LV2_PORTS_H

#include <cmath>
#include <cstdint>

#include "live/engine/parameters.h"

namespace brisel::live::lv2 {

inline constexpr const char* kStereoUri = "https://tamrockaudio.com/lv2/brisel-live";
inline constexpr const char* kMonoUri = "https://tamrockaudio.com/lv2/brisel-live-mono";
inline constexpr const char* kWindowUri = "https://tamrockaudio.com/lv2/brisel-live-window";

// The stereo plug-in's ports by index. The parameters stand last, by id, so that one that is
// appended to their table is appended here.
enum Port : uint32_t {
    kInLeft,
    kInRight, // the mono plug-in lacks this one
    kOutLeft,
    kOutRight,
    kTime, // atoms: where the host's song is, and its tempo
    kInputLevel,
    kWetLevel,
    kOutputLevel,
    kDucking,
    kFirstParameter,
    kPorts = kFirstParameter + kParameters
};

// What the meters show; a level below the range counts as its least.
inline constexpr float kLeastLevel = -90.0f; // dBFS
inline constexpr float kMostLevel = 20.0f;
inline constexpr float kMostDucking = 24.0f; // dB

// The port that a host means by `index`, and the index by which it knows a port.
constexpr uint32_t port_at(uint32_t index, bool mono) {
    return mono && index >= kInRight ? index + 1 : index;
}
constexpr uint32_t index_of(uint32_t port, bool mono) {
    return mono && port > kInRight ? port - 1 : port;
}

// The number on a parameter's port: the one that people read ("40" is 40 ms, "30" is 30 %), so that
// every host shows it well. Bypass is the other way about there: lv2:enabled.
inline float to_port(Id id, double value) {
    if (id == kBypass) return value > 0.0 ? 0.0f : 1.0f;
    return static_cast<float>(value * shown_scale(parameters()[id].unit));
}

// The parameter's value for a number on its port, not clamped; NaN for NaN. A number that is the
// nearest one to a short decimal stands for that decimal: 1.3, not 1.2999999523. One that differs
// from the default's by less than hosts keep in text, seven digits, is the default. So a value
// comes through this port as it comes through every other format.
inline double from_port(Id id, float number) {
    constexpr double kDecimals = 1e5;
    constexpr float kText = 1e-6f;
    const Parameter& p = parameters()[id];
    if (std::isnan(number)) return static_cast<double>(number);
    if (id == kBypass) return number > 0.0f ? 0.0 : 1.0;
    if (p.on_off()) return number > 0.0f ? 1.0 : 0.0;
    const float initial = to_port(id, p.initial);
    if (std::fabs(number - initial) <= kText * std::fabs(initial)) return p.initial;
    const double rounded = std::nearbyint(static_cast<double>(number) * kDecimals) / kDecimals;
    const bool nearest = static_cast<float>(rounded) == number;
    return (nearest ? rounded : static_cast<double>(number)) / shown_scale(p.unit);
}

} // namespace brisel::live::lv2

#endif
