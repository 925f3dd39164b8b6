// Turns each sample of the input into many small ones on its way to the lines, so that the
// reverberation is dense from its onset on: eight taps, half of them of either side, a
// Walsh-Hadamard transform, eight delays, another transform. All of it keeps energy.
#ifndef BRISEL_LIVE_DIFFUSER_H
#define BRISEL_LIVE_DIFFUSER_H

#include <array>
#include <cstdint>

#include "live/engine/network.h"

namespace brisel::live {

class Diffuser {
public:
    static constexpr size_t kChannels = 8;
    using Rows = HalfRows;

    // What run()'s rows have to be multiplied with to have the energy of the input, each in two
    // lines: both transforms leave out their 1 / sqrt(8), each side has four taps.
    static constexpr float kGain = 1.0f / 8.0f * 0.5f * 0x1.6a09e6p-1f;

    // [main-thread]; false when memory runs out.
    bool prepare(double rate);
    // Silent, with the delays of this size; it clears no memory.
    void start(double size);

    // The delays fade to those of another size, or have done so.
    void start_resize(double size) { new_ = delays(size); }
    void finish_resize() { old_ = new_; }

    // The next slice: of one tile, or with all its input written before run().
    void begin(uint32_t frames);
    // Input of the slice, `count` frames from `from` on.
    void write(const float* const in[2], uint32_t from, uint32_t count);
    // The slice's eight rows. No tile's depend on its own input. `resize` is as at the first frame.
    void run(Rows& rows, const Fade& resize);

    uint32_t longest_path() const; // frames

private:
    using ChannelDelays = std::array<uint32_t, kChannels>; // frames
    struct Delays {
        ChannelDelays taps;
        ChannelDelays lines;
    };
    struct Rings {
        Floats memory;
        uint32_t mask = 0;

        bool prepare(size_t count, uint32_t longest);
        // A cache line between two rings keeps their samples of one time out of one cache set.
        size_t step() const { return size_t{mask} + 1 + 16; }
        float* ring(size_t i) const { return memory.get() + i * step(); }
    };
    using Found = std::array<const float*, kChannels>;

    Delays delays(double size) const;
    const float* find(const Rings& rings, size_t ring, uint32_t delay, float* scratch) const;
    void find_rows(Found& rows, const Rings& rings, const ChannelDelays& old_delays,
                   const ChannelDelays& new_delays, const Fade& resize);

    double rate_ = 0.0;
    std::array<double, kChannels> tap_places_{}, line_places_{}; // 0 .. 1, in their ranges
    Delays old_{}, new_{};
    Rings inputs_, lines_;
    uint64_t position_ = 0; // of the slice, frames since the start
    uint32_t frames_ = 0;   // of the slice
    Rows scratch_[2]{};
};

} // namespace brisel::live

#endif
