// The end of the chain: the wet signal's width, gain and ducking, the mix with the dry signal and
// the bypass, as one 2 x 2 matrix and a dry gain that run linearly inside each tile. Also what the
// tiles that have gone through it tell about levels and silence.
#ifndef BRISEL_LIVE_MIXER_H
#define BRISEL_LIVE_MIXER_H

#include <cstdint>

#include "live/engine/ducker.h"
#include "live/engine/motion.h"

namespace brisel::live {

// -140 dBFS: what stays below counts as silence.
inline constexpr float kSilence = 1e-7f;

struct MixerSettings {
    double mix, width, wet_gain; // 0 .. 1, 0 .. 1, linear
    double duck, duck_release;   // dB, seconds
    bool bypass;
};

class Mixer {
public:
    void prepare(double rate);
    void set(const MixerSettings& settings);
    void reset(); // at its targets

    // Fades the wet signal out in 8 ms, to be cleared: `faded()` from the end of that tile on until
    // cleared() lets it in again.
    void fade_to_clear();
    bool fading_to_clear() const { return clearing_; }
    bool faded() const { return clearing_ && !clear_.running() && tile_ == 0; }
    void cleared();

    // From now on no longer slice than this.
    uint32_t slice_limit() const { return clearing_ ? kTile : kLongestSlice; }

    // Whole tiles: out = dry gain * in + matrix * wet. The outputs may be the inputs.
    void run(const float* const in[2], const float* const wet[2], float* const out[2],
             uint32_t frames);

    // The same for one tile whose input comes later: first its wet part, then the frames in order,
    // and when all eight are there the tile's end. out[c][0] is frame `from`, in[c][0] the tile's
    // first.
    void run_ahead(const float* const wet[2]);
    void deliver(const float* const in[2], float* const out[2], uint32_t from, uint32_t to);
    void finish_tile(const float* const in[2], const float* const wet[2]);

    // The same while there is no wet signal and nothing moves.
    void run_asleep(const float* const in[2], float* const out[2], uint32_t frames);
    void run_ahead_asleep();

    // Frames, in whole tiles, for which input and wet signal have been silent.
    uint64_t quiet_frames() const { return quiet_; }
    void start_quiet_count() { quiet_ = 0; }

    float duck_gain() const { return ducker_.gain(); }
    // Largest magnitudes of input, wet signal and output since the last call.
    struct Peaks {
        float input, wet, output;
    };
    Peaks take_peaks();

private:
    struct Gains {
        float dry, own, cross; // of the input, of the wet signal's same and other side
    };
    bool moving() const;
    Gains gains() const;
    void step();
    void count_quiet(const float* const in[2], const float* const wet[2], uint32_t frames);

    double tile_share_ = 0.0, knot_share_ = 0.0;
    Smoother mix_, width_, wet_gain_;
    Ducker ducker_;
    Fade bypass_fade_;
    bool bypass_ = false;
    Fade clear_;
    bool clearing_ = false;
    Gains from_ = {}, to_ = {};    // at the last knot and at the next one
    uint32_t tile_ = 0;            // since the last knot; 0 at rest
    uint32_t knot_tiles_ = 1;      // from that knot to the next
    Gains before_ = {}, now_ = {}; // at both ends of the present tile
    uint64_t quiet_ = 0;
    alignas(32) float peaks_[3][8] = {}; // input, wet, output; in any lane
    alignas(32) float ahead_[2][8] = {}; // the wet part of a tile's outputs
};

} // namespace brisel::live

#endif
