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
    // Coefficients of the two-band filters for each tile of eight frames, b0[16] and a1[16], read instead
    // of the record's own; null: the record's.
    const float* shelf_rows = nullptr;
};

// Renders n frames, a positive multiple of 8, at most every line's delay and ring size, without any check
// and without modulation. `prepared` names the lines, a bit each, whose delayed samples stand in
// tap_block already, n a row; their line_delay does not count. Of mono inputs and outputs the right
// pointers are null. [audio-thread]
void run_block(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared);

} // namespace brisel

#endif
