// The feedback loop's steps on tiles, beside the transform (fwht16.h): 16 rows, one a line, of eight
// frames each. A `row` gives the address of a line's tile, a `gain` a line's gain on a side (0 left, 1
// right) in all lanes.
#ifndef BRISEL_CORE_AVX2_TILES_H
#define BRISEL_CORE_AVX2_TILES_H

#include <immintrin.h>

#include <cstddef>

#include "core/avx2/fwht16.h"
#include "core/avx2/transpose8.h"

namespace brisel {

// Hides where a pointer comes from. The rows of a tile are then addressed by one register and constant
// offsets; otherwise the compiler keeps a pointer for each row and runs out of registers.
template <typename T>
inline T* opaque(T* pointer) {
    asm("" : "+r"(pointer));
    return pointer;
}

// Adds the lines to the output sums, in line order, and transforms them. The transform's differences
// wait in `scratch`, 8 x 8 floats, while its sums are finished.
template <bool kStereo, typename Row, typename Gain, typename Out>
inline __attribute__((always_inline)) void mix_out_tile(__m256& left, __m256& right, Row row,
                                                        Gain gain, float* scratch, Out out) {
    __m256 x[8];
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) {
        x[i] = _mm256_loadu_ps(row(i));
        left = _mm256_fmadd_ps(gain(0, i), x[i], left);
        if (kStereo) right = _mm256_fmadd_ps(gain(1, i), x[i], right);
    }
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) {
        const __m256 s = _mm256_loadu_ps(row(i + 8));
        left = _mm256_fmadd_ps(gain(0, i + 8), s, left);
        if (kStereo) right = _mm256_fmadd_ps(gain(1, i + 8), s, right);
        _mm256_store_ps(scratch + 8 * i, _mm256_sub_ps(x[i], s));
        x[i] = _mm256_add_ps(x[i], s);
    }
    fwht_finish_half(x, out);
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) x[i] = _mm256_load_ps(scratch + 8 * i);
    fwht_finish_half(x, [&](size_t i) { return out(i + 8); });
}

// Two-band filter, frame by frame in the transposed tile: filtered[lines 0-7, 8-15][frame][line].
// `shelf` holds b0 and a1 of the 16 lines; `memory` stays in the caller's registers, since a store and
// a load a tile would lengthen the recursion.
template <typename Row>
inline __attribute__((always_inline)) void filter_tile(float* filtered, const float* shelf,
                                                       __m256 (&memory)[2], Row row) {
#pragma GCC unroll 2
    for (size_t g = 0; g < 2; ++g) {
        __m256 m[8];
        load_transposed8(m, [&](size_t i) { return row(8 * g + i); });
        const __m256 b0 = _mm256_loadu_ps(shelf + 8 * g);
        const __m256 a1 = _mm256_loadu_ps(shelf + 16 + 8 * g);
#pragma GCC unroll 8
        for (size_t f = 0; f < 8; ++f) {
            memory[g] = _mm256_fmadd_ps(a1, memory[g], _mm256_mul_ps(b0, m[f]));
            _mm256_store_ps(filtered + 64 * g + 8 * f, memory[g]);
        }
    }
}

// Adds the input to a filtered tile and turns it back into rows.
template <bool kStereo, typename Gain, typename Out>
inline __attribute__((always_inline)) void inject_tile(const float* filtered, __m256 left,
                                                       __m256 right, Gain gain, Out out) {
#pragma GCC unroll 2
    for (size_t g = 0; g < 2; ++g) {
        __m256 m[8];
        load_transposed8(m, [&](size_t f) { return filtered + 64 * g + 8 * f; });
#pragma GCC unroll 8
        for (size_t i = 0; i < 8; ++i) {
            __m256 v = _mm256_fmadd_ps(gain(0, 8 * g + i), left, m[i]);
            if (kStereo) v = _mm256_fmadd_ps(gain(1, 8 * g + i), right, v);
            _mm256_storeu_ps(out(8 * g + i), v);
        }
    }
}

} // namespace brisel

#endif
