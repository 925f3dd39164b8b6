// Turns each sample of the input into thousands of small ones on its way to the lines, so that the
// reverberation is dense from its onset on: 16 taps, half of them of either side, and two stages of 16
// delays, with a Walsh-Hadamard transform behind each. All transforms keep energy.
#ifndef BRISEL_LIVE_DIFFUSER_H
#define BRISEL_LIVE_DIFFUSER_H

#include <array>
#include <cstdint>

#include "live/engine/network.h"

namespace brisel::live {

class Diffuser {
public:
    // [main-thread]; false when memory runs out.
    bool prepare(double rate);
    // Silent, with the delays of this size; it clears no memory.
    void start(double size);

    // The delays fade to those of another size, or have done so.
    void start_resize(double size);
    void finish_resize() { old_ = new_; }

    // Input of `count` frames from `offset` frames behind the present position on: before run() for the
    // frames that it is to run, or after it for its last tile.
    void write(const float* const in[2], int32_t offset, uint32_t count);
    // The next frames of 16 rows. They do not depend on the input of the same tile. `resize` is of the
    // first frame.
    void run(LineRows& rows, const Fade& resize, uint32_t frames);

    uint32_t longest_path() const; // frames

private:
    static constexpr size_t kStages = 3; // the taps are the first
    using Delays = std::array<LineDelays, kStages>;

    // Rings of one size whose first tile stands behind the last one, too: a tile never straddles a seam.
    struct Rings {
        Floats memory;
        uint32_t mask = 0;

        bool prepare(size_t count, uint32_t longest);
        float* ring(size_t i) const { return memory.get() + i * (mask + 1 + kTile); }
        void write(size_t i, uint64_t position, const float* tile) const;
    };

    Delays delays(double size) const;
    void read(float* tile, const Rings& rings, size_t ring, uint32_t delay) const;
    void read_line(float* tile, size_t stage, size_t line, bool fading, __m256 weights) const;

    double rate_ = 0.0;
    std::array<std::array<double, BRISEL_LINES>, kStages>
        places_{}; // of delays in their range, 0 .. 1
    Delays old_{}, new_{};
    std::array<Rings, kStages> rings_;
    uint64_t position_ = 0; // frames since the start
};

} // namespace brisel::live

#endif
