// The small formulas that several engines share: the random generator, ring sizes, the decay law
// and number conversions with a defined result.
#ifndef BRISEL_CORE_NETWORK_MATH_H
#define BRISEL_CORE_NETWORK_MATH_H

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>

namespace brisel {

inline constexpr double kTwoPi = 2.0 * std::numbers::pi;
// The period of a modulation phase, in radians: the float nearest to 2 pi.
inline constexpr float kPhasePeriod = 6.2831855f;

inline constexpr uint64_t kDefaultSeed = 0xc0ffee5c00b1e000;

// Marsaglia's 64-bit xorshift generator, shift triple 13, 7, 17 ("Xorshift RNGs", 2003). A state of
// 0 stays 0, hence the default seed.
struct Xorshift64 {
    uint64_t state;

    static constexpr Xorshift64 seeded(uint64_t seed) { return {seed != 0 ? seed : kDefaultSeed}; }

    constexpr uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
};

constexpr bool is_power_of_two(uint32_t n) {
    return n != 0 && (n & (n - 1)) == 0;
}

// The smallest power of two above `delay`, at least `least` (itself a power of two). Delays below
// 2^31 only.
constexpr uint32_t ring_size_above(uint32_t delay, uint32_t least = 1) {
    return std::bit_ceil(std::max(delay + 1, least));
}

// Decay law: a loop of `samples` samples gets the gain base^samples, so that it falls by 60 dB in
// t60 seconds.
inline double decay_base(double sample_rate, double t60) {
    return std::pow(10.0, -3.0 / (sample_rate * t60));
}

// One-pole decay filter y[t] = b0 x[t] + a1 y[t-1] with gain g_low at 0 Hz and g_high at half the
// sample rate.
struct ShelfGains {
    float b0;
    float a1;
};

inline ShelfGains two_band_shelf(double g_low, double g_high) {
    // Gains below the smallest double leave no ratio; such a line returns nothing.
    if (g_high == 0.0) return {0.0f, 0.0f};
    const double r = g_low / g_high;
    if (std::isinf(r)) return {0.0f, 0.0f};
    return {static_cast<float>(2.0 * g_low / (r + 1.0)), static_cast<float>((r - 1.0) / (r + 1.0))};
}

// Truncation toward zero; NaN and values outside the range give the most negative integer, as the
// processor's own conversion does.
template <typename Float>
constexpr int32_t truncate_to_int32(Float x) {
    constexpr Float kLimit = Float(2147483648.0);
    if (x > -kLimit - Float(1) && x < kLimit) return static_cast<int32_t>(x);
    return std::numeric_limits<int32_t>::min();
}

} // namespace brisel

#endif
