// The table of the parameters, and their text.
#include "live/engine/parameters.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

#include <locale.h>

namespace brisel::live {

namespace {

constexpr const char* kSpace = "Space";
constexpr const char* kMotion = "Reflections and Motion";
constexpr const char* kTone = "Tone and Level";

constexpr const char* kSwitch[] = {"Off", "On"};
constexpr const char* kStages[] = {"K = 0", "K = 1", "K = 2", "K = 3"};
constexpr const char* kNotes[] = {"Off",   "1/64", "1/32", "1/16T", "1/16",
                                  "1/16D", "1/8T", "1/8",  "1/8D",  "1/4"};

constexpr Parameter number(const char* key, const char* name, const char* group, double least,
                           double most, double initial, Unit unit, uint8_t decimals,
                           Skew skew = Skew::kLinear) {
    return {key, name, group, least, most, initial, unit, decimals, skew, {}, nullptr, 0.0};
}

// A number whose effect is off at one end of its range.
constexpr Parameter with_off(Parameter parameter, double at) {
    parameter.off = "Off";
    parameter.off_at = at;
    return parameter;
}

constexpr Parameter steps(const char* key, const char* name, const char* group,
                          std::span<const char* const> words, double initial) {
    const double last = static_cast<double>(words.size()) - 1.0;
    return {key,         name, group,         0.0,   last,    initial,
            Unit::kStep, 0,    Skew::kLinear, words, nullptr, 0.0};
}

// Steps that presets write as a number.
constexpr Parameter counted(Parameter parameter) {
    parameter.unit = Unit::kCount;
    return parameter;
}

constexpr double kTwoSamples = 2.0 / 48000.0; // seconds

constexpr std::array<Parameter, kParameters> kTable = {{
    number("size", "Size", kSpace, 0.005, 0.5, 0.04, Unit::kMilliseconds, 1, Skew::kLogarithmic),
    number("decay", "Decay", kSpace, 0.1, 60.0, 2.0, Unit::kSeconds, 2, Skew::kLogarithmic),
    counted(steps("brisel", "Scattering", kSpace, kStages, 2.0)),
    number("damp", "Damp", kSpace, 0.0, 1.0, 0.3, Unit::kPercent, 0),
    number("mix", "Mix", kSpace, 0.0, 1.0, 0.3, Unit::kPercent, 0),
    number("width", "Width", kSpace, 0.0, 1.0, 0.8, Unit::kPercent, 0),
    steps("modulate", "Modulation", kMotion, kSwitch, 1.0),
    steps("early-reflections", "Early Reflections", kMotion, kSwitch, 0.0),
    number("er-size", "ER Size", kMotion, 0.006, 0.5, 0.06, Unit::kMilliseconds, 1,
           Skew::kLogarithmic),
    number("er-level", "ER Level", kMotion, 0.0, 1.0, 0.5, Unit::kPercent, 0),
    number("eq-low", "EQ Low", kTone, -24.0, 24.0, 0.0, Unit::kDecibels, 1),
    number("eq-high", "EQ High", kTone, -24.0, 24.0, 0.0, Unit::kDecibels, 1),
    number("predelay", "Predelay", kSpace, 0.0, 0.5, 0.0, Unit::kMilliseconds, 1, Skew::kSquare),
    steps("predelay-sync", "Predelay Sync", kMotion, kNotes, 0.0),
    number("diffusion", "Diffusion", kSpace, 0.0, 1.0, 0.0, Unit::kPercent, 0),
    number("mod-depth", "Mod Depth", kMotion, 0.0, 0.33e-3, kTwoSamples, Unit::kMilliseconds, 3),
    number("mod-rate", "Mod Rate", kMotion, 0.1, 4.0, 1.0, Unit::kFactor, 2, Skew::kLogarithmic),
    with_off(number("low-cut", "Low Cut", kTone, 20.0, 2000.0, 20.0, Unit::kHertz, 0,
                    Skew::kLogarithmic),
             20.0),
    with_off(number("high-cut", "High Cut", kTone, 500.0, 20000.0, 20000.0, Unit::kHertz, 0,
                    Skew::kLogarithmic),
             20000.0),
    number("wet-gain", "Wet Gain", kTone, -24.0, 12.0, 0.0, Unit::kDecibels, 1),
    steps("auto-level", "Auto Level", kTone, kSwitch, 1.0),
    number("duck", "Duck", kTone, 0.0, 24.0, 0.0, Unit::kDecibels, 1),
    number("duck-release", "Duck Release", kTone, 0.05, 2.0, 0.3, Unit::kMilliseconds, 0,
           Skew::kLogarithmic),
    steps("freeze", "Freeze", kMotion, kSwitch, 0.0),
    steps("clear", "Clear", kMotion, kSwitch, 0.0),
    steps("bypass", "Bypass", "", kSwitch, 0.0),
}};

constexpr Page kPages[] = {
    {kSpace, {kSize, kDecay, kScattering, kDamp, kDiffusion, kPredelay, kWidth, kMix}},
    {kMotion,
     {kEarlyReflections, kErSize, kErLevel, kPredelaySync, kModulation, kModDepth, kModRate,
      kFreeze}},
    {kTone, {kLowCut, kEqLow, kEqHigh, kHighCut, kWetGain, kAutoLevel, kDuck, kDuckRelease}},
};

std::string_view suffix_of(Unit unit) {
    switch (unit) {
    case Unit::kMilliseconds:
        return " ms";
    case Unit::kSeconds:
        return " s";
    case Unit::kPercent:
        return " %";
    case Unit::kDecibels:
        return " dB";
    case Unit::kHertz:
        return " Hz";
    case Unit::kFactor:
        return " x";
    case Unit::kStep:
    case Unit::kCount:
        break;
    }
    return "";
}

constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool same_word(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, lower, lower);
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The base value of one `suffix`; 0 for a suffix that does not fit. No suffix at all is the
// caller's.
double base_of(Unit unit, std::string_view suffix) {
    const auto is = [=](std::string_view word) { return same_word(suffix, word); };
    switch (unit) {
    case Unit::kMilliseconds:
    case Unit::kSeconds:
        return is("ms") ? 1000.0 : is("s") ? 1.0 : is("us") ? 1e6 : 0.0;
    case Unit::kPercent:
        return is("%") ? 100.0 : 0.0;
    case Unit::kDecibels:
        return is("dB") ? 1.0 : 0.0;
    case Unit::kHertz:
        return is("Hz") ? 1.0 : is("kHz") || is("k") ? 1e-3 : 0.0;
    case Unit::kFactor:
        return is("x") ? 1.0 : 0.0;
    case Unit::kStep:
    case Unit::kCount:
        break;
    }
    return 0.0;
}

std::optional<double> word_value(const Parameter& p, std::string_view text) {
    for (size_t i = 0; i < p.words.size(); ++i)
        if (same_word(text, p.words[i])) return static_cast<double>(i);
    if (p.off && same_word(text, p.off)) return p.off_at;
    if (p.on_off()) {
        if (same_word(text, "yes") || same_word(text, "true")) return 1.0;
        if (same_word(text, "no") || same_word(text, "false")) return 0.0;
    }
    return std::nullopt;
}

// Takes the decimal number off the front of `text`; nothing where there is none, or one that no
// value needs so many digits for. Not by from_chars, which would bring the whole machinery of
// exceptions into libraries that need none of it.
std::optional<double> take_number(std::string_view& text) {
    constexpr std::string_view kDigits = "0123456789";
    const auto past_digits = [=](size_t at) {
        return std::min(text.find_first_not_of(kDigits, at), text.size());
    };
    size_t end = past_digits(text.starts_with('-'));
    if (end < text.size() && text[end] == '.') end = past_digits(end + 1);
    if (text.substr(0, end).find_first_of(kDigits) == std::string_view::npos) return std::nullopt;
    if (end < text.size() && lower(text[end]) == 'e') {
        size_t exponent = end + 1;
        if (exponent < text.size() && (text[exponent] == '-' || text[exponent] == '+')) ++exponent;
        if (past_digits(exponent) > exponent) end = past_digits(exponent);
    }
    char digits[128];
    if (end >= sizeof digits) return std::nullopt;
    digits[text.copy(digits, end)] = '\0';
    text.remove_prefix(end);
    const double number = strtod_l(digits, nullptr, newlocale(LC_ALL_MASK, "C", nullptr));
    return std::isfinite(number) ? std::optional(number) : std::nullopt;
}

// Text put together in a caller's buffer, which is long enough for every parameter.
class Line {
public:
    explicit Line(std::span<char, kLongestText> buffer)
        : begin_(buffer.data()), end_(begin_), last_(begin_ + buffer.size() - 1) {}

    Line& add(std::string_view text) {
        const size_t count = std::min(text.size(), static_cast<size_t>(last_ - end_));
        end_ = std::copy_n(text.begin(), count, end_);
        return *this;
    }
    Line& add_number(double number, int decimals) {
        end_ = std::to_chars(end_, last_, number, std::chars_format::fixed, decimals).ptr;
        return *this;
    }
    Line& add_shortest(double number) {
        end_ = std::to_chars(end_, last_, number).ptr;
        return *this;
    }
    std::string_view text() const {
        *end_ = '\0';
        return {begin_, end_};
    }

private:
    char* begin_;
    char* end_;
    char* last_; // where the null goes at the latest
};

// In front of a number without its sign: gains that go both ways show a "+", too.
std::string_view sign_of(const Parameter& p, bool negative) {
    if (negative) return "-";
    return p.unit == Unit::kDecibels && p.least < 0.0 ? "+" : "";
}

} // namespace

std::span<const Parameter, kParameters> parameters() {
    return kTable;
}

const Parameter* find_parameter(uint32_t id) {
    return id < kParameters ? &kTable[id] : nullptr;
}

Id find_key(std::string_view key) {
    const auto* const row =
        std::ranges::find_if(kTable, [=](const Parameter& p) { return key == p.key; });
    return static_cast<Id>(row - kTable.begin());
}

Settings default_settings() {
    Settings settings;
    std::ranges::transform(kTable, settings.begin(), &Parameter::initial);
    return settings;
}

double clamp(const Parameter& parameter, double value) {
    if (std::isnan(value)) return parameter.initial;
    value = std::clamp(value, parameter.least, parameter.most);
    if (parameter.stepped()) return std::floor(value + 0.5);
    return value + 0.0; // +0 of -0: one value, one text
}

double shown_scale(Unit unit) {
    if (unit == Unit::kMilliseconds) return 1000.0;
    return unit == Unit::kPercent ? 100.0 : 1.0;
}

double to_position(const Parameter& parameter, double value) {
    const double v = clamp(parameter, value);
    if (parameter.skew == Skew::kLogarithmic)
        return std::log(v / parameter.least) / std::log(parameter.most / parameter.least);
    const double share = (v - parameter.least) / (parameter.most - parameter.least);
    return parameter.skew == Skew::kSquare ? std::sqrt(share) : share;
}

double from_position(const Parameter& parameter, double position) {
    const double x = std::isnan(position) ? 0.0 : std::clamp(position, 0.0, 1.0);
    double value;
    if (parameter.skew == Skew::kLogarithmic)
        value = parameter.least * std::pow(parameter.most / parameter.least, x);
    else
        value = parameter.least +
                (parameter.most - parameter.least) * (parameter.skew == Skew::kSquare ? x * x : x);
    return clamp(parameter, value);
}

std::string_view to_text(const Parameter& parameter, double value,
                         std::span<char, kLongestText> buffer) {
    const double v = clamp(parameter, value);
    if (parameter.stepped())
        return Line(buffer).add(parameter.words[static_cast<size_t>(v)]).text();
    // What the digits say decides over the sign and the word for off, so that the text of the value
    // shown is the same text.
    char digits[kLongestText];
    const std::string_view unsigned_text =
        Line(digits)
            .add_number(std::fabs(v) * shown_scale(parameter.unit), parameter.decimals)
            .text();
    std::string_view rest = unsigned_text;
    const double shown = take_number(rest).value_or(0.0);
    const bool negative = v < 0.0 && shown > 0.0;
    if (parameter.off && shown == parameter.off_at) return Line(buffer).add(parameter.off).text();
    return Line(buffer)
        .add(sign_of(parameter, negative))
        .add(unsigned_text)
        .add(suffix_of(parameter.unit))
        .text();
}

std::string_view to_exact_text(const Parameter& parameter, double value,
                               std::span<char, kLongestText> buffer) {
    const double v = clamp(parameter, value);
    if (parameter.unit == Unit::kStep)
        return Line(buffer).add(parameter.words[static_cast<size_t>(v)]).text();
    const double scale = shown_scale(parameter.unit);
    if (v * scale / scale == v) {
        const bool bare = parameter.unit == Unit::kFactor;
        return Line(buffer)
            .add(sign_of(parameter, v < 0.0))
            .add_shortest(std::fabs(v) * scale)
            .add(bare ? "" : suffix_of(parameter.unit))
            .text();
    }
    // Some values have no exact form in thousandths or hundredths.
    return Line(buffer).add_shortest(v).add(parameter.unit == Unit::kPercent ? "" : " s").text();
}

std::optional<double> from_text(const Parameter& parameter, std::string_view text,
                                BareNumber bare) {
    text = trimmed(text);
    if (const auto value = word_value(parameter, text)) return value;
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    const std::optional<double> number = take_number(text);
    if (!number) return std::nullopt;
    const std::string_view suffix = trimmed(text);
    double scale;
    if (!suffix.empty())
        scale = base_of(parameter.unit, suffix);
    else
        scale = bare == BareNumber::kShown ? shown_scale(parameter.unit) : 1.0;
    if (scale == 0.0) return std::nullopt;
    return clamp(parameter, *number / scale);
}

std::span<const Page> pages() {
    return kPages;
}

} // namespace brisel::live
