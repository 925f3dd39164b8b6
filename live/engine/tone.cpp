// Source of the sections: A. Simper, "Solving the continuous SVF equations using trapezoidal
// integration and equivalent currents", 2013. With damping sqrt(2) the shelves are those of the
// exact plug-in.
//
// All four bands of both channels run in the lanes of one register. A band works two frames behind
// the one in front of it, whose output moves up by two lanes; at both ends of a run some lanes have
// no frame and keep their memories. From memory to output, up, and into memories again takes 24
// cycles of latency: over two frames' distance that is the 8 a frame which the memories' own
// recursion takes anyway.
#include "live/engine/tone.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "brisel/ffdn_eq.h"
#include "live/engine/motion.h"

namespace brisel::live {

namespace {

constexpr float kLowShelfHz = 250.0f, kHighShelfHz = 4500.0f; // as the exact plug-in has them
constexpr double kLowCutOff = 20.0, kHighCutOff = 20000.0;    // Hz, where a cut is off
constexpr double kHighestCorner = 0.45;                       // of the rate
constexpr double kDamping = std::numbers::sqrt2;
constexpr uint32_t kKnotFrames = 24; // from one step of what glides to the next
static_assert(kKnotFrames % kTile == 0);
constexpr float kOfKnot = 1.0f / kKnotFrames;

// All ones in the lanes of the bands first .. last: a window of eight numbers in a row of them.
inline __m256 lanes_of(uint32_t first, uint32_t last) {
    constexpr uint32_t kOn = 0xffffffff;
    alignas(32) static constexpr uint32_t kFromFirst[16] = {0,   0,   0,   0,   0,   0,   0,   0,
                                                            kOn, kOn, kOn, kOn, kOn, kOn, kOn, kOn};
    alignas(32) static constexpr uint32_t kToLast[16] = {kOn, kOn, kOn, kOn, kOn, kOn, kOn, kOn,
                                                         0,   0,   0,   0,   0,   0,   0,   0};
    const auto window = [](const uint32_t* row) {
        return _mm256_castsi256_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(row)));
    };
    return _mm256_and_ps(window(kFromFirst + 8 - 2 * size_t{first}),
                         window(kToLast + 6 - 2 * size_t{last}));
}

} // namespace

void Tone::prepare(double rate) {
    rate_ = rate;
    share_ = 1.0 - std::exp(-static_cast<double>(kKnotFrames) / (rate * kLevelSeconds));
}

void Tone::set_band(int band, const Section& section) {
    const double quantities[kQuantities] = {section.g / (1.0 + section.g), section.k, section.m0,
                                            section.m1, section.m2};
    for (int q = 0; q < kQuantities; ++q) {
        moving_ = moving_ || target_[q][band] != quantities[q];
        target_[q][band] = quantities[q];
    }
}

// The section with the transfer function of b0, b1, b2, a1, a2. Its high, band and low signals have
// the numerators (1 - z^-1)^2, g (1 - z^-2), g^2 (1 + z^-1)^2 over the denominator, which times
// 1 + g k + g^2 is 1 + g k + g^2 + 2 (g^2 - 1) z^-1 + (1 - g k + g^2) z^-2.
Tone::Section Tone::section_of(const float* biquad) {
    const double b0 = biquad[0], b1 = biquad[1], b2 = biquad[2], a1 = biquad[3], a2 = biquad[4];
    const double at_zero = 1.0 + a1 + a2, at_half = 1.0 - a1 + a2; // the denominator, of the rate
    const double g = std::sqrt(at_zero / at_half), scale = 4.0 / at_half;
    const double k = (1.0 - a2) * scale / (2.0 * g);
    const double m0 = (b0 - b1 + b2) / at_half;
    return {g, k, m0, (b0 - b2) * scale / (2.0 * g) - k * m0, (b0 + b1 + b2) / at_zero - m0};
}

void Tone::set(const ToneSettings& settings) {
    const double highest = kHighestCorner * rate_;
    const auto g_of = [&](double hz) {
        return std::tan(std::numbers::pi * std::min(hz, highest) / rate_);
    };
    const Section low_cut = {g_of(settings.low_cut), kDamping, 1.0, -kDamping, -1.0};
    const Section high_cut = {g_of(settings.high_cut), kDamping, 0.0, 0.0, 1.0};
    const auto off = [](const Section& section) {
        return Section{section.g, section.k, 1.0, 0.0, 0.0};
    };
    set_band(0, settings.low_cut > kLowCutOff ? low_cut : off(low_cut));
    set_band(3, settings.high_cut < kHighCutOff ? high_cut : off(high_cut));

    // The shelves follow the exact plug-in's coefficients as they are, rounded to single precision.
    ffdn_eq exact;
    ffdn_eq_init(&exact, static_cast<int32_t>(std::lround(rate_)), kLowShelfHz,
                 std::min(kHighShelfHz, static_cast<float>(highest)));
    ffdn_eq_set_gains(&exact, static_cast<float>(settings.low_shelf),
                      static_cast<float>(settings.high_shelf));
    const Section level = {0.0, kDamping, 1.0, 0.0, 0.0};
    Section low = level, high = level;
    low.g = g_of(kLowShelfHz);
    high.g = g_of(kHighShelfHz);
    set_band(1, exact.gain_low_db != 0.0f ? section_of(exact.low) : low);
    set_band(2, exact.gain_high_db != 0.0f ? section_of(exact.high) : high);
}

void Tone::reset() {
    std::memcpy(first_, target_, sizeof first_);
    std::memcpy(value_, target_, sizeof value_);
    std::memset(s1_, 0, sizeof s1_);
    std::memset(s2_, 0, sizeof s2_);
    derive();
    moving_ = false;
    knot_ = 0;
    neutral_ = is_neutral();
}

bool Tone::is_neutral() const {
    for (int band = 0; band < kBands; ++band)
        if (value_[kM0][band] != 1.0 || value_[kM1][band] != 0.0 || value_[kM2][band] != 0.0)
            return false;
    return true;
}

void Tone::step() {
    const __m256d share = _mm256_set1_pd(share_), arrived = _mm256_set1_pd(kArrived);
    const __m256d sign = _mm256_set1_pd(-0.0);
    __m256d way = _mm256_setzero_pd(); // the longest that is left
    for (int q = 0; q < kQuantities; ++q) {
        const __m256d target = _mm256_load_pd(target_[q]);
        __m256d first = _mm256_load_pd(first_[q]), value = _mm256_load_pd(value_[q]);
        first = _mm256_fmadd_pd(share, _mm256_sub_pd(target, first), first);
        value = _mm256_fmadd_pd(share, _mm256_sub_pd(first, value), value);
        _mm256_store_pd(first_[q], first);
        _mm256_store_pd(value_[q], value);
        for (const __m256d x : {first, value})
            way = _mm256_max_pd(way, _mm256_andnot_pd(sign, _mm256_sub_pd(target, x)));
    }
    moving_ = _mm256_movemask_pd(_mm256_cmp_pd(way, arrived, _CMP_GE_OQ)) != 0;
    if (moving_) return;
    std::memcpy(first_, target_, sizeof first_);
    std::memcpy(value_, target_, sizeof value_);
}

// With a1 = 1 / (1 + g (g + k)), a2 = g a1, a3 = g a2, of the section's equations
//   v3 = x - s2, v1 = a1 s1 + a2 v3, v2 = s2 + a2 s1 + a3 v3, s1' = 2 v1 - s1, s2' = 2 v2 - s2
// and y = m0 x + m1 v1 + m2 v2.
void Tone::derive() {
    const __m256d one = _mm256_set1_pd(1.0), two = _mm256_set1_pd(2.0);
    const __m256d u = _mm256_load_pd(value_[kU]), k = _mm256_load_pd(value_[kK]);
    const __m256d g = _mm256_div_pd(u, _mm256_sub_pd(one, u));
    const __m256d m0 = _mm256_load_pd(value_[kM0]), m1 = _mm256_load_pd(value_[kM1]);
    const __m256d m2 = _mm256_load_pd(value_[kM2]);
    const __m256d damped = _mm256_mul_pd(g, _mm256_add_pd(g, k));
    const __m256d a1 = _mm256_div_pd(one, _mm256_add_pd(one, damped));
    const __m256d a2 = _mm256_mul_pd(g, a1), a3 = _mm256_mul_pd(g, a2);

    const auto put = [this](Coefficient c, __m256d bands) {
        const __m128 narrow = _mm256_cvtpd_ps(bands);
        _mm_store_ps(to_[c], _mm_unpacklo_ps(narrow, narrow));
        _mm_store_ps(to_[c] + 4, _mm_unpackhi_ps(narrow, narrow));
    };
    put(kO0, _mm256_fmadd_pd(m2, a3, _mm256_fmadd_pd(m1, a2, m0)));
    put(kO1, _mm256_fmadd_pd(m2, a2, _mm256_mul_pd(m1, a1)));
    put(kO2, _mm256_fnmadd_pd(m1, a2, _mm256_fnmadd_pd(m2, a3, m2)));
    put(kD1, _mm256_mul_pd(two, _mm256_mul_pd(damped, a1)));
    put(kC, _mm256_mul_pd(two, a2));
    put(kD2, _mm256_mul_pd(two, a3));
}

template <bool kMoving>
void Tone::filter(float* left, float* right, uint32_t frames) {
    const __m256i up = _mm256_setr_epi32(0, 0, 0, 1, 2, 3, 4, 5);
    // By so much of the way from knot to knot each band is behind the first.
    const __m256 behind =
        _mm256_mul_ps(_mm256_set1_ps(2.0f * kOfKnot), _mm256_setr_ps(0, 0, 1, 1, 2, 2, 3, 3));
    __m256 c[kCoefficients];
    if constexpr (!kMoving)
        for (int k = 0; k < kCoefficients; ++k) c[k] = _mm256_load_ps(to_[k]);
    __m256 s1 = _mm256_load_ps(s1_), s2 = _mm256_load_ps(s2_);
    __m256 y = _mm256_setzero_ps(), before = y; // outputs of the last step and of the one before

    const auto advance = [&](__m256 x, uint32_t step) {
        if constexpr (kMoving) {
            const __m256 way = _mm256_sub_ps(
                _mm256_set1_ps(kOfKnot * static_cast<float>(knot_ + step + 1)), behind);
            for (int k = 0; k < kCoefficients; ++k)
                c[k] = _mm256_fmadd_ps(way, _mm256_load_ps(way_[k]), _mm256_load_ps(from_[k]));
        }
        const __m256 memories = _mm256_fmadd_ps(c[kO1], s1, _mm256_mul_ps(c[kO2], s2));
        const __m256 rest = _mm256_sub_ps(x, s2);
        const __m256 next = _mm256_fmadd_ps(c[kC], s1, s2);
        s1 = _mm256_fmadd_ps(c[kC], rest, _mm256_fnmadd_ps(c[kD1], s1, s1));
        s2 = _mm256_fmadd_ps(c[kD2], rest, next);
        before = y;
        y = _mm256_fmadd_ps(c[kO0], x, memories);
    };
    const auto passed_up = [&] { return _mm256_permutevar8x32_ps(before, up); };
    const auto input = [&](uint32_t t) {
        const __m128 frame = _mm_unpacklo_ps(_mm_load_ss(left + t), _mm_load_ss(right + t));
        return _mm256_blend_ps(passed_up(), _mm256_castps128_ps256(frame), 0x3);
    };
    const auto output = [&](uint32_t t) {
        const __m128 high = _mm256_extractf128_ps(y, 1);
        _mm_store_ss(left + t, _mm_movehl_ps(high, high));
        _mm_store_ss(right + t, _mm_permute_ps(high, 3));
    };
    // Some bands only: the others keep their memories.
    const auto advance_some = [&](__m256 x, uint32_t step, uint32_t first, uint32_t last) {
        const __m256 old1 = s1, old2 = s2;
        const __m256 active = lanes_of(first, last);
        advance(x, step);
        s1 = _mm256_blendv_ps(old1, s1, active);
        s2 = _mm256_blendv_ps(old2, s2, active);
    };
    constexpr uint32_t kLag = 2 * (kBands - 1); // frames of the last band behind the first
    static_assert(kLag <= kTile);
    for (uint32_t step = 0; step < kLag; ++step) advance_some(input(step), step, 0, step / 2);
    for (uint32_t step = kLag; step < frames; ++step) {
        advance(input(step), step);
        output(step - kLag);
    }
    for (uint32_t k = 0; k < kLag; ++k) {
        advance_some(passed_up(), frames + k, k / 2 + 1, kBands - 1);
        output(frames + k - kLag);
    }
    _mm256_store_ps(s1_, s1);
    _mm256_store_ps(s2_, s2);
}

// From the present knot to the next one.
void Tone::start_knot() {
    neutral_ = false;
    std::memcpy(from_, to_, sizeof from_);
    step();
    derive();
    for (int k = 0; k < kCoefficients; ++k)
        _mm256_store_ps(way_[k], _mm256_sub_ps(_mm256_load_ps(to_[k]), _mm256_load_ps(from_[k])));
}

void Tone::run(float* const wet[2], uint32_t frames) {
    for (uint32_t t = 0; t < frames;) {
        uint32_t n = frames - t;
        if (knot_ == 0 && !moving_) {
            if (!neutral_) filter<false>(wet[0] + t, wet[1] + t, n);
            return;
        }
        if (knot_ == 0) start_knot();
        n = std::min(n, kKnotFrames - knot_);
        filter<true>(wet[0] + t, wet[1] + t, n);
        knot_ = (knot_ + n) % kKnotFrames;
        t += n;
        if (knot_ != 0 || moving_ || !is_neutral()) continue;
        neutral_ = true;
        std::memset(s1_, 0, sizeof s1_);
        std::memset(s2_, 0, sizeof s2_);
    }
}

} // namespace brisel::live
