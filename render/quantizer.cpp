#include "render/quantizer.h"

#include <algorithm>
#include <cmath>

namespace brisel::render {

Quantizer::Quantizer(int bits, bool dither) : scale_(std::ldexp(1.0, bits - 1)), dither_(dither) {}

int32_t Quantizer::operator()(float sample) {
    double steps = sample * scale_;
    if (dither_) steps += uniform() - uniform();
    return static_cast<int32_t>(std::clamp(std::nearbyint(steps), -scale_, scale_ - 1.0));
}

// Marsaglia's xorshift generator, its upper 53 bits.
double Quantizer::uniform() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return std::ldexp(static_cast<double>(state_ >> 11), -53);
}

} // namespace brisel::render
