// The stereo output.
#include <immintrin.h>

#include "brisel/kernels_avx2.h"

namespace {

// Several vectors of frames at once share each broadcast gain and hide the latency of the sums,
// which have to run in line order.
template <size_t Vectors>
void mix_out_frames(float* y_left, float* y_right, const float* src, size_t stride,
                    const float* out_left, const float* out_right, const float* direct,
                    const float* x) {
    __m256 left[Vectors];
    __m256 right[Vectors];
#pragma GCC unroll 4
    for (size_t v = 0; v < Vectors; ++v) {
        const __m256 dry = _mm256_loadu_ps(x + 8 * v);
        left[v] = _mm256_mul_ps(_mm256_set1_ps(direct[0]), dry);
        right[v] = _mm256_mul_ps(_mm256_set1_ps(direct[1]), dry);
    }
    for (size_t line = 0; line < BRISEL_LINES; ++line) {
        const __m256 gain_left = _mm256_set1_ps(out_left[line]);
        const __m256 gain_right = _mm256_set1_ps(out_right[line]);
#pragma GCC unroll 4
        for (size_t v = 0; v < Vectors; ++v) {
            const __m256 s = _mm256_loadu_ps(src + line * stride + 8 * v);
            left[v] = _mm256_fmadd_ps(gain_left, s, left[v]);
            right[v] = _mm256_fmadd_ps(gain_right, s, right[v]);
        }
    }
#pragma GCC unroll 4
    for (size_t v = 0; v < Vectors; ++v) {
        _mm256_storeu_ps(y_left + 8 * v, left[v]);
        _mm256_storeu_ps(y_right + 8 * v, right[v]);
    }
}

} // namespace

void ffdn_mix_out_stereo_n16_avx2(float* y_left, float* y_right, const float* src,
                                  const float* out_left, const float* out_right,
                                  const float* direct, const float* x, uint32_t n) {
    uint32_t t = 0;
    for (; t + 32 <= n; t += 32)
        mix_out_frames<4>(y_left + t, y_right + t, src + t, n, out_left, out_right, direct, x + t);
    for (; t + 8 <= n; t += 8)
        mix_out_frames<1>(y_left + t, y_right + t, src + t, n, out_left, out_right, direct, x + t);
}
