// Output EQ: two shelves in series on a stereo signal.
#include "brisel/ffdn_eq.h"

#include <cmath>
#include <numbers>

#include "core/avx2/units.h"
#include "core/network_math.h"

namespace {

enum class Shelf { kLow, kHigh };

// Coefficients b0, b1, b2, a1, a2 of one shelf with slope 1.
void design_shelf(float* out, Shelf shelf, double gain_db, double corner_hz, double sample_rate) {
    if (gain_db == 0.0) {
        out[0] = 1.0f;
        out[1] = out[2] = out[3] = out[4] = 0.0f;
        return;
    }
    const double A = std::pow(10.0, gain_db / 40.0);
    const double w0 = brisel::kTwoPi * corner_hz / sample_rate;
    const double cos_w0 = std::cos(w0);
    const double alpha = std::sin(w0) / std::numbers::sqrt2;
    const double k = 2.0 * std::sqrt(A) * alpha;
    // The high shelf is the low one mirrored about a quarter of the sample rate.
    const double c = shelf == Shelf::kLow ? cos_w0 : -cos_w0;
    const double sign = shelf == Shelf::kLow ? 1.0 : -1.0;

    const double b0 = A * ((A + 1.0) - (A - 1.0) * c + k);
    const double b1 = sign * 2.0 * A * ((A - 1.0) - (A + 1.0) * c);
    const double b2 = A * ((A + 1.0) - (A - 1.0) * c - k);
    const double a0 = (A + 1.0) + (A - 1.0) * c + k;
    const double a1 = sign * -2.0 * ((A - 1.0) + (A + 1.0) * c);
    const double a2 = (A + 1.0) + (A - 1.0) * c - k;
    out[0] = static_cast<float>(b0 / a0);
    out[1] = static_cast<float>(b1 / a0);
    out[2] = static_cast<float>(b2 / a0);
    out[3] = static_cast<float>(a1 / a0);
    out[4] = static_cast<float>(a2 / a0);
}

// Bounds applied lower first; NaN passes.
float clamp_gain(float db) {
    if (db < -24.0f) return -24.0f;
    if (db > 24.0f) return 24.0f;
    return db;
}

} // namespace

int32_t ffdn_eq_init(ffdn_eq* eq, int32_t sample_rate, float low_hz, float high_hz) {
    const float nyquist = static_cast<float>(sample_rate) * 0.5f;
    const bool usable = eq && sample_rate >= 1 && low_hz > 0.0f && low_hz < nyquist &&
                        high_hz > 0.0f && high_hz < nyquist && low_hz < high_hz;
    if (!usable) return -1;
    *eq = {};
    eq->low[0] = 1.0f;
    eq->high[0] = 1.0f;
    eq->sample_rate = sample_rate;
    eq->low_hz = low_hz;
    eq->high_hz = high_hz;
    return 0;
}

void ffdn_eq_set_gains(ffdn_eq* eq, float low_db, float high_db) {
    if (!eq) return;
    const float low = clamp_gain(low_db);
    const float high = clamp_gain(high_db);
    // The same gain would give the same coefficients. A NaN is never the same.
    if (low != eq->gain_low_db)
        design_shelf(eq->low, Shelf::kLow, low, eq->low_hz, eq->sample_rate);
    if (high != eq->gain_high_db)
        design_shelf(eq->high, Shelf::kHigh, high, eq->high_hz, eq->sample_rate);
    eq->gain_low_db = low;
    eq->gain_high_db = high;
    eq->active = low != 0.0f || high != 0.0f;
}

void ffdn_eq_process_stereo(ffdn_eq* eq, float* left, float* right, int32_t frames) {
    if (!eq || eq->active == 0 || frames < 1) return;
    brisel::ffdn_eq_filter_avx2(eq->low, eq->high, eq->state, left, right,
                                static_cast<uint32_t>(frames));
}
