// The early reflections' sums, over tiles of successive frames. The sum of a frame runs in the
// order of its taps, so it is the tile's vectors that hide the latency of the additions.
#include "core/avx2/ffdn_er_avx2.h"

#include <immintrin.h>

#include <algorithm>
#include <cstddef>

#include "core/avx2/runs.h"

namespace brisel {

namespace {

// A ring's samples as straight runs of one tile. Runs across the seam are found in a copy of its
// surroundings, made once a block.
template <uint32_t kTile>
class StraightRing {
public:
    StraightRing(const float* ring, uint32_t size)
        : ring_(ring), mask_(size - 1), last_(size - kTile) {
        copy_run(seam_, ring + last_, kTile);
        copy_run(seam_ + kTile, ring, kTile);
    }

    const float* run(uint32_t position) const {
        const uint32_t start = position & mask_;
        return start > last_ ? seam_ + (start - last_) : ring_ + start;
    }

private:
    const float* ring_;
    uint32_t mask_;
    uint32_t last_; // start of the last run before the seam
    float seam_[2 * kTile];
};

template <uint32_t kTile>
inline void sum_tile(float* out, const StraightRing<kTile>& ring, uint32_t position,
                     const int32_t* delays, const float* gains, int32_t n_taps) {
    constexpr size_t kVectors = kTile / 8;
    __m256 sum[kVectors];
    std::fill_n(sum, kVectors, _mm256_setzero_ps());
    for (int32_t k = 0; k < n_taps; ++k) {
        const float* run = ring.run(position - static_cast<uint32_t>(delays[k]));
        const __m256 gain = _mm256_set1_ps(gains[k]);
#pragma GCC unroll 8
        for (size_t v = 0; v < kVectors; ++v)
            sum[v] = _mm256_fmadd_ps(_mm256_loadu_ps(run + 8 * v), gain, sum[v]);
    }
#pragma GCC unroll 8
    for (size_t v = 0; v < kVectors; ++v) _mm256_storeu_ps(out + 8 * v, sum[v]);
}

// Blocks of one tile and more; where they are no multiple of it, the last two tiles overlap.
template <uint32_t kTile>
void sum_tiles(const ffdn_er& er, float* out_l, float* out_r, uint32_t frames) {
    const StraightRing<kTile> ring(er.ring, static_cast<uint32_t>(er.ring_len));
    const auto block = static_cast<uint32_t>(er.write_pos);
    for (uint32_t next = 0; next < frames; next += kTile) {
        const uint32_t t = std::min(next, frames - kTile);
        sum_tile(out_l + t, ring, block + t, er.delays_l, er.gains_l, er.n_taps);
        sum_tile(out_r + t, ring, block + t, er.delays_r, er.gains_r, er.n_taps);
    }
}

} // namespace

void sum_early_taps(const ffdn_er& er, float* out_l, float* out_r, uint32_t frames) {
    if (frames >= 64) {
        sum_tiles<64>(er, out_l, out_r, frames);
    } else if (frames >= 32) {
        sum_tiles<32>(er, out_l, out_r, frames);
    } else if (frames >= 8) {
        sum_tiles<8>(er, out_l, out_r, frames);
    } else {
        // The lanes behind the block read what the ring happens to hold and are dropped.
        float left[8], right[8];
        sum_tiles<8>(er, left, right, 8);
        std::copy_n(left, frames, out_l);
        std::copy_n(right, frames, out_r);
    }
}

} // namespace brisel
