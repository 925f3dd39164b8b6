/* The reference engine: the network of ffdn_block.h, one sample at a time, in plain scalar code
 * whose order of operations is the definition of the network's sound. The block engine is held to
 * it bit for bit. Nothing in the library calls it.
 *
 * Life: ffdn_n16_init, setters in any order (a cascade before the two-band decay, which every
 * cascade setter switches off), process calls with setters between them at will, ffdn_n16_free.
 */
#ifndef BRISEL_FFDN_REF_N16_H
#define BRISEL_FFDN_REF_N16_H

#include "export.h"

/* One cascade stage: 16 rings of one size that share a write position. */
typedef struct ffdn_n16_stage {
    int32_t stage_delay[BRISEL_LINES]; /* samples, 0 .. 65536; 0 passes the line undelayed */
    int32_t size;                      /* ring length per line, a power of two, at least 16 */
    int32_t mask;                      /* size - 1 */
    int32_t wpos;
    float* ring; /* 16 * size floats, line i's ring at i * size, owned */
} ffdn_n16_stage;

/* Caller-owned; the rings are the engine's. */
typedef struct ffdn_n16 {
    int32_t line_delay[BRISEL_LINES]; /* samples, 1 <= delay < size */
    int32_t line_size[BRISEL_LINES];  /* ring length, a power of two */
    int32_t line_mask[BRISEL_LINES];  /* size - 1 */
    int32_t line_wpos[BRISEL_LINES];  /* where the next sample goes, masked */
    float* line_buf[BRISEL_LINES];    /* the rings, owned */
    float in_gain[BRISEL_LINES];      /* mono input, 0.25 after init */
    float out_gain[BRISEL_LINES];     /* mono output, 0.25 after init */
    float direct_gain;                /* input straight into the mono output, 0 after init */
    float decay_gain[BRISEL_LINES];   /* broadband decay, linear */
    int32_t stage_count;              /* K, 0 .. 3 */
    ffdn_n16_stage stages[BRISEL_MAX_STAGES];
    float shelf_b0[BRISEL_LINES]; /* two-band decay: y[t] = b0 * x[t] + a1 * y[t-1] */
    float shelf_a1[BRISEL_LINES];
    float shelf_state[BRISEL_LINES]; /* y[t-1] */
    int32_t two_band;                /* 1: the filters replace decay_gain */
    float out_left[BRISEL_LINES];
    float out_right[BRISEL_LINES];
    float direct_left;
    float direct_right;
    int32_t stereo_out_set;
    float in_left[BRISEL_LINES];
    float in_right[BRISEL_LINES];
    int32_t stereo_in_set;
} ffdn_n16;

/* Builds silent lines without cascade or stereo gains. Overwrites the record without looking at it.
 *   delays        int32_t[16], samples, 1 <= delay < ring size
 *   buffer_sizes  int32_t[16], ring sizes, powers of two
 *   sample_rate   Hz
 *   t60           seconds; <= 0 means no decay (gains of exactly 1)
 * Returns   0, or -1: for a bad length the lines before it stay allocated (ffdn_n16_free releases
 *           them); on lack of memory nothing stays allocated.
 * Thread    [main-thread]. */
BRISEL_API int32_t ffdn_n16_init(ffdn_n16* f, const int32_t* delays, const int32_t* buffer_sizes,
                                 int32_t sample_rate, float t60);

/* Frees every ring and nulls its pointer. [main-thread] */
BRISEL_API void ffdn_n16_free(ffdn_n16* f);

/* Replaces the cascade by K silent stages, switches the two-band decay off and recomputes
 * decay_gain over the whole loops.
 *   K             0 .. 3
 *   stage_delays  int32_t[K][16], samples, 0 .. 65536; null: ffdn_n16_default_cascade_params
 *   sample_rate   Hz
 *   t60           seconds; <= 0 means no decay
 * Returns   0, or -1: a bad argument changes nothing; lack of memory leaves no stages, the two-band
 *           decay off and decay_gain as it was.
 * Thread    [main-thread]. */
BRISEL_API int32_t ffdn_n16_set_cascade(ffdn_n16* f, int32_t K, const int32_t* stage_delays,
                                        int32_t sample_rate, float t60);

/* ffdn_n16_set_cascade with the delays of ffdn_n16_default_vfm_params; vfm_density in (0, 1]. */
BRISEL_API int32_t ffdn_n16_set_vfm(ffdn_n16* f, uint32_t K, uint64_t vfm_seed, int32_t sample_rate,
                                    float vfm_density, float t60);

/* Replaces the cascade by one stage of the given delays, int32_t[16], 0 .. 65536 samples; null or
 * all 0: no stage at all. Returns and thread as ffdn_n16_set_cascade. */
BRISEL_API int32_t ffdn_n16_set_post_delays(ffdn_n16* f, const int32_t* post_delays,
                                            int32_t sample_rate, float t60);

/* Frees every stage; decay gains and two-band decay stay as they are. [main-thread] */
BRISEL_API void ffdn_n16_clear_cascade(ffdn_n16* f);

/* Replaces the broadband decay by a one-pole filter a line: t60_low seconds at 0 Hz, t60_high at
 * half the sample rate (formulas: ffdn_block_n16_set_two_band_t60).
 * Returns 0, or -1 with nothing changed. [any-thread] */
BRISEL_API int32_t ffdn_n16_set_two_band_t60(ffdn_n16* f, int32_t sample_rate, float t60_low,
                                             float t60_high);

/* Sets the output gains, float[16], linear; null takes ffdn_n16_default_stereo_outputs. Returns 0,
 * or -1 for a null record. [any-thread] */
BRISEL_API int32_t ffdn_n16_set_stereo_outputs(ffdn_n16* f, const float* left, const float* right,
                                               float direct_left, float direct_right);

/* Sets the input gains likewise (ffdn_n16_default_stereo_inputs). */
BRISEL_API int32_t ffdn_n16_set_stereo_inputs(ffdn_n16* f, const float* left, const float* right);

/* Advances the network by one sample, mono to mono; returns the output. Like its two siblings it
 * checks nothing, allocates nothing and cannot fail. [audio-thread] */
BRISEL_API float ffdn_n16_process(ffdn_n16* f, float x);

/* One sample, mono to stereo; before ffdn_n16_set_stereo_outputs the gains are 0. */
BRISEL_API void ffdn_n16_process_stereo(ffdn_n16* f, float* out_l, float* out_r, float x);

/* One sample, stereo to stereo; each output's direct term comes from its own side's input. */
BRISEL_API void ffdn_n16_process_stereo_in(ffdn_n16* f, float* out_l, float* out_r, float x_l,
                                           float x_r);

/* The sum of squares, in double precision, of the samples that lines and stages still hold: 0 once
 * the network is silent. Filter memories do not count. [any-thread] */
BRISEL_API double ffdn_n16_state_energy(const ffdn_n16* f);

#endif
