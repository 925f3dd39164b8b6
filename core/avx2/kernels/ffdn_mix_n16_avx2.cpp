// Broadband decay with injection, and the mono output.
#include <immintrin.h>

#include "brisel/kernels_avx2.h"

void ffdn_mix_in_n16_avx2(float* dst, const float* src, const float* gain, const float* in_gain,
                          const float* x, uint32_t n) {
    for (uint32_t line = 0; line < BRISEL_LINES; ++line) {
        const __m256 g = _mm256_set1_ps(gain[line]);
        const __m256 b = _mm256_set1_ps(in_gain[line]);
        const size_t row = size_t{line} * n;
        for (uint32_t t = 0; t + 8 <= n; t += 8) {
            const __m256 decayed = _mm256_mul_ps(_mm256_loadu_ps(src + row + t), g);
            _mm256_storeu_ps(dst + row + t, _mm256_fmadd_ps(b, _mm256_loadu_ps(x + t), decayed));
        }
    }
}

void ffdn_mix_out_n16_avx2(float* y, const float* src, const float* out_gain, const float* direct,
                           const float* x, uint32_t n) {
    const __m256 d = _mm256_set1_ps(*direct);
    for (uint32_t t = 0; t + 8 <= n; t += 8) {
        __m256 acc = _mm256_mul_ps(d, _mm256_loadu_ps(x + t));
#pragma GCC unroll 16
        for (uint32_t line = 0; line < BRISEL_LINES; ++line)
            acc = _mm256_fmadd_ps(_mm256_set1_ps(out_gain[line]),
                                  _mm256_loadu_ps(src + size_t{line} * n + t), acc);
        _mm256_storeu_ps(y + t, acc);
    }
}
