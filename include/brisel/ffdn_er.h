/* Early reflections: a sparse tapped delay that turns one mono signal into a left and a right
 * pattern of discrete echoes, their times spread evenly on a logarithmic axis from 5 ms to a chosen
 * size and jittered, their gains falling exponentially with random signs. The same arguments always
 * give the same pattern.
 */
#ifndef BRISEL_FFDN_ER_H
#define BRISEL_FFDN_ER_H

#include "export.h"

/* Most taps a channel. */
#define FFDN_ER_MAX_TAPS 24

/* Caller-owned; the ring is the only storage that hangs off it. */
typedef struct ffdn_er {
    int32_t n_taps;                     /* taps per channel, 4 .. 24 */
    int32_t delays_l[FFDN_ER_MAX_TAPS]; /* samples; the first n_taps count */
    int32_t delays_r[FFDN_ER_MAX_TAPS];
    float gains_l[FFDN_ER_MAX_TAPS]; /* linear, sum of squares 1 */
    float gains_r[FFDN_ER_MAX_TAPS];
    float* ring;         /* mono input history, ring_len floats, owned */
    int32_t ring_len;    /* a power of two, at least 32, at least max_frames + longest_tap */
    int32_t ring_mask;   /* ring_len - 1 */
    int32_t write_pos;   /* where the next input sample goes */
    int32_t longest_tap; /* samples */
    int32_t max_frames;  /* longest block that processing accepts */
} ffdn_er;

/* Draws the taps and allocates the ring. Overwrites the record without looking at it: free a used
 * one first.
 *   n_taps       4 .. 24 per channel
 *   max_frames   longest block, > 0
 *   sample_rate  Hz, > 0
 *   seed         start of the 64-bit xorshift generator; 0 means 0xc0ffee5c00b1e000
 *   size         seconds, the latest reflection, > 0.005
 * Returns   0, or -1: an argument breaks a rule and nothing was written, or memory ran out and the
 *           ring is null.
 * Thread    [main-thread]. */
BRISEL_API int32_t ffdn_er_init(ffdn_er* er, int32_t n_taps, int32_t max_frames,
                                int32_t sample_rate, uint64_t seed, float size);

/* Frees the ring and sets it to null; null is ignored. [main-thread] */
BRISEL_API void ffdn_er_free(ffdn_er* er);

/* Renders one block: each output sample is the sum over the taps of gain * input that many samples
 * ago.
 *   in            float[frames], mono; may be one of the outputs
 *   out_l, out_r  float[frames], overwritten
 *   frames        1 .. max_frames
 * Returns   0, or -1 with nothing changed when an argument breaks a rule or is null.
 * Thread    [audio-thread]. */
BRISEL_API int32_t ffdn_er_process_stereo(ffdn_er* er, const float* in, float* out_l, float* out_r,
                                          int32_t frames);

#endif
