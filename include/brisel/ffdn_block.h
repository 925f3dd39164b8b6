/* The block engine: a 16-line filter feedback delay network that runs whole blocks in AVX2 code.
 *
 * Per frame, with s the outputs of the 16 delay lines, H the orthonormal Walsh-Hadamard transform
 * and A = D_K H ... D_2 H D_1 H the cascade of K stages (D_k delays each line by its stage delay;
 * A = H without stages):
 *
 *   output      y = direct * x + sum over i of out[i] * s[i]
 *   line input  v[i] = decay[i](A s)[i] + in[i] * x
 *
 * decay[i] is a gain or a one-pole filter, chosen so that line i's whole loop of D samples (main
 * delay plus stage delays) falls by 60 dB in T60 seconds: the decay law (10^(-3 / (fs * T60)))^D.
 *
 * Source: S. J. Schlecht and E. A. P. Habets, "Scattering in Feedback Delay Networks", IEEE/ACM
 * Transactions on Audio, Speech, and Language Processing 28, 2020.
 *
 * Life: ffdn_block_n16_init, then the setters in any order (but a cascade before the two-band
 * decay, which every cascade setter switches off), then process calls, then ffdn_block_n16_free.
 */
#ifndef BRISEL_FFDN_BLOCK_H
#define BRISEL_FFDN_BLOCK_H

#include "export.h"

/* One cascade stage: 16 rings of one size that share a write position. */
typedef struct ffdn_block_stage {
    uint32_t delays[BRISEL_LINES]; /* samples, 0 .. 65536; 0 passes the line undelayed */
    uint32_t size;                 /* ring length of every line, a power of two, at least 16 */
    uint32_t mask;                 /* size - 1 */
    uint32_t wpos;
    float* ring; /* 16 * size floats, line i's ring at i * size, 32-byte aligned, owned */
} ffdn_block_stage;

/* Caller-owned, by value or on the heap; the buffers that hang off it are the engine's. The first
 * four arrays are the `lines` argument of the delay kernels. */
typedef struct ffdn_block_n16 {
    uint32_t line_offset[BRISEL_LINES]; /* first float of line i in `ring` */
    uint32_t line_mask[BRISEL_LINES];   /* ring size - 1 */
    uint32_t line_delay[BRISEL_LINES];  /* samples now; moves with every block under modulation */
    uint32_t line_wpos[BRISEL_LINES];
    float* ring;                    /* the 16 rings, one behind the other, 32-byte aligned, owned */
    uint64_t ring_len;              /* floats in `ring` */
    float decay_gain[BRISEL_LINES]; /* broadband decay, linear */
    float in_gain[BRISEL_LINES];    /* mono input, 0.25 after init */
    float out_gain[BRISEL_LINES];   /* mono output, 0.25 after init */
    float direct_gain;              /* input straight into the mono output, 0 after init */
    float* tap_block;               /* scratch, 16 * block_size floats, 32-byte aligned, owned */
    float* work_block;              /* scratch, likewise */
    int32_t block_size;             /* longest block of one process call, frames */
    int32_t stage_count;            /* K, 0 .. 3 */
    ffdn_block_stage stages[BRISEL_MAX_STAGES];
    float shelf_b0[BRISEL_LINES];    /* two-band decay: y[t] = b0 * x[t] + a1 * y[t-1] */
    float shelf_a1[BRISEL_LINES];    /* adjacent to b0 */
    float shelf_state[BRISEL_LINES]; /* y[t-1]; adjacent to a1 */
    uint32_t two_band;               /* nonzero: the filters replace decay_gain */
    float out_left[BRISEL_LINES];
    float out_right[BRISEL_LINES];
    float direct_left;  /* input straight into the left output */
    float direct_right; /* adjacent to direct_left */
    uint32_t stereo_out_set;
    uint32_t mod_base_delay[BRISEL_LINES]; /* samples, captured when modulation is set */
    float mod_phase[BRISEL_LINES];         /* radians, 0 .. 2 pi */
    float mod_inc[BRISEL_LINES];           /* radians per sample */
    int32_t mod_depth;                     /* samples */
    uint32_t mod_enabled;
    float in_left[BRISEL_LINES];
    float in_right[BRISEL_LINES];
    uint32_t stereo_in_set;
} ffdn_block_n16;

/* Lays out silent delay lines without cascade, modulation or stereo gains. Overwrites the record
 * without looking at it: free a used one first.
 *   delays        int32_t[16], samples, each below its ring size
 *   buffer_sizes  uint32_t[16], ring sizes, powers of two
 *   block_size    longest block, frames, > 0
 *   sample_rate   Hz
 *   t60           seconds; <= 0 means no decay (gains of exactly 1)
 * Returns   0, or -1: a null argument or a block_size <= 0 leaves the record untouched; a bad
 *           length or lack of memory leaves it zeroed but for the lines before the fault, nothing
 *           allocated.
 * Thread    [main-thread]. */
BRISEL_API int32_t ffdn_block_n16_init(ffdn_block_n16* e, const int32_t* delays,
                                       const uint32_t* buffer_sizes, int32_t block_size,
                                       uint32_t sample_rate, float t60);

/* Frees every buffer and nulls its pointer; null is ignored. [main-thread] */
BRISEL_API void ffdn_block_n16_free(ffdn_block_n16* e);

/* Replaces the cascade by K silent stages, switches the two-band decay off and recomputes
 * decay_gain over the whole loops, from the current line_delay.
 *   K             0 .. 3
 *   stage_delays  uint32_t[K][16], samples, 0 .. 65536; null: ffdn_n16_default_cascade_params
 *   sample_rate   Hz
 *   t60           seconds; <= 0 means no decay
 * Returns   0, or -1: a bad argument changes nothing; lack of memory leaves no stages, the two-band
 *           decay off and decay_gain as it was.
 * Thread    [main-thread]; frees and allocates. */
BRISEL_API int32_t ffdn_block_n16_set_cascade(ffdn_block_n16* e, uint32_t K,
                                              const uint32_t* stage_delays, uint32_t sample_rate,
                                              float t60);

/* ffdn_block_n16_set_cascade with the delays of ffdn_n16_default_vfm_params.
 *   vfm_seed     generator seed, 0 for the default
 *   vfm_density  (0, 1]; a density so low that a delay exceeds 65536 is refused
 * Returns and thread: as ffdn_block_n16_set_cascade. */
BRISEL_API int32_t ffdn_block_n16_set_vfm(ffdn_block_n16* e, uint32_t K, uint64_t vfm_seed,
                                          uint32_t sample_rate, float vfm_density, float t60);

/* Replaces the cascade by one stage of the given delays.
 *   post_delays  uint32_t[16], samples, 0 .. 65536; null or all 0: no stage at all
 * Returns and thread: as ffdn_block_n16_set_cascade. */
BRISEL_API int32_t ffdn_block_n16_set_post_delays(ffdn_block_n16* e, const uint32_t* post_delays,
                                                  int32_t sample_rate, float t60);

/* Frees every stage; decay gains and two-band decay stay as they are. e must not be null.
 * [main-thread] */
BRISEL_API void ffdn_block_n16_clear_cascade(ffdn_block_n16* e);

/* Replaces the broadband decay by a one-pole filter a line with gain g_low = decay law of t60_low
 * at 0 Hz and g_high = decay law of t60_high at half the sample rate, over the loop of the current
 * line_delay and cascade: r = g_low / g_high, b0 = 2 g_low / (r + 1), a1 = (r - 1) / (r + 1).
 *   sample_rate        Hz, >= 1
 *   t60_low, t60_high  seconds, > 0
 * Returns   0, or -1 with nothing changed.
 * Thread    [any-thread]; calls pow. */
BRISEL_API int32_t ffdn_block_n16_set_two_band_t60(ffdn_block_n16* e, int32_t sample_rate,
                                                   float t60_low, float t60_high);

/* Switches delay modulation on, for good: each line's delay follows the current one by
 * +/- depth samples along a sine of its own rate and starting phase, in whole samples, once a
 * block.
 *   depth               samples, >= 1; every line_delay must be at least depth + 32
 *   sample_rate         Hz, >= 1
 *   seed                start of the 64-bit xorshift generator; 0 means 0xc0ffee5c00b1e000
 *   rate_min, rate_max  Hz, 0 < rate_min <= rate_max
 * Returns   0, or -1 with nothing changed.
 * Thread    [any-thread]. */
BRISEL_API int32_t ffdn_block_n16_set_modulation(ffdn_block_n16* e, int32_t depth,
                                                 int32_t sample_rate, uint64_t seed, float rate_min,
                                                 float rate_max);

/* Advances the modulation by n samples and rewrites line_delay; the process calls do this by
 * themselves.
 * Returns   0, or -1 at the first line whose delay would fall below n: the lines before it have
 *           moved, its phase has advanced.
 * Thread    [audio-thread]. */
BRISEL_API int32_t ffdn_block_n16_apply_modulation(ffdn_block_n16* e, int32_t n);

/* Sets the gains of the stereo outputs; the stereo process calls need them.
 *   left, right                float[16], linear; either may be null
 *                              (ffdn_n16_default_stereo_outputs) or overlap the record's own
 *                              vectors
 *   direct_left, direct_right  linear gains of the (left) input straight into each output
 * Returns   0, or -1 for a null record.
 * Thread    [any-thread]. */
BRISEL_API int32_t ffdn_block_n16_set_stereo_outputs(ffdn_block_n16* e, const float* left,
                                                     const float* right, float direct_left,
                                                     float direct_right);

/* Sets the gains of the stereo inputs; ffdn_block_n16_process_stereo_in needs them. Arguments,
 * result and thread as above (ffdn_n16_default_stereo_inputs). */
BRISEL_API int32_t ffdn_block_n16_set_stereo_inputs(ffdn_block_n16* e, const float* left,
                                                    const float* right);

/* Renders one block, mono to mono.
 *   x  float[n]
 *   y  float[n], written; must not overlap x
 *   n  a positive multiple of 8, at most block_size, every line's (modulated) delay and ring size
 * Returns   0, or -1 with nothing written and no audio state changed; a refusal by a modulated
 *           delay leaves phases and delays moved.
 * Thread    [audio-thread]; whatever the settings, no call allocates. Set flush-to-zero in the
 *           caller: the engine leaves the floating-point mode alone. */
BRISEL_API int32_t ffdn_block_n16_process(ffdn_block_n16* e, const float* x, float* y, int32_t n);

/* Mono to stereo: as ffdn_block_n16_process, with y_left, y_right float[n]. Refused before
 * ffdn_block_n16_set_stereo_outputs. */
BRISEL_API int32_t ffdn_block_n16_process_stereo(ffdn_block_n16* e, const float* x, float* y_left,
                                                 float* y_right, int32_t n);

/* Stereo to stereo: as above, with x_left, x_right float[n]. The direct terms of both outputs come
 * from the left input; the right one is heard through the network only. Refused before both
 * stereo setters have run. */
BRISEL_API int32_t ffdn_block_n16_process_stereo_in(ffdn_block_n16* e, const float* x_left,
                                                    const float* x_right, float* y_left,
                                                    float* y_right, int32_t n);

/* The energy that circulates: the sum of squares, in double precision, of the samples that main
 * lines and stages still hold. Filter memories do not count. [any-thread] */
BRISEL_API double ffdn_block_n16_state_energy(const ffdn_block_n16* e);

#endif
