// What the engine makes of a click with the present settings, ready to be drawn: single echoes and
// their density while the sound builds up, and the fall of its energy.
#ifndef BRISEL_LIVE_UI_RESPONSE_H
#define BRISEL_LIVE_UI_RESPONSE_H

#include <array>
#include <memory>
#include <vector>

#include "live/engine/reverb.h"

namespace brisel::live::ui {

class Response {
public:
    static constexpr int kColumns = 220;
    using Columns = std::array<float, kColumns>; // at even distances from 0 to the span

    // Runs an engine of its own; false, with nothing to show, when there is no memory for it.
    bool measure(const Settings& settings, double rate);

    // The build-up. Echoes: the highest peak in each column, in dB of the highest of all. Density,
    // after J. Abel and P. Huang, "A simple, robust measure of reverberation echo density", 2006:
    // the share of samples beyond the standard deviation of the 20 ms around, 1 for what noise has.
    double build_up_span() const { return build_up_span_; } // seconds
    const Columns& echoes() const { return echoes_; }
    const Columns& density() const { return density_; }

    // The energy left in the response, in dB of all of it.
    double decay_span() const { return decay_span_; }
    const Columns& decay() const { return decay_; }

private:
    void fill_build_up(double rate);
    void fill_decay(double rate, double decay);

    std::unique_ptr<Reverb> reverb_;
    double prepared_rate_ = 0.0;
    std::vector<float> left_, right_;
    double build_up_span_ = 0.0, decay_span_ = 0.0;
    Columns echoes_{}, density_{}, decay_{};
};

} // namespace brisel::live::ui

#endif
