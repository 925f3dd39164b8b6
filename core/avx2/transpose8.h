// Eight registers as an 8 x 8 matrix.
#ifndef BRISEL_CORE_AVX2_TRANSPOSE8_H
#define BRISEL_CORE_AVX2_TRANSPOSE8_H

#include <immintrin.h>

namespace brisel {

// Row r, column c becomes row c, column r.
inline void transpose8(__m256 (&m)[8]) {
    __m256 pairs[8];
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
        pairs[2 * k] = _mm256_unpacklo_ps(m[2 * k], m[2 * k + 1]);
        pairs[2 * k + 1] = _mm256_unpackhi_ps(m[2 * k], m[2 * k + 1]);
    }
    // quads[4 * h + c]: column c (and c + 4 in the upper lane) of rows 4 h .. 4 h + 3.
    __m256 quads[8];
#pragma GCC unroll 2
    for (int h = 0; h < 2; ++h) {
        const __m256* p = pairs + 4 * h;
        quads[4 * h + 0] = _mm256_shuffle_ps(p[0], p[2], _MM_SHUFFLE(1, 0, 1, 0));
        quads[4 * h + 1] = _mm256_shuffle_ps(p[0], p[2], _MM_SHUFFLE(3, 2, 3, 2));
        quads[4 * h + 2] = _mm256_shuffle_ps(p[1], p[3], _MM_SHUFFLE(1, 0, 1, 0));
        quads[4 * h + 3] = _mm256_shuffle_ps(p[1], p[3], _MM_SHUFFLE(3, 2, 3, 2));
    }
#pragma GCC unroll 4
    for (int c = 0; c < 4; ++c) {
        m[c] = _mm256_permute2f128_ps(quads[c], quads[4 + c], 0x20);
        m[c + 4] = _mm256_permute2f128_ps(quads[c], quads[4 + c], 0x31);
    }
}

} // namespace brisel

#endif
