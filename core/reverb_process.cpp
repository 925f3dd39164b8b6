// The reverb's processing: cleaning, network, early reflections, EQ, mix; and the tail on silence.
#include <algorithm>

#include "brisel/reverb.h"
#include "core/avx2/signals.h"
#include "core/flush_to_zero.h"
#include "core/reverb.h"

namespace {

using brisel::add_tile;
using brisel::clean_tile;
using brisel::each_tile;
using brisel::mix_tile;
using brisel::ReverbObject;
using brisel::sum_tile;

// A stereo signal.
struct Stereo {
    float* left;
    float* right;
};

// What the network's output becomes before it is heard: early reflections of `mono` and EQ.
void finish_wet(qv_reverb& rev, const float* mono, Stereo wet, int32_t frames) {
    if (rev.er_active) {
        const Stereo early{rev.buf_er_l, rev.buf_er_r};
        const float level = rev.params.er_level;
        ffdn_er_process_stereo(&rev.er, mono, early.left, early.right, frames);
        each_tile(static_cast<uint32_t>(frames), [=](size_t t) {
            add_tile(wet.left + t, early.left + t, level);
            add_tile(wet.right + t, early.right + t, level);
        });
    }
    ffdn_eq_process_stereo(&rev.eq, wet.left, wet.right, frames);
}

bool process_block(ReverbObject& object, const float* in_l, const float* in_r, float* out_l,
                   float* out_r, int32_t frames) {
    qv_reverb& rev = object.pub;
    const auto n = static_cast<uint32_t>(frames);
    const Stereo wet{rev.buf_wet_l, rev.buf_wet_r};
    const Stereo dry{rev.buf_in_l, in_r ? rev.buf_in_r : rev.buf_in_l};
    // Of a mono input, the cleaned input itself.
    float* mono = in_r ? rev.buf_er_in : dry.left;
    if (in_r) {
        each_tile(n, [=](size_t t) {
            clean_tile(dry.left + t, in_l + t);
            clean_tile(dry.right + t, in_r + t);
        });
        if (rev.er_active || !out_r)
            each_tile(n, [=](size_t t) { sum_tile(mono + t, dry.left + t, dry.right + t, 0.5f); });
    } else {
        each_tile(n, [=](size_t t) { clean_tile(mono + t, in_l + t); });
    }

    const int32_t status =
        in_r ? ffdn_block_n16_process_stereo_in(&rev.engine, dry.left, dry.right, wet.left,
                                                wet.right, frames)
             : ffdn_block_n16_process_stereo(&rev.engine, mono, wet.left, wet.right, frames);
    if (status != 0) return false;
    object.frames_written += n;
    finish_wet(rev, mono, wet, frames);

    const float m = rev.params.mix;
    if (out_r) {
        each_tile(n, [=](size_t t) {
            mix_tile(out_l + t, wet.left + t, dry.left + t, m, 1.0f - m);
            mix_tile(out_r + t, wet.right + t, dry.right + t, m, 1.0f - m);
        });
    } else {
        each_tile(n, [=](size_t t) {
            sum_tile(wet.left + t, wet.left + t, wet.right + t, 1.0f);
            mix_tile(out_l + t, wet.left + t, mono + t, m * 0.5f, 1.0f - m);
        });
    }
    return true;
}

// One chunk of the tail.
void render_silence(ReverbObject& object, Stereo wet, int32_t frames) {
    qv_reverb& rev = object.pub;
    const float* silence = rev.buf_aux;
    ffdn_block_n16_process_stereo(&rev.engine, silence, wet.left, wet.right, frames);
    object.frames_written += static_cast<uint64_t>(frames);
    finish_wet(rev, silence, wet, frames);
}

void write_wet(float* out_l, float* out_r, Stereo wet, float mix, int32_t frames) {
    if (out_r) {
        for (int32_t t = 0; t < frames; ++t) out_l[t] = mix * wet.left[t];
        for (int32_t t = 0; t < frames; ++t) out_r[t] = mix * wet.right[t];
    } else {
        for (int32_t t = 0; t < frames; ++t) out_l[t] = (wet.left[t] + wet.right[t]) * (mix * 0.5f);
    }
}

// Mean power below 1e-20 a frame, about -200 dB.
bool silent(Stereo wet, int32_t frames) {
    double energy = 0.0;
    for (int32_t t = 0; t < frames; ++t) {
        const double left = wet.left[t];
        const double right = wet.right[t];
        energy += left * left + right * right;
    }
    return energy < frames * 1e-20;
}

int32_t render_tail(ReverbObject& object, float* out_l, float* out_r, int32_t capacity) {
    const qv_reverb& rev = object.pub;
    const Stereo wet{rev.buf_wet_l, rev.buf_wet_r};
    // By then every line has been passed through since the input stopped.
    const int64_t listen_from = int64_t{rev.max_frames} + rev.longest_delay;
    int32_t pos = 0;
    while (pos < capacity) {
        const int32_t chunk = std::min(rev.max_frames, (capacity - pos) & ~7);
        if (chunk == 0) break;
        render_silence(object, wet, chunk);
        write_wet(out_l + pos, out_r ? out_r + pos : nullptr, wet, rev.params.mix, chunk);
        pos += chunk;
        if (pos >= listen_from && silent(wet, chunk)) break;
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
