// Early reflections: the exact plug-in's tapped delay with a second set of taps, to which it fades
// over when the size changes, and a level that glides. Every tap lies at least a tile back, so that
// a tile's reflections are known before its input.
#ifndef BRISEL_LIVE_EARLY_H
#define BRISEL_LIVE_EARLY_H

#include <cstdint>

#include "brisel/ffdn_er.h"
#include "live/engine/motion.h"
#include "live/engine/storage.h"

namespace brisel::live {

class Early {
public:
    // [main-thread]; false when memory runs out.
    bool prepare(double rate);

    // Silence; size and level at their targets.
    void reset();

    void set(double size_seconds, float level);

    // At the start of a tile: takes up a new size where no fade is under way.
    void begin();
    // From now on no longer slice than this.
    uint32_t slice_limit() const { return fade_.running() ? fade_.left() : kLongestSlice; }

    // The input of the frames from .. to - 1 of the present slice.
    void write(const float* const in[2], uint32_t from, uint32_t to);

    // wet = reflections * level + wet, for the first `frames` of the present slice, whose input may
    // not have been written yet where it is a single tile. Once a slice: the level steps here.
    void add(float* const wet[2], uint32_t frames);
    void advance(uint32_t frames);

    uint32_t longest() const; // frames, of the latest tap in use

private:
    void lay_out(ffdn_er& taps, float size) const;

    double rate_ = 0.0;
    float target_ = 0.0f, size_ = 0.0f; // seconds, of the taps in taps_[next_]
    Smoother level_;
    double share_ = 0.0;
    ffdn_er taps_[2] = {};
    int next_ = 0; // the set that stays
    Fade fade_;
    Floats ring_;
    uint32_t size_mask_ = 0;
    uint64_t written_ = 0; // frames before the present slice, since the ring was last cleared
};

} // namespace brisel::live

#endif
