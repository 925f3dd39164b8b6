// The block engine's processing: modulation, the feedback loop over one block, stored energy.
#include <immintrin.h>

#include <algorithm>
#include <cmath>

#include "brisel/ffdn_block.h"
#include "core/avx2/ffdn_fused_n16_avx2.h"
#include "core/avx2/ffdn_generic_n16_avx2.h"
#include "core/avx2/ffdn_modulation_n16_avx2.h"
#include "core/avx2/main_lines.h"
#include "core/avx2/runs.h"

namespace {

using brisel::BlockSignals;
using brisel::broadcast;
using brisel::lanes;
using brisel::load_lines;

// What the lines' current delays mean for a block of n frames.
struct DelayCheck {
    bool too_short;    // a line does not hold the block
    uint32_t overlong; // lines whose delay is longer than their ring, a bit each
};

DelayCheck check_delays(const ffdn_block_n16& e, uint32_t n) {
    // Delays and masks are below 2^31: signed comparisons will do.
    const __m256i frames = broadcast(n);
    const __m256i last_frame = broadcast(n - 1);
    __m256i too_short = _mm256_setzero_si256();
    uint32_t overlong = 0;
    for (uint32_t line = 0; line < BRISEL_LINES; line += 8) {
        const __m256i delay = load_lines(e.line_delay + line);
        const __m256i mask = load_lines(e.line_mask + line);
        const __m256i size = _mm256_add_epi32(mask, broadcast(1));
        too_short = _mm256_or_si256(too_short, _mm256_cmpgt_epi32(frames, delay));
        // Modulation may stretch a delay beyond its ring; a block has to fit into both.
        too_short = _mm256_or_si256(too_short, _mm256_cmpgt_epi32(last_frame, mask));
        overlong |= lanes(_mm256_cmpgt_epi32(delay, size)) << line;
    }
    return {!_mm256_testz_si256(too_short, too_short), overlong};
}

// The masked read of such a line starts with the newest samples: it is read whole, into tap_block,
// before anything is written.
void read_overlong_lines(const ffdn_block_n16& e, uint32_t n, uint32_t overlong) {
    for (; overlong != 0; overlong &= overlong - 1) {
        const auto line = static_cast<uint32_t>(__builtin_ctz(overlong));
        const uint32_t start = (e.line_wpos[line] - e.line_delay[line]) & e.line_mask[line];
        brisel::copy_from_ring(e.tap_block + size_t{line} * n, e.ring + e.line_offset[line],
                               e.line_mask[line] + 1, start, n);
    }
}

int32_t process(ffdn_block_n16& e, const BlockSignals& io, int32_t frames) {
    if (frames < 1 || frames > e.block_size || frames % 8 != 0) return -1;
    if (e.mod_enabled && ffdn_block_n16_apply_modulation(&e, frames) != 0) return -1;
    const auto n = static_cast<uint32_t>(frames);
    const DelayCheck delays = check_delays(e, n);
    if (delays.too_short) return -1;
    read_overlong_lines(e, n, delays.overlong);
    brisel::run_block(e, io, n, delays.overlong);
    return 0;
}

// The definition of the modulation step.
int32_t modulate_line_by_line(ffdn_block_n16& e, int32_t n) {
    constexpr float kTwoPi = 6.2831855f;
    const auto frames = static_cast<float>(n);
    const auto depth = static_cast<float>(e.mod_depth);
    for (int i = 0; i < BRISEL_LINES; ++i) {
        float p = std::fma(frames, e.mod_inc[i], e.mod_phase[i]);
        if (p >= kTwoPi || p < 0.0f) {
            p = std::fmod(p, kTwoPi);
            if (p < 0.0f) p += kTwoPi;
        }
        e.mod_phase[i] = p;
        const int64_t delay = int64_t{e.mod_base_delay[i]} + std::lround(std::sin(p) * depth);
        if (n > delay) return -1;
        e.line_delay[i] = static_cast<uint32_t>(delay);
    }
    return 0;
}

// Adds the squares of the `delay` newest samples before `wpos` to `energy`, one by one: the sum runs
// in one fixed order through all rings.
void add_energy(double& energy, const float* ring, uint32_t wpos, uint32_t mask, uint32_t delay) {
    for (uint32_t k = 1; k <= delay; ++k) {
        const double v = ring[(wpos - k) & mask];
        energy += v * v;
    }
}

} // namespace

namespace brisel {

void run_block(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    if (fused_loop_applies(e, io))
        run_fused_loop(e, io, n, prepared);
    else
        run_generic_loop(e, io, n, prepared);
}

} // namespace brisel

int32_t ffdn_block_n16_apply_modulation(ffdn_block_n16* e, int32_t n) {
    return brisel::modulate_lines(*e, n) ? 0 : modulate_line_by_line(*e, n);
}

int32_t ffdn_block_n16_process(ffdn_block_n16* e, const float* x, float* y, int32_t n) {
    if (!e) return -1;
    return process(*e, {x, nullptr, y, nullptr}, n);
}

int32_t ffdn_block_n16_process_stereo(ffdn_block_n16* e, const float* x, float* y_left,
                                      float* y_right, int32_t n) {
    if (!e || !e->stereo_out_set) return -1;
    return process(*e, {x, nullptr, y_left, y_right}, n);
}

int32_t ffdn_block_n16_process_stereo_in(ffdn_block_n16* e, const float* x_left,
                                         const float* x_right, float* y_left, float* y_right,
                                         int32_t n) {
    if (!e || !e->stereo_out_set || !e->stereo_in_set) return -1;
    return process(*e, {x_left, x_right, y_left, y_right}, n);
}

double ffdn_block_n16_state_energy(const ffdn_block_n16* e) {
    double energy = 0.0;
    for (int i = 0; i < BRISEL_LINES; ++i)
        add_energy(energy, e->ring + e->line_offset[i], e->line_wpos[i], e->line_mask[i],
                   e->line_delay[i]);
    for (int32_t s = 0; s < e->stage_count; ++s) {
        const ffdn_block_stage& stage = e->stages[s];
        if (!stage.ring) continue;
        for (size_t i = 0; i < BRISEL_LINES; ++i)
            add_energy(energy, stage.ring + i * stage.size, stage.wpos, stage.mask,
                       stage.delays[i]);
    }
    return energy;
}
