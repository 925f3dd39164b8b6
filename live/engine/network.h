// One network of 16 lines and a number of scattering stages: the exact engine's loop, on lines that are
// read where Taps says and with filters that LoopDecay moves. Where nothing moves, its outputs are
// those of the exact engine, bit for bit.
#ifndef BRISEL_LIVE_NETWORK_H
#define BRISEL_LIVE_NETWORK_H

#include <array>
#include <cstdint>
#include <span>

#include "brisel/ffdn_block.h"
#include "live/engine/loop_decay.h"
#include "live/engine/storage.h"
#include "live/engine/taps.h"

namespace brisel::live {

// 16 rows, one a line, of a slice's frames.
using LineRows = std::array<std::array<float, kLongestSlice>, BRISEL_LINES>;

// Energy that crossfades have taken from the lines and that is given back to them. A crossfade of two
// signals a and b with weights 1 - w and w has less energy than the same mix of their energies: exactly
// w (1 - w) (a - b)^2 less. Never more is given back than was taken, so that no loop gains energy.
class EnergyReserve {
public:
    void empty() { energy_ = 0.0f; }
    // The lines' gain at the end of the next tile; `weight`: the crossfade's, there.
    float next_gain(float weight) const;
    // What a tile took, and its energy before and behind the gain.
    void settle(float taken, float before, float behind);

private:
    float energy_ = 0.0f;
    float level_ = 0.0f; // energy of the last tile before the gain
};

class Network {
public:
    // [main-thread]; false when memory runs out.
    bool prepare(double rate, const Taps& taps);
    // Silent, with K stages, at the taps' and the glide's present state.
    void start(int stages, const Taps& taps, const DecayGlide& glide);

    int stages() const { return engine_.stage_count; }
    uint32_t stage_frames() const; // the longest path through the stages

    // The glide has stepped; a resize starts, or has ended.
    void step_decay(const DecayGlide& glide) { decay_.step(glide); }
    void start_resize(const Taps& taps, const DecayGlide& glide);
    void finish_resize();

    // The frames that the taps have planned: inputs in, outputs out. `knot`: frames since the last knot.
    void run(const Taps& taps, const DecayGlide& glide, uint32_t knot, const float* const in[2],
             float* const out[2], uint32_t frames);
    // `count` frames of input, later than run() that had zeros there: for the frames from `from` on of
    // the tile that it ran.
    void inject(const float* const in[2], uint32_t from, uint32_t count);
    // Adds gain[t] * row[t] to what the lines have taken in in the last `frames` frames; or in the frames
    // from .. from + count - 1 of the last tile.
    void add_rows(const LineRows& rows, const float* gain, uint32_t frames);
    void add_to_tile(const LineRows& rows, const float* gain, uint32_t from, uint32_t count);
    // Of the frames that were run last: the outputs that the lines' inputs give without the lines, eight
    // frames late and without run()'s and inject()'s own inputs.
    void early_outputs(float* const out[2], uint32_t frames);

private:
    Loops loops(const LineDelays& lines) const;
    float* ring(size_t line) { return engine_.ring + engine_.line_offset[line]; }
    void forget(size_t line, uint32_t delay, uint32_t after, uint32_t count);
    void forget_older(const Taps& taps, uint32_t frames);
    const float* tap(size_t line, uint32_t delay, uint32_t after, uint32_t count, float* scratch);
    float* last_tile(size_t line);
    uint32_t read_lines(const Taps& taps, uint32_t frames);
    void read_line(std::span<const TapRun> runs, size_t line, float* row);
    void read_resizing(const Taps& taps, uint32_t frames);
    const float* shelf_rows(const Taps& taps, const DecayGlide& glide, uint32_t knot,
                            uint32_t frames);

    ffdn_block_n16 engine_{};
    std::array<ffdn_block_stage, BRISEL_MAX_STAGES> stages_{};
    Floats ring_, tap_block_, work_block_;
    std::array<Floats, BRISEL_MAX_STAGES> stage_rings_;
    uint64_t written_ = 0; // frames since the start

    LoopDecay decay_;
    bool settled_ = false;      // the engine's own coefficients are in force
    bool from_silence_ = false; // nothing has moved since the start
    std::array<ShelfRow, kLongestSlice / kTile> shelf_rows_{};

    std::array<float, BRISEL_LINES> gain_ratios_{}; // of a resize; see LoopDecay
    EnergyReserve reserve_;
    float gain_ = 1.0f;       // of the lines while a resize runs
    uint64_t resized_at_ = 0; // written_ at the end of the last resize

    float inputs_[2][2][kTile] = {}; // of the last tile; of the last one before the slice
    const float* inputs_of_slice_[2] = {};
    std::array<std::array<float, kLongestSlice>, 2 * BRISEL_LINES> scratch_{};
};

} // namespace brisel::live

#endif
