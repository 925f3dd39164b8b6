// A reverb whose every setting builds a whole new network beside the old one through the engines'
// API: what a change of settings is timed against. It runs in the plain loops.
#ifndef BRISEL_BENCH_PLAIN_REVERB_H
#define BRISEL_BENCH_PLAIN_REVERB_H

#include <brisel/reverb.h>

#include <bit>
#include <vector>

#include "tests/plain.h"

namespace plain {

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
    if (!line_delays(*rev, p.size, delays)) return -1;
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
