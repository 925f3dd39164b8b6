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

// A trip leads through one of the delays e_j of each stage but the last, and then through line i:
// its delay in the last stage and its own, d_i samples together, and its filter
// H_i = b0 / (1 - a1 / z). Which ones they are is equally likely, since the network mixes them in
// between. The filter's gains, g_low at 0 Hz and g_high at half the rate, are those of the whole
// loop of line i, its delays in all stages included. The energy falls by exp(-s) a sample, with the
// s for which a trip returns what it takes:
//
//   mean_i exp(s d_i) |H_i|^2 * product over the stages of mean_j exp(s e_j) = 1
double decay_time(const Settings& settings, double rate, double hz) {
    int32_t delays[kLines], sizes[kLines], stages[3 * kLines];
    const int count = static_cast<int>(settings[kScattering]);
    ffdn_n16_default_params(delays, sizes);
    ffdn_n16_default_cascade_params(count, stages);
    const double unit = settings[kSize] * rate / delays[0];
    const double cosine = std::cos(2 * std::numbers::pi * hz / rate);
    const double rate_low = 3 * std::numbers::ln10 / (settings[kDecay] * rate); // nepers a sample
    const double rate_high = rate_low * std::pow(10.0, settings[kDamp]);
    double samples[kLines], loss[kLines]; // loss: -ln |H|^2
    double all_samples = 0.0, all_loss = 0.0;
    for (int line = 0; line < kLines; ++line) {
        samples[line] = delays[line] * unit;
        double loop = samples[line];
        for (int stage = 0; stage < count; ++stage) loop += stages[stage * kLines + line];
        if (count > 0) samples[line] += stages[(count - 1) * kLines + line];
        const double ratio = std::exp((rate_high - rate_low) * loop); // g_low / g_high
        const double a1 = (ratio - 1.0) / (ratio + 1.0), rest = 2.0 / (ratio + 1.0); // 1 - a1
        // b0 = g_low (1 - a1), and |1 - a1 / z|^2 = (1 - a1)^2 + 2 a1 (1 - cos w)
        loss[line] = 2.0 * rate_low * loop - 2.0 * std::log(rest) +
                     std::log(rest * rest + 2.0 * a1 * (1.0 - cosine));
        all_samples += loop;
        all_loss += loss[line];
    }
    double s = all_loss / all_samples;
    for (int step = 0; step < 4; ++step) { // Newton's method
        double excess = 0.0, slope = 0.0;
        const auto add = [&](const double* lengths, const double* losses) {
            double sum = 0.0, weighted = 0.0;
            for (int i = 0; i < kLines; ++i) {
                const double share = std::exp(s * lengths[i] - (losses ? losses[i] : 0.0));
                sum += share;
                weighted += share * lengths[i];
            }
            excess += std::log(sum / kLines);
            slope += weighted / sum;
        };
        add(samples, loss);
        for (int stage = 0; stage + 1 < count; ++stage) {
            double lengths[kLines];
            for (int i = 0; i < kLines; ++i) lengths[i] = stages[stage * kLines + i];
            add(lengths, nullptr);
        }
        s -= excess / slope;
    }
    return 6 * std::numbers::ln10 / (s * rate);
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
    constexpr double kDamping = std::numbers::sqrt2;
    const auto tangent = [rate](double f) {
        return std::tan(std::numbers::pi * std::min(f / rate, 0.45));
    };
    const double w = std::tan(std::numbers::pi * std::min(hz / rate, 0.4999));
    const auto cut = [=](double corner, double high, double low) {
        const std::complex<double> s(0.0, w / tangent(corner));
        return std::abs((high * s * s + low) / (s * s + kDamping * s + 1.0));
    };
    // A shelf's corner is half way up: A in the middle, A^2 (or 1) at the ends.
    const auto shelf = [=](double corner, double decibels, bool above) {
        const double A = std::pow(10.0, decibels / 40.0);
        const std::complex<double> s(0.0, w / tangent(corner));
        const double root = std::sqrt(A);
        const auto rising = A * s * s + root * kDamping * s + 1.0,
                   falling = s * s + root * kDamping * s + A;
        return std::abs(A * (above ? rising / falling : falling / rising));
    };
    double gain = shelf(250.0, settings[kEqLow], false) * shelf(4500.0, settings[kEqHigh], true);
    if (settings[kLowCut] > parameters()[kLowCut].off_at) gain *= cut(settings[kLowCut], 1.0, 0.0);
    if (settings[kHighCut] < parameters()[kHighCut].off_at)
        gain *= cut(settings[kHighCut], 0.0, 1.0);
    return 20.0 * std::log10(std::max(gain, 1e-9));
}

} // namespace brisel::live::ui
