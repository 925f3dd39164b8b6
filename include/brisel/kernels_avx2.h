/* The steps of the network as vector kernels, for programs that build a feedback loop of their own.
 * (The block engine does not call them: it runs loops of the same steps, fused.) They need AVX2 and
 * FMA and do not check for them (see qv_dsp_cpu_features).
 *
 * All are [audio-thread], check no argument and keep no state. Blocks of the 16 lines are
 * line-major (frame t of line i at i * n + t); gain vectors are float[16], linear. Pointers need no
 * alignment, except for fwht_n16_block_avx2. "tiles" below are whole groups of eight frames: a
 * kernel that works on tiles leaves the n mod 8 frames behind the last one untouched. fma(a, b, c)
 * is a * b + c rounded once; every other product and sum is rounded by itself.
 */
#ifndef BRISEL_KERNELS_AVX2_H
#define BRISEL_KERNELS_AVX2_H

#include "export.h"

/* Applies the orthonormal 16-point Walsh-Hadamard transform to every frame of a block, in place:
 * the same bits as fwht_ref_n16 per frame.
 *   block  float[16 * n], 32-byte aligned
 *   n      multiple of 8; otherwise only tiles are transformed, and as the rows are then unaligned
 *          the kernel's unaligned accesses are slower */
BRISEL_API void fwht_n16_block_avx2(float* block, uint32_t n);

/* Fetches n delayed samples of each line: block row i receives ring samples
 * (line_wpos - line_delay + t) AND line_mask, t = 0 .. n-1, of line i.
 *   ring   shared storage of the 16 rings
 *   lines  uint32_t[64]: line_offset, line_mask, line_delay, line_wpos, 16 entries each
 *   block  float[16 * n], written
 *   n      at most every line's delay, so that the samples precede this block's writes, and at most
 *          every line's ring size */
BRISEL_API void fdn_delay_block_read_n16_avx2(const float* ring, const uint32_t* lines,
                                              float* block, uint32_t n);

/* Stores n samples into each line at its write position and advances it:
 * line_wpos = (line_wpos + n) AND line_mask. Arguments as above; a block is read before it is
 * written. */
BRISEL_API void fdn_delay_block_write_n16_avx2(float* ring, uint32_t* lines, const float* block,
                                               uint32_t n);

/* Broadband decay and injection, on tiles: dst[i][t] = fma(in_gain[i], x[t], src[i][t] * gain[i]).
 *   dst, src  float[16 * n]; may be the same block
 *   x         float[n] */
BRISEL_API void ffdn_mix_in_n16_avx2(float* dst, const float* src, const float* gain,
                                     const float* in_gain, const float* x, uint32_t n);

/* Two-band decay (one pole a line) and injection, on all n >= 1 frames:
 *   v = fma(a1[i], s, b0[i] * src[i][t]);  s = v;  dst[i][t] = fma(in_gain[i], x[t], v)
 * The filter sees the feedback only: an input sample meets the decay on its next turn.
 *   dst, src  float[16 * n]; may be the same block
 *   shelf     float[48]: b0, a1, s, 16 entries each; s is read and updated
 *   x         float[n]
 *
 * Source: J.-M. Jot and A. Chaigne, "Digital delay networks for designing artificial
 * reverberators", AES Convention 90, 1991. */
BRISEL_API void ffdn_mix_in_jot_n16_avx2(float* dst, const float* src, float* shelf,
                                         const float* in_gain, const float* x, uint32_t n);

/* One output, on tiles: acc = direct[0] * x[t]; acc = fma(out_gain[i], src[i][t], acc) for i = 0 ..
 * 15 in order; y[t] = acc.
 *   y, x   float[n]
 *   src    float[16 * n]
 *   direct float[1] */
BRISEL_API void ffdn_mix_out_n16_avx2(float* y, const float* src, const float* out_gain,
                                      const float* direct, const float* x, uint32_t n);

/* Two outputs, on tiles: the sum of ffdn_mix_out_n16_avx2 twice, with direct[0] and out_left into
 * y_left, with direct[1] and out_right into y_right. */
BRISEL_API void ffdn_mix_out_stereo_n16_avx2(float* y_left, float* y_right, const float* src,
                                             const float* out_left, const float* out_right,
                                             const float* direct, const float* x, uint32_t n);

/* One cascade stage, in place, on all n >= 1 frames. For each line i with d = delays[i] > 0 and
 * t = 0 .. n-1 in order, with w = *wpos and mask = size - 1:
 *   v = block[i][t];  block[i][t] = ring[i * size + ((w + t - d) AND mask)];
 *   ring[i * size + ((w + t) AND mask)] = v
 * A line with delay 0 passes unchanged and its ring is not written. In the end
 * *wpos = (w + n) AND mask, always.
 *   block   float[16 * n]
 *   ring    float[16 * size], line-major
 *   size    a power of two, greater than every delay
 *   delays  uint32_t[16], samples */
BRISEL_API void ffdn_postdelay_n16_avx2(float* block, float* ring, uint32_t* wpos, uint32_t size,
                                        const uint32_t* delays, uint32_t n);

#endif
