// Two-band decay with injection. The recursion forbids vectors along time, so they run across lines:
// eight lines by eight frames are transposed, filtered frame by frame, transposed back and injected.
#include <immintrin.h>

#include <cmath>

#include "brisel/kernels_avx2.h"
#include "core/avx2/transpose8.h"

namespace {

constexpr uint32_t kB0 = 0;
constexpr uint32_t kA1 = 16;
constexpr uint32_t kState = 32;

// Filters four frames of eight lines, from column `first` of `src` on, into `filtered`, frame by frame;
// returns the new memories.
inline __m256 filter_frames(float (&filtered)[8][8], const float* src, size_t stride, size_t first,
                            __m256 b0, __m256 a1, __m256 state) {
    __m256 m[4];
    brisel::load_columns(
        m, [&](size_t line) { return src + line * stride; }, first);
#pragma GCC unroll 4
    for (size_t f = 0; f < 4; ++f) {
        state = _mm256_fmadd_ps(a1, state, _mm256_mul_ps(b0, m[f]));
        _mm256_store_ps(filtered[first + f], state);
    }
    return state;
}

// Adds the input to eight filtered frames of four lines, from line `first` on.
inline void inject_lines(float* dst, size_t stride, const float (&filtered)[8][8], size_t first,
                         const float* in_gain, __m256 x) {
    __m256 m[4];
    brisel::load_columns(
        m, [&](size_t frame) { return filtered[frame]; }, first);
#pragma GCC unroll 4
    for (size_t k = 0; k < 4; ++k) {
        const size_t line = first + k;
        _mm256_storeu_ps(dst + line * stride,
                         _mm256_fmadd_ps(_mm256_set1_ps(in_gain[line]), x, m[k]));
    }
}

} // namespace

void ffdn_mix_in_jot_n16_avx2(float* dst, const float* src, float* shelf, const float* in_gain,
                              const float* x, uint32_t n) {
    const uint32_t whole = n & ~7u;
    // Two groups of eight lines in flight: each recursion waits for itself.
    const __m256 b0[2] = {_mm256_loadu_ps(shelf + kB0), _mm256_loadu_ps(shelf + kB0 + 8)};
    const __m256 a1[2] = {_mm256_loadu_ps(shelf + kA1), _mm256_loadu_ps(shelf + kA1 + 8)};
    __m256 state[2] = {_mm256_loadu_ps(shelf + kState), _mm256_loadu_ps(shelf + kState + 8)};
    for (uint32_t t = 0; t < whole; t += 8) {
        const __m256 tile = _mm256_loadu_ps(x + t);
        alignas(32) float filtered[2][8][8];
#pragma GCC unroll 2
        for (size_t first = 0; first < 8; first += 4)
#pragma GCC unroll 2
            for (size_t g = 0; g < 2; ++g)
                state[g] = filter_frames(filtered[g], src + 8 * g * n + t, n, first, b0[g], a1[g],
                                         state[g]);
#pragma GCC unroll 2
        for (size_t g = 0; g < 2; ++g)
#pragma GCC unroll 2
            for (size_t first = 0; first < 8; first += 4)
                inject_lines(dst + 8 * g * n + t, n, filtered[g], first, in_gain + 8 * g, tile);
    }
    _mm256_storeu_ps(shelf + kState, state[0]);
    _mm256_storeu_ps(shelf + kState + 8, state[1]);

    for (uint32_t line = 0; line < BRISEL_LINES; ++line) {
        float s = shelf[kState + line];
        for (uint32_t t = whole; t < n; ++t) {
            const size_t at = size_t{line} * n + t;
            s = std::fma(shelf[kA1 + line], s, shelf[kB0 + line] * src[at]);
            dst[at] = std::fma(in_gain[line], x[t], s);
        }
        shelf[kState + line] = s;
    }
}
