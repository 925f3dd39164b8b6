// The early reflections' sums, over tiles of successive frames. The sum of a frame runs in the
// order of its taps, so it is the tile's vectors that hide the latency of the additions.
//
// `Simd` is a vector's type and operations: Vector, kFloats, zero(), set(float), load(from),
// store(to, v), fma(a, b, c).
#ifndef BRISEL_CORE_AVX2_EARLY_SUMS_H
#define BRISEL_CORE_AVX2_EARLY_SUMS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/avx2/units.h"

namespace brisel {

// A ring's samples as straight runs of one tile. Runs that wrap are found in a copy of the ring's
// end and beginning, made once a block.
template <typename Simd, uint32_t kTile>
class StraightRing {
public:
    StraightRing(const float* ring, uint32_t size)
        : ring_(ring), mask_(size - 1), last_(size - kTile) {
        std::memcpy(wrap_, ring + last_, kTile * sizeof(float));
        std::memcpy(wrap_ + kTile, ring, kTile * sizeof(float));
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

template <typename Simd, uint32_t kTile>
inline void sum_tile(EarlyTaps taps, const StraightRing<Simd, kTile>& ring, uint32_t block,
                     uint32_t t) {
    constexpr size_t kVectors = kTile / Simd::kFloats;
    typename Simd::Vector sum[kVectors];
    std::fill_n(sum, kVectors, Simd::zero());
    for (int32_t k = 0; k < taps.count; ++k) {
        const float* run = ring.run(block + t - static_cast<uint32_t>(taps.delays[k]));
        const auto gain = Simd::set(taps.gains[k]);
#pragma GCC unroll 8
        for (size_t v = 0; v < kVectors; ++v)
            sum[v] = Simd::fma(Simd::load(run + Simd::kFloats * v), gain, sum[v]);
    }
#pragma GCC unroll 8
    for (size_t v = 0; v < kVectors; ++v) Simd::store(taps.out + t + Simd::kFloats * v, sum[v]);
}

// Blocks of one tile and more; where they are no multiple of it, the last two tiles overlap.
template <typename Simd, uint32_t kTile>
void sum_tiles(const float* samples, uint32_t size, uint32_t block, const EarlyTaps& left,
               const EarlyTaps& right, uint32_t frames) {
    const StraightRing<Simd, kTile> ring(samples, size);
    for (uint32_t next = 0; next < frames; next += kTile) {
        const uint32_t t = std::min(next, frames - kTile);
        sum_tile(left, ring, block, t);
        sum_tile(right, ring, block, t);
    }
}

} // namespace brisel

#endif
