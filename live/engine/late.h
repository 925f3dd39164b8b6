// The late reverberation of Brisel Live: one network that never stops while its size, decay,
// damping, modulation and diffusion move, and a second one that takes over when the number of
// scattering stages changes. It works on whole tiles of eight frames; its outputs never depend on
// the input of the same tile, so that a tile can be run ahead of its input.
#ifndef BRISEL_LIVE_LATE_H
#define BRISEL_LIVE_LATE_H

#include <cstdint>
#include <memory>

namespace brisel::live {

inline constexpr uint32_t kTile = 8;           // frames
inline constexpr uint32_t kLongestSlice = 256; // frames

struct LateSettings {
    double size = 0.04;               // seconds, delay of the shortest line, 0.005 .. 0.5
    double decay = 2.0;               // seconds, T60 at 0 Hz, 0.1 .. 60
    double damp = 0.3;                // 0 .. 1: T60 at half the rate is decay * 0.1^damp
    int stages = 2;                   // scattering stages K, 0 .. 3
    bool modulate = true;             // slow delay modulation
    double mod_depth = 2.0 / 48000.0; // seconds, 0 .. 0.33e-3
    double mod_rate = 1.0;            // factor on the lines' own rates (0.3 to 1.2 Hz), 0.1 .. 4
    double diffusion = 0.0;           // 0 .. 1
    bool freeze = false;              // lossless loop, input muted
    bool operator==(const LateSettings&) const = default;
};

class Late {
public:
    Late();
    ~Late();
    Late(const Late&) = delete;
    Late& operator=(const Late&) = delete;

    // Takes the storage for every setting at this rate (1000 .. 768000 Hz); silent afterwards.
    // Returns false when memory runs out. [main-thread]
    bool prepare(double rate);

    // Silence, at the settings' own values: nothing glides afterwards. [audio-thread]
    void reset();

    // New targets, from the next tile on. [audio-thread]
    void set(const LateSettings& settings);

    // Whole tiles with their input: `frames` is a multiple of 8, at most kLongestSlice. Inputs
    // are finite; outputs are the two wet signals at full width, and may not be the inputs.
    // [audio-thread]
    void run(const float* const in[2], float* const out[2], uint32_t frames);

    // One tile ahead of its input: the eight frames of the outputs. Its input follows through
    // inject(), all of it before the next run. [audio-thread]
    void run_ahead(float* const out[2]);

    // The input of the frames from .. to - 1 of the tile that was run ahead, in order: in[c][0] is
    // frame `from`. 0 <= from < to <= 8. The rings then hold the same bits as after run().
    // [audio-thread]
    void inject(const float* const in[2], uint32_t from, uint32_t to);

    // The longest path through lines, stages and diffuser at the present settings, in frames: after
    // so much silence at input and output nothing is left to come. [audio-thread]
    uint64_t longest_path() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace brisel::live

#endif
