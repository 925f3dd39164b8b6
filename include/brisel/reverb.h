/* The reverb as one object: network, early reflections, output EQ, wet/dry mix.
 *
 *   #include <brisel/reverb.h>
 *
 *   qv_reverb* rev = qv_reverb_create(48000, 1024);         // blocks of up to 1024 frames
 *   if (!rev) return 1;
 *   qv_reverb_params p = rev->params;                       // the settings in force
 *   p.t60 = 3.5f;                                           // seconds
 *   p.mix = 1.0f;                                           // wet only
 *   if (qv_reverb_set(rev, &p) != 0) return 1;              // refused: nothing has changed
 *   float left[1024] = {1.0f}, right[1024] = {1.0f};        // an impulse
 *   qv_reverb_process(rev, left, right, left, right, 1024); // in place
 *   static float tail_l[480000], tail_r[480000];
 *   int32_t frames = qv_reverb_flush(rev, tail_l, tail_r, 480000);
 *   qv_reverb_destroy(rev);
 *
 * Blocks have rules here, and settings restart the tail; live.h has neither.
 *
 * The processor must have AVX2 and FMA; qv_dsp_cpu_features tells about AVX2.
 */
#ifndef BRISEL_REVERB_H
#define BRISEL_REVERB_H

#include "ffdn_block.h"
#include "ffdn_eq.h"
#include "ffdn_er.h"

/* The settings. A value outside its range, or NaN, makes qv_reverb_set refuse the whole record. */
typedef struct qv_reverb_params {
    float size;             /* seconds, delay of the shortest line, 0 < size <= 0.5; default 0.04 */
    float t60;              /* seconds, decay time, > 0; default 2 */
    int32_t cascade_stages; /* stages K of the feedback matrix, 0 .. 3; default 2 */
    float t60_high;     /* seconds, decay time at half the sample rate, >= 0, 0 for none; def. 0 */
    float damp;         /* 0 .. 1; > 0 replaces t60_high by t60 * 0.1^damp; default 0.3 */
    float mix;          /* 0 (dry) .. 1 (wet); default 0.3 */
    float width;        /* 0 (mono) .. 1; default 0.8 */
    uint32_t modulate;  /* nonzero: slow delay modulation; default 1 */
    uint32_t er_enable; /* nonzero: early reflections; default 0 */
    float er_size;      /* seconds, latest reflection, 0.005 < er_size <= 0.5; default 0.06 */
    float er_level;     /* linear gain, >= 0; default 0.5 (without er_enable any number will do) */
    float eq_low_db;    /* dB, low shelf at 250 Hz, -24 .. 24; default 0 */
    float eq_high_db;   /* dB, high shelf at 4500 Hz, -24 .. 24; default 0 */
} qv_reverb_params;

/* The object, made by qv_reverb_create only (its allocation is longer than this record). For
 * callers the fields are there to be read; the object owns whatever they point to. */
typedef struct qv_reverb {
    ffdn_block_n16 engine;
    ffdn_er er;
    ffdn_eq eq;
    qv_reverb_params params; /* last accepted */
    int32_t sample_rate;     /* Hz */
    int32_t max_frames;      /* longest block of qv_reverb_process, a multiple of 8 */
    int32_t longest_delay;   /* longest line, samples */
    uint32_t engine_ready;   /* 1 once `engine` holds a network */
    uint32_t er_active;      /* 1 while `er` holds a generator */
    uint32_t eq_ready;       /* 1 once `eq` is initialised */
    float* buf_wet_l;        /* scratch, max_frames floats each */
    float* buf_wet_r;
    float* buf_er_in;
    float* buf_er_l;
    float* buf_er_r;
    float* buf_aux; /* silence: never written */
    float* buf_in_l;
    float* buf_in_r;
} qv_reverb;

/* Makes a reverb with the default settings.
 *   sample_rate  Hz, > 9000 (the EQ's upper corner, 4500 Hz, must lie below half of it)
 *   max_frames   longest block, a positive multiple of 8, at most 0.04 * sample_rate (the default
 *                size's shortest line must hold a whole block)
 * Returns   the object, owned by the caller until qv_reverb_destroy, or null when an argument
 *           breaks a rule or memory runs out.
 * Thread    [main-thread]. */
BRISEL_API qv_reverb* qv_reverb_create(int32_t sample_rate, int32_t max_frames);

/* Applies settings. Every accepted call rebuilds the network, whatever changed: the tail restarts
 * from silence. Only the EQ keeps its memories.
 *   params  read before anything changes; may be &rev->params
 * Returns   0, or -1 with nothing changed: a null argument, a value out of range, or a size whose
 *           shortest line (size * sample_rate samples) is shorter than max_frames.
 * Thread    [main-thread] or [audio-thread], not concurrently with any other call on `rev`. */
BRISEL_API int32_t qv_reverb_set(qv_reverb* rev, const qv_reverb_params* params);

/* Frees the object; null is ignored. [main-thread] */
BRISEL_API void qv_reverb_destroy(qv_reverb* rev);

/* Renders one block: out = (1 - mix) * dry + mix * EQ(network + er_level * early reflections).
 *   in_l, in_r    float[frames], nominal +/-1.0, any alignment; in_r may be null (mono input)
 *   out_l, out_r  float[frames], written; may be the input buffers; out_r may be null (mono output:
 *                 the averages of both dry and both wet channels)
 *   frames        a positive multiple of 8, at most max_frames
 * Returns   0, or -1 with nothing written when an argument breaks a rule.
 * Thread    [audio-thread]; no allocation, lock or system call. Flush-to-zero and
 *           denormals-are-zero hold during the call, the thread's control word comes back as it
 *           was.
 * Non-finite input samples count as 0.
 * Modulation shortens lines by up to two samples. With a shortest line that is just as long as the
 * block, or one sample longer, single blocks are refused: at 48 kHz, of the first 93 blocks of 1024
 * frames, 42 and 24. Leave two samples, switch `modulate` off, or take live.h. */
BRISEL_API int32_t qv_reverb_process(qv_reverb* rev, const float* in_l, const float* in_r,
                                     float* out_l, float* out_r, int32_t frames);

/* Renders the tail on silence, mix * wet only, until it has died away (mean power of a chunk of
 * max_frames frames below 1e-20 per frame, looked at once max_frames + longest_delay frames have
 * passed) or the buffers are full. Processing, or another flush, may follow.
 *   out_l, out_r    float[max_frames_out], written from the start; out_r may be null (mono)
 *   max_frames_out  > 0, any value; the last max_frames_out mod 8 frames stay untouched
 * Returns   the number of frames written, or -1 when an argument breaks a rule.
 * After an isolated click the network is silent between its first echoes and their echoes, for half
 * of `size`: with a max_frames below 0.51 * size * sample_rate the tail can pass for finished
 * there. Flush again, or create the object with longer blocks.
 * Thread    [audio-thread]; takes its time in proportion to the frames written. */
BRISEL_API int32_t qv_reverb_flush(qv_reverb* rev, float* out_l, float* out_r,
                                   int32_t max_frames_out);

/* The version of the library, such as "0.1.0"; static storage. [any-thread] */
BRISEL_API const char* qv_dsp_version(void);

/* What the processor offers: bit 0 AVX2, bit 1 AVX-512F. [any-thread] */
BRISEL_API uint32_t qv_dsp_cpu_features(void);

#endif
