// The reverb's processing: cleaning, network, early reflections, EQ, mix; and the tail on silence.
#include <immintrin.h>

#include <algorithm>

#include "brisel/reverb.h"
#include "core/flush_to_zero.h"
#include "core/reverb_object.h"

namespace {

using brisel::ReverbObject;

// All loops run on whole vectors: frames are multiples of eight everywhere in here.
template <typename Body>
inline void each_vector(int32_t frames, Body body) {
#pragma GCC unroll 4
    for (size_t t = 0; t < static_cast<size_t>(frames); t += 8) body(t);
}

// Infinities and NaN, whose exponent bits are all ones, count as 0; everything else, denormals
// included, passes bit for bit.
inline __m256 clean(const float* from) {
    const __m256i exponent = _mm256_set1_epi32(0x7f800000);
    const __m256i bits = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    const __m256i unusable = _mm256_cmpeq_epi32(_mm256_and_si256(bits, exponent), exponent);
    return _mm256_castsi256_ps(_mm256_andnot_si256(unusable, bits));
}

// Fills buf_in_l and, for a stereo input, buf_in_r.
void clean_inputs(qv_reverb& rev, const float* in_l, const float* in_r, int32_t frames) {
    float* left = rev.buf_in_l;
    float* right = rev.buf_in_r;
    if (in_r) {
        each_vector(frames, [=](size_t t) {
            _mm256_storeu_ps(left + t, clean(in_l + t));
            _mm256_storeu_ps(right + t, clean(in_r + t));
        });
    } else {
        each_vector(frames, [=](size_t t) { _mm256_storeu_ps(left + t, clean(in_l + t)); });
    }
}

// The mono signal of a stereo input: the average of the cleaned sides, in buf_er_in.
void average_inputs(qv_reverb& rev, int32_t frames) {
    const __m256 half = _mm256_set1_ps(0.5f);
    const float* left = rev.buf_in_l;
    const float* right = rev.buf_in_r;
    float* mono = rev.buf_er_in;
    each_vector(frames, [=](size_t t) {
        const __m256 sum = _mm256_add_ps(_mm256_loadu_ps(left + t), _mm256_loadu_ps(right + t));
        _mm256_storeu_ps(mono + t, _mm256_mul_ps(sum, half));
    });
}

// wet = early * level + wet
void add_early(float* wet, const float* early, float level, int32_t frames) {
    const __m256 gain = _mm256_set1_ps(level);
    each_vector(frames, [=](size_t t) {
        _mm256_storeu_ps(
            wet + t, _mm256_fmadd_ps(_mm256_loadu_ps(early + t), gain, _mm256_loadu_ps(wet + t)));
    });
}

void add_early_reflections(qv_reverb& rev, const float* in, int32_t frames) {
    if (!rev.er_active) return;
    ffdn_er_process_stereo(&rev.er, in, rev.buf_er_l, rev.buf_er_r, frames);
    add_early(rev.buf_wet_l, rev.buf_er_l, rev.params.er_level, frames);
    add_early(rev.buf_wet_r, rev.buf_er_r, rev.params.er_level, frames);
}

// out = fma(m, wet, d * dry)
inline __m256 mix(__m256 dry, __m256 wet, __m256 d, __m256 m) {
    return _mm256_fmadd_ps(m, wet, _mm256_mul_ps(d, dry));
}

bool process_block(ReverbObject& object, const float* in_l, const float* in_r, float* out_l,
                   float* out_r, int32_t frames) {
    qv_reverb& rev = object.pub;
    clean_inputs(rev, in_l, in_r, frames);
    // The mono signal: of a mono input, the cleaned input itself.
    const float* mono = in_r ? rev.buf_er_in : rev.buf_in_l;
    if (in_r && (rev.er_active || !out_r)) average_inputs(rev, frames);

    const int32_t status =
        in_r ? ffdn_block_n16_process_stereo_in(&rev.engine, rev.buf_in_l, rev.buf_in_r,
                                                rev.buf_wet_l, rev.buf_wet_r, frames)
             : ffdn_block_n16_process_stereo(&rev.engine, mono, rev.buf_wet_l, rev.buf_wet_r,
                                             frames);
    if (status != 0) return false;
    object.frames_written += static_cast<uint64_t>(frames);
    add_early_reflections(rev, mono, frames);
    ffdn_eq_process_stereo(&rev.eq, rev.buf_wet_l, rev.buf_wet_r, frames);

    const float* wet_l = rev.buf_wet_l;
    const float* wet_r = rev.buf_wet_r;
    const float m = rev.params.mix;
    const __m256 d = _mm256_set1_ps(1.0f - m);
    if (out_r) {
        const __m256 wet = _mm256_set1_ps(m);
        const float* dry_l = rev.buf_in_l;
        const float* dry_r = in_r ? rev.buf_in_r : rev.buf_in_l;
        each_vector(frames, [=](size_t t) {
            _mm256_storeu_ps(out_l + t,
                             mix(_mm256_loadu_ps(dry_l + t), _mm256_loadu_ps(wet_l + t), d, wet));
            _mm256_storeu_ps(out_r + t,
                             mix(_mm256_loadu_ps(dry_r + t), _mm256_loadu_ps(wet_r + t), d, wet));
        });
    } else {
        const __m256 half = _mm256_set1_ps(m * 0.5f);
        each_vector(frames, [=](size_t t) {
            const __m256 both =
                _mm256_add_ps(_mm256_loadu_ps(wet_l + t), _mm256_loadu_ps(wet_r + t));
            _mm256_storeu_ps(out_l + t, mix(_mm256_loadu_ps(mono + t), both, d, half));
        });
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
