// Tiles of 16 rows of 16 floats, a row in one AVX-512 register.
#ifndef BRISEL_CORE_AVX512_TILES16_H
#define BRISEL_CORE_AVX512_TILES16_H

#include <immintrin.h>

#include <cstddef>

#include "core/avx2/fwht16.h"

namespace brisel {

using Tile16 = __m512[16];

// The orthonormal 16-point Walsh-Hadamard transform over the rows: spans 8, 4, 2, 1, then 1/4, as
// fwht16.h computes it.
inline __attribute__((always_inline)) void fwht(Tile16& x) {
    __m512 sums[8];
    __m512 differences[8];
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) {
        sums[i] = x[i] + x[i + 8];
        differences[i] = x[i] - x[i + 8];
    }
    fwht_lower_passes(sums);
    fwht_lower_passes(differences);
    const __m512 quarter = _mm512_set1_ps(0.25f);
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) {
        x[i] = sums[i] * quarter;
        x[i + 8] = differences[i] * quarter;
    }
}

// Rows become columns: pairs of rows, four rows, then whole lanes of four.
inline __attribute__((always_inline)) void transpose(Tile16& x) {
    // quads[4 g + c]: in lane j rows 4 g .. 4 g + 3 of column 4 j + c.
    Tile16 quads;
#pragma GCC unroll 4
    for (size_t g = 0; g < 16; g += 4) {
        const __m512d lo01 = _mm512_castps_pd(_mm512_unpacklo_ps(x[g], x[g + 1]));
        const __m512d hi01 = _mm512_castps_pd(_mm512_unpackhi_ps(x[g], x[g + 1]));
        const __m512d lo23 = _mm512_castps_pd(_mm512_unpacklo_ps(x[g + 2], x[g + 3]));
        const __m512d hi23 = _mm512_castps_pd(_mm512_unpackhi_ps(x[g + 2], x[g + 3]));
        quads[g] = _mm512_castpd_ps(_mm512_unpacklo_pd(lo01, lo23));
        quads[g + 1] = _mm512_castpd_ps(_mm512_unpackhi_pd(lo01, lo23));
        quads[g + 2] = _mm512_castpd_ps(_mm512_unpacklo_pd(hi01, hi23));
        quads[g + 3] = _mm512_castpd_ps(_mm512_unpackhi_pd(hi01, hi23));
    }
#pragma GCC unroll 4
    for (size_t c = 0; c < 4; ++c) {
        const __m512 even01 = _mm512_shuffle_f32x4(quads[c], quads[4 + c], 0x88);
        const __m512 odd01 = _mm512_shuffle_f32x4(quads[c], quads[4 + c], 0xdd);
        const __m512 even23 = _mm512_shuffle_f32x4(quads[8 + c], quads[12 + c], 0x88);
        const __m512 odd23 = _mm512_shuffle_f32x4(quads[8 + c], quads[12 + c], 0xdd);
        x[c] = _mm512_shuffle_f32x4(even01, even23, 0x88);
        x[4 + c] = _mm512_shuffle_f32x4(odd01, odd23, 0x88);
        x[8 + c] = _mm512_shuffle_f32x4(even01, even23, 0xdd);
        x[12 + c] = _mm512_shuffle_f32x4(odd01, odd23, 0xdd);
    }
}

// Row i, i samples late: its last i samples of the tile before, then the first ones of this tile.
template <size_t i>
inline __attribute__((always_inline)) __m512 delayed_row(__m512 row, const float* before) {
    return _mm512_castsi512_ps(_mm512_alignr_epi32(
        _mm512_castps_si512(row), _mm512_castps_si512(_mm512_loadu_ps(before)), 16 - i));
}

} // namespace brisel

#endif
