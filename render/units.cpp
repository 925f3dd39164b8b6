#include "render/units.h"

#include "render/errors.h"

#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <optional>

namespace brisel::render {

namespace {

struct Quantity {
    double number;
    std::string suffix; // lower case, without blanks around it
};

std::optional<Quantity> split_quantity(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    double number = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || !std::isfinite(number)) return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return Quantity{number, lower_case(trimmed(text))};
}

std::optional<double> switch_value(std::string_view text) {
    const std::string word = lower_case(text);
    if (word == "on" || word == "yes" || word == "true" || word == "1") return 1.0;
    if (word == "off" || word == "no" || word == "false" || word == "0") return 0.0;
    return std::nullopt;
}

std::optional<double> value_of(const Quantity& q, Unit unit) {
    switch (unit) {
    case Unit::number:
        if (q.suffix.empty() || q.suffix == "x") return q.number;
        break;
    case Unit::ratio:
        if (q.suffix.empty()) return q.number;
        if (q.suffix == "%") return q.number / 100.0;
        break;
    case Unit::milliseconds:
    case Unit::seconds:
        if (q.suffix.empty() || q.suffix == "s") return q.number;
        if (q.suffix == "ms") return q.number / 1000.0;
        break;
    case Unit::decibels:
        if (q.suffix.empty() || q.suffix == "db") return q.number;
        break;
    case Unit::hertz:
        if (q.suffix.empty() || q.suffix == "hz") return q.number;
        if (q.suffix == "khz" || q.suffix == "k") return q.number * 1000.0;
        break;
    case Unit::count:
        if (q.suffix.empty() && q.number == std::floor(q.number)) return q.number;
        break;
    case Unit::on_off:
        break;
    }
    return std::nullopt;
}

std::string_view what_would_do(Unit unit) {
    switch (unit) {
    case Unit::ratio:
        return "not a share; write it as 0.35 or 35%";
    case Unit::milliseconds:
    case Unit::seconds:
        return "not a time; write it as 40ms or 0.04s";
    case Unit::decibels:
        return "not a gain; write it as -2dB or +3dB";
    case Unit::hertz:
        return "not a frequency; write it as 80Hz or 2kHz";
    case Unit::count:
        return "not a whole number";
    case Unit::on_off:
        return "neither on nor off";
    case Unit::number:
        break;
    }
    return "not a number";
}

} // namespace

std::string lower_case(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

double parse_value(std::string_view text, Unit unit) {
    const std::string_view body = trimmed(text);
    std::optional<double> value;
    if (unit == Unit::on_off) {
        value = switch_value(body);
    } else if (const auto quantity = split_quantity(body)) {
        value = value_of(*quantity, unit);
    }
    if (!value) throw ValueError(fmt::format("'{}' is {}", body, what_would_do(unit)));
    return *value;
}

std::string show_value(double value, Unit unit) {
    if (unit == Unit::on_off) return value >= 0.5 ? "on" : "off";

    const bool in_ms = unit == Unit::milliseconds;
    const std::string_view name = unit == Unit::ratio ? "" : unit_name(unit);
    const std::string_view sign = unit == Unit::decibels && value > 0.0 ? "+" : "";
    const double shown = in_ms ? value * 1000.0 : value;
    for (int decimals = 0; decimals <= 17; ++decimals) {
        std::string text =
            fmt::format("{}{:.{}f}{}{}", sign, shown, decimals, name.empty() ? "" : " ", name);
        if (parse_value(text, unit) == value) return text;
    }
    // Some times have no exact form in milliseconds, and tiny values need an exponent.
    return fmt::format("{}{}", value, in_ms ? " s" : "");
}

std::string_view unit_name(Unit unit) {
    switch (unit) {
    case Unit::milliseconds:
        return "ms";
    case Unit::seconds:
        return "s";
    case Unit::decibels:
        return "dB";
    case Unit::hertz:
        return "Hz";
    case Unit::ratio:
        return "0..1";
    case Unit::number:
    case Unit::count:
    case Unit::on_off:
        break;
    }
    return "";
}

} // namespace brisel::render
