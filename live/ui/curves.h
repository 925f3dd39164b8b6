// What the settings promise over frequency: the decay time of the loop filters, and the wet
// signal's tone.
#ifndef BRISEL_LIVE_UI_CURVES_H
#define BRISEL_LIVE_UI_CURVES_H

#include "live/engine/parameters.h"

namespace brisel::live::ui {

// T60 in seconds at `hz`, at a sample rate of `rate` Hz.
double decay_time(const Settings& settings, double rate, double hz);

// The Damp with which the decay time at `hz` is nearest to `seconds`.
double damp_for(Settings settings, double rate, double hz, double seconds);

// The gain of cuts and shelves together at `hz`, in dB.
double tone_gain(const Settings& settings, double rate, double hz);

} // namespace brisel::live::ui

#endif
