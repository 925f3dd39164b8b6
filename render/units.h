// Values as people write them: "40ms", "0.04s", "35%", "-2dB", "on". Owns the text forms of every
// kind of value, both ways; knows nothing of parameters or ranges. Independent of the locale.
#pragma once

#include <string>
#include <string_view>

namespace brisel::render {

enum class Unit {
    number,       // anything
    ratio,        // 0.35 or 35%
    milliseconds, // a time shown in milliseconds; the value is in seconds all the same
    seconds,      // a time
    decibels,     // a gain; the value is in dB
    hertz,        // a frequency
    count,        // a whole number
    on_off,       // a switch; the value is 1 or 0
};

// The value of `text`, in the unit's base (seconds, dB, 0 .. 1). A number alone is in the base
// unit. Surrounding blanks are ignored, anything else behind the value is not.
// Throws ValueError with the forms that would do.
double parse_value(std::string_view text, Unit unit);

// The shortest text that parse_value turns back into exactly `value`: "40 ms", "+3 dB", "on".
std::string show_value(double value, Unit unit);

// "ms", "s", "dB" ...: the unit as a word for tables; empty for plain numbers.
std::string_view unit_name(Unit unit);

// `text` with small letters in place of A to Z.
std::string lower_case(std::string_view text);

// `text` without blanks at either end.
std::string_view trimmed(std::string_view text);

} // namespace brisel::render
