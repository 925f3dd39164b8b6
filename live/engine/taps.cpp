#include "live/engine/taps.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "brisel/ffdn_defaults_n16.h"
#include "core/ffdn_block.h"

namespace brisel::live {

namespace {

constexpr double kLongestSize = 0.5;        // seconds
constexpr double kDeepestSeconds = 0.33e-3; // of modulation

// Shallow modulation rests between its steps, and short steps leave most of the lines at rest. Deep
// modulation always moves, and the longer its steps, the less a sine shows beside it; but the
// fastest line takes ten of them a period.
constexpr double kStepSeconds = 1024.0 / 48000.0;
constexpr double kDeepSeconds = 3.0 / 48000.0;

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
    shortest_step_ = std::max(whole_tiles(rate, kStepSeconds) / 128, 1u) * 128;
}

void Taps::reset(const LateSettings& settings) {
    set(settings);
    from_ = to_ = target_;
    resize_.finish();
    const ModulationDraws draws =
        draw_modulation(static_cast<int32_t>(std::lround(rate_)), kSeed, kSlowest, kFastest);
    for (uint32_t p = 0; p < kPairs; ++p)
        pairs_[p] = {0,
                     0,
                     p * shortest_step_ / static_cast<uint32_t>(kPairs),
                     shortest_step_,
                     draws.phase[p],
                     draws.inc[p]};
}

void Taps::set(const LateSettings& settings) {
    settings_ = settings;
    target_ = line_delays(rate_, settings.size, shortest_);
}

// The frames until no pair is in a step.
uint32_t Taps::until_quiet() const {
    uint32_t frames = 0;
    for (const Pair& pair : pairs_)
        if (pair.from != pair.to) frames = std::max(frames, pair.length - pair.position);
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

void Taps::step(Pair& pair) {
    pair.phase = std::fmod(pair.phase + pair.length * pair.per_frame * settings_.mod_rate,
                           2.0 * std::numbers::pi);
    pair.position = 0;
    pair.length = step_length();
    pair.from = pair.to;
    if (moving() || settings_.freeze) return;
    const double depth = settings_.modulate ? settings_.mod_depth * rate_ : 0.0;
    const auto offset = static_cast<int32_t>(std::lround(depth * std::sin(pair.phase)));
    pair.to = std::clamp(offset, -deepest_, deepest_);
}

uint32_t Taps::step_length() const {
    const bool deep = settings_.modulate && settings_.mod_depth >= kDeepSeconds;
    if (!deep || settings_.mod_rate > 2.0) return shortest_step_;
    return shortest_step_ * (settings_.mod_rate > 1.0 ? 2 : 4);
}

void Taps::plan(uint32_t frames) {
    moving_pairs_ = 0;
    for (size_t p = 0; p < kPairs; ++p) {
        Pair& pair = pairs_[p];
        if (pair.from == pair.to && pair.position + frames <= pair.length) {
            pair.position += frames;
            for (const size_t i : {first_of_pair(p), first_of_pair(p) + 2})
                delays_[i] = modulated(to_, i, pair.to);
            continue;
        }
        moving_pairs_ |= 1u << p;
        counts_[p] = 0;
        for (uint32_t t = 0; t < frames;) {
            if (pair.position == pair.length) step(pair);
            const uint32_t run = std::min(frames - t, pair.length - pair.position);
            runs_[p][counts_[p]++] = {run, pair.from, pair.to, pair.position, pair.length};
            pair.position += run;
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

} // namespace brisel::live
