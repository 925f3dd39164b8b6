// What the engines leave to AVX-512, where the processor has it. Each function gives the bits of
// its counterpart for AVX2.
//
// The files that define them are compiled for AVX-512 and share no function with others: a linker
// keeps one copy of an inline function, and an older processor would meet theirs.
#ifndef BRISEL_CORE_AVX512_UNITS_H
#define BRISEL_CORE_AVX512_UNITS_H

#include <cstdint>

#include "core/avx2/loop/feedback_loop.h"
#include "core/avx2/units.h"

namespace brisel {

// Whether this processor, and the system on it, has AVX-512 F, VL and DQ. [any-thread]
bool wide_vectors();

// run_fused_loop in tiles of 16 frames: n is a multiple of 16, and so is every stage's position.
void run_wide_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                   const PreparedLines& prepared);

// ffdn_er_sum_avx2 for blocks of 64 frames and more.
void ffdn_er_sum_avx512(const float* ring, uint32_t size, uint32_t block, const EarlyTaps& left,
                        const EarlyTaps& right, uint32_t frames);

} // namespace brisel

#endif
