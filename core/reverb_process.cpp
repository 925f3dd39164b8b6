// The reverb's processing: cleaning, network, early reflections, EQ, mix; and the tail on silence.
#include <algorithm>
#include <bit>
#include <cmath>

#include "brisel/reverb.h"
#include "core/flush_to_zero.h"
#include "core/reverb_object.h"

namespace {

using brisel::ReverbObject;

// Infinities and NaN, whose exponent bits are all ones, count as 0; everything else, denormals
// included, passes bit for bit.
void clean(float* to, const float* from, int32_t frames) {
    constexpr uint32_t kExponent = 0x7f800000;
    for (int32_t t = 0; t < frames; ++t) {
        const auto bits = std::bit_cast<uint32_t>(from[t]);
        to[t] = std::bit_cast<float>((bits & kExponent) == kExponent ? 0u : bits);
    }
}

// wet = early * level + wet
void add_early(float* wet, const float* early, float level, int32_t frames) {
    for (int32_t t = 0; t < frames; ++t) wet[t] = std::fma(early[t], level, wet[t]);
}

void add_early_reflections(qv_reverb& rev, const float* in, int32_t frames) {
    if (!rev.er_active) return;
    ffdn_er_process_stereo(&rev.er, in, rev.buf_er_l, rev.buf_er_r, frames);
    add_early(rev.buf_wet_l, rev.buf_er_l, rev.params.er_level, frames);
    add_early(rev.buf_wet_r, rev.buf_er_r, rev.params.er_level, frames);
}

// out = fma(m, wet, d * dry)
void mix(float* out, const float* dry, const float* wet, float d, float m, int32_t frames) {
    for (int32_t t = 0; t < frames; ++t) out[t] = std::fma(m, wet[t], d * dry[t]);
}

bool process_block(ReverbObject& object, const float* in_l, const float* in_r, float* out_l,
                   float* out_r, int32_t frames) {
    qv_reverb& rev = object.pub;
    clean(rev.buf_in_l, in_l, frames);
    if (in_r) clean(rev.buf_in_r, in_r, frames);
    for (int32_t t = 0; t < frames; ++t)
        rev.buf_er_in[t] = in_r ? (rev.buf_in_l[t] + rev.buf_in_r[t]) * 0.5f : rev.buf_in_l[t];

    const int32_t status =
        in_r ? ffdn_block_n16_process_stereo_in(&rev.engine, rev.buf_in_l, rev.buf_in_r,
                                                rev.buf_wet_l, rev.buf_wet_r, frames)
             : ffdn_block_n16_process_stereo(&rev.engine, rev.buf_er_in, rev.buf_wet_l,
                                             rev.buf_wet_r, frames);
    if (status != 0) return false;
    object.frames_written += static_cast<uint64_t>(frames);
    add_early_reflections(rev, rev.buf_er_in, frames);
    ffdn_eq_process_stereo(&rev.eq, rev.buf_wet_l, rev.buf_wet_r, frames);

    const float m = rev.params.mix;
    const float d = 1.0f - m;
    if (out_r) {
        mix(out_l, rev.buf_in_l, rev.buf_wet_l, d, m, frames);
        mix(out_r, in_r ? rev.buf_in_r : rev.buf_in_l, rev.buf_wet_r, d, m, frames);
    } else {
        const float half = m * 0.5f;
        for (int32_t t = 0; t < frames; ++t)
            out_l[t] = std::fma(half, rev.buf_wet_l[t] + rev.buf_wet_r[t], d * rev.buf_er_in[t]);
    }
    return true;
}

// One chunk of the tail, in the wet buffers.
void render_silence(ReverbObject& object, int32_t frames) {
    qv_reverb& rev = object.pub;
    ffdn_block_n16_process_stereo(&rev.engine, rev.buf_aux, rev.buf_wet_l, rev.buf_wet_r, frames);
    object.frames_written += static_cast<uint64_t>(frames);
    add_early_reflections(rev, rev.buf_aux, frames);
    ffdn_eq_process_stereo(&rev.eq, rev.buf_wet_l, rev.buf_wet_r, frames);
}

void write_wet(const qv_reverb& rev, float* out_l, float* out_r, int32_t frames) {
    const float m = rev.params.mix;
    if (out_r) {
        for (int32_t t = 0; t < frames; ++t) out_l[t] = m * rev.buf_wet_l[t];
        for (int32_t t = 0; t < frames; ++t) out_r[t] = m * rev.buf_wet_r[t];
    } else {
        const float half = m * 0.5f;
        for (int32_t t = 0; t < frames; ++t)
            out_l[t] = (rev.buf_wet_l[t] + rev.buf_wet_r[t]) * half;
    }
}

// Mean power of the wet signal below 1e-20 a frame, about -200 dB.
bool silent(const qv_reverb& rev, int32_t frames) {
    double energy = 0.0;
    for (int32_t t = 0; t < frames; ++t) {
        const double left = rev.buf_wet_l[t];
        const double right = rev.buf_wet_r[t];
        energy += left * left + right * right;
    }
    return energy < frames * 1e-20;
}

int32_t render_tail(ReverbObject& object, float* out_l, float* out_r, int32_t capacity) {
    const qv_reverb& rev = object.pub;
    // By then every line has been passed through since the input stopped.
    const int64_t listen_from = int64_t{rev.max_frames} + rev.longest_delay;
    int32_t pos = 0;
    while (pos < capacity) {
        const int32_t chunk = std::min(rev.max_frames, (capacity - pos) & ~7);
        if (chunk == 0) break;
        render_silence(object, chunk);
        write_wet(rev, out_l + pos, out_r ? out_r + pos : nullptr, chunk);
        pos += chunk;
        if (pos >= listen_from && silent(rev, chunk)) break;
    }
    return pos;
}

} // namespace

int32_t qv_reverb_process(qv_reverb* rev, const float* in_l, const float* in_r, float* out_l,
                          float* out_r, int32_t frames) {
    const bool usable = rev && rev->engine_ready && in_l && out_l && frames >= 1 &&
                        frames <= rev->max_frames && frames % 8 == 0 && rev->buf_aux;
    if (!usable) return -1;
    const brisel::FlushToZeroScope flush_to_zero;
    return process_block(brisel::object_of(rev), in_l, in_r, out_l, out_r, frames) ? 0 : -1;
}

int32_t qv_reverb_flush(qv_reverb* rev, float* out_l, float* out_r, int32_t max_frames_out) {
    if (!rev || !rev->engine_ready || !out_l || max_frames_out < 1) return -1;
    const brisel::FlushToZeroScope flush_to_zero;
    return render_tail(brisel::object_of(rev), out_l, out_r, max_frames_out);
}
