// The block engine's configuration: storage, cascade, decay, modulation, gains. Processing is in
// ffdn_block_process.cpp.
#include "brisel/ffdn_block.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "brisel/fdn_delay_stage_ref.h"
#include "brisel/ffdn_defaults_n16.h"
#include "core/aligned_memory.h"
#include "core/avx2/units.h"
#include "core/ffdn_block.h"
#include "core/ffdn_defaults_n16.h"
#include "core/network_math.h"

// The delay kernels take the first four arrays as one, the two-band kernel the three shelf arrays,
// the stereo output kernel the pair of direct gains.
static_assert(offsetof(ffdn_block_n16, line_mask) == 16 * sizeof(uint32_t));
static_assert(offsetof(ffdn_block_n16, line_delay) == 32 * sizeof(uint32_t));
static_assert(offsetof(ffdn_block_n16, line_wpos) == 48 * sizeof(uint32_t));
static_assert(offsetof(ffdn_block_n16, shelf_a1) ==
              offsetof(ffdn_block_n16, shelf_b0) + 16 * sizeof(float));
static_assert(offsetof(ffdn_block_n16, shelf_state) ==
              offsetof(ffdn_block_n16, shelf_b0) + 32 * sizeof(float));
static_assert(offsetof(ffdn_block_n16, direct_right) ==
              offsetof(ffdn_block_n16, direct_left) + sizeof(float));

namespace {

constexpr uint32_t kShortestStageRing = 16;
constexpr int32_t kModulationMargin = 32; // samples between a line's delay and the depth

// Samples of every line's whole loop.
std::array<int32_t, BRISEL_LINES> loop_lengths(const ffdn_block_n16& e) {
    std::array<int32_t, BRISEL_LINES> samples;
    for (size_t line = 0; line < BRISEL_LINES; ++line) {
        uint32_t length = e.line_delay[line];
        for (int32_t s = 0; s < e.stage_count; ++s) length += e.stages[s].delays[line];
        samples[line] = static_cast<int32_t>(length);
    }
    return samples;
}

// No stages and no two-band decay.
void tear_down_cascade(ffdn_block_n16& e) {
    ffdn_block_n16_clear_cascade(&e);
    e.two_band = 0;
    std::fill_n(e.shelf_b0, BRISEL_LINES, 0.0f);
    std::fill_n(e.shelf_a1, BRISEL_LINES, 0.0f);
    std::fill_n(e.shelf_state, BRISEL_LINES, 0.0f);
}

bool stage_delays_usable(const uint32_t* delays, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i)
        if (delays[i] > BRISEL_MAX_STAGE_DELAY) return false;
    return true;
}

// Replaces the cascade by K silent stages of checked delays.
int32_t install_cascade(ffdn_block_n16& e, uint32_t K, const uint32_t* stage_delays,
                        double sample_rate, float t60) {
    tear_down_cascade(e);
    for (uint32_t s = 0; s < K; ++s) {
        ffdn_block_stage& stage = e.stages[s];
        brisel::lay_out_stage(stage, stage_delays + size_t{s} * BRISEL_LINES);
        stage.ring = brisel::allocate_floats(uint64_t{BRISEL_LINES} * stage.size);
        if (!stage.ring) {
            ffdn_block_n16_clear_cascade(&e);
            return -1;
        }
    }
    e.stage_count = static_cast<int32_t>(K);
    brisel::set_decay_gains(e, sample_rate, t60);
    return 0;
}

} // namespace

namespace brisel {

bool lay_out_lines(ffdn_block_n16& e, const uint32_t* delays, const uint32_t* buffer_sizes,
                   int32_t block_size) {
    e.ring_len = delay_lines_init(e.line_offset, buffer_sizes, delays);
    if (e.ring_len == 0) return false;
    e.block_size = block_size;
    std::fill_n(e.in_gain, BRISEL_LINES, 0.25f);
    std::fill_n(e.out_gain, BRISEL_LINES, 0.25f);
    return true;
}

void lay_out_stage(ffdn_block_stage& stage, const uint32_t* delays) {
    std::memcpy(stage.delays, delays, sizeof stage.delays);
    const uint32_t longest = *std::max_element(stage.delays, stage.delays + BRISEL_LINES);
    stage.size = ring_size_above(longest, kShortestStageRing);
    stage.mask = stage.size - 1;
}

void set_decay_gains(ffdn_block_n16& e, double sample_rate, float t60) {
    if (t60 > 0.0f)
        ffdn_decay_gains_avx2(e.decay_gain, sample_rate, t60, loop_lengths(e).data());
    else
        std::fill_n(e.decay_gain, BRISEL_LINES, 1.0f);
}

ModulationDraws draw_modulation(int32_t sample_rate, uint64_t seed, float rate_min,
                                float rate_max) {
    auto random = Xorshift64::seeded(seed);
    const auto uniform = [&random] {
        return static_cast<double>(random.next() & 0xFFFFFF) * 0x1p-24;
    };
    ModulationDraws draws;
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const double u_phase = uniform();
        const double u_rate = uniform();
        const double hz = std::fma(u_rate, static_cast<double>(rate_max) - rate_min, rate_min);
        draws.phase[line] = static_cast<float>(u_phase * kTwoPi);
        draws.inc[line] = static_cast<float>(hz * kTwoPi / sample_rate);
    }
    return draws;
}

bool start_modulation(ffdn_block_n16& e, int32_t depth, const ModulationDraws& draws) {
    for (uint32_t delay : e.line_delay)
        if (int64_t{delay} - depth < kModulationMargin) return false;
    std::memcpy(e.mod_base_delay, e.line_delay, sizeof e.mod_base_delay);
    std::memcpy(e.mod_phase, draws.phase, sizeof e.mod_phase);
    std::memcpy(e.mod_inc, draws.inc, sizeof e.mod_inc);
    e.mod_depth = depth;
    e.mod_enabled = 1;
    return true;
}

} // namespace brisel

int32_t ffdn_block_n16_init(ffdn_block_n16* e, const int32_t* delays, const uint32_t* buffer_sizes,
                            int32_t block_size, uint32_t sample_rate, float t60) {
    if (!e || !delays || !buffer_sizes || block_size <= 0) return -1;
    uint32_t lengths[BRISEL_LINES]; // copies: the sources may lie in the record
    uint32_t sizes[BRISEL_LINES];
    std::memcpy(lengths, delays, sizeof lengths);
    std::memcpy(sizes, buffer_sizes, sizeof sizes);
    *e = {};
    if (!brisel::lay_out_lines(*e, lengths, sizes, block_size)) return -1;

    const uint64_t block_floats = uint64_t{BRISEL_LINES} * static_cast<uint32_t>(block_size);
    e->ring = brisel::allocate_floats(e->ring_len);
    e->tap_block = brisel::allocate_floats(block_floats);
    e->work_block = brisel::allocate_floats(block_floats);
    if (!e->ring || !e->tap_block || !e->work_block) {
        ffdn_block_n16_free(e);
        // The arrays of the lines stay, as after a bad length.
        std::memset(&e->ring, 0, sizeof *e - offsetof(ffdn_block_n16, ring));
        return -1;
    }
    brisel::set_decay_gains(*e, sample_rate, t60);
    return 0;
}

void ffdn_block_n16_free(ffdn_block_n16* e) {
    if (!e) return;
    brisel::release(e->ring);
    brisel::release(e->tap_block);
    brisel::release(e->work_block);
    for (ffdn_block_stage& stage : e->stages) brisel::release(stage.ring);
}

int32_t ffdn_block_n16_set_cascade(ffdn_block_n16* e, uint32_t K, const uint32_t* stage_delays,
                                   uint32_t sample_rate, float t60) {
    if (!e || K > BRISEL_MAX_STAGES) return -1;
    // A copy in any case: the source may lie in the record.
    uint32_t delays[BRISEL_MAX_STAGES * BRISEL_LINES];
    if (stage_delays) {
        std::memcpy(delays, stage_delays, size_t{K} * BRISEL_LINES * sizeof *delays);
    } else {
        ffdn_n16_default_cascade_params(static_cast<int32_t>(K),
                                        reinterpret_cast<int32_t*>(delays));
    }
    if (!stage_delays_usable(delays, K * BRISEL_LINES)) return -1;
    return install_cascade(*e, K, delays, sample_rate, t60);
}

int32_t ffdn_block_n16_set_vfm(ffdn_block_n16* e, uint32_t K, uint64_t vfm_seed,
                               uint32_t sample_rate, float vfm_density, float t60) {
    if (!e || K > BRISEL_MAX_STAGES || vfm_density <= 0.0f || vfm_density > 1.0f) return -1;
    ffdn_n16_vfm_params params;
    ffdn_n16_default_vfm_params(static_cast<int32_t>(K), vfm_seed, params.stage_delays[0],
                                vfm_density);
    return ffdn_block_n16_set_cascade(e, K, reinterpret_cast<uint32_t*>(params.stage_delays[0]),
                                      sample_rate, t60);
}

int32_t ffdn_block_n16_set_post_delays(ffdn_block_n16* e, const uint32_t* post_delays,
                                       int32_t sample_rate, float t60) {
    if (!e) return -1;
    uint32_t delays[BRISEL_LINES] = {};
    if (post_delays) std::memcpy(delays, post_delays, sizeof delays);
    if (!stage_delays_usable(delays, BRISEL_LINES)) return -1;
    uint32_t any = 0;
    for (uint32_t delay : delays) any |= delay;
    return install_cascade(*e, any != 0 ? 1 : 0, delays, sample_rate, t60);
}

void ffdn_block_n16_clear_cascade(ffdn_block_n16* e) {
    for (ffdn_block_stage& stage : e->stages) {
        std::free(stage.ring);
        stage = {};
    }
    e->stage_count = 0;
}

int32_t ffdn_block_n16_set_two_band_t60(ffdn_block_n16* e, int32_t sample_rate, float t60_low,
                                        float t60_high) {
    if (!e || !(t60_low > 0.0f) || !(t60_high > 0.0f) || sample_rate < 1) return -1;
    brisel::ffdn_decay_two_band_avx2(e->shelf_b0, e->shelf_a1, sample_rate, t60_low, t60_high,
                                     loop_lengths(*e).data());
    std::memset(e->shelf_state, 0, sizeof e->shelf_state);
    e->two_band = 1;
    return 0;
}

int32_t ffdn_block_n16_set_modulation(ffdn_block_n16* e, int32_t depth, int32_t sample_rate,
                                      uint64_t seed, float rate_min, float rate_max) {
    if (!e || !(rate_min > 0.0f) || !(rate_min <= rate_max) || depth < 1 || sample_rate < 1)
        return -1;
    const auto draws = brisel::draw_modulation(sample_rate, seed, rate_min, rate_max);
    return brisel::start_modulation(*e, depth, draws) ? 0 : -1;
}

int32_t ffdn_block_n16_set_stereo_outputs(ffdn_block_n16* e, const float* left, const float* right,
                                          float direct_left, float direct_right) {
    if (!e) return -1;
    brisel::set_stereo_gains(e->out_left, e->out_right, left, right,
                             ffdn_n16_default_stereo_outputs);
    e->direct_left = direct_left;
    e->direct_right = direct_right;
    e->stereo_out_set = 1;
    return 0;
}

int32_t ffdn_block_n16_set_stereo_inputs(ffdn_block_n16* e, const float* left, const float* right) {
    if (!e) return -1;
    brisel::set_stereo_gains(e->in_left, e->in_right, left, right, ffdn_n16_default_stereo_inputs);
    e->stereo_in_set = 1;
    return 0;
}
