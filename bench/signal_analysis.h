// What the measuring programs need of signal analysis.
#ifndef BRISEL_BENCH_SIGNAL_ANALYSIS_H
#define BRISEL_BENCH_SIGNAL_ANALYSIS_H

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace bench {

using Signal = std::vector<float>;

// Independent normal samples.
inline Signal white_noise(size_t frames, uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0.0f, 0.1f);
    Signal x(frames);
    for (float& sample : x) sample = normal(random);
    return x;
}

inline Signal sine(size_t frames, double hz, double rate) {
    Signal x(frames);
    for (size_t t = 0; t < frames; ++t)
        x[t] =
            static_cast<float>(0.25 * std::sin(2.0 * std::numbers::pi *
                                               std::fmod(hz * static_cast<double>(t) / rate, 1.0)));
    return x;
}

enum class Pass { kLow, kHigh };

// An 8-pole Butterworth filter: four sections by the bilinear transform (R. Bristow-Johnson's Audio
// EQ Cookbook) with the Q of its pole pairs, in double precision.
inline void butterworth8(Signal& x, Pass pass, double hz, double rate) {
    const double w = 2.0 * std::numbers::pi * hz / rate;
    for (int pair = 0; pair < 4; ++pair) {
        const double q = 0.5 / std::cos((2 * pair + 1) * std::numbers::pi / 16.0);
        const double alpha = std::sin(w) / (2.0 * q);
        const double sign = pass == Pass::kLow ? 1.0 : -1.0;
        const double outer = 0.5 * (1.0 - sign * std::cos(w)) / (1.0 + alpha);
        const double middle = sign * 2.0 * outer;
        const double a1 = -2.0 * std::cos(w) / (1.0 + alpha);
        const double a2 = (1.0 - alpha) / (1.0 + alpha);
        double s1 = 0.0;
        double s2 = 0.0;
        for (float& sample : x) {
            const double in = sample;
            const double out = outer * in + s1;
            s1 = middle * in - a1 * out + s2;
            s2 = outer * in - a2 * out;
            sample = static_cast<float>(out);
        }
    }
}

inline double decibels(double power) {
    return 10.0 * std::log10(std::max(power, 1e-30));
}

// Mean square of the frames from .. to - 1.
inline double power(const Signal& x, size_t from, size_t to) {
    double sum = 0.0;
    for (size_t t = from; t < to; ++t) sum += double{x[t]} * double{x[t]};
    return sum / static_cast<double>(to - from);
}

inline double peak(const Signal& x, size_t from, size_t to) {
    double highest = 0.0;
    for (size_t t = from; t < to; ++t) highest = std::max(highest, std::fabs(double{x[t]}));
    return highest;
}

enum class Window { kNone, kBlackmanHarris }; // the latter of four terms, with side lobes at -92 dB

// Power of each line of the spectrum of a power of two of frames.
inline std::vector<double> spectrum(const Signal& x, size_t from, size_t frames, Window shape) {
    using Complex = std::complex<double>;
    constexpr double kPi = std::numbers::pi;
    std::vector<Complex> z(frames);
    for (size_t t = 0, reversed = 0; t < frames; ++t) {
        const double p = 2.0 * kPi * static_cast<double>(t) / static_cast<double>(frames);
        const double window = shape == Window::kNone
                                  ? 1.0
                                  : 0.35875 - 0.48829 * std::cos(p) + 0.14128 * std::cos(2 * p) -
                                        0.01168 * std::cos(3 * p);
        z[reversed] = window * double{x[from + t]};
        size_t bit = frames >> 1;
        while (bit != 0 && (reversed & bit) != 0) {
            reversed ^= bit;
            bit >>= 1;
        }
        reversed |= bit;
    }
    for (size_t span = 1; span < frames; span *= 2) {
        std::vector<Complex> turns(span);
        for (size_t k = 0; k < span; ++k)
            turns[k] = std::polar(1.0, -kPi * static_cast<double>(k) / static_cast<double>(span));
        for (size_t start = 0; start < frames; start += 2 * span)
            for (size_t k = 0; k < span; ++k) {
                const Complex turned = turns[k] * z[start + span + k];
                z[start + span + k] = z[start + k] - turned;
                z[start + k] += turned;
            }
    }
    std::vector<double> lines(frames / 2);
    for (size_t k = 0; k < lines.size(); ++k) lines[k] = std::norm(z[k]);
    return lines;
}

// The power of a sine's surroundings beyond `distance` Hz from it, against all of it, dB.
inline double power_beside(const Signal& x, size_t from, size_t frames, double hz, double distance,
                           double rate) {
    const auto lines = spectrum(x, from, frames, Window::kBlackmanHarris);
    double beside = 0.0;
    double all = 0.0;
    for (size_t k = 0; k < lines.size(); ++k) {
        const double f = static_cast<double>(k) * rate / static_cast<double>(frames);
        all += lines[k];
        if (std::fabs(f - hz) > distance) beside += lines[k];
    }
    return decibels(beside / all);
}

// Geometric over arithmetic mean of the power spectrum from 100 Hz to 10 kHz, relative to its
// average over third octaves: exp(-0.577) = 0.56 for noise, less where single resonances stand out.
inline double spectral_flatness(const Signal& x, size_t from, size_t frames, double rate) {
    const auto lines = spectrum(x, from, frames, Window::kNone);
    std::vector<double> sums(lines.size() + 1);
    for (size_t k = 0; k < lines.size(); ++k) sums[k + 1] = sums[k] + lines[k];
    const double per_hz = static_cast<double>(frames) / rate;
    const double sixth = std::exp2(1.0 / 6.0);
    double logs = 0.0;
    double mean = 0.0;
    const auto first = static_cast<size_t>(100.0 * per_hz);
    const auto last = static_cast<size_t>(10000.0 * per_hz);
    for (size_t k = first; k < last; ++k) {
        const auto low = static_cast<size_t>(static_cast<double>(k) / sixth);
        const auto high =
            std::min(static_cast<size_t>(static_cast<double>(k) * sixth) + 1, lines.size());
        const double average = (sums[high] - sums[low]) / static_cast<double>(high - low);
        logs += std::log(lines[k] / average);
        mean += lines[k] / average;
    }
    const auto count = static_cast<double>(last - first);
    return std::exp(logs / count) / (mean / count);
}

// Normalised echo density (J. Abel and P. Huang, 2006) in a Hann window of 20 ms around frame
// `centre`: the share of samples beyond the window's standard deviation, 1 for noise.
inline double echo_density(const Signal& x, size_t centre, double rate) {
    const auto half = static_cast<size_t>(0.01 * rate);
    const auto weight = [&](size_t k) {
        const double phase = std::numbers::pi * static_cast<double>(k) / static_cast<double>(half);
        return 0.5 - 0.5 * std::cos(phase);
    };
    double sum = 0.0;
    double energy = 0.0;
    for (size_t k = 0; k <= 2 * half; ++k) {
        const double v = x[centre - half + k];
        sum += weight(k);
        energy += weight(k) * v * v;
    }
    const double deviation = std::sqrt(energy / sum);
    double beyond = 0.0;
    for (size_t k = 0; k <= 2 * half; ++k)
        if (std::fabs(double{x[centre - half + k]}) > deviation) beyond += weight(k);
    return beyond / sum / 0.3173;
}

// Seconds to fall by 60 dB, after Schroeder: the line through the backward-integrated energy
// between -5 and -35 dB.
inline double decay_time(const Signal& x, double rate) {
    constexpr size_t kStep = 48;
    std::vector<double> remaining(x.size() / kStep + 1);
    for (size_t k = remaining.size() - 1; k-- > 0;)
        remaining[k] = remaining[k + 1] + power(x, k * kStep, (k + 1) * kStep);
    double n = 0, st = 0, sl = 0, stt = 0, stl = 0;
    for (size_t k = 0; k < remaining.size(); ++k) {
        const double level = decibels(remaining[k] / remaining[0]);
        if (level > -5.0 || level < -35.0) continue;
        const double t = static_cast<double>(k * kStep) / rate;
        n += 1;
        st += t;
        sl += level;
        stt += t * t;
        stl += t * level;
    }
    return -60.0 * (n * stt - st * st) / (n * stl - st * sl);
}

} // namespace bench

#endif
