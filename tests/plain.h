// The kernels and the engines' process operations exactly as they are defined, in plain C++: one pass
// over the whole block per kernel. They work on the library's own records through the public fields,
// so that a test configures two objects alike, runs one with the library and the other with plain::,
// and compares outputs and state bit for bit. The benchmarks time the same loops.
//
// Plain, but not slow: what has no memory runs on tiles of eight frames, a shape that every compiler
// turns into vector code; what recurses in time (two-band filter, stage delays, early reflections,
// EQ) runs line by line and sample by sample. plain_reverb.h holds the reverb object's operations.
#ifndef BRISEL_TESTS_PLAIN_H
#define BRISEL_TESTS_PLAIN_H

#include <brisel/ffdn_block.h>
#include <brisel/ffdn_eq.h>
#include <brisel/ffdn_er.h>

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

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

// What every process operation checks and moves before audio.
inline bool begin_block(ffdn_block_n16* e, int32_t n) {
    if (n < 1 || n > e->block_size || n % 8 != 0) return false;
    if (e->mod_enabled != 0 && apply_modulation(e, n) != 0) return false;
    for (uint32_t delay : e->line_delay) {
        if (static_cast<uint32_t>(n) > delay) return false;
    }
    return true;
}

inline void read_lines(ffdn_block_n16* e, uint32_t n) {
    fdn_delay_block_read_n16(e->ring, e->line_offset, e->work_block, n);
    std::memcpy(e->tap_block, e->work_block, sizeof(float) * kLines * n);
}

// The feedback matrix, the decay and the (left) input.
inline void feed_back(ffdn_block_n16* e, const float* in_gain, const float* x, uint32_t n) {
    float* block = e->work_block;
    fwht_n16_block(block, n);
    for (int32_t s = 0; s < e->stage_count; ++s) {
        ffdn_block_stage& stage = e->stages[s];
        ffdn_postdelay_n16(block, stage.ring, &stage.wpos, stage.size, stage.delays, n);
        if (s + 1 < e->stage_count) fwht_n16_block(block, n);
    }
    if (e->two_band != 0) {
        ffdn_mix_in_jot_n16(block, block, e->shelf_b0, in_gain, x, n);
    } else {
        ffdn_mix_in_n16(block, block, e->decay_gain, in_gain, x, n);
    }
}

inline void write_lines(ffdn_block_n16* e, uint32_t n) {
    fdn_delay_block_write_n16(e->ring, e->line_offset, e->work_block, n);
}

inline int32_t process(ffdn_block_n16* e, const float* x, float* y, int32_t frames) {
    if (!begin_block(e, frames)) return -1;
    const auto n = static_cast<uint32_t>(frames);
    read_lines(e, n);
    ffdn_mix_out_n16(y, e->tap_block, e->out_gain, &e->direct_gain, x, n);
    feed_back(e, e->in_gain, x, n);
    write_lines(e, n);
    return 0;
}

inline int32_t process_stereo(ffdn_block_n16* e, const float* x, float* y_left, float* y_right,
                              int32_t frames) {
    if (e->stereo_out_set == 0 || !begin_block(e, frames)) return -1;
    const auto n = static_cast<uint32_t>(frames);
    read_lines(e, n);
    ffdn_mix_out_stereo_n16(y_left, y_right, e->tap_block, e->out_left, e->out_right,
                            &e->direct_left, x, n);
    feed_back(e, e->in_gain, x, n);
    write_lines(e, n);
    return 0;
}

inline int32_t process_stereo_in(ffdn_block_n16* e, const float* x_left, const float* x_right,
                                 float* y_left, float* y_right, int32_t frames) {
    if (e->stereo_out_set == 0 || e->stereo_in_set == 0 || !begin_block(e, frames)) return -1;
    const auto n = static_cast<uint32_t>(frames);
    read_lines(e, n);
    ffdn_mix_out_stereo_n16(y_left, y_right, e->tap_block, e->out_left, e->out_right,
                            &e->direct_left, x_left, n);
    feed_back(e, e->in_left, x_left, n);
    inject(e->work_block, e->in_right, x_right, n);
    write_lines(e, n);
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

} // namespace plain

#endif
