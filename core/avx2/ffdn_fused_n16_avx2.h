// The feedback loop of a whole block in one function, for the shapes that a reverb runs all the time.
// It computes the same bits as the generic loop, which serves every other shape.
#ifndef BRISEL_CORE_AVX2_FFDN_FUSED_N16_AVX2_H
#define BRISEL_CORE_AVX2_FFDN_FUSED_N16_AVX2_H

#include "core/ffdn_block_signals.h"

namespace brisel {

// Whether the engine has such a shape: one to three stages of the default cascade, stereo output.
bool fused_loop_applies(const ffdn_block_n16& e, const BlockSignals& io);

// Renders n frames, a positive multiple of 8, at most every line's delay. `prepared`: see MainLines.
void run_fused_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared);

} // namespace brisel

#endif
