// How what moves moves: smoothed scalars that step once a tile and run linearly inside it, and the
// counters of crossfades. Nothing here knows what it moves.
#ifndef BRISEL_LIVE_MOTION_H
#define BRISEL_LIVE_MOTION_H

#include <immintrin.h>

#include <cmath>
#include <cstdint>

#include "live/engine/late.h"

namespace brisel::live {

// What a one-pole of this time constant moves in one tile, as a share of the way left.
inline double share_of_tile(double rate, double seconds) {
    return 1.0 - std::exp(-static_cast<double>(kTile) / (rate * seconds));
}

// Levels step once a knot of so many tiles, and run linearly between.
inline constexpr uint32_t kLevelTiles = 4;

// What a one-pole of this time constant moves from knot to knot.
inline double share_of_knot(double rate, double seconds) {
    return share_of_tile(rate, seconds / kLevelTiles);
}

// Where the way from knot to knot stands after `tiles` of its `all` tiles.
inline float between_knots(float from, float to, uint32_t tiles, uint32_t all = kLevelTiles) {
    if (tiles == all) return to;
    return from + (to - from) * (static_cast<float>(tiles) / static_cast<float>(all));
}

// `seconds` in whole tiles, at least one; frames.
inline uint32_t whole_tiles(double rate, double seconds) {
    return kTile * static_cast<uint32_t>(std::fmax(1.0, rate * seconds / kTile + 0.5));
}

// Time constant of each of the two one-poles behind a level: with them a step of Mix stays 78 dB
// below the programme outside the programme's own band.
inline constexpr double kLevelSeconds = 0.02;

// The eight frames of a tile on a straight line; the first lies an eighth of the way behind `from`,
// the last at `to`. Standing still it is `from`, exactly.
inline __m256 ramp(float from, float to) {
    const __m256 eighths = _mm256_setr_ps(0.125f, 0.25f, 0.375f, 0.5f, 0.625f, 0.75f, 0.875f, 1.0f);
    return _mm256_fmadd_ps(_mm256_set1_ps(to - from), eighths, _mm256_set1_ps(from));
}

// Smoothing has arrived when both one-poles are as near as this; the last jump is at -120 dB.
inline constexpr double kArrived = 1e-6;

// Two one-poles in a row. In double precision: single steps of a small share would stall before
// they arrive.
struct Smoother {
    double target = 0.0, first = 0.0, value = 0.0;

    bool moving() const { return value != target || first != target; }
    void snap() { first = value = target; }
    void step(double share) {
        first += share * (target - first);
        value += share * (first - value);
        if (std::fabs(target - value) < kArrived && std::fabs(target - first) < kArrived) snap();
    }
};

// 6 x^5 - 15 x^4 + 10 x^3: from 0 to 1 with no jump in the first and second derivative.
inline __m256 smootherstep(__m256 x) {
    const __m256 inner = _mm256_fmadd_ps(_mm256_set1_ps(6.0f), x, _mm256_set1_ps(-15.0f));
    const __m256 outer = _mm256_fmadd_ps(inner, x, _mm256_set1_ps(10.0f));
    return _mm256_mul_ps(_mm256_mul_ps(_mm256_mul_ps(x, x), x), outer);
}
inline float smootherstep(float x) {
    return _mm256_cvtss_f32(smootherstep(_mm256_set1_ps(x)));
}

// The counter of one crossfade, in frames; its length is whole tiles.
class Fade {
public:
    void set_length(uint32_t frames) { position_ = length_ = frames; }
    void start() { position_ = 0; }
    void finish() { position_ = length_; }
    bool running() const { return position_ < length_; }
    uint32_t left() const { return length_ - position_; }
    uint32_t length() const { return length_; }
    void advance(uint32_t frames) { position_ += frames < left() ? frames : left(); }

    // The other way round, from where it stands.
    void reverse() { position_ = length_ - position_; }

    // Weight of the new signal now.
    float weight() const {
        return smootherstep(static_cast<float>(position_) / static_cast<float>(length_));
    }

    // Weights of the new signal in the eight frames from `offset` frames behind the present one on.
    __m256 weights(uint32_t offset) const {
        const auto frame = static_cast<float>(position_ + offset);
        const __m256 frames = _mm256_add_ps(_mm256_set1_ps(frame),
                                            _mm256_setr_ps(1.f, 2.f, 3.f, 4.f, 5.f, 6.f, 7.f, 8.f));
        return smootherstep(_mm256_div_ps(frames, _mm256_set1_ps(static_cast<float>(length_))));
    }

private:
    uint32_t position_ = 0, length_ = 0;
};

// How long a crossfade between two delays takes: 2048 frames at 48 kHz.
inline constexpr double kDelayFadeSeconds = 2048.0 / 48000.0;

// a + s (b - a)
inline __m256 crossfade(__m256 a, __m256 b, __m256 s) {
    return _mm256_fmadd_ps(s, _mm256_sub_ps(b, a), a);
}

} // namespace brisel::live

#endif
