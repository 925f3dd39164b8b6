// The sums over the early reflections' taps. Set-up and the ring's writing are ffdn_er.cpp's.
#ifndef BRISEL_CORE_AVX2_FFDN_ER_AVX2_H
#define BRISEL_CORE_AVX2_FFDN_ER_AVX2_H

#include "brisel/ffdn_er.h"

namespace brisel {

// For a block whose input already stands in the ring from write_pos on. The sum of frame t starts
// from +0 and runs over the taps k = 0 .. n_taps - 1 in order:
//   sum = fma(ring[(write_pos + t - delays[k]) AND ring_mask], gains[k], sum)
// The left taps give out_l, the right ones out_r; `frames` is 1 .. max_frames.
void sum_early_taps(const ffdn_er& er, float* out_l, float* out_r, uint32_t frames);

} // namespace brisel

#endif
