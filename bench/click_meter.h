// How much a change of a parameter clicks. The programme is white noise below 200 Hz; what a change
// adds above 1.2 kHz is the click. Its peak in the second behind the change is set in proportion to
// the rms of the output in the second before it or in the last one behind it, whichever is louder.
#ifndef BRISEL_BENCH_CLICK_METER_H
#define BRISEL_BENCH_CLICK_METER_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>
#include <vector>

#include "bench/signal_analysis.h"

namespace bench {

// The programme: noise below 200 Hz.
inline std::vector<float> click_programme(double rate, size_t frames, uint32_t seed) {
    std::vector<float> signal = white_noise(frames, seed);
    const auto gain = static_cast<float>(std::sqrt(rate / 400.0)); // for its level
    for (float& x : signal) x *= gain;
    butterworth8(signal, Pass::kLow, 200.0, rate);
    return signal;
}

inline double rms_of(std::span<const float> signal) {
    double sum = 0.0;
    for (const float x : signal) sum += static_cast<double>(x) * static_cast<double>(x);
    return std::sqrt(sum / static_cast<double>(std::max<size_t>(signal.size(), 1)));
}

// The click of a change at frame `change` of an output, dB; `duration` is how long the change
// takes, seconds.
inline double click_db(std::span<const float> output, size_t change, double rate,
                       double duration = 0.0) {
    const auto second = static_cast<size_t>(rate);
    const auto heard = change + static_cast<size_t>((1.0 + duration) * rate);
    std::vector<float> high(output.begin(), output.end());
    butterworth8(high, Pass::kHigh, 1200.0, rate);
    const double click = peak(high, change, std::min(heard, output.size()));
    const double before =
        rms_of(output.subspan(change - std::min(change, second), std::min(change, second)));
    const double after = rms_of(output.last(std::min(output.size() - change, second)));
    return 20.0 * std::log10(click / std::max(before, after) + 1e-15);
}

} // namespace bench

#endif
