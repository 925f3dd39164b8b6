// Transposition of 8 x 8 floats on the way into registers.
#ifndef BRISEL_CORE_AVX2_TRANSPOSE8_H
#define BRISEL_CORE_AVX2_TRANSPOSE8_H

#include <immintrin.h>

namespace brisel {

// Eight columns of eight rows of floats, transposed while they are loaded: m[c] receives column c.
// `row(r)` gives the address of row r.
template <typename Row>
inline void load_transposed8(__m256 (&m)[8], Row row) {
    // quads[h][c]: column c in the lower lane and c + 4 in the upper one, of rows 4 h .. 4 h + 3.
    __m256 quads[2][4];
#pragma GCC unroll 2
    for (size_t h = 0; h < 2; ++h) {
        const __m256 r0 = _mm256_loadu_ps(row(4 * h));
        const __m256 r1 = _mm256_loadu_ps(row(4 * h + 1));
        const __m256 r2 = _mm256_loadu_ps(row(4 * h + 2));
        const __m256 r3 = _mm256_loadu_ps(row(4 * h + 3));
        const __m256 lo01 = _mm256_unpacklo_ps(r0, r1);
        const __m256 hi01 = _mm256_unpackhi_ps(r0, r1);
        const __m256 lo23 = _mm256_unpacklo_ps(r2, r3);
        const __m256 hi23 = _mm256_unpackhi_ps(r2, r3);
        quads[h][0] = _mm256_shuffle_ps(lo01, lo23, _MM_SHUFFLE(1, 0, 1, 0));
        quads[h][1] = _mm256_shuffle_ps(lo01, lo23, _MM_SHUFFLE(3, 2, 3, 2));
        quads[h][2] = _mm256_shuffle_ps(hi01, hi23, _MM_SHUFFLE(1, 0, 1, 0));
        quads[h][3] = _mm256_shuffle_ps(hi01, hi23, _MM_SHUFFLE(3, 2, 3, 2));
    }
#pragma GCC unroll 4
    for (size_t c = 0; c < 4; ++c) {
        m[c] = _mm256_permute2f128_ps(quads[0][c], quads[1][c], 0x20);
        m[c + 4] = _mm256_permute2f128_ps(quads[0][c], quads[1][c], 0x31);
    }
}

} // namespace brisel

#endif
