// The numbers of the default design inside the library, and how both engines take stereo gains.
#ifndef BRISEL_CORE_FFDN_DEFAULTS_N16_H
#define BRISEL_CORE_FFDN_DEFAULTS_N16_H

#include <algorithm>

#include "brisel/ffdn_defaults_n16.h"

namespace brisel {

// Delays of the lines in samples: primes, spread evenly over a factor of 1.5. Their ratios are
// those of the lines at every size.
inline constexpr int32_t kLinePrimes[BRISEL_LINES] = {
    997, 1031, 1063, 1097, 1129, 1163, 1193, 1229, 1259, 1291, 1321, 1361, 1399, 1429, 1453, 1489,
};

// 1/sqrt(8): eight such gains have unit energy.
inline constexpr float kInvSqrt8 = 0.353553385f;

// Gains from the caller or, where that gives none, from the default design; by way of copies, since
// the sources may be the record's own vectors.
inline void set_stereo_gains(float (&to_left)[BRISEL_LINES], float (&to_right)[BRISEL_LINES],
                             const float* left, const float* right,
                             void (*defaults)(float* left, float* right)) {
    ffdn_n16_stereo_gains gains;
    defaults(gains.left, gains.right);
    if (left) std::copy_n(left, BRISEL_LINES, gains.left);
    if (right) std::copy_n(right, BRISEL_LINES, gains.right);
    std::copy_n(gains.left, BRISEL_LINES, to_left);
    std::copy_n(gains.right, BRISEL_LINES, to_right);
}

} // namespace brisel

#endif
