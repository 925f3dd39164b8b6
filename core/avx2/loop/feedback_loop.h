// The feedback loop over one block of the block engine: the steps from the delayed samples of the
// 16 lines to their new ones, in two implementations that give the same bits; core/avx512 has a
// third.
#ifndef BRISEL_CORE_AVX2_LOOP_FEEDBACK_LOOP_H
#define BRISEL_CORE_AVX2_LOOP_FEEDBACK_LOOP_H

#include <cstddef>

#include "brisel/ffdn_block.h"

namespace brisel {

struct BlockSignals {
    const float* x_left;
    const float* x_right; // null: mono input
    float* y_left;
    float* y_right; // null: mono output
    // Two-band filters that glide, instead of the record's own: rows of b0[16] and a1[16], one at
    // the start of each tile of eight frames and one at the block's end, between which coefficients
    // run linearly. For stereo inputs and outputs whose gains alternate from line to line, as the
    // defaults do. Null: the record's own.
    const float* shelf_rows = nullptr;
};

// Floats of shelf_rows a frame.
constexpr size_t kShelfStep = 2 * BRISEL_LINES / 8;

// How lines decay: by one gain each; by the record's two-band filters; by filters with rows of
// coefficients.
enum class Decay { kBroadband, kTwoBand, kGliding };

// Lines, a bit each, whose delayed samples stand in rows already, that of line i at
// rows + i * stride; a loop reads all other lines from their rings.
struct PreparedLines {
    uint32_t lines = 0;
    const float* rows = nullptr;
    size_t stride = 0; // floats
};

// Both loops render n frames, a positive multiple of 8, at most every line's delay.

// The whole loop in one function, for the shapes that a reverb runs all the time: one to three
// stages of the default cascade, stereo output.
bool fused_loop_applies(const ffdn_block_n16& e, const BlockSignals& io);
void run_fused_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                    const PreparedLines& prepared);

// For every network: any cascade, either decay, mono or stereo.
void run_generic_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                      const PreparedLines& prepared);

} // namespace brisel

#endif
