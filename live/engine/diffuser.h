// Turns each sample of the input into hundreds of small ones on its way to the lines, so that the
// reverberation is dense from its onset on: 16 taps, half of them of either side, a Walsh-Hadamard
// transform, 16 delays, another transform. Both transforms keep energy.
#ifndef BRISEL_LIVE_DIFFUSER_H
#define BRISEL_LIVE_DIFFUSER_H

#include <array>
#include <cstdint>

#include "live/engine/network.h"

namespace brisel::live {

class Diffuser {
public:
    // What has to be done to run()'s rows so that they have the energy of the input.
    static constexpr float kGain = 0x1.6a09e6p-2f; // 1 / sqrt(8): each side has eight taps

    // [main-thread]; false when memory runs out.
    bool prepare(double rate);
    // Silent, with the delays of this size; it clears no memory.
    void start(double size);

    // The delays fade to those of another size, or have done so.
    void start_resize(double size) { new_ = delays(size); }
    void finish_resize() { old_ = new_; }

    // Input of `count` frames from `offset` frames behind the present position on: before run() for the
    // frames that it is to run, or after it for its last tile.
    void write(const float* const in[2], int32_t offset, uint32_t count);
    // The next frames of 16 rows. They do not depend on the input of the same tile. `resize` is as it is
    // at the first of them.
    void run(LineRows& rows, const Fade& resize, uint32_t frames);

    uint32_t longest_path() const; // frames

private:
    struct Delays {
        LineDelays taps;
        LineDelays lines;
    };
    struct Rings {
        Floats memory;
        uint32_t mask = 0;

        bool prepare(size_t count, uint32_t longest);
        float* ring(size_t i) const { return memory.get() + i * (mask + 1); }
    };
    using Rows = std::array<const float*, BRISEL_LINES>;

    Delays delays(double size) const;
    const float* find(const Rings& rings, size_t ring, uint32_t delay, uint32_t frames,
                      float* scratch) const;
    void find_rows(Rows& rows, const Rings& rings, const LineDelays& old_delays,
                   const LineDelays& new_delays, const Fade& resize, uint32_t frames);

    double rate_ = 0.0;
    std::array<double, BRISEL_LINES> tap_places_{}, line_places_{}; // 0 .. 1, in their ranges
    Delays old_{}, new_{};
    Rings inputs_, lines_;
    uint64_t position_ = 0; // frames since the start
    LineRows scratch_[2]{};
};

} // namespace brisel::live

#endif
