// What the units of core leave to vectors, beside the feedback loop. Each function stands in the
// file that bears its unit's name, ffdn_er_avx2.cpp for instance.
#ifndef BRISEL_CORE_AVX2_UNITS_H
#define BRISEL_CORE_AVX2_UNITS_H

#include <cstdint>

struct ffdn_block_n16;

namespace brisel {

// gain[i] = float(pow(decay_base(sample_rate, t60), loop[i])), to the bit; t60 > 0.
void ffdn_decay_gains_avx2(float* gain, double sample_rate, double t60, const int32_t* loop);

// b0[i], a1[i] = two_band_shelf(g_low, g_high), to the bit, with the powers of t60_low and t60_high
// as above; both > 0.
void ffdn_decay_two_band_avx2(float* b0, float* a1, double sample_rate, double t60_low,
                              double t60_high, const int32_t* loop);

// Does what ffdn_block_n16_apply_modulation does, to the bit, and returns true; or returns false
// with nothing stored when that takes the scalar step: a phase that one subtraction does not bring
// back into its period, an offset so close to a half that the approximate sine may round it to the
// other side, a delay below n.
bool ffdn_modulation_step_avx2(ffdn_block_n16& e, int32_t n);

// One side's taps of the early reflections.
struct EarlyTaps {
    const int32_t* delays; // samples
    const float* gains;
    int32_t count;
    float* out;
};

// For a block of `frames` >= 1 whose input already stands in the ring of `size` samples, a power of
// two, from `block` on. The sum of frame t starts from +0 and runs over the taps in order:
//   sum = fma(ring[(block + t - delays[k]) AND (size - 1)], gains[k], sum)
void ffdn_er_sum_avx2(const float* ring, uint32_t size, uint32_t block, const EarlyTaps& left,
                      const EarlyTaps& right, uint32_t frames);

// Both channels through the low and then the high shelf, in place, as ffdn_eq_process_stereo
// defines; left and right do not overlap, frames is at least 1.
//   low, high  b0, b1, b2, a1, a2
//   state      s1, s2 of the left and of the right channel, of the low shelf, then of the high one
void ffdn_eq_filter_avx2(const float* low, const float* high, float* state, float* left,
                         float* right, uint32_t frames);

} // namespace brisel

#endif
