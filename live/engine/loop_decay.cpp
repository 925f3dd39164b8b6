#include "live/engine/loop_decay.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "core/avx2/decay_gains_n16_avx2.h"

namespace brisel::live {

namespace {

constexpr double kLn1000 = 3.0 * std::numbers::ln10;
constexpr double kGlideSeconds = 0.02; // of each one-pole
constexpr double kNear = 3e-6;         // of the smoothed variable: -110 dB of a gain

double share_of_way(double time, double loop) {
    return std::isinf(time) ? 1.0 : time / (time + kLn1000 * loop);
}

double time_of(double share, double loop) {
    return kLn1000 * loop * share / (1.0 - share);
}

// 2^x for |x| <= 126, relative error below 3e-7, in operations that the compiler turns into vector
// code: Taylor's terms for the fraction, which lies within 0.5.
inline float exp2_of(float x) {
    const float whole = std::floor(x + 0.5f);
    const float y = (x - whole) * std::numbers::ln2_v<float>;
    float sum = 1.0f / 720.0f;
    sum = std::fma(sum, y, 1.0f / 120.0f);
    sum = std::fma(sum, y, 1.0f / 24.0f);
    sum = std::fma(sum, y, 1.0f / 6.0f);
    sum = std::fma(sum, y, 0.5f);
    sum = std::fma(sum, y, 1.0f);
    sum = std::fma(sum, y, 1.0f);
    return sum * std::bit_cast<float>((static_cast<int32_t>(whole) + 127) << 23);
}

// A filter that remembers for longer than 1000 frames has next to no output but what it held before it
// became so slow, which it would keep as an offset for minutes.
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
    const float log2_low = log2_gain(times.low);
    const float log2_high = log2_gain(times.high);
    ShelfRow row;
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const auto samples = static_cast<float>(loops[i]);
        // Gains below 2^-60, -361 dB, leave no ratio to speak of.
        const float low = exp2_of(std::max(log2_low * samples, -60.0f));
        const float high = exp2_of(std::max(log2_high * samples, -60.0f));
        const float inverse = 1.0f / (low + high);
        row.b0[i] = 2.0f * low * high * inverse;
        row.a1[i] = std::min((low - high) * inverse, kSlowest);
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
    two_band_gains(e.shelf_b0, e.shelf_a1, rate_, glide.end().low, glide.end().high,
                   old_.loops.data());
    if (from_silence) return;
    for (float& a1 : e.shelf_a1) a1 = std::min(a1, kSlowest);
}

void LoopDecay::gain_ratios(const DecayGlide& glide,
                            std::array<float, BRISEL_LINES>& ratios) const {
    // Beyond 18 dB the crossfade would be over in its first frames.
    constexpr float kMost = 3.0f;
    const float log2_low = log2_gain(glide.end().low);
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const auto longer = static_cast<float>(next_.loops[i] - old_.loops[i]);
        ratios[i] = exp2_of(std::clamp(log2_low * longer, -kMost, kMost));
    }
}

} // namespace brisel::live
