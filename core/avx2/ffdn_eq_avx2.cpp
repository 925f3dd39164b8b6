// The output EQ's two shelves, left and right in two lanes.
//
// A shelf's output takes its first memory, which takes the output before: two dependent operations
// a frame, 8 cycles, which more lanes would not shorten. The high shelf runs beside the low one, a
// frame behind it: as the later code of the two, it does not delay the chain that all wait for.
#include <immintrin.h>

#include "core/avx2/units.h"

namespace brisel {

namespace {

// One shelf for two channels. The two upper lanes stay 0.
class StereoShelf {
public:
    // `c`: b0, b1, b2, a1, a2; `state`: s1, s2 of the left, then of the right channel.
    StereoShelf(const float* c, const float* state)
        : b0_(_mm_set1_ps(c[0])), b1_(_mm_set1_ps(c[1])), b2_(_mm_set1_ps(c[2])),
          a1_(_mm_set1_ps(c[3])), a2_(_mm_set1_ps(c[4])),
          s1_(_mm_setr_ps(state[0], state[2], 0.0f, 0.0f)),
          s2_(_mm_setr_ps(state[1], state[3], 0.0f, 0.0f)) {}

    __m128 step(__m128 x) {
        const __m128 y = _mm_fmadd_ps(b0_, x, s1_);
        s1_ = _mm_fnmadd_ps(a1_, y, _mm_fmadd_ps(b1_, x, s2_));
        s2_ = _mm_fnmadd_ps(a2_, y, _mm_mul_ps(b2_, x));
        return y;
    }

    void store_state(float* state) const { _mm_storeu_ps(state, _mm_unpacklo_ps(s1_, s2_)); }

private:
    __m128 b0_, b1_, b2_, a1_, a2_;
    __m128 s1_, s2_;
};

inline __m128 load_frame(const float* left, const float* right) {
    return _mm_unpacklo_ps(_mm_load_ss(left), _mm_load_ss(right));
}

inline void store_frame(float* left, float* right, __m128 frame) {
    _mm_store_ss(left, frame);
    _mm_store_ss(right, _mm_movehdup_ps(frame));
}

} // namespace

void ffdn_eq_filter_avx2(const float* low, const float* high, float* state, float* left,
                         float* right, uint32_t frames) {
    StereoShelf first(low, state);
    StereoShelf second(high, state + 4);
    __m128 between = first.step(load_frame(left, right));
    for (uint32_t t = 1; t < frames; ++t) {
        const __m128 next = first.step(load_frame(left + t, right + t));
        store_frame(left + t - 1, right + t - 1, second.step(between));
        between = next;
    }
    store_frame(left + frames - 1, right + frames - 1, second.step(between));
    first.store_state(state);
    second.store_state(state + 4);
}

} // namespace brisel
