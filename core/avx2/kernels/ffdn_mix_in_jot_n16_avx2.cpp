// Two-band decay with injection. The recursion forbids vectors along time, so they run across
// lines: eight lines by eight frames are transposed, filtered frame by frame, transposed back and
// injected.
#include <immintrin.h>

#include <cmath>

#include "brisel/kernels_avx2.h"
#include "core/avx2/tiles.h"

namespace {

constexpr uint32_t kB0 = 0;
constexpr uint32_t kA1 = 16;
constexpr uint32_t kState = 32;

} // namespace

void ffdn_mix_in_jot_n16_avx2(float* dst, const float* src, float* shelf, const float* in_gain,
                              const float* x, uint32_t n) {
    const uint32_t whole = n & ~7u;
    __m256 memory[2] = {_mm256_loadu_ps(shelf + kState), _mm256_loadu_ps(shelf + kState + 8)};
    for (uint32_t t = 0; t < whole; t += 8) {
        alignas(32) float filtered[2][8][8];
        brisel::filter_tile(filtered[0][0], shelf, memory,
                            [=](size_t line) { return src + line * n + t; });
        const __m256 tile = _mm256_loadu_ps(x + t);
        brisel::inject_tile<false>(
            filtered[0][0], tile, tile,
            [=](size_t, size_t line) { return _mm256_set1_ps(in_gain[line]); },
            [=](size_t line) { return dst + line * n + t; });
    }
    _mm256_storeu_ps(shelf + kState, memory[0]);
    _mm256_storeu_ps(shelf + kState + 8, memory[1]);

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
