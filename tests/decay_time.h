// Reverberation time as it is measured in rooms.
#ifndef BRISEL_TESTS_DECAY_TIME_H
#define BRISEL_TESTS_DECAY_TIME_H

#include <cmath>
#include <numeric>
#include <vector>

// Seconds to fall by 60 dB, after Schroeder: the backward-integrated energy's fall from -5 to -35 dB, fitted
// by a line. `energies` has one value every `step` seconds.
inline double schroeder_t60(const std::vector<double>& energies, double step) {
    std::vector<double> remaining(energies.size());
    std::partial_sum(energies.rbegin(), energies.rend(), remaining.rbegin());
    double n = 0, st = 0, sl = 0, stt = 0, stl = 0;
    for (size_t k = 0; k < remaining.size(); ++k) {
        const double level = 10 * std::log10(remaining[k] / remaining[0]);
        if (level > -5 || level < -35) continue;
        const double t = static_cast<double>(k) * step;
        n += 1;
        st += t;
        sl += level;
        stt += t * t;
        stl += t * level;
    }
    return -60 * (n * stt - st * st) / (n * stl - st * sl);
}

#endif
