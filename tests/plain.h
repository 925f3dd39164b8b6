// The kernels and the process operations exactly as they are defined, in plain C++: one pass over
// the whole block per kernel. They work on the library's own records through the public fields, so
// that a test configures two objects alike, runs one with the library and the other with plain::,
// and compares outputs and state bit for bit. The benchmarks time the same loops.
//
// Plain, but not slow: what has no memory runs on tiles of eight frames, a shape that every
// compiler turns into vector code; what recurses in time runs line by line and sample by sample.
#ifndef BRISEL_TESTS_PLAIN_H
#define BRISEL_TESTS_PLAIN_H

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "brisel/reverb.h"

namespace plain {

inline constexpr uint32_t kLines = BRISEL_LINES;
inline constexpr uint32_t kTile = 8;

// Eight successive frames of one line; + and - act frame by frame, and so does * with a gain.
typedef float Tile __attribute__((vector_size(kTile * sizeof(float))));

inline Tile load(const float* from) {
    Tile tile;
    std::memcpy(&tile, from, sizeof tile);
    return tile;
}

inline void store(float* to, Tile tile) {
    std::memcpy(to, &tile, sizeof tile);
}

inline Tile fma(float gain, Tile a, Tile sum) {
    return _mm256_fmadd_ps(_mm256_set1_ps(gain), a, sum);
}

// One pass over the 16 lines: first + second and first - second for all pairs `span` apart.
template <uint32_t span>
void butterflies(Tile (&x)[kLines]) {
    for (uint32_t block = 0; block < kLines; block += 2 * span) {
        for (uint32_t i = block; i < block + span; ++i) {
            const Tile first = x[i], second = x[i + span];
            x[i] = first + second;
            x[i + span] = first - second;
        }
    }
}

inline void fwht_n16_block(float* block, uint32_t n) {
    for (uint32_t t = 0; t + kTile <= n; t += kTile) {
        Tile x[kLines];
        for (uint32_t i = 0; i < kLines; ++i) x[i] = load(block + i * n + t);
        butterflies<8>(x);
        butterflies<4>(x);
        butterflies<2>(x);
        butterflies<1>(x);
        for (uint32_t i = 0; i < kLines; ++i) store(block + i * n + t, 0.25f * x[i]);
    }
}

// `lines`: line_offset, line_mask, line_delay, line_wpos, 16 entries each.
inline void fdn_delay_block_read_n16(const float* ring, const uint32_t* lines, float* block,
                                     uint32_t n) {
    for (uint32_t i = 0; i < kLines; ++i) {
        const float* base = ring + lines[i];
        const uint32_t mask = lines[16 + i], start = (lines[48 + i] - lines[32 + i]) & mask;
        const uint32_t first = std::min(mask + 1 - start, n);
        std::copy_n(base + start, first, block + i * n);
        std::copy_n(base, n - first, block + i * n + first);
    }
}

inline void fdn_delay_block_write_n16(float* ring, uint32_t* lines, const float* block,
                                      uint32_t n) {
    for (uint32_t i = 0; i < kLines; ++i) {
        float* base = ring + lines[i];
        const uint32_t mask = lines[16 + i], start = lines[48 + i];
        const uint32_t first = std::min(mask + 1 - start, n);
        std::copy_n(block + i * n, first, base + start);
        std::copy_n(block + i * n + first, n - first, base);
        lines[48 + i] = (start + n) & mask;
    }
}

inline void ffdn_mix_in_n16(float* dst, const float* src, const float* gain, const float* in_gain,
                            const float* x, uint32_t n) {
    for (uint32_t i = 0; i < kLines; ++i) {
        const float g = gain[i], b = in_gain[i];
        for (uint32_t t = 0; t + kTile <= n; t += kTile) {
            const Tile feedback = g * load(src + i * n + t);
            store(dst + i * n + t, fma(b, load(x + t), feedback));
        }
    }
}

inline void ffdn_mix_in_jot_n16(float* dst, const float* src, float* shelf, const float* in_gain,
                                const float* x, uint32_t n) {
    for (uint32_t i = 0; i < kLines; ++i) {
        const float b0 = shelf[i], a1 = shelf[16 + i], b = in_gain[i];
        float s = shelf[32 + i];
        for (uint32_t t = 0; t < n; ++t) {
            s = std::fma(a1, s, b0 * src[i * n + t]);
            dst[i * n + t] = std::fma(b, x[t], s);
        }
        shelf[32 + i] = s;
    }
}

inline void ffdn_mix_out_n16(float* y, const float* src, const float* out_gain, const float* direct,
                             const float* x, uint32_t n) {
    for (uint32_t t = 0; t + kTile <= n; t += kTile) {
        Tile sum = direct[0] * load(x + t);
        for (uint32_t i = 0; i < kLines; ++i) {
            sum = fma(out_gain[i], load(src + i * n + t), sum);
        }
        store(y + t, sum);
    }
}

inline void ffdn_mix_out_stereo_n16(float* y_left, float* y_right, const float* src,
                                    const float* out_left, const float* out_right,
                                    const float* direct, const float* x, uint32_t n) {
    for (uint32_t t = 0; t + kTile <= n; t += kTile) {
        const Tile in = load(x + t);
        Tile left = direct[0] * in, right = direct[1] * in;
        for (uint32_t i = 0; i < kLines; ++i) {
            const Tile line = load(src + i * n + t);
            left = fma(out_left[i], line, left);
            right = fma(out_right[i], line, right);
        }
        store(y_left + t, left);
        store(y_right + t, right);
    }
}

inline void ffdn_postdelay_n16(float* block, float* ring, uint32_t* wpos, uint32_t size,
                               const uint32_t* delays, uint32_t n) {
    const uint32_t mask = size - 1, w = *wpos;
    for (uint32_t i = 0; i < kLines; ++i) {
        const uint32_t d = delays[i];
        if (d == 0) continue;
        float *row = block + i * n, *line = ring + uint64_t{i} * size;
        for (uint32_t t = 0; t < n; ++t) {
            const float v = row[t];
            row[t] = line[(w + t - d) & mask];
            line[(w + t) & mask] = v;
        }
    }
    *wpos = (w + n) & mask;
}

// The injection of the right input: row i += in_right[i] * x, fused.
inline void inject(float* block, const float* gain, const float* x, uint32_t n) {
    for (uint32_t i = 0; i < kLines; ++i) {
        for (uint32_t t = 0; t + kTile <= n; t += kTile) {
            float* out = block + i * n + t;
            store(out, fma(gain[i], load(x + t), load(out)));
        }
    }
}

inline int32_t apply_modulation(ffdn_block_n16* e, int32_t n) {
    constexpr float kTwoPi = 6.2831855f;
    for (uint32_t i = 0; i < kLines; ++i) {
        float p = std::fma(static_cast<float>(n), e->mod_inc[i], e->mod_phase[i]);
        if (p >= kTwoPi || p < 0.0f) {
            p = std::fmod(p, kTwoPi);
            if (p < 0.0f) p += kTwoPi;
        }
        e->mod_phase[i] = p;
        const long offset = std::lround(std::sin(p) * static_cast<float>(e->mod_depth));
        const int32_t delay = static_cast<int32_t>(e->mod_base_delay[i] + uint32_t(offset));
        if (n > delay) return -1;
        e->line_delay[i] = static_cast<uint32_t>(delay);
    }
    return 0;
}

// The engine's three process calls: mono input without x_right, mono output without y_right.
inline int32_t process(ffdn_block_n16* e, const float* x_left, const float* x_right, float* y_left,
                       float* y_right, int32_t frames) {
    if ((y_right && e->stereo_out_set == 0) || (x_right && e->stereo_in_set == 0)) return -1;
    if (frames < 1 || frames > e->block_size || frames % 8 != 0) return -1;
    if (e->mod_enabled != 0 && apply_modulation(e, frames) != 0) return -1;
    const auto n = static_cast<uint32_t>(frames);
    for (uint32_t i = 0; i < kLines; ++i)
        if (n > e->line_delay[i] || n > e->line_mask[i] + 1) return -1;

    float *block = e->work_block, *taps = e->tap_block;
    fdn_delay_block_read_n16(e->ring, e->line_offset, block, n);
    std::copy_n(block, kLines * n, taps);
    if (y_right)
        ffdn_mix_out_stereo_n16(y_left, y_right, taps, e->out_left, e->out_right, &e->direct_left,
                                x_left, n);
    else
        ffdn_mix_out_n16(y_left, taps, e->out_gain, &e->direct_gain, x_left, n);
    fwht_n16_block(block, n);
    for (int32_t s = 0; s < e->stage_count; ++s) {
        ffdn_block_stage& stage = e->stages[s];
        if (s > 0) fwht_n16_block(block, n);
        ffdn_postdelay_n16(block, stage.ring, &stage.wpos, stage.size, stage.delays, n);
    }
    const float* in_gain = x_right ? e->in_left : e->in_gain;
    if (e->two_band != 0)
        ffdn_mix_in_jot_n16(block, block, e->shelf_b0, in_gain, x_left, n);
    else
        ffdn_mix_in_n16(block, block, e->decay_gain, in_gain, x_left, n);
    if (x_right) inject(block, e->in_right, x_right, n);
    fdn_delay_block_write_n16(e->ring, e->line_offset, block, n);
    return 0;
}

inline int32_t er_process(ffdn_er* er, const float* in, float* out_l, float* out_r,
                          int32_t frames) {
    if (frames < 1 || frames > er->max_frames) return -1;
    const auto mask = static_cast<uint32_t>(er->ring_mask);
    auto w = static_cast<uint32_t>(er->write_pos);
    const int32_t n_taps = er->n_taps;
    float* ring = er->ring;
    for (int32_t t = 0; t < frames; ++t) {
        ring[w] = in[t];
        float left = 0.0f, right = 0.0f;
        for (int32_t k = 0; k < n_taps; ++k) {
            left = std::fma(ring[(w - uint32_t(er->delays_l[k])) & mask], er->gains_l[k], left);
            right = std::fma(ring[(w - uint32_t(er->delays_r[k])) & mask], er->gains_r[k], right);
        }
        w = (w + 1) & mask;
        out_l[t] = left;
        out_r[t] = right;
    }
    er->write_pos = static_cast<int32_t>(w);
    return 0;
}

struct Biquad {
    float b0, b1, b2, a1, a2; // as in ffdn_eq
    float s1, s2;

    float step(float x) {
        const float y = std::fma(b0, x, s1);
        s1 = std::fma(-a1, y, std::fma(b1, x, s2));
        s2 = std::fma(-a2, y, b2 * x);
        return y;
    }
};

inline void eq_process(ffdn_eq* eq, float* left, float* right, int32_t frames) {
    if (eq->active == 0) return;
    const auto biquad = [](const float* c, const float* s) {
        return Biquad{c[0], c[1], c[2], c[3], c[4], s[0], s[1]};
    };
    float* s = eq->state;
    Biquad low_left = biquad(eq->low, s), low_right = biquad(eq->low, s + 2);
    Biquad high_left = biquad(eq->high, s + 4), high_right = biquad(eq->high, s + 6);
    for (int32_t t = 0; t < frames; ++t) {
        left[t] = high_left.step(low_left.step(left[t]));
        right[t] = high_right.step(low_right.step(right[t]));
    }
    const float state[8] = {low_left.s1,  low_left.s2,  low_right.s1,  low_right.s2,
                            high_left.s1, high_left.s2, high_right.s1, high_right.s2};
    std::copy_n(state, 8, s);
}

// Flush-to-zero and denormals-are-zero, on purpose not the library's own switch. What runs under it
// goes through memory, so that the compiler cannot move it across.
class FlushToZero {
public:
    FlushToZero() { set(before_ | 0x8040); }
    ~FlushToZero() { set(before_); }
    FlushToZero(const FlushToZero&) = delete;
    FlushToZero& operator=(const FlushToZero&) = delete;

private:
    static void set(uint32_t word) { asm volatile("ldmxcsr %0" : : "m"(word) : "memory"); }
    const uint32_t before_ = _mm_getcsr();
};

// Infinities and NaN become +0.
inline void clean(float* to, const float* from, int32_t frames) {
    for (int32_t t = 0; t < frames; ++t) {
        const uint32_t bits = std::bit_cast<uint32_t>(from[t]);
        to[t] = std::bit_cast<float>((bits & 0x7f800000u) == 0x7f800000u ? 0u : bits);
    }
}

// Early reflections of `mono` onto the wet signal, then the EQ.
inline void finish_wet(qv_reverb* rev, const float* mono, int32_t frames) {
    if (rev->er_active != 0) {
        er_process(&rev->er, mono, rev->buf_er_l, rev->buf_er_r, frames);
        for (int32_t t = 0; t < frames; ++t) {
            const float level = rev->params.er_level;
            rev->buf_wet_l[t] = std::fma(rev->buf_er_l[t], level, rev->buf_wet_l[t]);
            rev->buf_wet_r[t] = std::fma(rev->buf_er_r[t], level, rev->buf_wet_r[t]);
        }
    }
    eq_process(&rev->eq, rev->buf_wet_l, rev->buf_wet_r, frames);
}

inline int32_t reverb_process(qv_reverb* rev, const float* in_l, const float* in_r, float* out_l,
                              float* out_r, int32_t frames) {
    if (rev->engine_ready == 0 || !in_l || !out_l) return -1;
    if (frames < 1 || frames > rev->max_frames || frames % 8 != 0) return -1;
    const float m = rev->params.mix, d = 1.0f - m;
    const FlushToZero flush_to_zero;

    float* mono = rev->buf_er_in;
    clean(rev->buf_in_l, in_l, frames);
    if (in_r) {
        clean(rev->buf_in_r, in_r, frames);
        for (int32_t t = 0; t < frames; ++t) mono[t] = (rev->buf_in_l[t] + rev->buf_in_r[t]) * 0.5f;
    } else {
        std::copy_n(rev->buf_in_l, frames, mono);
    }

    float *wet_l = rev->buf_wet_l, *wet_r = rev->buf_wet_r;
    const float *left = in_r ? rev->buf_in_l : mono, *right = in_r ? rev->buf_in_r : nullptr;
    if (process(&rev->engine, left, right, wet_l, wet_r, frames) != 0) return -1;
    finish_wet(rev, mono, frames);

    const float *dry_l = rev->buf_in_l, *dry_r = in_r ? rev->buf_in_r : rev->buf_in_l;
    for (int32_t t = 0; t < frames; ++t) {
        // The wet signal is fused onto the rounded dry one.
        out_l[t] = out_r ? std::fma(m, wet_l[t], d * dry_l[t])
                         : std::fma(m * 0.5f, wet_l[t] + wet_r[t], d * mono[t]);
        if (out_r) out_r[t] = std::fma(m, wet_r[t], d * dry_r[t]);
    }
    return 0;
}

inline int32_t reverb_flush(qv_reverb* rev, float* out_l, float* out_r, int32_t capacity) {
    if (rev->engine_ready == 0 || !out_l || capacity < 1) return -1;
    const float m = rev->params.mix, half = m * 0.5f;
    const float *wet_l = rev->buf_wet_l, *wet_r = rev->buf_wet_r;
    const FlushToZero flush_to_zero;

    for (int32_t pos = 0;;) {
        const int32_t frames = std::min(rev->max_frames, (capacity - pos) / 8 * 8);
        if (frames < 8) return pos;
        process(&rev->engine, rev->buf_aux, nullptr, rev->buf_wet_l, rev->buf_wet_r, frames);
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

} // namespace plain

#endif
