// How much a change of a parameter clicks. The programme is white noise below 200 Hz; what a change adds
// above 1.2 kHz is the click. Its peak in the second behind the change is set in proportion to the rms of
// the output in the second before it or in the last one behind it, whichever is louder.
#ifndef BRISEL_BENCH_CLICK_METER_H
#define BRISEL_BENCH_CLICK_METER_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <span>
#include <vector>

namespace bench {

// Butterworth filter of order eight, as four sections in double precision.
class EightPoles {
public:
    enum Kind { kLowPass, kHighPass };

    EightPoles(Kind kind, double corner_hz, double rate) {
        const double w = 2.0 * std::numbers::pi * corner_hz / rate, c = std::cos(w);
        for (int k = 0; k < 4; ++k) {
            const double q = 0.5 / std::cos(std::numbers::pi * (2 * k + 1) / 16.0);
            const double alpha = std::sin(w) / (2.0 * q), a0 = 1.0 + alpha;
            const double edge = kind == kLowPass ? 1.0 - c : 1.0 + c;
            sections_[k].b0 = edge / 2.0 / a0;
            sections_[k].b1 = (kind == kLowPass ? edge : -edge) / a0;
            sections_[k].a1 = -2.0 * c / a0;
            sections_[k].a2 = (1.0 - alpha) / a0;
        }
    }

    double operator()(double x) {
        for (Section& s : sections_) {
            const double y = s.b0 * x + s.z1;
            s.z1 = s.b1 * x - s.a1 * y + s.z2;
            s.z2 = s.b0 * x - s.a2 * y;
            x = y;
        }
        return x;
    }

private:
    struct Section {
        double b0, b1, a1, a2, z1 = 0.0, z2 = 0.0;
    };
    Section sections_[4] = {};
};

// The programme: noise below 200 Hz at about -18 dBFS rms.
inline std::vector<float> click_programme(double rate, size_t frames, uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> white(0.0, 0.125 * std::sqrt(rate / 400.0));
    EightPoles low(EightPoles::kLowPass, 200.0, rate);
    std::vector<float> signal(frames);
    for (float& x : signal) x = static_cast<float>(low(white(random)));
    return signal;
}

inline double rms_of(std::span<const float> signal) {
    double sum = 0.0;
    for (const float x : signal) sum += static_cast<double>(x) * static_cast<double>(x);
    return std::sqrt(sum / static_cast<double>(std::max<size_t>(signal.size(), 1)));
}

// The click of a change at frame `change` of an output, dB; `duration` is how long the change takes, seconds.
inline double click_db(std::span<const float> output, size_t change, double rate,
                       double duration = 0.0) {
    const auto second = static_cast<size_t>(rate);
    const auto heard = change + static_cast<size_t>((1.0 + duration) * rate);
    EightPoles high(EightPoles::kHighPass, 1200.0, rate);
    double peak = 0.0;
    for (size_t t = 0; t < std::min(heard, output.size()); ++t) {
        const double y = std::fabs(high(static_cast<double>(output[t])));
        if (t >= change) peak = std::max(peak, y);
    }
    const double before =
        rms_of(output.subspan(change - std::min(change, second), std::min(change, second)));
    const double after = rms_of(output.last(std::min(output.size() - change, second)));
    return 20.0 * std::log10(peak / std::max(before, after) + 1e-15);
}

} // namespace bench

#endif
