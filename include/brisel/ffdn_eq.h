/* Output EQ: a low shelf and a high shelf in series on a stereo signal, slope 1 (Q = 1/sqrt(2)),
 * bypassed while both gains are 0 dB.
 *
 * Source of the coefficients: R. Bristow-Johnson, "Cookbook formulae for audio EQ biquad filter
 * coefficients". Design in double precision, processing in single.
 */
#ifndef BRISEL_FFDN_EQ_H
#define BRISEL_FFDN_EQ_H

#include "export.h"

/* Caller-owned; nothing hangs off it. */
typedef struct ffdn_eq {
    float low[5];        /* low shelf b0, b1, b2, a1, a2, divided by a0 */
    float high[5];       /* high shelf, likewise */
    float state[8];      /* memories s1, s2 of: low left, low right, high left, high right */
    int32_t sample_rate; /* Hz */
    float low_hz;        /* corner of the low shelf */
    float high_hz;       /* corner of the high shelf */
    float gain_low_db;   /* gains in force, within -24 .. 24 dB */
    float gain_high_db;
    uint32_t active; /* 0 while both gains are 0 dB: processing leaves the signal alone */
} ffdn_eq;

/* Sets the corners, both gains to 0 dB and clears the memories.
 *   sample_rate      Hz, >= 1
 *   low_hz, high_hz  Hz, 0 < low_hz < high_hz < sample_rate / 2
 * Returns   0, or -1 with nothing written when an argument breaks a rule.
 * Thread    [any-thread]. */
BRISEL_API int32_t ffdn_eq_init(ffdn_eq* eq, int32_t sample_rate, float low_hz, float high_hz);

/* Designs both shelves; the memories keep their values, so a running signal goes on.
 *   low_db, high_db  dB, clamped to -24 .. 24
 * Null is ignored.
 * Thread    [any-thread]; no allocation, a few calls into libm. */
BRISEL_API void ffdn_eq_set_gains(ffdn_eq* eq, float low_db, float high_db);

/* Filters one block in place, each channel through the low and then the high shelf (transposed
 * direct form II):
 *   y = fma(b0, x, s1);  s1 = fma(-a1, y, fma(b1, x, s2));  s2 = fma(-a2, y, b2 * x)
 *   left, right  float[frames], not overlapping
 *   frames       < 1 does nothing
 * Thread    [audio-thread]. */
BRISEL_API void ffdn_eq_process_stereo(ffdn_eq* eq, float* left, float* right, int32_t frames);

#endif
