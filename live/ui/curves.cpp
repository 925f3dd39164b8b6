#include "live/ui/curves.h"

#include <brisel/ffdn_defaults_n16.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace brisel::live::ui {

namespace {

constexpr int kLines = 16;

} // namespace

// Line i, with its stages L samples around, has the loop filter b0 / (1 - a1 / z) with gains g_low at 0 Hz and g_high at half
// the rate. All lines exchange their energy in every trip, so that the loss of all of them over the length of all of
// them is the network's.
double decay_time(const Settings& settings, double rate, double hz) {
    int32_t delays[kLines], sizes[kLines], stages[3 * kLines];
    const int count = static_cast<int>(settings[kScattering]);
    ffdn_n16_default_params(delays, sizes);
    ffdn_n16_default_cascade_params(count, stages);
    const double unit = settings[kSize] * rate / delays[0];
    const double cosine = std::cos(2 * std::numbers::pi * hz / rate);
    const double rate_low = 3 * std::numbers::ln10 / (settings[kDecay] * rate); // nepers a sample
    const double rate_high = rate_low * std::pow(10.0, settings[kDamp]);
    double loss = 0.0, length = 0.0; // nepers, samples
    for (int line = 0; line < kLines; ++line) {
        double samples = delays[line] * unit;
        for (int stage = 0; stage < count; ++stage) samples += stages[stage * kLines + line];
        const double ratio = std::exp((rate_high - rate_low) * samples); // g_low / g_high
        const double a1 = (ratio - 1.0) / (ratio + 1.0);
        // -ln |b0 / (1 - a1 / z)|, b0 = g_low (1 - a1)
        loss +=
            rate_low * samples - std::log1p(-a1) + 0.5 * std::log1p(a1 * a1 - 2.0 * a1 * cosine);
        length += samples;
    }
    return 3 * std::numbers::ln10 * length / (loss * rate);
}

double damp_for(Settings settings, double rate, double hz, double seconds) {
    double least = 0.0, most = 1.0;
    for (int i = 0; i < 20; ++i) {
        settings[kDamp] = (least + most) / 2;
        (decay_time(settings, rate, hz) > seconds ? least : most) = settings[kDamp];
    }
    return std::round((least + most) * 5000.0) / 10000.0; // also reaches 0 and 1
}

double tone_gain(const Settings& settings, double rate, double hz) {
    // Second-order sections with damping sqrt(2), in front of the bilinear transform.
    constexpr double k = std::numbers::sqrt2;
    const auto tangent = [rate](double f) {
        return std::tan(std::numbers::pi * std::min(f / rate, 0.45));
    };
    const double w = std::tan(std::numbers::pi * std::min(hz / rate, 0.4999));
    const auto cut = [=](double corner, double high, double low) {
        const std::complex<double> s(0.0, w / tangent(corner));
        return std::abs((high * s * s + low) / (s * s + k * s + 1.0));
    };
    // A shelf's corner is half way up: A in the middle, A^2 (or 1) at the ends.
    const auto shelf = [=](double corner, double decibels, bool above) {
        const double A = std::pow(10.0, decibels / 40.0);
        const std::complex<double> s(0.0, w / tangent(corner));
        const double root = std::sqrt(A);
        const auto rising = A * s * s + root * k * s + 1.0, falling = s * s + root * k * s + A;
        return std::abs(A * (above ? rising / falling : falling / rising));
    };
    double gain = shelf(250.0, settings[kEqLow], false) * shelf(4500.0, settings[kEqHigh], true);
    if (settings[kLowCut] > parameters()[kLowCut].off_at) gain *= cut(settings[kLowCut], 1.0, 0.0);
    if (settings[kHighCut] < parameters()[kHighCut].off_at)
        gain *= cut(settings[kHighCut], 0.0, 1.0);
    return 20.0 * std::log10(std::max(gain, 1e-9));
}

} // namespace brisel::live::ui
