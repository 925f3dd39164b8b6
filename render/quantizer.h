// Floating-point samples as integers of 16 or 24 bits: rounded to the nearest, kept at full scale
// where they exceed it, dithered on demand. Writers hand the integers on as they are, since
// libraries differ in how they round.
#pragma once

#include <cstdint>

namespace brisel::render {

class Quantizer {
public:
    // `dither`: noise of triangular distribution, two steps from peak to peak, is added before
    // rounding, which makes the error independent of the sound. Its generator always starts from
    // one seed, so that the same run gives the same bytes.
    Quantizer(int bits, bool dither);

    // -2^(bits-1) .. 2^(bits-1) - 1. One full scale is 2^(bits-1), as where integers are read.
    int32_t operator()(float sample);

private:
    double uniform(); // 0 <= x < 1

    double scale_;
    bool dither_;
    uint64_t state_ = 0x9e3779b97f4a7c15;
};

} // namespace brisel::render
