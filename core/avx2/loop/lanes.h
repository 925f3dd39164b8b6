// Integers of eight lines in the lanes of a vector.
#ifndef BRISEL_CORE_AVX2_LOOP_LANES_H
#define BRISEL_CORE_AVX2_LOOP_LANES_H

#include <immintrin.h>

#include <cstdint>

namespace brisel {

// Eight lines' integers.
inline __m256i load_lines(const uint32_t* lines) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(lines));
}

inline __m256i broadcast(uint32_t x) {
    return _mm256_set1_epi32(static_cast<int32_t>(x));
}

// A condition's lanes, a bit each.
inline uint32_t lanes(__m256i condition) {
    return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(condition)));
}

} // namespace brisel

#endif
