#include "live/engine/early.h"

#include <algorithm>

#include "core/ffdn_er.h"
#include "core/network_math.h"

namespace brisel::live {

namespace {

// As the exact plug-in has them.
constexpr int32_t kTaps = 12; // a channel
constexpr uint64_t kSeed = 0xE2C0FFEE12345678;
constexpr float kLongestSize = 0.5f; // seconds

} // namespace

bool Early::prepare(double rate) {
    rate_ = rate;
    const auto latest =
        static_cast<uint32_t>(latest_tap(static_cast<int32_t>(rate), kLongestSize)) + kTile;
    const uint32_t size = ring_size_above(latest + kLongestSlice);
    size_mask_ = size - 1;
    written_ = 0;
    if (!(ring_ = make_floats(size))) return false;
    fade_.set_length(whole_tiles(rate, kDelayFadeSeconds));
    share_ = share_of_tile(rate, kLevelSeconds);
    size_ = 0.0f;
    return true;
}

void Early::lay_out(ffdn_er& taps, float size) const {
    // The block length only decides the ring's size, which is our own.
    lay_out_taps(&taps, kTaps, 1, static_cast<int32_t>(rate_), kSeed, size);
    for (auto* delays : {taps.delays_l, taps.delays_r})
        for (int k = 0; k < kTaps; ++k)
            delays[k] = std::max(delays[k], static_cast<int32_t>(kTile));
    taps.longest_tap = std::max(taps.longest_tap, static_cast<int32_t>(kTile));
}

void Early::reset() {
    std::fill_n(ring_.get(), std::min<uint64_t>(written_, uint64_t{size_mask_} + 1), 0.0f);
    written_ = 0;
    fade_.finish();
    level_.snap();
    if (size_ == target_) return;
    lay_out(taps_[next_], target_);
    size_ = target_;
}

void Early::set(double size_seconds, float level) {
    target_ = static_cast<float>(size_seconds);
    level_.target = level;
}

void Early::begin() {
    if (fade_.running() || size_ == target_) return;
    next_ ^= 1;
    lay_out(taps_[next_], target_);
    size_ = target_;
    fade_.start();
}

void Early::write(const float* const in[2], uint32_t from, uint32_t to) {
    const float *left = in[0], *right = in[1];
    while (from < to) {
        const uint32_t start = static_cast<uint32_t>(written_ + from) & size_mask_;
        const uint32_t end =
            from + std::min(to - from, size_mask_ + 1 - start); // at the ring's seam
        float* const mono = ring_.get() + start - from;
        for (uint32_t t = from; t < end; ++t) mono[t] = (left[t] + right[t]) * 0.5f;
        from = end;
    }
}

void Early::add(float* const wet[2], uint32_t frames) {
    if (level_.value == 0.0 && !level_.moving()) return;
    alignas(32) float sums[2][2][kLongestSlice]; // set, channel
    for (int set : {0, 1}) {
        if (set != next_ && !fade_.running()) continue;
        const ffdn_er& taps = taps_[set];
        sum_taps(ring_.get(), size_mask_ + 1, static_cast<uint32_t>(written_) & size_mask_,
                 {taps.delays_l, taps.gains_l, taps.n_taps, sums[set][0]},
                 {taps.delays_r, taps.gains_r, taps.n_taps, sums[set][1]}, frames);
    }
    for (uint32_t t = 0; t < frames; t += kTile) {
        const auto before = static_cast<float>(level_.value);
        if (level_.moving()) level_.step(share_);
        const __m256 gain = ramp(before, static_cast<float>(level_.value));
        for (int c : {0, 1}) {
            __m256 early = _mm256_load_ps(sums[next_][c] + t);
            if (fade_.running())
                early = crossfade(_mm256_load_ps(sums[next_ ^ 1][c] + t), early, fade_.weights(t));
            float* const to = wet[c] + t;
            _mm256_storeu_ps(to, _mm256_fmadd_ps(early, gain, _mm256_loadu_ps(to)));
        }
    }
}

void Early::advance(uint32_t frames) {
    written_ += frames;
    fade_.advance(frames);
}

uint32_t Early::longest() const {
    return static_cast<uint32_t>(fade_.running()
                                     ? std::max(taps_[0].longest_tap, taps_[1].longest_tap)
                                     : taps_[next_].longest_tap);
}

} // namespace brisel::live
