// Which coefficients the two-band filters of a piece take, tile by tile.
#ifndef BRISEL_CORE_AVX2_SHELF_H
#define BRISEL_CORE_AVX2_SHELF_H

#include <cstddef>

#include "core/ffdn_block_signals.h"

namespace brisel {

// A tile's row: b0 of the 16 lines, then a1.
struct Shelf {
    const float* rows;
    size_t step; // floats a frame: 4 with a row for each tile, 0 with one for all

    const float* tile(size_t p) const { return rows + step * p; }
};

// For the piece that starts at frame t.
inline Shelf shelf_of(const ffdn_block_n16& e, const BlockSignals& io, size_t t) {
    constexpr size_t kStep = 2 * BRISEL_LINES / 8;
    if (io.shelf_rows) return {io.shelf_rows + kStep * t, kStep};
    return {e.shelf_b0, 0};
}

} // namespace brisel

#endif
