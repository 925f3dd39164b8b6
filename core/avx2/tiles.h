// The feedback loop's steps on tiles, beside the transform (fwht16.h): 16 rows, one a line, of
// eight frames each. A `row` gives the address of a line's tile, a `gain` a line's gain on a side
// (0 left, 1 right) in all lanes.
#ifndef BRISEL_CORE_AVX2_TILES_H
#define BRISEL_CORE_AVX2_TILES_H

#include <immintrin.h>

#include <cstddef>

#include "core/avx2/fwht16.h"

namespace brisel {

// Hides where a pointer comes from. The rows of a tile are then addressed by one register and
// constant offsets; otherwise the compiler keeps a pointer for each row and runs out of registers.
template <typename T>
inline T* opaque(T* pointer) {
    asm("" : "+r"(pointer));
    return pointer;
}

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

// A piece's output sums and its transform: rows in, rows of kOutRow floats out.
//
// A sum takes its lines in their order, as 16 operations that wait for each other. Its first half
// is computed a tile ahead, between the transform's stores, so that two tiles' sums run at a time.
// `between_halves(p)` is work of the caller's between the halves of the tile at p.
template <bool kStereo, size_t kOutRow, typename Gain, typename Between>
inline __attribute__((always_inline)) void
mix_out_piece(const float* const* rows, Gain gain, const float (&direct)[2], const float* x,
              float* y_left, float* y_right, float* out, size_t length, Between between_halves) {
    alignas(32) float differences[8][8]; // wait here while the transform's sums are finished
    const __m256 direct_left = _mm256_set1_ps(direct[0]);
    const __m256 direct_right = _mm256_set1_ps(direct[1]);
    __m256 left;
    __m256 right;
    const auto begin_sums = [&](size_t p) {
        const __m256 dry = _mm256_loadu_ps(x + p);
        left = _mm256_mul_ps(direct_left, dry);
        right = _mm256_mul_ps(direct_right, dry);
    };
    const auto add_line = [&](size_t line, __m256 s) {
        left = _mm256_fmadd_ps(gain(0, line), s, left);
        if (kStereo) right = _mm256_fmadd_ps(gain(1, line), s, right);
    };
    begin_sums(0);
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) add_line(i, _mm256_loadu_ps(rows[i]));

    for (size_t p = 0; p < length; p += 8) {
        float* to = opaque(out + p);
        float* scratch = opaque(differences[0]);
        __m256 sums[8];
#pragma GCC unroll 8
        for (size_t i = 0; i < 8; ++i) {
            const __m256 first = _mm256_loadu_ps(rows[i] + p);
            const __m256 second = _mm256_loadu_ps(rows[i + 8] + p);
            add_line(i + 8, second);
            _mm256_store_ps(scratch + 8 * i, _mm256_sub_ps(first, second));
            sums[i] = _mm256_add_ps(first, second);
        }
        _mm256_storeu_ps(y_left + p, left);
        if (kStereo) _mm256_storeu_ps(y_right + p, right);

        const size_t next = p + 8 < length ? p + 8 : p; // behind the last tile, to no end
        begin_sums(next);
        fwht_finish_half(
            sums, [&](size_t i) { return to + i * kOutRow; },
            [&](size_t i) { add_line(i, _mm256_loadu_ps(rows[i] + next)); });
        between_halves(p);
        __m256 waiting[8];
#pragma GCC unroll 8
        for (size_t i = 0; i < 8; ++i) waiting[i] = _mm256_load_ps(scratch + 8 * i);
        fwht_finish_half(waiting, [&](size_t i) { return to + (i + 8) * kOutRow; });
    }
}

// Two-band filter, frame by frame in the transposed tile: filtered[lines 0-7, 8-15][frame][line].
// `shelf` holds b0 and a1 of the 16 lines; `memory` stays in the caller's registers, since a store
// and a load a tile would lengthen the recursion.
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

// The same with coefficients that glide in steps from one row to the next, reached in the last
// frame.
template <typename Row>
inline __attribute__((always_inline)) void filter_gliding_tile(float* filtered, const float* shelf,
                                                               __m256 (&memory)[2], Row row) {
    const __m256 eighth = _mm256_set1_ps(0.125f);
#pragma GCC unroll 2
    for (size_t g = 0; g < 2; ++g) {
        __m256 m[8];
        load_transposed8(m, [&](size_t i) { return row(8 * g + i); });
        const auto from = [&](size_t k) { return _mm256_loadu_ps(shelf + 16 * k + 8 * g); };
        const auto step = [&](size_t k) {
            return _mm256_mul_ps(_mm256_sub_ps(from(k + 2), from(k)), eighth);
        };
        __m256 b0 = from(0);
        __m256 a1 = from(1);
        const __m256 b0_step = step(0);
        const __m256 a1_step = step(1);
#pragma GCC unroll 8
        for (size_t f = 0; f < 8; ++f) {
            b0 = _mm256_add_ps(b0, b0_step);
            a1 = _mm256_add_ps(a1, a1_step);
            memory[g] = _mm256_fmadd_ps(a1, memory[g], _mm256_mul_ps(b0, m[f]));
            _mm256_store_ps(filtered + 64 * g + 8 * f, memory[g]);
        }
    }
}

// Broadband decay and input: `decay` holds the 16 gains.
template <bool kStereo, typename Row, typename Gain, typename Out>
inline __attribute__((always_inline)) void decay_tile(const float* decay, __m256 left, __m256 right,
                                                      Row row, Gain gain, Out out) {
#pragma GCC unroll 16
    for (size_t line = 0; line < 16; ++line) {
        __m256 v = _mm256_mul_ps(_mm256_loadu_ps(row(line)), _mm256_set1_ps(decay[line]));
        v = _mm256_fmadd_ps(gain(0, line), left, v);
        if (kStereo) v = _mm256_fmadd_ps(gain(1, line), right, v);
        _mm256_storeu_ps(out(line), v);
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
        for (size_t k = 0; k < 8; ++k) {
            const size_t i = k / 2 + k % 2 * 4; // as the transposition delivers them
            const size_t line = 8 * g + i;
            __m256 v = _mm256_fmadd_ps(gain(0, line), left, m[i]);
            if (kStereo) v = _mm256_fmadd_ps(gain(1, line), right, v);
            _mm256_storeu_ps(out(line), v);
        }
    }
}

} // namespace brisel

#endif
