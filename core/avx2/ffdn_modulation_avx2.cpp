// The modulation step of all 16 lines at once.
#include <immintrin.h>

#include <cmath>

#include "brisel/ffdn_block.h"
#include "core/avx2/units.h"
#include "core/network_math.h"

namespace brisel {

namespace {

constexpr float kPi = 3.14159274f;

// sin(p) for p in [0, kPhasePeriod): with y = p - pi it is -sin(y), here y times the minimax
// polynomial of degree 5 in y^2 for [-pi, pi]. Absolute error below 2^-20: 1.8e-7 from the
// polynomial with its coefficients in floats, 2.1e-7 from pi and the rounding of y, the rest from
// evaluation; 6.5e-7 is the largest over every float of the range.
__m256 sine(__m256 p) {
    constexpr float kCoefficients[] = {-0x1.fffff4p-1f, 0x1.5554c6p-3f,   -0x1.1109f6p-7f,
                                       0x1.9f7908p-13f, -0x1.6ac734p-19f, 0x1.601206p-26f};
    const __m256 y = _mm256_sub_ps(p, _mm256_set1_ps(kPi));
    const __m256 z = _mm256_mul_ps(y, y);
    __m256 q = _mm256_set1_ps(kCoefficients[5]);
#pragma GCC unroll 5
    for (int k = 4; k >= 0; --k) q = _mm256_fmadd_ps(q, z, _mm256_set1_ps(kCoefficients[k]));
    return _mm256_mul_ps(q, y);
}

// How far depth * sine(p) can lie from the scalar step's sinf(p) * depth, per sample of depth:
// 2^-20 from sine(), 2^-24 from sinf (one unit in the last place), 2^-24 from rounding both
// products make less than 2^-19. Twice that leaves room for another C library or rounding mode.
constexpr float kTolerance = 0x1p-18f;

struct Step {
    __m256 phase;
    __m256i delay;
};

// Eight lines from `first` on. False when they take the scalar step.
bool step(Step& to, const ffdn_block_n16& e, int first, int32_t n) {
    const __m256 period = _mm256_set1_ps(kPhasePeriod);
    const __m256 raw =
        _mm256_fmadd_ps(_mm256_set1_ps(static_cast<float>(n)), _mm256_loadu_ps(e.mod_inc + first),
                        _mm256_loadu_ps(e.mod_phase + first));
    // In [2 pi, 4 pi) the difference is exact, hence what fmodf gives. The other phases are not
    // touched: even the subtraction of 0 may change a denormal one.
    const __m256 wrapped = _mm256_sub_ps(raw, period);
    const __m256 wraps = _mm256_cmp_ps(raw, period, _CMP_GE_OQ);
    to.phase = _mm256_blendv_ps(raw, wrapped, wraps);
    const __m256 in_period = _mm256_and_ps(_mm256_cmp_ps(raw, _mm256_setzero_ps(), _CMP_GE_OQ),
                                           _mm256_cmp_ps(wrapped, period, _CMP_LT_OQ));

    const auto depth = static_cast<float>(e.mod_depth);
    const __m256 offset = _mm256_mul_ps(sine(to.phase), _mm256_set1_ps(depth));
    const __m256 rounded = _mm256_round_ps(offset, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    // Negative for depths whose tolerance exceeds half a sample: then every line falls back.
    const __m256 limit = _mm256_set1_ps(0.5f - std::fabs(depth) * kTolerance);
    const __m256 off_by = _mm256_andnot_ps(_mm256_set1_ps(-0.0f), _mm256_sub_ps(offset, rounded));
    const __m256 certain = _mm256_cmp_ps(off_by, limit, _CMP_LT_OQ);

    const __m256i base =
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(e.mod_base_delay + first));
    to.delay = _mm256_add_epi32(base, _mm256_cvtps_epi32(rounded));
    const __m256i below = _mm256_cmpgt_epi32(_mm256_set1_epi32(n), to.delay);
    const __m256 good =
        _mm256_andnot_ps(_mm256_castsi256_ps(below), _mm256_and_ps(in_period, certain));
    return _mm256_movemask_ps(good) == 0xFF;
}

} // namespace

bool ffdn_modulation_step_avx2(ffdn_block_n16& e, int32_t n) {
    Step low;
    Step high;
    if (!step(low, e, 0, n) || !step(high, e, 8, n)) return false;
    _mm256_storeu_ps(e.mod_phase, low.phase);
    _mm256_storeu_ps(e.mod_phase + 8, high.phase);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(e.line_delay), low.delay);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(e.line_delay + 8), high.delay);
    return true;
}

} // namespace brisel
