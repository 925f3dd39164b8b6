#include <immintrin.h>

#include <algorithm>
#include <cstddef>

#include "core/avx2/early_sums.h"
#include "core/avx2/units.h"

namespace brisel {
namespace {

struct Avx2 {
    using Vector = __m256;
    static constexpr size_t kFloats = 8;
    static Vector zero() { return _mm256_setzero_ps(); }
    static Vector set(float x) { return _mm256_set1_ps(x); }
    static Vector load(const float* from) { return _mm256_loadu_ps(from); }
    static void store(float* to, Vector v) { _mm256_storeu_ps(to, v); }
    static Vector fma(Vector a, Vector b, Vector c) { return _mm256_fmadd_ps(a, b, c); }
};

} // namespace

void ffdn_er_sum_avx2(const float* ring, uint32_t size, uint32_t block, const EarlyTaps& left,
                      const EarlyTaps& right, uint32_t frames) {
    if (frames >= 64) {
        sum_tiles<Avx2, 64>(ring, size, block, left, right, frames);
    } else if (frames >= 32) {
        sum_tiles<Avx2, 32>(ring, size, block, left, right, frames);
    } else if (frames >= 8) {
        sum_tiles<Avx2, 8>(ring, size, block, left, right, frames);
    } else {
        // The lanes behind the block read what the ring happens to hold and are dropped.
        float whole_left[8] = {}, whole_right[8] = {};
        sum_tiles<Avx2, 8>(ring, size, block, {left.delays, left.gains, left.count, whole_left},
                           {right.delays, right.gains, right.count, whole_right}, 8);
        std::copy_n(whole_left, frames, left.out);
        std::copy_n(whole_right, frames, right.out);
    }
}

} // namespace brisel
