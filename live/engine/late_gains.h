// The gains between the input, the diffuser, the two networks and the outputs of the late
// reverberation: what they go to, how they get there, and their values frame by frame.
#ifndef BRISEL_LIVE_LATE_GAINS_H
#define BRISEL_LIVE_LATE_GAINS_H

#include <array>
#include <cstdint>

#include "live/engine/late.h"
#include "live/engine/motion.h"

namespace brisel::live {

using Slice = std::array<float, kLongestSlice>;

class LateGains {
public:
    void prepare(double rate);
    // At the targets; the first network has all of the input.
    void snap();

    // Muted or not; 0 .. 1; what makes the outputs behind the last stage as loud as the lines'.
    void aim(bool mute, double diffusion, double early_level);
    // The diffuser has started from silence: its input does not begin with a step in each of its
    // echoes.
    void fade_in_diffuser();
    void snap_early_level() { early_level_.snap(); }
    // The networks have changed places: the input moves to the first one, the second one is heard.
    void hand_over();
    void fade_out_second();

    bool moving() const {
        return mute_.moving() || diffusion_.moving() || feed_.moving() || early_level_.moving() ||
               hand_over_.running() || fade_out_.running();
    }
    bool diffusion_moving() const { return diffusion_.moving(); }
    bool wants_diffusion() const { return diffusion_.target > 0.0; }
    bool handing_over() const { return hand_over_.running(); }
    bool fading_out() const { return fading_out_; }
    bool faded_out() const { return fading_out_ && !fade_out_.running(); }
    bool heard() const { return !mute_.moving() && mute_.value == 1.0; }

    // The gains of the next frames.
    void find(uint32_t frames);
    // Whether find() left gains that are the same in every frame.
    bool steady() const { return steady_; }

    alignas(32) Slice feed;      // of the input, into the diffuser
    alignas(32) Slice inputs[2]; // into the first and the second network
    alignas(32) Slice rows[2];   // of the diffuser's rows, likewise
    alignas(32) Slice near;      // of the lines' outputs
    alignas(32) Slice early;     // of the outputs behind the last stage
    alignas(32) Slice second;    // of the second network's outputs

private:
    struct Ends;
    Ends now() const;

    Smoother mute_; // 1: the input is heard
    Smoother diffusion_, feed_, early_level_;
    Fade hand_over_, fade_out_;
    bool fading_out_ = false;
    bool steady_ = false;
    double mute_share_ = 0.0, diffusion_share_ = 0.0, feed_share_ = 0.0, early_level_share_ = 0.0;
};

} // namespace brisel::live

#endif
