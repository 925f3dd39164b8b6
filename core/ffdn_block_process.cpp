// The block engine's processing: modulation, the feedback loop over one block, stored energy. The
// loop itself is in core/avx2/loop/.
#include <algorithm>
#include <cmath>

#include "brisel/ffdn_block.h"
#include "core/avx2/loop/feedback_loop.h"
#include "core/avx2/runs.h"
#include "core/avx2/units.h"
#include "core/avx512/units.h"
#include "core/ffdn_block.h"
#include "core/network_math.h"

namespace {

using brisel::BlockSignals;
using brisel::PreparedLines;

// Whether every line holds n frames: modulation may stretch a delay beyond its ring, and a block
// has to fit into both.
bool lines_hold(const ffdn_block_n16& e, uint32_t n) {
    uint32_t too_short = 0;
    for (int line = 0; line < BRISEL_LINES; ++line)
        too_short |= (e.line_delay[line] < n) | (e.line_mask[line] < n - 1);
    return too_short == 0;
}

// The lines whose delay is longer than their ring, a bit each.
uint32_t lines_beyond_ring(const ffdn_block_n16& e) {
    uint32_t beyond = 0;
    for (uint32_t line = 0; line < BRISEL_LINES; ++line)
        beyond |= uint32_t{e.line_delay[line] > e.line_mask[line] + 1} << line;
    return beyond;
}

// The masked read of such a line starts with the newest samples: it is read whole, into tap_block,
// before anything is written.
void prepare_lines(const ffdn_block_n16& e, uint32_t n, uint32_t lines) {
    for (; lines != 0; lines &= lines - 1) {
        const auto line = static_cast<uint32_t>(__builtin_ctz(lines));
        const uint32_t start = (e.line_wpos[line] - e.line_delay[line]) & e.line_mask[line];
        brisel::copy_from_ring(e.tap_block + size_t{line} * n, e.ring + e.line_offset[line],
                               e.line_mask[line] + 1, start, n);
    }
}

int32_t process(ffdn_block_n16& e, const BlockSignals& io, int32_t frames) {
    if (frames < 1 || frames > e.block_size || frames % 8 != 0) return -1;
    if (e.mod_enabled && ffdn_block_n16_apply_modulation(&e, frames) != 0) return -1;
    const auto n = static_cast<uint32_t>(frames);
    if (!lines_hold(e, n)) return -1;
    const uint32_t prepared = lines_beyond_ring(e);
    prepare_lines(e, n, prepared);
    brisel::run_block(e, io, n, prepared);
    return 0;
}

// The definition of the modulation step.
int32_t modulate_line_by_line(ffdn_block_n16& e, int32_t n) {
    constexpr float kPeriod = brisel::kPhasePeriod;
    const auto frames = static_cast<float>(n);
    const auto depth = static_cast<float>(e.mod_depth);
    for (int line = 0; line < BRISEL_LINES; ++line) {
        float p = std::fma(frames, e.mod_inc[line], e.mod_phase[line]);
        if (p >= kPeriod || p < 0.0f) {
            p = std::fmod(p, kPeriod);
            if (p < 0.0f) p += kPeriod;
        }
        e.mod_phase[line] = p;
        const int64_t delay = int64_t{e.mod_base_delay[line]} + std::lround(std::sin(p) * depth);
        if (n > delay) return -1;
        e.line_delay[line] = static_cast<uint32_t>(delay);
    }
    return 0;
}

// Whether all stages reach the start of a tile of 16 frames at the same time.
bool stages_in_step(const ffdn_block_n16& e) {
    for (int32_t s = 1; s < e.stage_count; ++s)
        if ((e.stages[s].wpos - e.stages[0].wpos) % 16 != 0) return false;
    return true;
}

// The frames of the block from t on.
BlockSignals from_frame(const BlockSignals& io, uint32_t t) {
    return {io.x_left + t, io.x_right ? io.x_right + t : nullptr, io.y_left + t, io.y_right + t,
            io.shelf_rows ? io.shelf_rows + brisel::kShelfStep * t : nullptr};
}

// Tiles of 16 frames; half a tile at the start and at the end where the block's limits ask for it.
void run_in_wide_tiles(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                       const PreparedLines& prepared) {
    const uint32_t head = std::min(e.stages[0].wpos % 16, n);
    const uint32_t whole = (n - head) & ~15u;
    const uint32_t ends[] = {head, head + whole, n};
    uint32_t t = 0;
    for (const uint32_t end : ends) {
        const uint32_t count = end - t;
        if (count == 0) continue;
        const PreparedLines lines{prepared.lines, prepared.rows + t, prepared.stride};
        if (count % 16 == 0)
            brisel::run_wide_loop(e, from_frame(io, t), count, lines);
        else
            brisel::run_fused_loop(e, from_frame(io, t), count, lines);
        t = end;
    }
}

// Adds the squares of the `delay` newest samples before `wpos` to `energy`, one by one: the sum
// runs in one fixed order through all rings.
void add_energy(double& energy, const float* ring, uint32_t wpos, uint32_t mask, uint32_t delay) {
    for (uint32_t k = 1; k <= delay; ++k) {
        const double v = ring[(wpos - k) & mask];
        energy += v * v;
    }
}

} // namespace

namespace brisel {

void run_block(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    const PreparedLines lines{prepared, e.tap_block, n};
    if (!fused_loop_applies(e, io))
        run_generic_loop(e, io, n, lines);
    else if (!wide_vectors() || !stages_in_step(e))
        run_fused_loop(e, io, n, lines);
    else
        run_in_wide_tiles(e, io, n, lines);
}

} // namespace brisel

int32_t ffdn_block_n16_apply_modulation(ffdn_block_n16* e, int32_t n) {
    return brisel::ffdn_modulation_step_avx2(*e, n) ? 0 : modulate_line_by_line(*e, n);
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
    for (int line = 0; line < BRISEL_LINES; ++line)
        add_energy(energy, e->ring + e->line_offset[line], e->line_wpos[line], e->line_mask[line],
                   e->line_delay[line]);
    for (int32_t s = 0; s < e->stage_count; ++s) {
        const ffdn_block_stage& stage = e->stages[s];
        if (!stage.ring) continue;
        for (size_t line = 0; line < BRISEL_LINES; ++line)
            add_energy(energy, stage.ring + line * stage.size, stage.wpos, stage.mask,
                       stage.delays[line]);
    }
    return energy;
}
