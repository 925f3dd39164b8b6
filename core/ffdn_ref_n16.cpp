// The reference engine: the filter feedback delay network, one sample at a time.
//
// Notation of the paper beside the code (Schlecht & Habets 2020), per sample:
//
//   s   the outputs of the 16 delay lines                            read_lines
//   y   = c^T s + d x, the output                                    mono_output, stereo_output
//   A   = D_K H ... D_2 H D_1 H, the filter feedback matrix:         feedback_matrix
//       scattering by the Walsh-Hadamard matrix H between stages
//       D_k of short delays; paraunitary, because H is orthogonal
//       and delays lose nothing
//   g   the decay of each line's whole loop: a gain or a one-pole    set_decay_gains, shelf_step
//       filter
//   v   = g (A s) + b x, the new inputs of the lines                 feed_back_mono, _stereo
//
// Whether a product is rounded by itself or fused with a sum (std::fma) is part of the definition:
// the block engine's stereo paths repeat it to the bit.
#include "brisel/ffdn_ref_n16.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "brisel/ffdn_defaults_n16.h"
#include "brisel/fwht_ref.h"
#include "core/aligned_memory.h"
#include "core/ffdn_defaults_n16.h"
#include "core/network_math.h"

namespace {

// ---- Set-up -------------------------------------------------------------------------------------

float* allocate_silence(size_t samples) {
    return static_cast<float*>(std::calloc(samples, sizeof(float)));
}

// Samples on a line's way once around the loop: its main delay and its delay in every stage.
int32_t loop_length(const ffdn_n16& f, int line) {
    int32_t samples = f.line_delay[line];
    for (int k = 0; k < f.stage_count; ++k) samples += f.stages[k].stage_delay[line];
    return samples;
}

void set_decay_gains(ffdn_n16& f, int32_t sample_rate, float t60) {
    const double base = t60 > 0.0f ? brisel::decay_base(sample_rate, t60) : 1.0;
    for (int line = 0; line < BRISEL_LINES; ++line) {
        f.decay_gain[line] = static_cast<float>(std::pow(base, loop_length(f, line)));
    }
}

void switch_two_band_off(ffdn_n16& f) {
    std::fill_n(f.shelf_b0, BRISEL_LINES, 0.0f);
    std::fill_n(f.shelf_a1, BRISEL_LINES, 0.0f);
    std::fill_n(f.shelf_state, BRISEL_LINES, 0.0f);
    f.two_band = 0;
}

bool is_stage_delay(int32_t samples) {
    return samples >= 0 && samples <= BRISEL_MAX_STAGE_DELAY;
}

bool install_stage(ffdn_n16_stage& stage, const int32_t* delays) {
    std::copy_n(delays, BRISEL_LINES, stage.stage_delay);
    const int32_t longest = *std::max_element(delays, delays + BRISEL_LINES);
    const uint32_t size = brisel::ring_size_above(static_cast<uint32_t>(longest), 16);
    stage.size = static_cast<int32_t>(size);
    stage.mask = stage.size - 1;
    stage.wpos = 0;
    stage.ring = allocate_silence(size_t{BRISEL_LINES} * size);
    return stage.ring != nullptr;
}

// ---- One sample ---------------------------------------------------------------------------------

void read_lines(const ffdn_n16& f, float* s) {
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const int32_t rpos = (f.line_wpos[line] - f.line_delay[line]) & f.line_mask[line];
        s[line] = f.line_buf[line][rpos];
    }
}

void write_line(ffdn_n16& f, int line, float v) {
    f.line_buf[line][f.line_wpos[line]] = v;
    f.line_wpos[line] = (f.line_wpos[line] + 1) & f.line_mask[line];
}

float mono_output(const ffdn_n16& f, const float* s, float x) {
    float y = std::fma(x, f.direct_gain, f.out_gain[0] * s[0]);
    for (int line = 1; line < BRISEL_LINES; ++line) y += f.out_gain[line] * s[line];
    return y;
}

float stereo_output(const float* gains, float direct, const float* s, float x) {
    float y = x * direct;
    for (int line = 0; line < BRISEL_LINES; ++line) y = std::fma(s[line], gains[line], y);
    return y;
}

// D_k: each line takes its delayed sample out of its ring before the new one goes in. A line
// without delay passes and leaves its ring alone.
void delay_stage(ffdn_n16_stage& stage, float* s) {
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const int32_t delay = stage.stage_delay[line];
        if (delay == 0) continue;
        float* const ring =
            stage.ring + static_cast<size_t>(line) * static_cast<size_t>(stage.size);
        const float delayed = ring[(stage.wpos - delay) & stage.mask];
        ring[stage.wpos] = s[line];
        s[line] = delayed;
    }
    stage.wpos = (stage.wpos + 1) & stage.mask;
}

// s becomes A s. K stages take K transforms: there is none behind the last stage, and a network
// without stages keeps one.
void feedback_matrix(ffdn_n16& f, float* s) {
    fwht_ref_n16(s);
    for (int k = 0; k < f.stage_count; ++k) {
        if (k > 0) fwht_ref_n16(s);
        delay_stage(f.stages[k], s);
    }
}

// The two-band decay: b0 / (1 - a1 z^-1).
float shelf_step(ffdn_n16& f, int line, float fed_back) {
    float& y = f.shelf_state[line];
    y = std::fma(y, f.shelf_a1[line], f.shelf_b0[line] * fed_back);
    return y;
}

// The feedback path from the line outputs s to the line inputs, for one input x. The filter sees
// only what is fed back: an input sample meets the decay on its first way around the loop.
void feed_back_mono(ffdn_n16& f, float* s, float x) {
    feedback_matrix(f, s);
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const float in = f.in_gain[line];
        const float v = f.two_band ? std::fma(x, in, shelf_step(f, line, s[line]))
                                   : std::fma(f.decay_gain[line], s[line], x * in);
        write_line(f, line, v);
    }
}

void feed_back_stereo(ffdn_n16& f, float* s, float x_l, float x_r) {
    feedback_matrix(f, s);
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const float decayed =
            f.two_band ? shelf_step(f, line, s[line]) : f.decay_gain[line] * s[line];
        const float with_left = std::fma(x_l, f.in_left[line], decayed);
        write_line(f, line, std::fma(x_r, f.in_right[line], with_left));
    }
}

// The squares of the `count` samples last written into a ring, newest first.
double recent_energy(const float* ring, int32_t mask, int32_t wpos, int32_t count, double energy) {
    for (int32_t age = 1; age <= count; ++age) {
        const double sample = ring[(wpos - age) & mask];
        energy += sample * sample;
    }
    return energy;
}

} // namespace

// ---- Life ---------------------------------------------------------------------------------------

int32_t ffdn_n16_init(ffdn_n16* f, const int32_t* delays, const int32_t* buffer_sizes,
                      int32_t sample_rate, float t60) {
    if (!f || !delays || !buffer_sizes) return -1;
    *f = {};
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const int32_t size = buffer_sizes[line];
        const int32_t delay = delays[line];
        if (size < 1 || !brisel::is_power_of_two(static_cast<uint32_t>(size))) return -1;
        if (delay < 1 || delay >= size) return -1;
        f->line_delay[line] = delay;
        f->line_size[line] = size;
        f->line_mask[line] = size - 1;
        f->line_buf[line] = allocate_silence(static_cast<size_t>(size));
        if (!f->line_buf[line]) {
            ffdn_n16_free(f);
            return -1;
        }
        f->in_gain[line] = 0.25f; // 1/sqrt(16): the lines together have unit power
        f->out_gain[line] = 0.25f;
    }
    set_decay_gains(*f, sample_rate, t60);
    return 0;
}

void ffdn_n16_free(ffdn_n16* f) {
    if (!f) return;
    for (float*& ring : f->line_buf) brisel::release(ring);
    for (ffdn_n16_stage& stage : f->stages) brisel::release(stage.ring);
}

// ---- Cascade ------------------------------------------------------------------------------------

int32_t ffdn_n16_set_cascade(ffdn_n16* f, int32_t K, const int32_t* stage_delays,
                             int32_t sample_rate, float t60) {
    if (!f || K < 0 || K > BRISEL_MAX_STAGES) return -1;
    int32_t delays[BRISEL_MAX_STAGES * BRISEL_LINES]; // a copy: the argument may be this engine's
    const int32_t count = K * BRISEL_LINES;
    if (stage_delays) {
        std::copy_n(stage_delays, count, delays);
    } else {
        ffdn_n16_default_cascade_params(K, delays);
    }
    if (!std::all_of(delays, delays + count, is_stage_delay)) return -1;

    ffdn_n16_clear_cascade(f);
    switch_two_band_off(*f);
    const int32_t* next = delays;
    for (int32_t k = 0; k < K; ++k, next += BRISEL_LINES) {
        if (!install_stage(f->stages[k], next)) {
            ffdn_n16_clear_cascade(f);
            return -1;
        }
    }
    f->stage_count = K;
    set_decay_gains(*f, sample_rate, t60);
    return 0;
}

int32_t ffdn_n16_set_vfm(ffdn_n16* f, uint32_t K, uint64_t vfm_seed, int32_t sample_rate,
                         float vfm_density, float t60) {
    if (!f || K > BRISEL_MAX_STAGES) return -1;
    if (vfm_density <= 0.0f || vfm_density > 1.0f) return -1;
    ffdn_n16_vfm_params velvet;
    ffdn_n16_default_vfm_params(static_cast<int32_t>(K), vfm_seed, velvet.stage_delays[0],
                                vfm_density);
    return ffdn_n16_set_cascade(f, static_cast<int32_t>(K), velvet.stage_delays[0], sample_rate,
                                t60);
}

int32_t ffdn_n16_set_post_delays(ffdn_n16* f, const int32_t* post_delays, int32_t sample_rate,
                                 float t60) {
    const bool no_delay = !post_delays || std::all_of(post_delays, post_delays + BRISEL_LINES,
                                                      [](int32_t samples) { return samples == 0; });
    return ffdn_n16_set_cascade(f, no_delay ? 0 : 1, post_delays, sample_rate, t60);
}

void ffdn_n16_clear_cascade(ffdn_n16* f) {
    for (ffdn_n16_stage& stage : f->stages) {
        brisel::release(stage.ring);
        stage = {};
    }
    f->stage_count = 0;
}

// ---- Decay and gains ----------------------------------------------------------------------------

int32_t ffdn_n16_set_two_band_t60(ffdn_n16* f, int32_t sample_rate, float t60_low, float t60_high) {
    if (!f || !(t60_low > 0.0f) || !(t60_high > 0.0f) || sample_rate < 1) return -1;
    const double base_low = brisel::decay_base(sample_rate, t60_low);
    const double base_high = brisel::decay_base(sample_rate, t60_high);
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const int32_t samples = loop_length(*f, line);
        const brisel::ShelfGains shelf =
            brisel::two_band_shelf(std::pow(base_low, samples), std::pow(base_high, samples));
        f->shelf_b0[line] = shelf.b0;
        f->shelf_a1[line] = shelf.a1;
        f->shelf_state[line] = 0.0f;
    }
    f->two_band = 1;
    return 0;
}

int32_t ffdn_n16_set_stereo_outputs(ffdn_n16* f, const float* left, const float* right,
                                    float direct_left, float direct_right) {
    if (!f) return -1;
    brisel::set_stereo_gains(f->out_left, f->out_right, left, right,
                             ffdn_n16_default_stereo_outputs);
    f->direct_left = direct_left;
    f->direct_right = direct_right;
    f->stereo_out_set = 1;
    return 0;
}

int32_t ffdn_n16_set_stereo_inputs(ffdn_n16* f, const float* left, const float* right) {
    if (!f) return -1;
    brisel::set_stereo_gains(f->in_left, f->in_right, left, right, ffdn_n16_default_stereo_inputs);
    f->stereo_in_set = 1;
    return 0;
}

// ---- Processing ---------------------------------------------------------------------------------

float ffdn_n16_process(ffdn_n16* f, float x) {
    float s[BRISEL_LINES];
    read_lines(*f, s);
    const float y = mono_output(*f, s, x);
    feed_back_mono(*f, s, x);
    return y;
}

void ffdn_n16_process_stereo(ffdn_n16* f, float* out_l, float* out_r, float x) {
    float s[BRISEL_LINES];
    read_lines(*f, s);
    const float y_l = stereo_output(f->out_left, f->direct_left, s, x);
    const float y_r = stereo_output(f->out_right, f->direct_right, s, x);
    feed_back_mono(*f, s, x);
    *out_l = y_l;
    *out_r = y_r;
}

void ffdn_n16_process_stereo_in(ffdn_n16* f, float* out_l, float* out_r, float x_l, float x_r) {
    float s[BRISEL_LINES];
    read_lines(*f, s);
    const float y_l = stereo_output(f->out_left, f->direct_left, s, x_l);
    const float y_r = stereo_output(f->out_right, f->direct_right, s, x_r);
    feed_back_stereo(*f, s, x_l, x_r);
    *out_l = y_l;
    *out_r = y_r;
}

double ffdn_n16_state_energy(const ffdn_n16* f) {
    double energy = 0.0;
    for (int line = 0; line < BRISEL_LINES; ++line) {
        energy = recent_energy(f->line_buf[line], f->line_mask[line], f->line_wpos[line],
                               f->line_delay[line], energy);
    }
    for (int k = 0; k < f->stage_count; ++k) {
        const ffdn_n16_stage& stage = f->stages[k];
        for (int line = 0; line < BRISEL_LINES; ++line) {
            const float* const ring =
                stage.ring + static_cast<size_t>(line) * static_cast<size_t>(stage.size);
            energy = recent_energy(ring, stage.mask, stage.wpos, stage.stage_delay[line], energy);
        }
    }
    return energy;
}
