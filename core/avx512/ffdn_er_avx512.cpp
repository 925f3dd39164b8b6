#include <immintrin.h>

#include <cstddef>

#include "core/avx2/early_sums.h"
#include "core/avx512/units.h"

namespace brisel {
namespace {

struct Avx512 {
    using Vector = __m512;
    static constexpr size_t kFloats = 16;
    static Vector zero() { return _mm512_setzero_ps(); }
    static Vector set(float x) { return _mm512_set1_ps(x); }
    static Vector load(const float* from) { return _mm512_loadu_ps(from); }
    static void store(float* to, Vector v) { _mm512_storeu_ps(to, v); }
    static Vector fma(Vector a, Vector b, Vector c) { return _mm512_fmadd_ps(a, b, c); }
};

} // namespace

void ffdn_er_sum_avx512(const float* ring, uint32_t size, uint32_t block, const EarlyTaps& left,
                        const EarlyTaps& right, uint32_t frames) {
    sum_tiles<Avx512, 64>(ring, size, block, left, right, frames);
}

} // namespace brisel
