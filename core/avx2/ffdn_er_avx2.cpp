// The early reflections' sums, over tiles of successive frames. The sum of a frame runs in the
// order of its taps, so it is the tile's vectors that hide the latency of the additions.
#include <immintrin.h>

#include <algorithm>
#include <cstddef>

#include "core/avx2/runs.h"
#include "core/avx2/units.h"

namespace brisel {

namespace {

// A ring's samples as straight runs of one tile. Runs that wrap are found in a copy of the ring's
// end and beginning, made once a block.
template <uint32_t kTile>
class StraightRing {
public:
    StraightRing(const float* ring, uint32_t size)
        : ring_(ring), mask_(size - 1), last_(size - kTile) {
        copy_run(wrap_, ring + last_, kTile);
        copy_run(wrap_ + kTile, ring, kTile);
    }

    const float* run(uint32_t position) const {
        const uint32_t start = position & mask_;
        return start > last_ ? wrap_ + (start - last_) : ring_ + start;
    }

private:
    const float* ring_;
    uint32_t mask_;
    uint32_t last_; // start of the last run that does not wrap
    float wrap_[2 * kTile];
};

template <uint32_t kTile>
inline void sum_tile(EarlyTaps taps, const StraightRing<kTile>& ring, uint32_t block, uint32_t t) {
    constexpr size_t kVectors = kTile / 8;
    __m256 sum[kVectors];
    std::fill_n(sum, kVectors, _mm256_setzero_ps());
    for (int32_t k = 0; k < taps.count; ++k) {
        const float* run = ring.run(block + t - static_cast<uint32_t>(taps.delays[k]));
        const __m256 gain = _mm256_set1_ps(taps.gains[k]);
#pragma GCC unroll 8
        for (size_t v = 0; v < kVectors; ++v)
            sum[v] = _mm256_fmadd_ps(_mm256_loadu_ps(run + 8 * v), gain, sum[v]);
    }
#pragma GCC unroll 8
    for (size_t v = 0; v < kVectors; ++v) _mm256_storeu_ps(taps.out + t + 8 * v, sum[v]);
}

// Blocks of one tile and more; where they are no multiple of it, the last two tiles overlap.
template <uint32_t kTile>
void sum_tiles(const StraightRing<kTile>& ring, uint32_t block, const EarlyTaps& left,
               const EarlyTaps& right, uint32_t frames) {
    for (uint32_t next = 0; next < frames; next += kTile) {
        const uint32_t t = std::min(next, frames - kTile);
        sum_tile(left, ring, block, t);
        sum_tile(right, ring, block, t);
    }
}

} // namespace

void ffdn_er_sum_avx2(const float* ring, uint32_t size, uint32_t block, const EarlyTaps& left,
                      const EarlyTaps& right, uint32_t frames) {
    if (frames >= 64) {
        sum_tiles(StraightRing<64>(ring, size), block, left, right, frames);
    } else if (frames >= 32) {
        sum_tiles(StraightRing<32>(ring, size), block, left, right, frames);
    } else if (frames >= 8) {
        sum_tiles(StraightRing<8>(ring, size), block, left, right, frames);
    } else {
        // The lanes behind the block read what the ring happens to hold and are dropped.
        float whole_left[8] = {}, whole_right[8] = {};
        sum_tiles(StraightRing<8>(ring, size), block,
                  {left.delays, left.gains, left.count, whole_left},
                  {right.delays, right.gains, right.count, whole_right}, 8);
        std::copy_n(whole_left, frames, left.out);
        std::copy_n(whole_right, frames, right.out);
    }
}

} // namespace brisel
