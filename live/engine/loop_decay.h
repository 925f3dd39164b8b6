// The decay of the network's 16 loops while it moves: two decay times on their way to their
// targets, and the coefficients of the loops' filters between two points of that way.
#ifndef BRISEL_LIVE_LOOP_DECAY_H
#define BRISEL_LIVE_LOOP_DECAY_H

#include <array>
#include <cstdint>

#include "brisel/ffdn_block.h"

namespace brisel::live {

// Decay times move on knots of the engine's clock and their coefficients linearly from one to the
// next.
inline constexpr uint32_t kKnot = 128; // frames

// Seconds to fall by 60 dB at 0 Hz and at half the rate; infinite: no decay.
struct DecayTimes {
    double low;
    double high;
    bool operator==(const DecayTimes&) const = default;
};

// Gets from one pair of decay times to another by two one-poles. What they smooth is
// T / (T + 3 ln 10 * loop), which is 1 for no decay and moves as evenly as a loop's gain
// exp(-3 ln 10 * loop / T) does, whatever the decay times.
class DecayGlide {
public:
    void prepare(double rate);
    void jump(const DecayTimes& times);
    // `loop`: a middling loop, seconds.
    void aim(const DecayTimes& target, double loop);
    // At a knot: the former end is the present beginning.
    void step();

    const DecayTimes& begin() const { return begin_; } // at the last knot
    const DecayTimes& end() const { return end_; }     // at the next knot
    bool moving() const { return begin_ != target_ || end_ != target_; }

private:
    double share_ = 0.0; // of the way left, a knot
    double loop_ = 0.0;
    DecayTimes target_{}, between_{}, begin_{}, end_{};
};

// Coefficients of 16 filters y[t] = b0 x[t] + a1 y[t-1].
struct alignas(32) ShelfRow {
    std::array<float, BRISEL_LINES> b0;
    std::array<float, BRISEL_LINES> a1;
};

using Loops = std::array<int32_t, BRISEL_LINES>; // frames of each whole loop

// The filters of one network, whose loops go from one length to another while it is resized.
class LoopDecay {
public:
    void prepare(double rate) { rate_ = rate; }
    // Both ends of both ways.
    void jump(const DecayGlide& glide, const Loops& loops);
    // A resize starts, to loops of this length, or has ended.
    void start_resize(const DecayGlide& glide, const Loops& loops);
    void finish_resize();
    // The glide has stepped.
    void step(const DecayGlide& glide);

    // Coefficients `offset` frames behind the last knot, at weight s of the new loops.
    void row(ShelfRow& to, uint32_t offset, float s) const;
    // The engine's own coefficients, for a glide that has arrived. `from_silence`: its filters hold
    // nothing, and it takes every coefficient as the exact engine does.
    void settled(const DecayGlide& glide, ffdn_block_n16& e, bool from_silence) const;

    // The square roots of how much louder a trip through each new loop is than one through the old,
    // both at 0 Hz.
    void gain_roots(const DecayGlide& glide, std::array<float, BRISEL_LINES>& roots) const;

private:
    struct Way { // of loops of one length, between two knots
        Loops loops;
        ShelfRow begin, end;
    };
    float log2_gain(double time) const;
    ShelfRow coefficients(const DecayTimes& times, const Loops& loops) const;

    double rate_ = 0.0;
    Way old_{}, next_{};
};

} // namespace brisel::live

#endif
