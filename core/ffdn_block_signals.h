// The signals of one call of the block engine.
#ifndef BRISEL_CORE_FFDN_BLOCK_SIGNALS_H
#define BRISEL_CORE_FFDN_BLOCK_SIGNALS_H

#include "brisel/ffdn_block.h"

namespace brisel {

struct BlockSignals {
    const float* x_left;
    const float* x_right; // null: mono input
    float* y_left;
    float* y_right; // null: mono output
};

// Modulation can push a delay past its ring's length. The masked read of a block then starts with the
// newest samples.
inline bool overlong(const ffdn_block_n16& e, uint32_t line) {
    return e.line_delay[line] > e.line_mask[line] + 1;
}

} // namespace brisel

#endif
