#include "live/engine/taps.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "brisel/ffdn_defaults_n16.h"

namespace brisel::live {

namespace {

constexpr double kLongestSize = 0.5;        // seconds
constexpr double kDeepestSeconds = 0.33e-3; // of modulation
constexpr double kStepSeconds = 1024.0 / 48000.0;

// The exact reverb's modulation.
constexpr uint64_t kSeed = 0xC0DECAFE12345678;
constexpr float kSlowest = 0.3f; // Hz
constexpr float kFastest = 1.2f;

} // namespace

LineDelays line_delays(double rate, double size, uint32_t shortest) {
    int32_t ratios[BRISEL_LINES];
    int32_t unused[BRISEL_LINES];
    ffdn_n16_default_params(ratios, unused);
    const float scale =
        (static_cast<float>(rate) * static_cast<float>(size)) / static_cast<float>(ratios[0]);
    LineDelays delays;
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const auto delay = std::lround(static_cast<float>(ratios[i]) * scale);
        delays[i] = std::max(static_cast<uint32_t>(delay), shortest);
    }
    return delays;
}

void Taps::prepare(double rate) {
    rate_ = rate;
    deepest_ = static_cast<int32_t>(std::lround(rate * kDeepestSeconds));
    shortest_ = kTile + static_cast<uint32_t>(deepest_);
    longest_possible_ = line_delays(rate, kLongestSize, shortest_);
    for (uint32_t& delay : longest_possible_) delay += static_cast<uint32_t>(deepest_);
    resize_.set_length(whole_tiles(rate, kDelayFadeSeconds));
    // Steps begin on tiles; the lines take turns.
    longest_step_ = std::max(whole_tiles(rate, kStepSeconds) / 128, 1u) * 128;
    draws_ = draw_modulation(static_cast<int32_t>(std::lround(rate)), kSeed, kSlowest, kFastest);
}

void Taps::reset(const LateSettings& settings) {
    set(settings);
    from_ = to_ = target_;
    resize_.finish();
    for (uint32_t i = 0; i < BRISEL_LINES; ++i)
        lines_[i] = {0, 0, i * longest_step_ / BRISEL_LINES, longest_step_, draws_.phase[i]};
}

void Taps::set(const LateSettings& settings) {
    settings_ = settings;
    target_ = line_delays(rate_, settings.size, shortest_);
}

// The frames until no line is in a step.
uint32_t Taps::until_quiet() const {
    uint32_t frames = 0;
    for (const Line& line : lines_)
        if (line.from != line.to) frames = std::max(frames, line.length - line.position);
    return frames;
}

bool Taps::begin() {
    if (resizing() || to_ == target_ || until_quiet() > 0) return false;
    from_ = to_;
    to_ = target_;
    resize_.start();
    return true;
}

uint32_t Taps::slice_limit() const {
    uint32_t shortest = std::min(from_[0], to_[0]) - static_cast<uint32_t>(deepest_);
    shortest = std::min(shortest & ~(kTile - 1), kLongestSlice);
    if (resizing()) return std::min({shortest, kMovingSlice, resize_.left()});
    if (to_ == target_) return shortest;
    return std::min({shortest, kMovingSlice, until_quiet()});
}

void Taps::step(size_t i) {
    Line& line = lines_[i];
    constexpr double kTwoPi = 2.0 * std::numbers::pi;
    line.phase += line.length * static_cast<double>(draws_.inc[i]) * settings_.mod_rate;
    if (line.phase >= kTwoPi) line.phase = std::fmod(line.phase, kTwoPi);
    line.position = 0;
    line.length = longest_step_;
    line.from = line.to;
    if (moving() || settings_.freeze) return;
    const double depth = settings_.modulate ? settings_.mod_depth * rate_ : 0.0;
    line.to = static_cast<int32_t>(std::lround(depth * std::sin(line.phase)));
    line.to = std::clamp(line.to, -deepest_, deepest_);
}

void Taps::plan(uint32_t frames) {
    moving_lines_ = 0;
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        Line& line = lines_[i];
        if (line.from == line.to && line.position + frames <= line.length) {
            line.position += frames;
            delays_[i] = to(i);
            continue;
        }
        moving_lines_ |= 1u << i;
        counts_[i] = 0;
        for (uint32_t t = 0; t < frames;) {
            if (line.position == line.length) step(i);
            const uint32_t run = std::min(frames - t, line.length - line.position);
            const auto delay = [&](int32_t offset) {
                return to_[i] + static_cast<uint32_t>(offset);
            };
            runs_[i][counts_[i]++] = {run, delay(line.from), delay(line.to), line.position,
                                      line.length};
            line.position += run;
            t += run;
        }
    }
}

bool Taps::advance(uint32_t frames) {
    if (!resizing()) return false;
    resize_.advance(frames);
    if (resizing()) return false;
    from_ = to_;
    return true;
}

uint32_t Taps::longest() const {
    const uint32_t longest = std::max(from_[BRISEL_LINES - 1], to_[BRISEL_LINES - 1]);
    return longest + static_cast<uint32_t>(deepest_);
}

double Taps::share_of_steps() const {
    if (!settings_.modulate) return 0.0;
    // A sine's rounded value passes each integer between its extremes twice a period.
    const double passes = 4.0 * std::round(settings_.mod_depth * rate_);
    double share = 0.0;
    for (const float inc : draws_.inc) {
        const double periods = inc * settings_.mod_rate / (2.0 * std::numbers::pi);
        share += std::min(1.0, passes * periods * longest_step_);
    }
    return share / BRISEL_LINES;
}

} // namespace brisel::live
