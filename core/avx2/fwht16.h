// The 16-point Walsh-Hadamard transform on tiles: 16 rows, one a line, of eight frames each.
#ifndef BRISEL_CORE_AVX2_FWHT16_H
#define BRISEL_CORE_AVX2_FWHT16_H

#include <immintrin.h>

#include <cstddef>

namespace brisel {

// Passes with spans 4, 2, 1 over eight lines, in vectors of any width.
template <typename Vector>
inline __attribute__((always_inline)) void fwht_lower_passes(Vector (&x)[8]) {
#pragma GCC unroll 3
    for (int span = 4; span >= 1; span >>= 1) {
#pragma GCC unroll 8
        for (int line = 0; line < 8; ++line) {
            if (line & span) continue;
            const Vector first = x[line];
            const Vector second = x[line + span];
            x[line] = first + second;
            x[line + span] = first - second;
        }
    }
}

// What is left of a transform behind its first pass, on the eight sums or the eight differences:
// `row(i)` gives the address of their i-th row. `between(i)` is the caller's work behind it.
template <typename Row, typename Between>
inline void fwht_finish_half(__m256 (&x)[8], Row row, Between between) {
    const __m256 quarter = _mm256_set1_ps(0.25f);
    fwht_lower_passes(x);
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) {
        _mm256_storeu_ps(row(i), _mm256_mul_ps(x[i], quarter));
        between(i);
    }
}

template <typename Row>
inline void fwht_finish_half(__m256 (&x)[8], Row row) {
    fwht_finish_half(x, row, [](size_t) {});
}

// A tile from 16 rows to 16 others. The first pass reads its rows twice: eight registers suffice.
template <typename In, typename Out>
inline void fwht_tile(In in, Out out) {
    __m256 x[8];
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i)
        x[i] = _mm256_add_ps(_mm256_loadu_ps(in(i)), _mm256_loadu_ps(in(i + 8)));
    fwht_finish_half(x, out);
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i)
        x[i] = _mm256_sub_ps(_mm256_loadu_ps(in(i)), _mm256_loadu_ps(in(i + 8)));
    fwht_finish_half(x, [&](size_t i) { return out(i + 8); });
}

// A tile in place: the differences wait in a scratch while the sums are finished.
template <typename Row>
inline void fwht_tile_in_place(Row row) {
    alignas(32) float differences[8][8];
    __m256 x[8];
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) {
        const __m256 first = _mm256_loadu_ps(row(i));
        const __m256 second = _mm256_loadu_ps(row(i + 8));
        _mm256_store_ps(differences[i], _mm256_sub_ps(first, second));
        x[i] = _mm256_add_ps(first, second);
    }
    fwht_finish_half(x, row);
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) x[i] = _mm256_load_ps(differences[i]);
    fwht_finish_half(x, [&](size_t i) { return row(i + 8); });
}

} // namespace brisel

#endif
