// The signals of one call of the block engine, and the call below the public ones.
#ifndef BRISEL_CORE_FFDN_BLOCK_SIGNALS_H
#define BRISEL_CORE_FFDN_BLOCK_SIGNALS_H

#include "brisel/ffdn_block.h"

namespace brisel {

struct BlockSignals {
    const float* x_left;
    const float* x_right; // null: mono input
    float* y_left;
    float* y_right; // null: mono output
    // Two-band filters that glide, instead of the record's own: rows of b0[16] and a1[16], one at the start
    // of each tile of eight frames and one at the block's end, between which coefficients run linearly.
    // For stereo inputs and outputs whose gains alternate from line to line, as the defaults do. Null:
    // the record's own.
    const float* shelf_rows = nullptr;
};

// Renders n frames, a positive multiple of 8, at most every line's delay and ring size, without any check
// and without modulation. `prepared` names the lines, a bit each, whose delayed samples stand in
// tap_block already, n a row; their line_delay does not count. Of mono inputs and outputs the right
// pointers are null. [audio-thread]
void run_block(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared);

} // namespace brisel

#endif
