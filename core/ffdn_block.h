// What an owner of an engine uses that brings the storage itself: the pieces of the set-up that do
// not allocate, and a block without checks.
#ifndef BRISEL_CORE_FFDN_BLOCK_H
#define BRISEL_CORE_FFDN_BLOCK_H

#include "brisel/ffdn_block.h"
#include "core/avx2/loop/feedback_loop.h"

namespace brisel {

// Everything that ffdn_block_n16_init sets but the decay gains, in a zeroed record. Returns false
// when the lengths are unusable.
bool lay_out_lines(ffdn_block_n16& e, const uint32_t* delays, const uint32_t* buffer_sizes,
                   int32_t block_size);

// Sets a zeroed stage's delays and ring size.
void lay_out_stage(ffdn_block_stage& stage, const uint32_t* delays);

// decay_gain of every line, over main delay and stages; t60 <= 0 means no decay.
void set_decay_gains(ffdn_block_n16& e, double sample_rate, float t60);

// Where each line's modulation starts and how fast it moves, in radians and radians per sample.
struct ModulationDraws {
    float phase[BRISEL_LINES];
    float inc[BRISEL_LINES];
};

// What ffdn_block_n16_set_modulation draws; its arguments, unchecked.
ModulationDraws draw_modulation(int32_t sample_rate, uint64_t seed, float rate_min, float rate_max);

// The rest of ffdn_block_n16_set_modulation. Returns false with nothing changed when a line is too
// short.
bool start_modulation(ffdn_block_n16& e, int32_t depth, const ModulationDraws& draws);

// Renders n frames, a positive multiple of 8, at most every line's delay and ring size, without any
// check and without modulation. `prepared`: see feedback_loop.h; such a line's line_delay does not
// count. Of mono inputs and outputs the right pointers are null. [audio-thread]
void run_block(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared);

} // namespace brisel

#endif
