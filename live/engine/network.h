// One network of 16 lines and a number of scattering stages: the exact engine's loop, on lines that
// are read where Taps says and with filters that LoopDecay moves. Where nothing moves, its outputs
// are those of the exact engine, bit for bit.
#ifndef BRISEL_LIVE_NETWORK_H
#define BRISEL_LIVE_NETWORK_H

#include <array>
#include <cstdint>

#include "brisel/ffdn_block.h"
#include "core/network_math.h"
#include "live/engine/loop_decay.h"
#include "live/engine/storage.h"
#include "live/engine/taps.h"

namespace brisel::live {

// Rows of a slice's frames, one for each two lines.
using HalfRows = std::array<std::array<float, kLongestSlice>, BRISEL_LINES / 2>;

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

    // The frames that the taps have planned: inputs in, outputs out. `knot`: frames since the last
    // knot.
    void run(const Taps& taps, const DecayGlide& glide, uint32_t knot, const float* const in[2],
             float* const out[2], uint32_t frames);
    // out = near * out + early * e for the outputs of the frames that were run last, with zeros for
    // inputs: e is what the outputs would be, had the lines no delay; behind the last stage.
    void mix_early_outputs(float* const out[2], const float* near, const float* early,
                           uint32_t frames);
    // Input for the last `frames` frames, whose run had zeros there: of these the ones from `from`
    // on, `count` in number. First the inputs of the sides, then eight rows, of which row k enters
    // the lines 2 k and 2 k + 1 times gain[t]; in[0][0], gain[from] and row[from] belong to frame
    // `from`.
    void inject(const float* const in[2], uint32_t frames, uint32_t from, uint32_t count);
    void inject_rows(const HalfRows& rows, const float* gain, uint32_t frames, uint32_t from,
                     uint32_t count);

private:
    Loops loops(const LineDelays& lines) const;
    float* ring(size_t line) { return engine_.ring + engine_.line_offset[line]; }
    void forget(size_t line, uint32_t delay, uint32_t after, uint32_t count);
    void forget_older(const Taps& taps, uint32_t frames);
    const float* tap(size_t line, uint32_t delay, uint32_t after, uint32_t count, float* scratch);
    template <typename Body>
    void each_run(size_t line, uint32_t frames, uint32_t from, uint32_t count, Body body);
    uint32_t read_lines(const Taps& taps, uint32_t frames);
    void read_pair(const Taps& taps, size_t pair, uint32_t frames);
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
    std::array<ShelfRow, kLongestSlice / kTile + 1> shelf_rows_{};

    alignas(
        32) std::array<float, kPairs> gain_roots_{}; // of a resize, with its directions; see Turn
    Xorshift64 random_{};                            // draws the directions

    std::array<std::array<float, kLongestSlice>, size_t{2} * BRISEL_LINES> scratch_{};
};

} // namespace brisel::live

#endif
