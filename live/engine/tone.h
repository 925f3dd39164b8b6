// The wet signal's tone: low cut, low shelf, high shelf and high cut, 12 dB an octave the cuts,
// slope 1 the shelves, all of them state-variable sections whose corners and gains glide.
#ifndef BRISEL_LIVE_TONE_H
#define BRISEL_LIVE_TONE_H

#include <cstdint>

#include "live/engine/late.h"

namespace brisel::live {

struct ToneSettings {
    double low_cut;    // Hz; 20 and below: off
    double low_shelf;  // dB at 0 Hz, corner 250 Hz
    double high_shelf; // dB at half the rate, corner 4500 Hz
    double high_cut;   // Hz; 20000 and above: off
};

class Tone {
public:
    // Corners above 0.45 of the rate come down to it.
    void prepare(double rate);

    void set(const ToneSettings& settings);

    // Silence, at the settings' own values.
    void reset();

    // Filters whole tiles in place.
    void run(float* const wet[2], uint32_t frames);

private:
    static constexpr int kBands = 4; // low cut, low shelf, high shelf, high cut

    // A band's output is m0 x + m1 band + m2 low of a section with damping k and g = tan(pi
    // f / rate). What glides is u = g / (1 + g), k and m; a band that is off has m = 1, 0, 0.
    enum Quantity { kU, kK, kM0, kM1, kM2, kQuantities };
    using Bands = double[kQuantities][kBands];
    struct Section {
        double g, k, m0, m1, m2;
    };
    static Section section_of(const float* biquad);

    // The section as a linear map of its memories s1, s2 and its input x:
    //   y   = o0 x + (o1 s1 + o2 s2)
    //   s1' = (s1 - d1 s1) + c (x - s2)
    //   s2' = (s2 + c s1) + d2 (x - s2)
    // At low corners the memories change by little a frame: that little has coefficients of full
    // precision.
    enum Coefficient { kO0, kO1, kO2, kD1, kC, kD2, kCoefficients };
    using Lanes = float[8]; // of each band the left and the right channel

    void set_band(int band, const Section& section);
    bool is_neutral() const;
    void start_knot();
    void step();   // the quantities by one knot
    void derive(); // the coefficients of the quantities
    template <bool kMoving>
    void filter(float* left, float* right, uint32_t frames);

    double rate_ = 0.0, share_ = 0.0;
    bool moving_ = false;
    bool neutral_ = true; // at rest with every band off: the signal passes as it is
    alignas(32) Bands target_ = {}, first_ = {}, value_ = {};
    uint32_t knot_ = 0; // frames since the last knot; coefficients run linearly from knot to knot
    alignas(32) Lanes from_[kCoefficients] = {}; // at the last knot
    alignas(32) Lanes to_[kCoefficients] = {};   // at the next one
    alignas(32) Lanes way_[kCoefficients] = {};  // between them
    alignas(32) Lanes s1_ = {}, s2_ = {};
};

} // namespace brisel::live

#endif
