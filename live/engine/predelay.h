// The delay in front of everything wet: a stereo ring and two taps, of which one fades over to the
// other when the delay changes. Changes during a fade wait for its end.
#ifndef BRISEL_LIVE_PREDELAY_H
#define BRISEL_LIVE_PREDELAY_H

#include <cstdint>

#include "live/engine/motion.h"
#include "live/engine/storage.h"

namespace brisel::live {

class Predelay {
public:
    static constexpr double kLongest = 2.0; // seconds: a quarter note at 30 a minute

    // [main-thread]; false when memory runs out.
    bool prepare(double rate);

    // Nothing in it, and at its target. It clears no memory: what is older than this reads as 0.
    void reset();

    // After a reset: the input comes in over 20 ms, so that it does not begin with an edge.
    void fade_in() { entry_.start(); }

    void set_seconds(double seconds);

    // At the start of a tile: takes up a new target where no fade is under way.
    void begin();
    // From now on no longer slice than this.
    uint32_t slice_limit() const {
        const uint32_t limit = fade_.running() ? fade_.left() : kLongestSlice;
        return entry_.running() && entry_.left() < limit ? entry_.left() : limit;
    }

    // The input of the frames from .. to - 1 of the present slice goes in, what comes out of the
    // delay for them is at `delayed()` afterwards, at the same indices.
    void run(const float* const in[2], uint32_t from, uint32_t to);
    const float* const* delayed() const { return delayed_; }
    void advance(uint32_t frames);

    uint32_t longest() const; // frames, of the taps in use

private:
    // A short history is enough for short delays and stays in the processor's cache, where a walk
    // through the long one would not.
    struct History {
        Floats rings[2];
        uint32_t size = 0;
    };
    static bool allocate(History& history, uint32_t size);
    const History& history_for(uint32_t delay) const;
    void move_to(const History& history);
    void read(int channel, float* to, uint32_t delay, uint32_t from, uint32_t count) const;

    double rate_ = 0.0;
    uint32_t target_ = 0, now_ = 0, next_ = 0; // delays, frames
    Fade fade_;                                // between two delays
    Fade entry_;                               // of the input
    History short_, long_;
    const History* history_ = &short_; // in use
    uint64_t written_ = 0;             // frames before the present slice, since the reset
    uint64_t oldest_ = 0;              // the first of them that the history holds
    alignas(32) float out_[2][kLongestSlice] = {};
    alignas(32) float old_[kLongestSlice] = {}; // of the tap that fades out
    alignas(32) float entering_[2][kLongestSlice] = {};
    const float* delayed_[2] = {};
};

} // namespace brisel::live

#endif
