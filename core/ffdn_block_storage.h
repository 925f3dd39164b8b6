// The pieces of an engine's set-up that do not allocate, for an owner that brings the storage itself.
#ifndef BRISEL_CORE_FFDN_BLOCK_STORAGE_H
#define BRISEL_CORE_FFDN_BLOCK_STORAGE_H

#include "brisel/ffdn_block.h"

namespace brisel {

// What hangs off an engine's record. The stage rings not in use stay with the owner.
struct NetworkStorage {
    float* ring;
    float* tap_block;
    float* work_block;
    float* stage_rings[BRISEL_MAX_STAGES];
};

// Everything that ffdn_block_n16_init sets but the decay gains, in a zeroed record. Returns false when
// the lengths are unusable.
bool lay_out_lines(ffdn_block_n16& e, const uint32_t* delays, const uint32_t* buffer_sizes,
                   int32_t block_size);

// Sets a zeroed stage's delays and ring size.
void lay_out_stage(ffdn_block_stage& stage, const uint32_t* delays);

// decay_gain of every line, over main delay and stages; t60 <= 0 means no decay.
void set_decay_gains(ffdn_block_n16& e, double sample_rate, float t60);

} // namespace brisel

#endif
