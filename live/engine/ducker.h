// Ducking: the input lowers the wet signal and lets it come back behind it.
//
// The level is the input's peak, of both channels, which falls on a straight line in dB. At -12
// dBFS and above it lowers the wet signal by the full Duck, at -48 dBFS and below not at all, in dB
// linearly between them; from -12 dBFS the level takes Duck Release to fall to -48. It is taken
// every eight tiles. Two one-poles of 20 ms keep the gain free of clicks.
#ifndef BRISEL_LIVE_DUCKER_H
#define BRISEL_LIVE_DUCKER_H

#include "live/engine/motion.h"

namespace brisel::live {

class Ducker {
public:
    void prepare(double rate) { rate_ = rate; }

    // Decibels, seconds.
    void set(double amount, double release) {
        amount_ = amount;
        fall_ = kRange * kTile * kTiles / (rate_ * release);
        if (amount == 0.0) level_ = kSilent;
        aim();
    }

    void reset() {
        level_ = kSilent;
        peak_ = 0.0f;
        heard_ = 0;
        aim();
        gain_.snap();
    }

    bool listening() const { return amount_ > 0.0; }
    bool moving() const { return gain_.moving(); }
    float gain() const { return static_cast<float>(gain_.value); }

    // At a knot: the gain moves from gain() before to gain() after this call until the next one.
    void step(double share) {
        if (gain_.moving()) gain_.step(share);
    }

    // At a tile's end: the largest magnitude of its input.
    void hear(float peak) {
        peak_ = std::fmax(peak_, peak);
        if (++heard_ < kTiles) return;
        const double now = peak_ > 0.0f ? 20.0 * std::log10(static_cast<double>(peak_)) : kSilent;
        level_ = std::fmax(std::fmax(now, level_ - fall_), kSilent);
        peak_ = 0.0f;
        heard_ = 0;
        aim();
    }

private:
    static constexpr double kFull = -12.0, kNone = -48.0, kRange = kFull - kNone; // dBFS, dB
    static constexpr double kSilent = kNone;
    static constexpr uint32_t kTiles = 8; // from one look at the level to the next

    void aim() {
        const double share = std::fmin((level_ - kNone) / kRange, 1.0);
        gain_.target = std::pow(10.0, -amount_ * share / 20.0);
    }

    double rate_ = 0.0, amount_ = 0.0;
    double fall_ = 0.0;      // dB from one look to the next
    double level_ = kSilent; // dBFS
    float peak_ = 0.0f;      // since the last look
    uint32_t heard_ = 0;     // tiles since then
    Smoother gain_ = {1.0, 1.0, 1.0};
};

} // namespace brisel::live

#endif
