// The reverb object exactly as it is defined: process and flush for any qv_reverb, and an object of
// its own whose every setting builds a whole new network beside the old one through the engines' API.
#ifndef BRISEL_TESTS_PLAIN_REVERB_H
#define BRISEL_TESTS_PLAIN_REVERB_H

#include <brisel/reverb.h>

#include <bit>
#include <cstdlib>
#include <memory>
#include <vector>

#include "core/flush_to_zero.h"
#include "tests/plain.h"

namespace plain {

// Infinities and NaN become +0.
inline void clean(float* to, const float* from, int32_t frames) {
    for (int32_t t = 0; t < frames; ++t) {
        const uint32_t bits = std::bit_cast<uint32_t>(from[t]);
        to[t] = std::bit_cast<float>((bits & 0x7f800000u) == 0x7f800000u ? 0u : bits);
    }
}

inline void add_scaled(float* sum, const float* x, float gain, int32_t frames) {
    for (int32_t t = 0; t < frames; ++t) sum[t] = std::fma(x[t], gain, sum[t]);
}

// dry_gain * dry rounded, wet_gain * wet fused onto it.
inline void mix(float* out, float dry_gain, const float* dry, float wet_gain, const float* wet,
                int32_t frames) {
    for (int32_t t = 0; t < frames; ++t) out[t] = std::fma(wet_gain, wet[t], dry_gain * dry[t]);
}

// Early reflections of `mono` onto the wet signal, then the EQ.
inline void finish_wet(qv_reverb* rev, const float* mono, int32_t frames) {
    if (rev->er_active != 0) {
        er_process(&rev->er, mono, rev->buf_er_l, rev->buf_er_r, frames);
        add_scaled(rev->buf_wet_l, rev->buf_er_l, rev->params.er_level, frames);
        add_scaled(rev->buf_wet_r, rev->buf_er_r, rev->params.er_level, frames);
    }
    eq_process(&rev->eq, rev->buf_wet_l, rev->buf_wet_r, frames);
}

inline int32_t reverb_process(qv_reverb* rev, const float* in_l, const float* in_r, float* out_l,
                              float* out_r, int32_t frames) {
    if (rev->engine_ready == 0 || !in_l || !out_l) return -1;
    if (frames < 1 || frames > rev->max_frames || frames % 8 != 0) return -1;
    const float m = rev->params.mix, d = 1.0f - m;
    const brisel::FlushToZeroScope flush_to_zero;

    float* mono = rev->buf_er_in;
    clean(rev->buf_in_l, in_l, frames);
    if (in_r) {
        clean(rev->buf_in_r, in_r, frames);
        for (int32_t t = 0; t < frames; ++t) mono[t] = (rev->buf_in_l[t] + rev->buf_in_r[t]) * 0.5f;
    } else {
        std::copy_n(rev->buf_in_l, frames, mono);
    }

    float *wet_l = rev->buf_wet_l, *wet_r = rev->buf_wet_r;
    const int32_t status =
        in_r ? process_stereo_in(&rev->engine, rev->buf_in_l, rev->buf_in_r, wet_l, wet_r, frames)
             : process_stereo(&rev->engine, mono, wet_l, wet_r, frames);
    if (status != 0) return -1;
    finish_wet(rev, mono, frames);

    if (out_r) {
        mix(out_l, d, rev->buf_in_l, m, wet_l, frames);
        mix(out_r, d, in_r ? rev->buf_in_r : rev->buf_in_l, m, wet_r, frames);
    } else {
        const float half = m * 0.5f;
        for (int32_t t = 0; t < frames; ++t) {
            out_l[t] = std::fma(half, wet_l[t] + wet_r[t], d * mono[t]);
        }
    }
    return 0;
}

inline int32_t reverb_flush(qv_reverb* rev, float* out_l, float* out_r, int32_t capacity) {
    if (rev->engine_ready == 0 || !out_l || capacity < 1) return -1;
    const float m = rev->params.mix, half = m * 0.5f;
    const float *wet_l = rev->buf_wet_l, *wet_r = rev->buf_wet_r;
    const brisel::FlushToZeroScope flush_to_zero;

    for (int32_t pos = 0;;) {
        const int32_t frames = std::min(rev->max_frames, (capacity - pos) / 8 * 8);
        if (frames < 8) return pos;
        process_stereo(&rev->engine, rev->buf_aux, rev->buf_wet_l, rev->buf_wet_r, frames);
        finish_wet(rev, rev->buf_aux, frames);
        double energy = 0.0;
        for (int32_t t = 0; t < frames; ++t) {
            out_l[pos + t] = out_r ? m * wet_l[t] : (wet_l[t] + wet_r[t]) * half;
            if (out_r) out_r[pos + t] = m * wet_r[t];
            energy += double(wet_l[t]) * double(wet_l[t]) + double(wet_r[t]) * double(wet_r[t]);
        }
        pos += frames;
        if (pos >= rev->max_frames + rev->longest_delay && energy < frames * 1e-20) return pos;
    }
}

// The lines of a setting: delays in samples, and whether they hold a whole block.
inline bool line_delays(const qv_reverb& rev, float size, int32_t (&delays)[kLines]) {
    constexpr int32_t kPrimes[kLines] = {997,  1031, 1063, 1097, 1129, 1163, 1193, 1229,
                                         1259, 1291, 1321, 1361, 1399, 1429, 1453, 1489};
    const float scale = static_cast<float>(rev.sample_rate) * size / 997.0f;
    for (uint32_t i = 0; i < kLines; ++i) {
        delays[i] = std::max(static_cast<int32_t>(std::round(float(kPrimes[i]) * scale)), 1);
        if (delays[i] < rev.max_frames) return false;
    }
    return true;
}

inline bool in_range(const qv_reverb_params& p) {
    const auto within = [](float x, float low, float high) { return x >= low && x <= high; };
    const bool er = p.er_enable == 0 ? !std::isnan(p.er_size) && !std::isnan(p.er_level)
                                     : within(p.er_size, 0.001f, 0.5f) && p.er_level >= 0;
    return p.size > 0 && p.size <= 0.5f && p.t60 > 0 && p.cascade_stages >= 0 &&
           p.cascade_stages <= 3 && p.t60_high >= 0 && within(p.damp, 0, 1) &&
           within(p.mix, 0, 1) && within(p.width, 0, 1) && er && within(p.eq_low_db, -24, 24) &&
           within(p.eq_high_db, -24, 24);
}

// The network of a setting; `e` holds nothing yet and holds nothing after a failure.
inline bool build_network(ffdn_block_n16* e, const qv_reverb& rev, const qv_reverb_params& p,
                          const int32_t (&delays)[kLines]) {
    uint32_t ring_sizes[kLines];
    for (uint32_t i = 0; i < kLines; ++i) ring_sizes[i] = std::bit_ceil(uint32_t(delays[i]) + 1);
    const auto rate = static_cast<uint32_t>(rev.sample_rate);
    if (ffdn_block_n16_init(e, delays, ring_sizes, rev.max_frames, rate, p.t60) != 0) return false;

    const float t60_high = p.damp > 0 ? std::pow(0.1f, p.damp) * p.t60 : p.t60_high;
    const auto stages = static_cast<uint32_t>(p.cascade_stages);
    if ((stages > 0 && ffdn_block_n16_set_cascade(e, stages, nullptr, rate, p.t60) != 0) ||
        (t60_high > 0 &&
         ffdn_block_n16_set_two_band_t60(e, rev.sample_rate, p.t60, t60_high) != 0)) {
        ffdn_block_n16_free(e);
        return false;
    }
    float left[kLines], right[kLines];
    for (uint32_t i = 0; i < kLines; ++i) {
        const float base = (1.0f - p.width) * 0.25f;
        const float near = std::fma(p.width, 0.353553385f, base);
        left[i] = i % 2 == 0 ? near : base;
        right[i] = i % 2 == 0 ? base : near;
    }
    ffdn_block_n16_set_stereo_outputs(e, left, right, 0.0f, 0.0f);
    ffdn_block_n16_set_stereo_inputs(e, nullptr, nullptr);
    if (p.modulate != 0) {
        ffdn_block_n16_set_modulation(e, 2, rev.sample_rate, 0xC0DECAFE12345678, 0.3f, 1.2f);
    }
    return true;
}

// For objects of plain::Reverb only: the library's own objects keep their storage in their own way.
inline int32_t reverb_set(qv_reverb* rev, const qv_reverb_params* params) {
    const qv_reverb_params p = *params;
    int32_t delays[kLines];
    if (!in_range(p) || !line_delays(*rev, p.size, delays)) return -1;
    ffdn_block_n16 engine;
    if (!build_network(&engine, *rev, p, delays)) return -1;
    ffdn_er er{};
    if (p.er_enable != 0 && ffdn_er_init(&er, 12, rev->max_frames, rev->sample_rate,
                                         0xE2C0FFEE12345678, p.er_size) != 0) {
        ffdn_block_n16_free(&engine);
        return -1;
    }
    if (rev->engine_ready != 0) ffdn_block_n16_free(&rev->engine);
    if (rev->er_active != 0) ffdn_er_free(&rev->er);
    rev->engine = engine;
    rev->er = er;
    rev->engine_ready = 1;
    rev->er_active = p.er_enable != 0 ? 1 : 0;
    rev->params = p;
    rev->longest_delay = *std::max_element(delays, delays + kLines);
    ffdn_eq_set_gains(&rev->eq, p.eq_low_db, p.eq_high_db);
    return 0;
}

// A reverb built by the definition alone. The arguments must be ones that qv_reverb_create accepts.
class Reverb {
public:
    Reverb(int32_t sample_rate, int32_t max_frames)
        : scratch_(8 * static_cast<size_t>(max_frames)) {
        record_.sample_rate = sample_rate;
        record_.max_frames = max_frames;
        float** const buffers[] = {&record_.buf_wet_l, &record_.buf_wet_r, &record_.buf_er_in,
                                   &record_.buf_er_l,  &record_.buf_er_r,  &record_.buf_aux,
                                   &record_.buf_in_l,  &record_.buf_in_r};
        float* next = scratch_.data();
        for (float** buffer : buffers) {
            *buffer = next;
            next += max_frames;
        }
        ffdn_eq_init(&record_.eq, sample_rate, 250.0f, 4500.0f);
        record_.eq_ready = 1;
        const qv_reverb_params defaults{.size = 0.04f,
                                        .t60 = 2.0f,
                                        .cascade_stages = 2,
                                        .t60_high = 0.0f,
                                        .damp = 0.3f,
                                        .mix = 0.3f,
                                        .width = 0.8f,
                                        .modulate = 1,
                                        .er_enable = 0,
                                        .er_size = 0.06f,
                                        .er_level = 0.5f,
                                        .eq_low_db = 0.0f,
                                        .eq_high_db = 0.0f};
        reverb_set(&record_, &defaults);
    }
    ~Reverb() {
        ffdn_block_n16_free(&record_.engine);
        ffdn_er_free(&record_.er);
    }
    Reverb(const Reverb&) = delete;
    Reverb& operator=(const Reverb&) = delete;

    qv_reverb* get() { return &record_; }
    qv_reverb* operator->() { return &record_; }

private:
    std::vector<float> scratch_;
    qv_reverb record_{};
};

} // namespace plain

#endif
