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

} // namespace brisel

#endif
