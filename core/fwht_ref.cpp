// The scalar Walsh-Hadamard transforms. Their order of additions is the definition that the vector
// kernel in core/avx2/ repeats eight frames at a time.
#include "brisel/fwht_ref.h"

#include <cmath>

namespace {

void butterfly_pass(float* x, int32_t n, int32_t span) {
    for (int32_t block = 0; block < n; block += 2 * span) {
        for (int32_t j = block; j < block + span; ++j) {
            const float first = x[j];
            const float second = x[j + span];
            x[j] = first + second;
            x[j + span] = first - second;
        }
    }
}

void transform(float* x, int32_t n, float scale) {
    for (int32_t span = n / 2; span > 0; span /= 2) butterfly_pass(x, n, span);
    for (int32_t k = 0; k < n; ++k) x[k] *= scale;
}

} // namespace

void fwht_ref(float* x, int32_t n) {
    if (n < 1) return;
    transform(x, n, 1.0f / std::sqrt(static_cast<float>(n)));
}

void fwht_ref_n16(float* x) {
    transform(x, BRISEL_LINES, 0.25f);
}
