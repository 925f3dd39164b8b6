// Presets and saved states of Brisel Live as text: one `key = value` a line, `#` before comments,
// in any order, the form of the presets that the renderer reads. And the presets that the program
// brings along.
#ifndef BRISEL_LIVE_PRESETS_H
#define BRISEL_LIVE_PRESETS_H

#include <cstddef>
#include <span>
#include <string_view>

#include "live/engine/values.h"

namespace brisel::live {

struct Preset {
    Settings
        settings; // of all parameters; those that the text does not mention have their defaults
    ParameterMask given; // those that it does mention
};

// What a preset leaves as it is: Bypass and Clear belong to the moment, not to the sound.
inline constexpr ParameterMask kNotInPresets = bit_of(kBypass) | bit_of(kClear);

// Longest text that is read or written, bytes.
inline constexpr size_t kLongestPreset = 8192;

// Reads a preset or a saved state. Unknown keys, and values that are no value of theirs, are passed
// over; values out of range are clamped; of a key that comes twice the last counts.
// Returns false, and `preset` is unchanged, for what is no preset: longer than kLongestPreset,
// control characters, a line that is neither empty nor a comment nor `key = value`, or not one
// value of a known key. Allocates nothing. [any-thread]
bool read_preset(std::string_view text, Preset& preset);

// Writes `settings` without the parameters of `left_out`, in the order of ids, so that read_preset
// gives exactly these values. `comment` becomes the first line where it is not empty (a single
// line).
// Returns the text, in `buffer`. Allocates nothing. [any-thread]
std::string_view write_preset(const Settings& settings, ParameterMask left_out,
                              std::string_view comment, std::span<char, kLongestPreset> buffer);

struct FactoryPreset {
    std::string_view category; // "Halls"
    std::string_view name;     // "Vocal Plate"
    std::string_view
        key; // "plates/vocal-plate": unique, stable, the file's path without its ending
    std::string_view description; // one line, why it exists
    std::string_view text;        // for read_preset
};

// Those in the program, sorted by category, then name; all of it static. [any-thread]
std::span<const FactoryPreset> factory_presets();

// Null when there is none of that key. [any-thread]
const FactoryPreset* find_factory_preset(std::string_view key);

// The name that a file's stem stands for: "vocal-plate" is "Vocal Plate". Returns the text, in
// `buffer`, cut to its length. [any-thread]
std::string_view preset_name(std::string_view stem, std::span<char> buffer);

} // namespace brisel::live

#endif
