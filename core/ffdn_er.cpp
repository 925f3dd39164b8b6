// Early reflections: the taps, the ring and the processing around the sums in core/avx2 and
// core/avx512.
#include "brisel/ffdn_er.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "core/aligned_memory.h"
#include "core/avx2/runs.h"
#include "core/avx512/units.h"
#include "core/ffdn_er.h"
#include "core/network_math.h"

namespace {

using brisel::truncate_to_int32;
using brisel::Xorshift64;

constexpr float kEarliest = 0.005f; // seconds
constexpr int32_t kFewestTaps = 4;
constexpr int32_t kShortestRing = 32;

// Rounded in single precision.
int32_t samples_of(float seconds, int32_t sample_rate) {
    return truncate_to_int32(std::fma(static_cast<float>(sample_rate), seconds, 0.5f));
}

// u in [0, 1): the top 24 bits of a draw.
float uniform(Xorshift64& random) {
    return static_cast<float>(random.next() >> 40) * 0x1p-24f;
}

// Tap i near the i-th of n points evenly spread on a logarithmic axis from d_lo to d_hi samples,
// jittered by up to 0.4 of the spacing; gains e^(-3 d / d_hi) with random signs and unit energy.
// All delays are drawn before all signs.
void build_taps(int32_t* delays, float* gains, int32_t n, int32_t d_lo, int32_t d_hi,
                Xorshift64& random) {
    const double a = std::log(static_cast<double>(d_lo));
    const double span = std::log(static_cast<double>(d_hi)) - a;
    const double step = 1.0 / (n - 1);
    for (int32_t i = 0; i < n; ++i) {
        const double jitter = static_cast<double>(uniform(random)) - 0.5;
        double t = std::fma(jitter, 0.8, static_cast<double>(i)) * step;
        if (t < 0.0) t = 0.0;
        if (t > 1.0) t = 1.0;
        delays[i] = std::clamp(truncate_to_int32(std::exp(a + t * span) + 0.5), d_lo, d_hi);
    }
    double energy = 0.0;
    for (int32_t i = 0; i < n; ++i) {
        gains[i] = static_cast<float>(std::exp(delays[i] * -3.0 * (1.0 / d_hi)));
        if (random.next() & 1) gains[i] = -gains[i];
        energy += static_cast<double>(gains[i]) * gains[i];
    }
    if (energy > 0.0) {
        const float scale = static_cast<float>(1.0 / std::sqrt(energy));
        for (int32_t i = 0; i < n; ++i) gains[i] *= scale;
    }
}

} // namespace

namespace brisel {

int32_t latest_tap(int32_t sample_rate, float size) {
    const int32_t d_lo = samples_of(kEarliest, sample_rate);
    const int32_t d_hi = samples_of(size, sample_rate);
    return d_lo < d_hi ? d_hi : d_lo + 1;
}

bool lay_out_taps(ffdn_er* er, int32_t n_taps, int32_t max_frames, int32_t sample_rate,
                  uint64_t seed, float size) {
    const bool usable = er && n_taps >= kFewestTaps && n_taps <= FFDN_ER_MAX_TAPS &&
                        size > kEarliest && max_frames > 0 && sample_rate > 0;
    if (!usable) return false;
    ffdn_er made{};
    made.n_taps = n_taps;
    made.max_frames = max_frames;

    const int32_t d_lo = samples_of(kEarliest, sample_rate);
    const int32_t d_hi = latest_tap(sample_rate, size);
    Xorshift64 left = Xorshift64::seeded(seed);
    build_taps(made.delays_l, made.gains_l, n_taps, d_lo, d_hi, left);
    Xorshift64 right{left.state ^ 0xa5a5a5a5deadbeef};
    build_taps(made.delays_r, made.gains_r, n_taps, d_lo, d_hi, right);

    for (int32_t k = 0; k < n_taps; ++k)
        made.longest_tap = std::max({made.longest_tap, made.delays_l[k], made.delays_r[k]});
    const int64_t need = int64_t{max_frames} + made.longest_tap;
    if (need > int64_t{1} << 30) return false; // no int32_t power of two holds it
    made.ring_len =
        static_cast<int32_t>(ring_size_above(static_cast<uint32_t>(need) - 1, kShortestRing));
    made.ring_mask = made.ring_len - 1;
    *er = made;
    return true;
}

void sum_taps(const float* ring, uint32_t size, uint32_t block, const EarlyTaps& left,
              const EarlyTaps& right, uint32_t frames) {
    if (frames >= 64 && wide_vectors())
        ffdn_er_sum_avx512(ring, size, block, left, right, frames);
    else
        ffdn_er_sum_avx2(ring, size, block, left, right, frames);
}

} // namespace brisel

int32_t ffdn_er_init(ffdn_er* er, int32_t n_taps, int32_t max_frames, int32_t sample_rate,
                     uint64_t seed, float size) {
    if (!brisel::lay_out_taps(er, n_taps, max_frames, sample_rate, seed, size)) return -1;
    er->ring = brisel::allocate_floats(static_cast<uint64_t>(er->ring_len));
    return er->ring ? 0 : -1;
}

void ffdn_er_free(ffdn_er* er) {
    if (er) brisel::release(er->ring);
}

int32_t ffdn_er_process_stereo(ffdn_er* er, const float* in, float* out_l, float* out_r,
                               int32_t frames) {
    if (!er || !in || !out_l || !out_r || frames < 1 || frames > er->max_frames) return -1;
    // The ring is longer than the longest tap by a block at least, so the whole block can go in
    // first: it overwrites nothing that its own frames have still to read.
    const auto n = static_cast<uint32_t>(frames);
    const auto size = static_cast<uint32_t>(er->ring_len);
    const auto block = static_cast<uint32_t>(er->write_pos);
    brisel::copy_to_ring(er->ring, size, block, in, n);
    brisel::sum_taps(er->ring, size, block, {er->delays_l, er->gains_l, er->n_taps, out_l},
                     {er->delays_r, er->gains_r, er->n_taps, out_r}, n);
    er->write_pos = (er->write_pos + frames) & er->ring_mask;
    return 0;
}
