// The pieces of the early reflections that do not allocate, for an owner that brings the ring
// itself.
#ifndef BRISEL_CORE_FFDN_ER_H
#define BRISEL_CORE_FFDN_ER_H

#include "brisel/ffdn_er.h"
#include "core/avx2/units.h"

namespace brisel {

// No tap of reflections of `size` seconds is later; samples.
int32_t latest_tap(int32_t sample_rate, float size);

// Everything that ffdn_er_init does but the ring, which stays null; its arguments, its refusals.
bool lay_out_taps(ffdn_er* er, int32_t n_taps, int32_t max_frames, int32_t sample_rate,
                  uint64_t seed, float size);

// The sums of a block whose input stands in the ring, by the widest vectors there are; arguments as
// ffdn_er_sum_avx2 takes them.
void sum_taps(const float* ring, uint32_t size, uint32_t block, const EarlyTaps& left,
              const EarlyTaps& right, uint32_t frames);

} // namespace brisel

#endif
