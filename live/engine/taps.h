// Where the 16 delay lines are read. A line never jumps: it fades from one tap to another. All
// lines together do so when the size changes, two by two when their modulation takes a step.
// Nothing here touches a sample.
#ifndef BRISEL_LIVE_TAPS_H
#define BRISEL_LIVE_TAPS_H

#include <array>
#include <cstdint>
#include <span>

#include "core/ffdn_block.h"
#include "live/engine/late.h"
#include "live/engine/motion.h"

namespace brisel::live {

inline constexpr uint32_t kMovingSlice = 128; // frames, the longest slice while something moves

using LineDelays = std::array<uint32_t, BRISEL_LINES>; // frames

// The delays of the exact reverb's lines at this size in seconds, but none below `shortest`.
LineDelays line_delays(double rate, double size, uint32_t shortest);

// Lines move in pairs of the same side, i and i + 2, of which modulation makes one longer and the
// other shorter.
inline constexpr size_t kPairs = BRISEL_LINES / 2;
constexpr size_t first_of_pair(size_t pair) {
    return pair / 2 * 4 + pair % 2;
}
constexpr size_t pair_of(size_t line) {
    return line / 4 * 2 + line % 2;
}

// Some frames of one pair: a fade `position` frames after its start, or at rest (from == to).
struct PairRun {
    uint32_t frames;
    int32_t from, to;  // added to the first line's delay, taken from the second one's
    uint32_t position; // frames
    uint32_t length;   // of the fade, frames

    bool fading() const { return from != to; }
};

class Taps {
public:
    void prepare(double rate);
    void reset(const LateSettings& settings);
    void set(const LateSettings& settings);

    // At a tile's start: a new size is taken up where nothing stands in its way. Returns whether a
    // fade of all lines starts now.
    bool begin();
    // No slice may be longer now; a multiple of 8.
    uint32_t slice_limit() const;
    // Plans the next `frames`, at most slice_limit(): runs() and what modulation has to do.
    void plan(uint32_t frames);
    // The planned frames are over. Returns whether a fade of all lines has ended with them.
    bool advance(uint32_t frames);

    // Of the planned frames, while not resizing: the pairs that move in them, a bit each; their
    // runs; and the delays of the others' lines.
    uint32_t moving_pairs() const { return moving_pairs_; }
    std::span<const PairRun> runs(size_t pair) const { return {runs_[pair].data(), counts_[pair]}; }
    const LineDelays& delays() const { return delays_; }

    // The fade of all lines.
    bool resizing() const { return resize_.running(); }
    const Fade& resize() const { return resize_; }
    const LineDelays& from() const { return from_; } // without modulation
    const LineDelays& to() const { return to_; }
    // The delay of a line whose pair's modulation is `offset`.
    static uint32_t modulated(const LineDelays& delays, size_t line, int32_t offset) {
        return delays[line] + static_cast<uint32_t>(line % 4 < 2 ? offset : -offset);
    }
    int32_t offset(size_t line) const { return pairs_[pair_of(line)].to; } // while resizing
    // Whether lines move, or are about to.
    bool moving() const { return resizing() || to_ != target_; }

    uint32_t longest() const; // frames, no tap in use lies further back
    const LineDelays& longest_possible() const { return longest_possible_; }

private:
    struct Pair {
        int32_t from, to;  // samples
        uint32_t position; // frames since its last step
        uint32_t length;   // frames from that step to the next one
        double phase;      // radians
        double per_frame;  // radians
    };

    void step(Pair& pair);
    uint32_t step_length() const;
    uint32_t until_quiet() const;

    static constexpr size_t kMostRuns = 4;

    double rate_ = 0.0;
    uint32_t shortest_ = 0;      // frames of any line's delay without modulation
    int32_t deepest_ = 0;        // samples, of any modulation
    uint32_t shortest_step_ = 0; // frames
    LateSettings settings_{};
    LineDelays from_{}, to_{}, target_{};
    LineDelays longest_possible_{};
    Fade resize_;
    std::array<Pair, kPairs> pairs_{};
    LineDelays delays_{};
    uint32_t moving_pairs_ = 0;
    std::array<std::array<PairRun, kMostRuns>, kPairs> runs_{};
    std::array<size_t, kPairs> counts_{};
};

} // namespace brisel::live

#endif
