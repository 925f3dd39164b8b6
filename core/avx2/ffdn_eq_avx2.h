// The output EQ's shelves. Their design and the bypass are ffdn_eq.cpp's.
#ifndef BRISEL_CORE_AVX2_FFDN_EQ_AVX2_H
#define BRISEL_CORE_AVX2_FFDN_EQ_AVX2_H

#include "brisel/ffdn_eq.h"

namespace brisel {

// Both channels through the low and then the high shelf, in place, as ffdn_eq_process_stereo
// defines; left and right do not overlap, frames is at least 1.
void filter_shelves(ffdn_eq& eq, float* left, float* right, uint32_t frames);

} // namespace brisel

#endif
