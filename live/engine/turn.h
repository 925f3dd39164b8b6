// How the taps of two lines change without a loss of energy.
#ifndef BRISEL_LIVE_TURN_H
#define BRISEL_LIVE_TURN_H

#include <immintrin.h>

#include <cstdint>

namespace brisel::live {

// How a pair of lines goes from its old taps a to its new ones b.
//
// A crossfade a + w (b - a) of two uncorrelated taps has less energy than either of them, and a
// gain that makes up for it lets grow what they have in common, low frequencies, trip by trip. Here
// the halves of the differences, (b - a) / 2 of the two lines i and j, turn by an angle from 0 to
// pi instead:
//
//   row i = (a_i + b_i) / 2 - cos (b_i - a_i) / 2 + sin (b_j - a_j) / 2
//   row j = (a_j + b_j) / 2 - cos (b_j - a_j) / 2 - sin (b_i - a_i) / 2
//
// Turning keeps the energy of the differences, at every frequency, and the means are left alone. As
// long as the lines are not correlated with each other, the rows have the energy (1 - w) a^2 + w
// b^2 with w = (1 - cos) / 2. Where one line's delay grows by what the other's shrinks, that holds
// whatever the lines have in common. Where both grow, what they have in common gains or loses
// energy by the direction of the turn, which therefore has to be another one each time.
struct Turn {
    __m256 cosine; // half of it
    __m256 sine;   // likewise

    Turn() = default;
    // tan(angle / 2) = root * s / (1 - s). The root of the ratio of both trips' gains lets each tap
    // be fed back with its own length's gain when the filter's gain is the mix of both; its sign is
    // the direction.
    Turn(__m256 s, __m256 root) {
        const __m256 one = _mm256_set1_ps(1.0f);
        const __m256 half = _mm256_set1_ps(0.5f);
        const __m256 p = _mm256_sub_ps(one, s);
        const __m256 q = _mm256_mul_ps(s, root);
        const __m256 p2 = _mm256_mul_ps(p, p);
        const __m256 q2 = _mm256_mul_ps(q, q);
        const __m256 norm = _mm256_div_ps(one, _mm256_add_ps(p2, q2));
        cosine = _mm256_mul_ps(_mm256_mul_ps(_mm256_sub_ps(p2, q2), norm), half);
        sine = _mm256_mul_ps(_mm256_mul_ps(p, q), norm);
    }
};

// w = (1 - cos) / 2 where the root is 1.
inline float weight_of(float s) {
    return s * s / (s * s + (1.0f - s) * (1.0f - s));
}

// A tile of a pair: its taps, [line][old, new], and its rows.
inline void turn_tile(const float* const taps[2][2], float* const rows[2], uint32_t t,
                      const Turn& turn) {
    const __m256 half = _mm256_set1_ps(0.5f);
    __m256 way[2];
    __m256 row[2];
    for (size_t k = 0; k < 2; ++k) {
        const __m256 a = _mm256_loadu_ps(taps[k][0] + t);
        const __m256 b = _mm256_loadu_ps(taps[k][1] + t);
        way[k] = _mm256_sub_ps(b, a);
        row[k] = _mm256_fnmadd_ps(turn.cosine, way[k], _mm256_mul_ps(_mm256_add_ps(a, b), half));
    }
    _mm256_storeu_ps(rows[0] + t, _mm256_fmadd_ps(turn.sine, way[1], row[0]));
    _mm256_storeu_ps(rows[1] + t, _mm256_fnmadd_ps(turn.sine, way[0], row[1]));
}

inline __m256 smoothstep(__m256 x) {
    const __m256 slope = _mm256_fnmadd_ps(_mm256_set1_ps(2.0f), x, _mm256_set1_ps(3.0f));
    return _mm256_mul_ps(_mm256_mul_ps(x, x), slope);
}

} // namespace brisel::live

#endif
