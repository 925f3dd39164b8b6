// The parameters of Brisel Live: the one table that the sound, the plug-in adapters, the presets
// and the window read, and a parameter's text both ways.
#ifndef BRISEL_LIVE_PARAMETERS_H
#define BRISEL_LIVE_PARAMETERS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace brisel::live {

// A parameter's id is its row in the table. Hosts save them: append, never renumber. The first
// twelve are those of the exact plug-in.
enum Id : uint16_t {
    kSize,
    kDecay,
    kScattering,
    kDamp,
    kMix,
    kWidth,
    kModulation,
    kEarlyReflections,
    kErSize,
    kErLevel,
    kEqLow,
    kEqHigh,
    kPredelay,
    kPredelaySync,
    kDiffusion,
    kModDepth,
    kModRate,
    kLowCut,
    kHighCut,
    kWetGain,
    kAutoLevel,
    kDuck,
    kDuckRelease,
    kFreeze,
    kClear,
    kBypass,
    kParameters // their number
};

// How a value is shown; the value itself is in the base unit.
enum class Unit : uint8_t {
    kMilliseconds, // of a value in seconds
    kSeconds,
    kPercent, // of a value 0 .. 1
    kDecibels,
    kHertz,
    kFactor, // 1.00 x
    kStep,   // one of a few words; the value is the word's index
    kCount,  // likewise, but presets write the index
};

// How the way of a knob maps to values.
enum class Skew : uint8_t { kLinear, kLogarithmic, kSquare };

struct Parameter {
    const char* key;   // in presets, and with `_` for `-` as an LV2 symbol
    const char* name;  // what people read
    const char* group; // heading under which windows and hosts list it; "" for none
    double least, most, initial;
    Unit unit;
    uint8_t decimals; // of the number shown
    Skew skew;
    std::span<const char* const> words; // of the steps; else empty
    const char*
        off; // word shown instead of the number at the end of the range where the effect is off;
             // null for none
    double off_at; // that end

    bool stepped() const { return !words.empty(); }
    bool on_off() const { return stepped() && words.size() == 2; }
};

// All of them, by id.
std::span<const Parameter, kParameters> parameters();

// Null for a number that is no id. [any-thread]
const Parameter* find_parameter(uint32_t id);

// The id of a key; kParameters when there is none such. [any-thread]
Id find_key(std::string_view key);

// The values of all parameters, by id, in base units.
using Settings = std::array<double, kParameters>;
Settings default_settings();

// The nearest value that the parameter takes: within its range and, of steps, a whole number. NaN
// gives the default. [any-thread]
double clamp(const Parameter& parameter, double value);

// The number shown is the value times this: 1000 of milliseconds, 100 of percent, else 1.
// [any-thread]
double shown_scale(Unit unit);

// A knob's position, 0 .. 1, and back. [any-thread]
double to_position(const Parameter& parameter, double value);
double from_position(const Parameter& parameter, double position);

// Longest text of a value, with the null at its end, in bytes.
inline constexpr size_t kLongestText = 32;

// What is shown for a value: "40.0 ms", "K = 2", "+0.0 dB", "Off". The result lies in `buffer`,
// which also gets a null behind it. Independent of the locale; from_text gives the value shown.
// [any-thread]
std::string_view to_text(const Parameter& parameter, double value,
                         std::span<char, kLongestText> buffer);

// The shortest text that from_text(.., BareNumber::kBase) turns back into exactly clamp(value): the
// form of presets and saved states. Result as to_text's. [any-thread]
std::string_view to_exact_text(const Parameter& parameter, double value,
                               std::span<char, kLongestText> buffer);

// What a number without a unit stands for.
enum class BareNumber : uint8_t {
    kShown, // the unit shown: "40" is 40 ms, "30" is 30 %; what people type
    kBase,  // the base unit: "0.04" is 40 ms, "0.3" is 30 %; what presets hold
};

// The value of a text such as "40 ms", "0.04s", "35%", "-2 dB", "1/16D", "on", "8 kHz", clamped to
// the parameter's range; nothing for a text that is neither a number, with or without a fitting
// unit, nor one of the parameter's words. Blanks around it and upper or lower case do not count.
// Independent of the locale. [any-thread]
std::optional<double> from_text(const Parameter& parameter, std::string_view text,
                                BareNumber bare = BareNumber::kShown);

// Eight parameters that belong under one row of a controller's knobs.
struct Page {
    const char* name; // also the group of its parameters
    Id ids[8];
};
std::span<const Page> pages();

} // namespace brisel::live

#endif
