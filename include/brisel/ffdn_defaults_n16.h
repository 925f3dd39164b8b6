/* The design data of a 16-line network: parameter records and the generators of their defaults.
 *
 * Every generator is a pure function [any-thread]: it writes only into the caller's arrays, reads
 * no state, allocates nothing and cannot fail. Delays are in samples and do not depend on the
 * sample rate. The records are a convenience: the functions take their arrays as separate pointers.
 *
 * Source of the network: S. J. Schlecht and E. A. P. Habets, "Scattering in Feedback Delay
 * Networks", IEEE/ACM Transactions on Audio, Speech, and Language Processing 28, 2020.
 */
#ifndef BRISEL_FFDN_DEFAULTS_N16_H
#define BRISEL_FFDN_DEFAULTS_N16_H

#include "export.h"

/* The main delay lines. */
typedef struct ffdn_n16_params {
    int32_t delays[BRISEL_LINES];       /* samples, 1 <= delay < buffer size */
    int32_t buffer_sizes[BRISEL_LINES]; /* ring lengths in samples, powers of two */
} ffdn_n16_params;

/* Delays behind the feedback matrix, one a line. */
typedef struct ffdn_n16_post_params {
    int32_t post_delays[BRISEL_LINES]; /* samples, 0 .. 65536 */
} ffdn_n16_post_params;

/* Delays of the cascade's stages; the number of stages K is passed beside the record. */
typedef struct ffdn_n16_cascade_params {
    int32_t stage_delays[BRISEL_MAX_STAGES][BRISEL_LINES]; /* samples, 0 .. 65536 */
} ffdn_n16_cascade_params;

/* Delays of a velvet feedback matrix: the same layout, drawn at random. */
typedef struct ffdn_n16_vfm_params {
    int32_t stage_delays[BRISEL_MAX_STAGES][BRISEL_LINES]; /* samples, 0 .. 65536 */
} ffdn_n16_vfm_params;

/* Linear gains between two channels and the lines, for inputs and for outputs. */
typedef struct ffdn_n16_stereo_gains {
    float left[BRISEL_LINES];
    float right[BRISEL_LINES];
} ffdn_n16_stereo_gains;

/* Default lines: the sixteen primes 997 .. 1489 in rising order, in rings of 2048 samples.
 *   delays, buffer_sizes  int32_t[16], written */
BRISEL_API void ffdn_n16_default_params(int32_t* delays, int32_t* buffer_sizes);

/* Default post delays: line i gets i samples.
 *   post_delays  int32_t[16], written */
BRISEL_API void ffdn_n16_default_post_params(int32_t* post_delays);

/* Default cascade: stage_delays[k][i] = i * 16^k (modulo 2^32), so that stage 0 holds 0 .. 15,
 * stage 1 holds 0, 16 .. 240 and stage 2 holds 0, 256 .. 3840.
 *   K             number of stages; K <= 0 writes nothing. More than 3 are generated, but no engine
 *                 takes them
 *   stage_delays  int32_t[K][16], written */
BRISEL_API void ffdn_n16_default_cascade_params(int32_t K, int32_t* stage_delays);

/* Velvet feedback matrix: stage 0 holds 16 distinct random offsets p[i]; stage k >= 1 holds
 * p[i] * 16^k, jittered by at most 16^k / 4 and clamped at 0. The same arguments give the same
 * delays on every machine.
 *   K             number of stages; K < 1 writes nothing
 *   vfm_seed      start of the 64-bit xorshift generator (shifts 13, 7, 17); 0 means
 *                 0xc0ffee5c00b1e000
 *   stage_delays  int32_t[K][16], written; may exceed what the engines accept at low densities
 *   vfm_density   (0, 1]: offsets come from 0 .. max(15, trunc(15 / density + 0.5)); any other
 *                 value, and NaN, gives 0 .. 15
 *
 * Source of velvet matrices: Schlecht & Habets 2020, section on velvet feedback matrices. */
BRISEL_API void ffdn_n16_default_vfm_params(int32_t K, uint64_t vfm_seed, int32_t* stage_delays,
                                            float vfm_density);

/* Default input gains: the left channel feeds the even lines and the right channel the odd ones,
 * each with 1/sqrt(8), hence with unit energy; all other gains are 0.
 *   left, right  float[16], written */
BRISEL_API void ffdn_n16_default_stereo_inputs(float* left, float* right);

/* Default output gains: the same vectors as ffdn_n16_default_stereo_inputs.
 *   left, right  float[16], written */
BRISEL_API void ffdn_n16_default_stereo_outputs(float* left, float* right);

#endif
