#include "live/engine/loop_decay.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

#include "core/avx2/units.h"

namespace brisel::live {

namespace {

constexpr double kLn1000 = 3.0 * std::numbers::ln10;
constexpr double kGlideSeconds = 0.02; // of each one-pole
constexpr double kNear = 3e-6;         // of the smoothed variable: -110 dB of a gain

__m256 broadcast(float x) {
    return _mm256_set1_ps(x);
}

double share_of_way(double time, double loop) {
    return std::isinf(time) ? 1.0 : time / (time + kLn1000 * loop);
}

double time_of(double share, double loop) {
    return kLn1000 * loop * share / (1.0 - share);
}

// 2^x for |x| <= 126, relative error below 3e-7: Taylor's terms for the fraction, which lies within
// 0.5.
__m256 exp2_of(__m256 x) {
    constexpr float kTerms[] = {1.0f / 720, 1.0f / 120, 1.0f / 24, 1.0f / 6, 1.0f / 2, 1.0f, 1.0f};
    const __m256 whole = _mm256_round_ps(x, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    const __m256 y = _mm256_mul_ps(_mm256_sub_ps(x, whole), broadcast(std::numbers::ln2_v<float>));
    __m256 sum = broadcast(kTerms[0]);
    for (size_t k = 1; k < std::size(kTerms); ++k)
        sum = _mm256_fmadd_ps(sum, y, broadcast(kTerms[k]));
    const __m256i exponent = _mm256_slli_epi32(_mm256_cvtps_epi32(whole), 23);
    return _mm256_castsi256_ps(_mm256_add_epi32(_mm256_castps_si256(sum), exponent));
}

// Of eight loops, as floats.
__m256 load_loops(const int32_t* loops) {
    return _mm256_cvtepi32_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(loops)));
}

// A filter that remembers for longer than 1000 frames has next to no output but what it held before
// it became so slow, which it would keep as an offset for minutes.
constexpr float kSlowest = 1.0f - 0x1p-10f;

// Of the way from a to b.
inline void between(ShelfRow& to, const ShelfRow& a, const ShelfRow& b, float s) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        to.b0[i] = std::fma(s, b.b0[i] - a.b0[i], a.b0[i]);
        to.a1[i] = std::fma(s, b.a1[i] - a.a1[i], a.a1[i]);
    }
}

} // namespace

void DecayGlide::prepare(double rate) {
    share_ = 1.0 - std::exp(-static_cast<double>(kKnot) / (rate * kGlideSeconds));
}

void DecayGlide::jump(const DecayTimes& times) {
    target_ = between_ = begin_ = end_ = times;
}

void DecayGlide::aim(const DecayTimes& target, double loop) {
    target_ = target;
    loop_ = loop;
}

void DecayGlide::step() {
    begin_ = end_;
    bool near = true;
    const auto glide = [&](double target, double& between, double& end) {
        const double goal = share_of_way(target, loop_);
        double first = share_of_way(between, loop_);
        double second = share_of_way(end, loop_);
        first += share_ * (goal - first);
        second += share_ * (first - second);
        near = near && std::fabs(goal - first) < kNear && std::fabs(goal - second) < kNear;
        between = time_of(first, loop_);
        end = time_of(second, loop_);
    };
    glide(target_.low, between_.low, end_.low);
    glide(target_.high, between_.high, end_.high);
    if (near) between_ = end_ = target_;
}

// log2 of what a frame's gain is.
float LoopDecay::log2_gain(double time) const {
    return static_cast<float>(-kLn1000 / std::numbers::ln2 / (rate_ * time));
}

ShelfRow LoopDecay::coefficients(const DecayTimes& times, const Loops& loops) const {
    // Gains below 2^-60, -361 dB, leave no ratio to speak of.
    const __m256 least = broadcast(-60.0f);
    const __m256 log2_low = broadcast(log2_gain(times.low));
    const __m256 log2_high = broadcast(log2_gain(times.high));
    ShelfRow row;
    for (size_t i = 0; i < BRISEL_LINES; i += 8) {
        const __m256 samples = load_loops(&loops[i]);
        const __m256 low = exp2_of(_mm256_max_ps(_mm256_mul_ps(log2_low, samples), least));
        const __m256 high = exp2_of(_mm256_max_ps(_mm256_mul_ps(log2_high, samples), least));
        const __m256 inverse = _mm256_div_ps(broadcast(1.0f), _mm256_add_ps(low, high));
        const __m256 b0 = _mm256_mul_ps(_mm256_mul_ps(_mm256_add_ps(low, low), high), inverse);
        const __m256 a1 = _mm256_mul_ps(_mm256_sub_ps(low, high), inverse);
        _mm256_store_ps(&row.b0[i], b0);
        _mm256_store_ps(&row.a1[i], _mm256_min_ps(a1, broadcast(kSlowest)));
    }
    return row;
}

void LoopDecay::jump(const DecayGlide& glide, const Loops& loops) {
    old_ = {loops, coefficients(glide.begin(), loops), coefficients(glide.end(), loops)};
    next_ = old_;
}

void LoopDecay::start_resize(const DecayGlide& glide, const Loops& loops) {
    next_ = {loops, coefficients(glide.begin(), loops), coefficients(glide.end(), loops)};
}

void LoopDecay::finish_resize() {
    old_ = next_;
}

void LoopDecay::step(const DecayGlide& glide) {
    old_.begin = old_.end;
    old_.end = coefficients(glide.end(), old_.loops);
    next_.begin = next_.end;
    next_.end = old_.loops == next_.loops ? old_.end : coefficients(glide.end(), next_.loops);
}

void LoopDecay::row(ShelfRow& to, uint32_t offset, float s) const {
    const float way = static_cast<float>(offset) * (1.0f / kKnot);
    between(to, old_.begin, old_.end, way);
    if (s == 0.0f) return;
    ShelfRow next;
    between(next, next_.begin, next_.end, way);
    between(to, ShelfRow(to), next, s);
}

void LoopDecay::settled(const DecayGlide& glide, ffdn_block_n16& e, bool from_silence) const {
    ffdn_decay_two_band_avx2(e.shelf_b0, e.shelf_a1, rate_, glide.end().low, glide.end().high,
                             old_.loops.data());
    if (from_silence) return;
    for (float& a1 : e.shelf_a1) a1 = std::min(a1, kSlowest);
}

void LoopDecay::gain_roots(const DecayGlide& glide, std::array<float, BRISEL_LINES>& roots) const {
    // Beyond 18 dB the crossfade would be over in its first frames.
    constexpr float kMost = 1.5f;
    const __m256 log2 = broadcast(0.5f * log2_gain(glide.end().low));
    for (size_t i = 0; i < BRISEL_LINES; i += 8) {
        const __m256 longer =
            _mm256_sub_ps(load_loops(&next_.loops[i]), load_loops(&old_.loops[i]));
        const __m256 root = _mm256_max_ps(_mm256_mul_ps(log2, longer), broadcast(-kMost));
        _mm256_storeu_ps(&roots[i], exp2_of(_mm256_min_ps(root, broadcast(kMost))));
    }
}

} // namespace brisel::live
