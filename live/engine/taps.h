// Where the 16 delay lines are read. A line never jumps: it goes from one delay to another by a
// crossfade of two taps. All lines together do so when the size changes, each for itself when its
// modulation takes a step. Nothing here touches a sample.
#ifndef BRISEL_LIVE_TAPS_H
#define BRISEL_LIVE_TAPS_H

#include <array>
#include <cstdint>
#include <span>

#include "core/ffdn_block_storage.h"
#include "live/engine/late.h"
#include "live/engine/motion.h"

namespace brisel::live {

inline constexpr uint32_t kMovingSlice = 128; // frames, the longest slice while something moves

using LineDelays = std::array<uint32_t, BRISEL_LINES>; // frames

// The delays of the exact reverb's lines at this size in seconds, but none below `shortest`.
LineDelays line_delays(double rate, double size, uint32_t shortest);

// Some frames of one line: a crossfade `position` frames after its start, or a tap at rest (from == to).
struct TapRun {
    uint32_t frames;
    uint32_t from, to; // delays, frames
    uint32_t position; // frames
    uint32_t length;   // of the fade, frames

    bool fading() const { return from != to; }
};

class Taps {
public:
    void prepare(double rate);
    void reset(const LateSettings& settings);
    void set(const LateSettings& settings);

    // At a tile's start: a new size is taken up where nothing stands in its way. Returns whether a fade
    // of all lines starts now.
    bool begin();
    // No slice may be longer now; a multiple of 8.
    uint32_t slice_limit() const;
    // Plans the next `frames`, at most slice_limit(): runs() and what modulation has to do.
    void plan(uint32_t frames);
    // The planned frames are over. Returns whether a fade of all lines has ended with them.
    bool advance(uint32_t frames);

    // Of the planned frames, while not resizing: the lines that move in them, a bit each; their runs; and
    // the delays of the others.
    uint32_t moving_lines() const { return moving_lines_; }
    std::span<const TapRun> runs(size_t line) const { return {runs_[line].data(), counts_[line]}; }
    const LineDelays& delays() const { return delays_; }

    // The fade of all lines.
    bool resizing() const { return resize_.running(); }
    const Fade& resize() const { return resize_; }
    uint32_t from(size_t line) const { return from_[line] + offset(line); }
    uint32_t to(size_t line) const { return to_[line] + offset(line); }
    const LineDelays& base_from() const { return from_; } // without modulation
    const LineDelays& base_to() const { return to_; }
    // Whether lines move, or are about to.
    bool moving() const { return resizing() || to_ != target_; }

    uint32_t longest() const; // frames, no tap in use lies further back
    uint32_t longest_possible() const { return longest_possible_[BRISEL_LINES - 1]; }
    const LineDelays& longest_delays() const { return longest_possible_; }

    // What share of its time a line spends in steps of its modulation, on the average.
    double share_of_steps() const;

private:
    struct Line {
        int32_t from, to;  // samples added to the line's delay by modulation
        uint32_t position; // frames since its last step
        uint32_t length;   // frames from that step to the next one
        double phase;      // radians
    };

    uint32_t offset(size_t line) const { return static_cast<uint32_t>(lines_[line].to); }
    void step(size_t line);
    uint32_t until_quiet() const;

    static constexpr size_t kMostRuns = 4;

    double rate_ = 0.0;
    uint32_t shortest_ = 0;     // frames of any line's delay without modulation
    int32_t deepest_ = 0;       // samples, of any modulation
    uint32_t longest_step_ = 0; // frames
    LateSettings settings_{};
    LineDelays from_{}, to_{}, target_{};
    LineDelays longest_possible_{};
    Fade resize_;
    ModulationDraws draws_{};
    std::array<Line, BRISEL_LINES> lines_{};
    LineDelays delays_{};
    uint32_t moving_lines_ = 0;
    std::array<std::array<TapRun, kMostRuns>, BRISEL_LINES> runs_{};
    std::array<size_t, BRISEL_LINES> counts_{};
};

} // namespace brisel::live

#endif
