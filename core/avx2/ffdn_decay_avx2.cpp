// The decay law over 16 loops at once.
//
// pow costs 12 ns, and a network takes 48 of them. Here four lines at a time get a power whose
// error is bounded, and where both ends of the interval that the bound leaves round to the same
// float, that float is the result. For about one line in a thousand they do not: it falls back to
// the plain formula.
#include <immintrin.h>

#include <array>
#include <cmath>
#include <numbers>

#include "brisel/export.h"
#include "core/avx2/units.h"
#include "core/network_math.h"

namespace brisel {

namespace {

constexpr int kLanes = 4;

// Powers below 2^-1000 are left to the plain formula; none is above 1.
constexpr double kDeepest = -1000.0;

// How far a result may lie from the plain formula's. That one raises base = pow(10, y), which is
// off by up to 2^-52 of itself, to the power of `loop`: relative error loop * 2^-52. Here the
// exponent x = loop * y * log2(10) is off by up to 2^-51 of itself, so by 2^-41 for the deepest,
// ln(2) of which passes to the power; exp2_of and the rounding of pow add less than 2^-46. In all a
// gain is off by less than e = loop * 2^-52 + 2^-41 of itself; b0 = 2 g_low
// g_high / (g_low + g_high) by less than 3 e of itself; a1 = (g_low - g_high) / (g_low + g_high) by
// less than 3 e absolutely. The limit is 4 e.
constexpr double kTolerance = 0x1p-39;
constexpr double kTolerancePerSample = 0x1p-50;

// Coefficients of 2^x by powers of x.
constexpr std::array<double, 12> taylor() {
    std::array<double, 12> terms{1.0};
    for (size_t k = 1; k < terms.size(); ++k)
        terms[k] = terms[k - 1] * std::numbers::ln2 / static_cast<double>(k);
    return terms;
}
constexpr std::array<double, 12> kTaylor = taylor();

// 2^x for |x| <= 1000. The fraction lies within 0.5, where the first term left out is 2^-47.
__m256d exp2_of(__m256d x) {
    const __m256d whole = _mm256_round_pd(x, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    const __m256d fraction = _mm256_sub_pd(x, whole);
    __m256d sum = _mm256_set1_pd(kTaylor.back());
#pragma GCC unroll 11
    for (size_t k = kTaylor.size() - 1; k-- > 0;)
        sum = _mm256_fmadd_pd(sum, fraction, _mm256_set1_pd(kTaylor[k]));
    const __m256i exponent = _mm256_cvtepi32_epi64(_mm256_cvtpd_epi32(whole));
    return _mm256_castsi256_pd(
        _mm256_add_epi64(_mm256_castpd_si256(sum), _mm256_slli_epi64(exponent, 52)));
}

// Four loops of the network, in samples, and the tolerance of their gains.
struct Loops {
    __m256d samples;
    __m256d tolerance;

    explicit Loops(const int32_t* loop)
        : samples(_mm256_cvtepi32_pd(_mm_loadu_si128(reinterpret_cast<const __m128i*>(loop)))),
          tolerance(_mm256_fmadd_pd(samples, _mm256_set1_pd(kTolerancePerSample),
                                    _mm256_set1_pd(kTolerance))) {}
};

// log2 of decay_base, without its rounding.
double log2_decay_base(double sample_rate, double t60) {
    return -3.0 / (sample_rate * t60) * (std::numbers::ln10 / std::numbers::ln2);
}

struct Powers {
    __m256d value;
    int usable; // a bit a line
};

Powers powers(double log2_base, const Loops& loops) {
    const __m256d x = _mm256_mul_pd(loops.samples, _mm256_set1_pd(log2_base));
    const __m256d in_range = _mm256_and_pd(_mm256_cmp_pd(x, _mm256_set1_pd(kDeepest), _CMP_GE_OQ),
                                           _mm256_cmp_pd(x, _mm256_setzero_pd(), _CMP_LE_OQ));
    return {exp2_of(_mm256_and_pd(x, in_range)), _mm256_movemask_pd(in_range)};
}

// Stores value +/- error as floats and returns, a bit a line, where both ends agree.
int round_if_certain(float* to, __m256d value, __m256d error) {
    const __m128 low = _mm256_cvtpd_ps(_mm256_sub_pd(value, error));
    const __m128 high = _mm256_cvtpd_ps(_mm256_add_pd(value, error));
    _mm_storeu_ps(to, low);
    const __m128i same = _mm_cmpeq_epi32(_mm_castps_si128(low), _mm_castps_si128(high));
    return _mm_movemask_ps(_mm_castsi128_ps(same));
}

// Calls `plain(line)` for the lines of the group that starts at `first` whose bit is not set.
template <typename Plain>
void fall_back(int certain, int first, Plain plain) {
    if (certain == (1 << kLanes) - 1) return;
    for (int lane = 0; lane < kLanes; ++lane)
        if (!(certain >> lane & 1)) plain(first + lane);
}

} // namespace

void ffdn_decay_gains_avx2(float* gain, double sample_rate, double t60, const int32_t* loop) {
    const double log2_base = log2_decay_base(sample_rate, t60);
    for (int first = 0; first < BRISEL_LINES; first += kLanes) {
        const Loops loops(loop + first);
        const Powers g = powers(log2_base, loops);
        const int certain =
            round_if_certain(gain + first, g.value, _mm256_mul_pd(g.value, loops.tolerance));
        fall_back(g.usable & certain, first, [&](int line) {
            gain[line] = static_cast<float>(std::pow(decay_base(sample_rate, t60), loop[line]));
        });
    }
}

void ffdn_decay_two_band_avx2(float* b0, float* a1, double sample_rate, double t60_low,
                              double t60_high, const int32_t* loop) {
    const double log2_low = log2_decay_base(sample_rate, t60_low);
    const double log2_high = log2_decay_base(sample_rate, t60_high);
    const __m256d one = _mm256_set1_pd(1.0);
    for (int first = 0; first < BRISEL_LINES; first += kLanes) {
        const Loops loops(loop + first);
        const Powers low = powers(log2_low, loops);
        const Powers high = powers(log2_high, loops);
        // r + 1 and r - 1 times g_high: one division is enough.
        const __m256d inverse = _mm256_div_pd(one, _mm256_add_pd(low.value, high.value));
        const __m256d b =
            _mm256_mul_pd(_mm256_add_pd(low.value, low.value), _mm256_mul_pd(high.value, inverse));
        const __m256d a = _mm256_mul_pd(_mm256_sub_pd(low.value, high.value), inverse);
        const int certain = round_if_certain(b0 + first, b, _mm256_mul_pd(b, loops.tolerance)) &
                            round_if_certain(a1 + first, a, loops.tolerance);
        fall_back(low.usable & high.usable & certain, first, [&](int line) {
            const ShelfGains shelf =
                two_band_shelf(std::pow(decay_base(sample_rate, t60_low), loop[line]),
                               std::pow(decay_base(sample_rate, t60_high), loop[line]));
            b0[line] = shelf.b0;
            a1[line] = shelf.a1;
        });
    }
}

} // namespace brisel
