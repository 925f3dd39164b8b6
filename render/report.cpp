#include "render/report.h"

#include "render/streams.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <string_view>
#include <unistd.h>

namespace brisel::render {

namespace {

double decibels(double linear) {
    return 20.0 * std::log10(linear);
}

double seconds(uint64_t frames, const Summary& s) {
    return static_cast<double>(frames) / s.sample_rate;
}

uint64_t tail_frames(const Summary& s) {
    return s.frames - s.input_frames;
}

// Rendered seconds a second: 100 renders a minute of sound in 0.6 s.
double real_time_factor(const Summary& s) {
    return s.render_seconds > 0.0 ? seconds(s.frames, s) / s.render_seconds : 0.0;
}

std::string json_level(double linear) {
    return linear > 0.0 ? fmt::format("{:.3f}", decibels(linear)) : "null";
}

// The length of the UTF-8 character that `text` begins with; 0 when it begins with none.
size_t character_length(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xc2 && first < 0xe0   ? 2
                          : first >= 0xe0 && first < 0xf0 ? 3
                          : first >= 0xf0 && first < 0xf5 ? 4
                                                          : 0;
    if (length == 0 || length > text.size()) return 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xc0) != 0x80) return 0;
    // Too long a form, half of a surrogate pair, beyond the last character.
    if ((first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) >= 0xa0) ||
        (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) >= 0x90))
        return 0;
    return length;
}

// Bytes that are no character, which names of files may hold, become the replacement character.
std::string json_string(std::string_view text) {
    std::string quoted = "\"";
    while (!text.empty()) {
        const size_t length = character_length(text);
        const char c = text.front();
        if (length == 0)
            quoted += "\\ufffd";
        else if (static_cast<unsigned char>(c) < 0x20)
            quoted += fmt::format("\\u{:04x}", c);
        else if (c == '"' || c == '\\')
            quoted += {'\\', c};
        else
            quoted += text.substr(0, length);
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return quoted + '"';
}

std::string json_array(std::span<const std::string> items) {
    return fmt::format("[{}]\n", fmt::join(items, ",\n "));
}

} // namespace

ProgressBar::ProgressBar(std::string label, bool wanted)
    : label_(std::move(label)), enabled_(wanted && isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    if (shown_) fmt::print(stderr, "\r\033[K");
}

void ProgressBar::show(uint64_t done, uint64_t total) {
    if (!enabled_ || total == 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + std::chrono::milliseconds(50);
    constexpr int kWidth = 40;
    const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const int filled = static_cast<int>(share * kWidth);
    fmt::print(stderr, "\r{} [{:#<{}}{:.<{}}] {:3.0f}%\033[K", label_, "", filled, "",
               kWidth - filled, 100.0 * share);
    std::fflush(stderr);
    shown_ = true;
}

std::string parameter_table(const Plugin& plugin, std::span<const double> values, bool as_json) {
    constexpr const char* kRow = "{:<18} {:<20} {:<18} {:<9} {:<5} {}\n";
    std::string table = fmt::format(kRow, "NAME", "OPTION", "RANGE", "DEFAULT", "UNIT", "NOW");
    std::vector<std::string> objects;
    const auto& parameters = plugin.parameters();
    for (size_t i = 0; i < parameters.size(); ++i) {
        const Parameter& p = parameters[i];
        table += fmt::format(kRow, p.name, "--" + p.option, p.range(), p.default_text,
                             unit_name(p.unit), plugin.text(i, values[i]));
        const Unit unit = p.unit == Unit::milliseconds ? Unit::seconds : p.unit;
        objects.push_back(fmt::format(
            "{{\"name\": {}, \"option\": {}, \"unit\": {}, \"min\": {}, \"max\": {}, "
            "\"default\": {}, \"value\": {}, \"text\": {}}}",
            json_string(p.name), json_string("--" + p.option), json_string(unit_name(unit)), p.min,
            p.max, p.default_value, values[i], json_string(plugin.text(i, values[i]))));
    }
    return as_json ? json_array(objects) : table;
}

std::string preset_table(std::span<const ShippedPreset> presets, bool as_json) {
    std::string table;
    std::vector<std::string> objects;
    for (const ShippedPreset& preset : presets) {
        table += fmt::format("{:<12} {}\n", preset.name, preset.description);
        objects.push_back(fmt::format("{{\"name\": {}, \"description\": {}, \"file\": {}}}",
                                      json_string(preset.name), json_string(preset.description),
                                      json_string(preset.file.string())));
    }
    return as_json ? json_array(objects) : table;
}

std::string sentence(const Rendered& result) {
    const Summary& s = result.summary;
    const std::string peak =
        s.peak > 0.0 ? fmt::format("peak {:.1f} dBFS", decibels(s.peak)) : "silent";
    return fmt::format(
        "{}: {:.2f} s, tail {:.2f} s, {}, {}{}, {:.0f} times real time\n",
        result.job.out == kStandardStream ? "standard output" : result.job.out.string(),
        seconds(s.frames, s), seconds(tail_frames(s), s), peak, result.format.samples(),
        result.dithered ? " dithered" : "", real_time_factor(s));
}

std::string json(const Rendered& result) {
    const Summary& s = result.summary;
    return fmt::format(
        "{{\"input\": {}, \"output\": {}, \"sample_rate_hz\": {}, \"input_channels\": {}, "
        "\"input_frames\": {}, \"frames\": {}, \"tail_frames\": {}, \"tail_s\": {:.6f}, "
        "\"block_frames\": {}, \"peak\": {:.9g}, \"peak_dbfs\": {}, \"rms\": {:.9g}, "
        "\"rms_dbfs\": {}, \"samples_over_full_scale\": {}, \"gain_db\": {:.3f}, "
        "\"format\": {}, \"samples\": {}, \"dithered\": {}, \"metadata_lost\": {}, "
        "\"render_s\": {:.6f}, \"real_time_factor\": {:.1f}}}",
        json_string(result.job.in.string()), json_string(result.job.out.string()), s.sample_rate,
        s.input_channels, s.input_frames, s.frames, tail_frames(s), seconds(tail_frames(s), s),
        s.block, s.peak, json_level(s.peak), s.rms, json_level(s.rms), s.samples_over,
        decibels(s.gain), json_string(result.format.ending), json_string(result.format.samples()),
        result.dithered, result.lost.empty() ? "null" : json_string(result.lost), s.render_seconds,
        real_time_factor(s));
}

std::vector<std::string> warnings(const Rendered& result) {
    const Summary& s = result.summary;
    std::vector<std::string> found;
    if (s.samples_over > 0 && !result.format.holds_over_scale())
        found.push_back(fmt::format("{} clips: {} samples reach up to {:.2f} dB over full scale; "
                                    "use --normalize, less level, or a format with --bits 32f",
                                    output_name(result.job.out), s.samples_over, decibels(s.peak)));
    if (!result.lost.empty())
        found.push_back(fmt::format("{} does not carry over from the input: {}",
                                    output_name(result.job.out), result.lost));
    return found;
}

} // namespace brisel::render
