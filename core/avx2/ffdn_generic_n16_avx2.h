// The feedback loop of a whole block for every network: any cascade, either decay, mono or stereo.
#ifndef BRISEL_CORE_AVX2_FFDN_GENERIC_N16_AVX2_H
#define BRISEL_CORE_AVX2_FFDN_GENERIC_N16_AVX2_H

#include "core/ffdn_block_signals.h"

namespace brisel {

// Renders n frames, a positive multiple of 8, at most every line's delay. `prepared`: see MainLines.
void run_generic_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared);

} // namespace brisel

#endif
