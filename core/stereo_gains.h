// How both engines take the gains of their stereo inputs and outputs.
#ifndef BRISEL_CORE_STEREO_GAINS_H
#define BRISEL_CORE_STEREO_GAINS_H

#include <algorithm>

#include "brisel/ffdn_defaults_n16.h"

namespace brisel {

// Gains from the caller or, where that gives none, from the default design; by way of copies, since the
// sources may be the record's own vectors.
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
