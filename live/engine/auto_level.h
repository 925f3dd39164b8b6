// Auto Level: a gain on the late reverberation that keeps the level of steady noise where it is at
// the default settings, whatever Decay, Size, Damp and Scattering say.
#ifndef BRISEL_LIVE_AUTO_LEVEL_H
#define BRISEL_LIVE_AUTO_LEVEL_H

#include <cstdint>

#include "live/engine/late.h"
#include "live/engine/motion.h"

namespace brisel::live {

// The network's power in white noise of power 1, once it is steady, over all frequencies.
double noise_power(const LateSettings& settings, double rate);

// The gain follows the power that the network really holds, which takes its time to build up or to
// die away after a change: a tail that was louder for its longer decay is not suddenly amplified or
// cut.
class AutoLevel {
public:
    void prepare(double rate);
    void set(const LateSettings& settings, bool on);
    void reset(); // at its targets

    // wet *= gain, whole tiles.
    void run(float* const wet[2], uint32_t frames);

private:
    void step();
    void aim(); // the gain, at the power now
    bool moving() const { return power_ != target_ || gain_.moving(); }

    double rate_ = 0.0;
    double default_power_ = 1.0;
    double target_ = 1.0, power_ = 1.0; // the network's power, in the end and now
    double power_share_ = 0.0;          // of the way left, a knot
    bool on_ = true;
    Smoother gain_ = {1.0, 1.0, 1.0};
    double gain_share_ = 0.0;
    float from_ = 1.0f, to_ = 1.0f; // the gain at the last knot and at the next one
    uint32_t tile_ = 0;             // since the last knot
};

} // namespace brisel::live

#endif
