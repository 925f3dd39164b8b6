// Signals, eight frames at a time:
//
//   each_tile(frames, [=](size_t t) { add_tile(y + t, x + t, gain); });
//
// adds one signal to another. Plain loops would bring the compiler's checks for overlap and for the
// last few frames into every call, 3 % of the instructions of a reverb's block of 64.
#ifndef BRISEL_CORE_AVX2_SIGNALS_H
#define BRISEL_CORE_AVX2_SIGNALS_H

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace brisel {

// `frames` is a positive multiple of eight.
template <typename Body>
inline void each_tile(uint32_t frames, Body body) {
#pragma GCC unroll 4
    for (size_t t = 0; t < frames; t += 8) body(t);
}

// to = from, with 0 for infinities and NaN, whose exponent bits are all ones; everything else,
// denormals included, passes bit for bit.
inline void clean_tile(float* to, const float* from) {
    const __m256i exponent = _mm256_set1_epi32(0x7f800000);
    const __m256i bits = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    const __m256i unusable = _mm256_cmpeq_epi32(_mm256_and_si256(bits, exponent), exponent);
    _mm256_storeu_ps(to, _mm256_castsi256_ps(_mm256_andnot_si256(unusable, bits)));
}

// to = (left + right) * gain
inline void sum_tile(float* to, const float* left, const float* right, float gain) {
    const __m256 sum = _mm256_add_ps(_mm256_loadu_ps(left), _mm256_loadu_ps(right));
    _mm256_storeu_ps(to, _mm256_mul_ps(sum, _mm256_set1_ps(gain)));
}

// to = fma(from, gain, to)
inline void add_tile(float* to, const float* from, float gain) {
    _mm256_storeu_ps(
        to, _mm256_fmadd_ps(_mm256_loadu_ps(from), _mm256_set1_ps(gain), _mm256_loadu_ps(to)));
}

// out = fma(wet_gain, wet, dry_gain * dry)
inline void mix_tile(float* out, const float* wet, const float* dry, float wet_gain,
                     float dry_gain) {
    const __m256 direct = _mm256_mul_ps(_mm256_set1_ps(dry_gain), _mm256_loadu_ps(dry));
    _mm256_storeu_ps(out, _mm256_fmadd_ps(_mm256_set1_ps(wet_gain), _mm256_loadu_ps(wet), direct));
}

} // namespace brisel

#endif
