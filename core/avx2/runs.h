// Straight copies, as the delay kernels make them: short, of any alignment, never overlapping.
#ifndef BRISEL_CORE_AVX2_RUNS_H
#define BRISEL_CORE_AVX2_RUNS_H

#include <immintrin.h>

#include <algorithm>
#include <cstdint>

namespace brisel {

inline void copy_run(float* to, const float* from, uint32_t count) {
    const auto copy8 = [&](size_t t) { _mm256_storeu_ps(to + t, _mm256_loadu_ps(from + t)); };
    size_t t = 0;
    for (; t + 32 <= count; t += 32) {
        copy8(t);
        copy8(t + 8);
        copy8(t + 16);
        copy8(t + 24);
    }
    for (; t + 8 <= count; t += 8) copy8(t);
    if (t == count) return;
    if (count >= 8) {
        copy8(count - 8); // once more over samples already copied
    } else {
        for (; t < count; ++t) to[t] = from[t];
    }
}

// A run of whole vectors: `count` is a multiple of eight.
inline __attribute__((always_inline)) void copy_vectors(float* to, const float* from,
                                                        size_t count) {
    size_t t = 0;
    for (; t + 64 <= count; t += 64)
#pragma GCC unroll 8
        for (size_t k = t; k < t + 64; k += 8) _mm256_storeu_ps(to + k, _mm256_loadu_ps(from + k));
    for (; t < count; t += 8) _mm256_storeu_ps(to + t, _mm256_loadu_ps(from + t));
}

// `count` samples out of a ring, from index `start` on; count <= size.
inline void copy_from_ring(float* to, const float* ring, uint32_t size, uint32_t start,
                           uint32_t count) {
    const uint32_t first = std::min(size - start, count);
    copy_run(to, ring + start, first);
    copy_run(to + first, ring, count - first);
}

// `count` samples into a ring, from index `start` on; count <= size.
inline void copy_to_ring(float* ring, uint32_t size, uint32_t start, const float* from,
                         uint32_t count) {
    const uint32_t first = std::min(size - start, count);
    copy_run(ring + start, from, first);
    copy_run(ring, from + first, count - first);
}

} // namespace brisel

#endif
