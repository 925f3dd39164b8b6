#include "live/engine/auto_level.h"

#include <algorithm>
#include <cmath>

#include "live/engine/parameters.h"

namespace brisel::live {

namespace {

// Means over the 16 lines.
constexpr double kMeanLine = 19893.0 / 16.0 / 997.0; // of Size: the sum of the lengths' ratios
constexpr double kMeanStages[] = {0.0, 7.5, 127.5, 2047.5}; // samples, 0 to 3 stages
constexpr double kCoincidence = 1.36; // of the trips behind the first, without stages: between both
constexpr double kSettled = 1e-6;     // of the power
constexpr double kLongestTime = 5.0, kShortestTime = kLevelSeconds; // seconds

double mean_loop(const LateSettings& s, double rate) {
    return kMeanLine * s.size * rate + kMeanStages[std::clamp(s.stages, 0, 3)];
}

} // namespace

// Each trip around the mean loop multiplies the power at w by |h|^2, h being the one-pole filter
// with gain g_low at 0 Hz and g_high at half the rate. The sum of all trips is 1 / (1 - |h|^2); its
// mean over w is
//   1 + g_low g_high / sqrt((1 - g_low^2) (1 - g_high^2)).
// That takes all paths for incoherent, as the stages make them. Without stages paths through the
// same lines in another order coincide and add up to more power: as measured 1.66 times as much
// while nothing is modulated, 1.1 times while it is.
double noise_power(const LateSettings& settings, double rate) {
    const double low =
        -3.0 * std::log(10.0) * mean_loop(settings, rate) / (rate * settings.decay); // ln g_low
    const double high = low * std::pow(10.0, settings.damp);
    const double trips =
        std::exp(low + high) / std::sqrt(std::expm1(2.0 * low) * std::expm1(2.0 * high));
    return 1.0 + (settings.stages == 0 ? kCoincidence : 1.0) * trips;
}

void AutoLevel::prepare(double rate) {
    rate_ = rate;
    const auto initial = [](Id id) { return parameters()[id].initial; };
    LateSettings defaults = {};
    defaults.size = initial(kSize);
    defaults.decay = initial(kDecay);
    defaults.damp = initial(kDamp);
    defaults.stages = static_cast<int>(initial(kScattering));
    default_power_ = target_ = power_ = noise_power(defaults, rate);
    gain_share_ = share_of_knot(rate, kLevelSeconds);
}

void AutoLevel::set(const LateSettings& settings, bool on) {
    on_ = on;
    // A frozen network keeps what it has.
    target_ = settings.freeze ? power_ : noise_power(settings, rate_);
    // Power p of a network fed with noise of power 1 changes by 1 - p / p_end a trip.
    const double seconds = target_ * mean_loop(settings, rate_) / rate_;
    power_share_ = share_of_knot(rate_, std::clamp(seconds, kShortestTime, kLongestTime));
    aim();
}

void AutoLevel::reset() {
    power_ = target_;
    aim();
    gain_.snap();
    tile_ = 0;
    from_ = to_ = static_cast<float>(gain_.value);
}

void AutoLevel::aim() {
    gain_.target = on_ ? std::sqrt(default_power_ / power_) : 1.0;
}

void AutoLevel::step() {
    power_ += power_share_ * (target_ - power_);
    if (std::fabs(target_ - power_) < kSettled * target_) power_ = target_;
    aim();
    gain_.step(gain_share_);
}

void AutoLevel::run(float* const wet[2], uint32_t frames) {
    const auto scale = [&](uint32_t t, __m256 gain) {
        for (int c : {0, 1}) {
            float* const to = wet[c] + t;
            _mm256_storeu_ps(to, _mm256_mul_ps(gain, _mm256_loadu_ps(to)));
        }
    };
    uint32_t t = 0;
    for (; t < frames && (tile_ != 0 || moving()); t += kTile) {
        if (tile_ == 0) {
            from_ = to_;
            step();
            to_ = static_cast<float>(gain_.value);
        }
        scale(t, ramp(between_knots(from_, to_, tile_), between_knots(from_, to_, tile_ + 1)));
        tile_ = (tile_ + 1) % kLevelTiles;
    }
    if (to_ == 1.0f) return;
    const __m256 gain = _mm256_set1_ps(to_); // at rest; the knots wait for the next move
    for (; t < frames; t += kTile) scale(t, gain);
}

} // namespace brisel::live
