// Where the samples of a piece stand in the main delay lines.
#ifndef BRISEL_CORE_AVX2_LOOP_MAIN_LINES_H
#define BRISEL_CORE_AVX2_LOOP_MAIN_LINES_H

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "brisel/ffdn_block.h"
#include "core/avx2/loop/feedback_loop.h"

namespace brisel {

// The lines during one block. Their write positions stay where they are until the block's end; a
// piece names the frame t at which it starts.
class MainLines {
public:
    MainLines(ffdn_block_n16& e, const PreparedLines& prepared) : e_(e), prepared_(prepared) {}

    // The addresses of the `length` delayed samples of each line: in its ring, in its prepared row
    // or, where they wrap, in a copy.
    void find_reads(const float** rows, uint32_t t, uint32_t length) const;

    // The addresses that the lines' new samples go to; returns, a bit each, the lines
    // where these wrap.
    uint32_t find_writes(float** rows, uint32_t t, uint32_t length) const;

    // Where the rings exceed the second-level cache, the processor loses track of what 16 lines
    // read and write: a block takes 1.2 to 1.5 times as long unless fetch_ahead helps.
    inline __attribute__((always_inline)) bool exceed_cache() const {
        return e_.ring_len >= 1u << 20;
    }

    // Asks for what lies 192 frames behind tile p of `rows`: for half of the lines, since two tiles
    // share a cache line, and the other half's turn is the next tile. Lines to be written are
    // fetched, too. A few tiles at a time: all of a piece at once is no help.
    static inline __attribute__((always_inline)) void fetch_ahead(const float* const* rows,
                                                                  size_t p) {
#pragma GCC unroll 8
        for (size_t k = 0; k < 8; ++k)
            _mm_prefetch(reinterpret_cast<const char*>(rows[(p & 8) + k] + p + 192), _MM_HINT_T1);
    }

    // New samples, for a line where they wrap.
    void write_wrapped(uint32_t line, const float* row, uint32_t t, uint32_t length) const;

private:
    const float* row_outside_ring(uint32_t line, uint32_t t, uint32_t length) const;

    ffdn_block_n16& e_;
    const PreparedLines prepared_;
};

// Moves the lines' and the stages' write positions behind a block of n frames.
void advance_positions(ffdn_block_n16& e, uint32_t n);

} // namespace brisel

#endif
