// The butterflies of the 16-point Walsh-Hadamard transform on registers: eight lanes are eight frames
// of one line.
#ifndef BRISEL_CORE_AVX2_FWHT16_H
#define BRISEL_CORE_AVX2_FWHT16_H

#include <immintrin.h>

namespace brisel {

// Passes with spans 4, 2, 1 over eight lines.
inline void fwht_lower_passes(__m256 (&x)[8]) {
#pragma GCC unroll 3
    for (int span = 4; span >= 1; span >>= 1) {
#pragma GCC unroll 8
        for (int line = 0; line < 8; ++line) {
            if (line & span) continue;
            const __m256 first = x[line];
            const __m256 second = x[line + span];
            x[line] = _mm256_add_ps(first, second);
            x[line + span] = _mm256_sub_ps(first, second);
        }
    }
}

// Eight frames of 16 rows, transformed from `in` to `out` (which may be the same rows). The first pass
// reads memory twice, so that the sums' half is finished while the differences wait: eight and eight
// registers, no spill.
inline void fwht_tile(float* out, size_t out_stride, const float* in, size_t in_stride) {
    const __m256 quarter = _mm256_set1_ps(0.25f);
    __m256 sums[8];
    __m256 differences[8];
#pragma GCC unroll 8
    for (size_t line = 0; line < 8; ++line)
        sums[line] = _mm256_add_ps(_mm256_loadu_ps(in + line * in_stride),
                                   _mm256_loadu_ps(in + (line + 8) * in_stride));
    fwht_lower_passes(sums);
#pragma GCC unroll 8
    for (size_t line = 0; line < 8; ++line)
        differences[line] = _mm256_sub_ps(_mm256_loadu_ps(in + line * in_stride),
                                          _mm256_loadu_ps(in + (line + 8) * in_stride));
#pragma GCC unroll 8
    for (size_t line = 0; line < 8; ++line)
        _mm256_storeu_ps(out + line * out_stride, _mm256_mul_ps(sums[line], quarter));
    fwht_lower_passes(differences);
#pragma GCC unroll 8
    for (size_t line = 0; line < 8; ++line)
        _mm256_storeu_ps(out + (line + 8) * out_stride, _mm256_mul_ps(differences[line], quarter));
}

} // namespace brisel

#endif
