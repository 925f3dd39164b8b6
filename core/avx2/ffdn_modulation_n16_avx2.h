// The modulation step of all 16 lines at once.
#ifndef BRISEL_CORE_AVX2_FFDN_MODULATION_N16_AVX2_H
#define BRISEL_CORE_AVX2_FFDN_MODULATION_N16_AVX2_H

#include "brisel/ffdn_block.h"

namespace brisel {

// Does what ffdn_block_n16_apply_modulation does, to the bit, and returns true; or returns false with
// nothing stored when that takes the scalar step: a phase that one subtraction does not bring back
// into its period, a delay that the approximate sine cannot decide, a delay below n.
bool modulate_lines(ffdn_block_n16& e, int32_t n);

} // namespace brisel

#endif
