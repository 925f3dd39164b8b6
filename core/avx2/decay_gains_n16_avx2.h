// The decay law over 16 loops at once.
#ifndef BRISEL_CORE_AVX2_DECAY_GAINS_N16_AVX2_H
#define BRISEL_CORE_AVX2_DECAY_GAINS_N16_AVX2_H

#include <cstdint>

namespace brisel {

// gain[i] = float(pow(decay_base(sample_rate, t60), loop[i])), to the bit; t60 > 0.
void decay_gains(float* gain, double sample_rate, double t60, const int32_t* loop);

// b0[i], a1[i] = two_band_shelf(g_low, g_high), to the bit, with the powers of t60_low and t60_high
// as above; both > 0.
void two_band_gains(float* b0, float* a1, double sample_rate, double t60_low, double t60_high,
                    const int32_t* loop);

} // namespace brisel

#endif
