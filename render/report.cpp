#include "render/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
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

std::string json_string(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        if (static_cast<unsigned char>(c) < 0x20)
            quoted += fmt::format("\\u{:04x}", c);
        else
            quoted += c;
    }
    return quoted + '"';
}

} // namespace

ProgressBar::ProgressBar(std::string label, bool wanted)
    : label_(std::move(label)), enabled_(wanted && isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    if (shown_) fmt::print(stderr, "\r\033[K");
}

void ProgressBar::show(uint64_t done, uint64_t total) {
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + std::chrono::milliseconds(50);
    constexpr int kWidth = 40;
    const double share =
        total > 0 ? std::min(1.0, static_cast<double>(done) / static_cast<double>(total)) : 1.0;
    const int filled = static_cast<int>(share * kWidth);
    fmt::print(stderr, "\r{} [{:#<{}}{:.<{}}] {:3.0f}%\033[K", label_, "", filled, "",
               kWidth - filled, 100.0 * share);
    std::fflush(stderr);
    shown_ = true;
}

std::string parameter_table(const Plugin& plugin, std::span<const double> values) {
    constexpr const char* kRow = "{:<18} {:<20} {:<18} {:<9} {:<5} {}\n";
    std::string table = fmt::format(kRow, "NAME", "OPTION", "RANGE", "DEFAULT", "UNIT", "NOW");
    const auto& parameters = plugin.parameters();
    for (size_t i = 0; i < parameters.size(); ++i) {
        const Parameter& p = parameters[i];
        table += fmt::format(kRow, p.name, "--" + p.option, p.range(),
                             show_value(p.default_value, p.unit), unit_name(p.unit),
                             plugin.text(i, values[i]));
    }
    return table;
}

std::string preset_table(std::span<const ShippedPreset> presets) {
    std::string table;
    for (const ShippedPreset& preset : presets)
        table += fmt::format("{:<12} {}\n", preset.name, preset.description);
    return table;
}

std::string sentence(const Job& job, const Summary& s) {
    const std::string peak =
        s.peak > 0.0 ? fmt::format("peak {:.1f} dBFS", decibels(s.peak)) : "silent";
    return fmt::format("{}: {:.2f} s, tail {:.2f} s, {}, {:.0f} times real time\n",
                       job.out.string(), seconds(s.frames, s), seconds(tail_frames(s), s), peak,
                       real_time_factor(s));
}

std::string json(const Job& job, const Summary& s) {
    return fmt::format(
        "{{\"input\": {}, \"output\": {}, \"sample_rate_hz\": {}, \"input_channels\": {}, "
        "\"input_frames\": {}, \"frames\": {}, \"tail_frames\": {}, \"tail_s\": {:.6f}, "
        "\"block_frames\": {}, \"peak\": {:.9g}, \"peak_dbfs\": {}, \"rms\": {:.9g}, "
        "\"rms_dbfs\": {}, \"samples_over_full_scale\": {}, \"gain_db\": {:.3f}, "
        "\"render_s\": {:.6f}, \"real_time_factor\": {:.1f}}}\n",
        json_string(job.in.string()), json_string(job.out.string()), s.sample_rate,
        s.input_channels, s.input_frames, s.frames, tail_frames(s), seconds(tail_frames(s), s),
        s.block, s.peak, json_level(s.peak), s.rms, json_level(s.rms), s.samples_over,
        decibels(s.gain), s.render_seconds, real_time_factor(s));
}

std::string clipping_warning(const Job& job, const Summary& s) {
    if (s.samples_over == 0 || job.format.holds_over_scale) return {};
    return fmt::format("'{}' clips: {} samples reach up to {:.2f} dB over full scale; use "
                       "--normalize, less level, or a format with --bits 32f",
                       job.out.string(), s.samples_over, decibels(s.peak));
}

} // namespace brisel::render
