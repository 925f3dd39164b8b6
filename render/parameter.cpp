#include "render/parameter.h"

#include "render/errors.h"
#include "render/suggest.h"

#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <vector>

namespace brisel::render {

double Parameter::parse(std::string_view text) const {
    const std::string word = lower_case(trimmed(text));
    if (off && word == "off") return *off;
    for (size_t i = 0; i < words.size(); ++i)
        if (word == lower_case(words[i])) return static_cast<double>(i);
    const double value = parse_value(text, unit);
    if (!(value >= min && value <= max)) {
        const Unit plain = unit == Unit::milliseconds ? Unit::seconds : unit;
        throw ValueError(fmt::format("'{}' ({}) is out of range: {}", trimmed(text),
                                     show_value(value, plain), range()));
    }
    return value;
}

std::string Parameter::range() const {
    if (unit == Unit::on_off) return "on or off";
    if (!words.empty()) return fmt::format("{} to {}", words.front(), words.back());
    return fmt::format("{} to {}", show_value(min, unit), show_value(max, unit));
}

std::string option_name(std::string_view reported_name) {
    const std::string_view words = trimmed(reported_name.substr(0, reported_name.find('(')));
    std::string option;
    for (const char c : words) {
        if (c >= 'A' && c <= 'Z') {
            option += static_cast<char>(c - 'A' + 'a');
        } else if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
            option += c;
        } else if (!option.empty() && option.back() != '-') {
            option += '-';
        }
    }
    if (option == "scattering") return "brisel";
    if (option == "modulation") return "modulate";
    return option;
}

Unit unit_from_text(std::string_view text, double value, bool stepped, double min, double max) {
    const bool zero_to_one = min == 0.0 && max == 1.0;
    if (stepped && zero_to_one && (text == "On" || text == "Off")) return Unit::on_off;
    if (stepped) return Unit::count;
    if (text.ends_with("dB")) return Unit::decibels;
    if (text.ends_with(" Hz")) return Unit::hertz;
    if (text.ends_with(" ms")) {
        double shown = 0.0;
        std::from_chars(text.data(), text.data() + text.size(), shown);
        // The text is rounded to a tenth of a millisecond at worst.
        if (std::fabs(shown - value * 1000.0) <= 0.1) return Unit::milliseconds;
    }
    if (text.ends_with(" s")) return Unit::seconds;
    return zero_to_one ? Unit::ratio : Unit::number;
}

std::optional<size_t> find_parameter(std::span<const Parameter> parameters, std::string_view name) {
    const std::string option = option_name(name);
    for (size_t i = 0; i < parameters.size(); ++i)
        if (parameters[i].option == option) return i;
    return std::nullopt;
}

size_t need_parameter(std::span<const Parameter> parameters, std::string_view name) {
    if (const auto index = find_parameter(parameters, name)) return *index;
    std::vector<std::string> options;
    for (const Parameter& p : parameters) options.push_back(p.option);
    throw ValueError(fmt::format("there is no parameter '{}'{}", name,
                                 did_you_mean(option_name(name), options)));
}

} // namespace brisel::render
