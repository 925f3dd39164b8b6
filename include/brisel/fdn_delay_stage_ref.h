/* The layout of the 16 main delay lines in one shared storage, and their scalar reference.
 *
 * A `lines` argument is uint32_t[64]: the four arrays that open an ffdn_block_n16 record, 16
 * entries each: line_offset (first float of the line's ring in the storage), line_mask (ring
 * size - 1), line_delay and line_wpos (write position), in samples.
 */
#ifndef BRISEL_FDN_DELAY_STAGE_REF_H
#define BRISEL_FDN_DELAY_STAGE_REF_H

#include "export.h"

/* Lays the 16 rings out one behind the other, with all write positions at 0.
 *   lines         uint32_t[64], written
 *   buffer_sizes  uint32_t[16], ring sizes in samples, powers of two
 *   delays        uint32_t[16], samples, each below its ring size
 * Returns   the number of floats that the storage needs, or 0 at the first line that breaks a rule;
 *           the lines before it are then written, the others untouched.
 * Thread    [any-thread]. */
BRISEL_API uint64_t delay_lines_init(uint32_t* lines, const uint32_t* buffer_sizes,
                                     const uint32_t* delays);

/* Advances the 16 lines by one sample: reads every line's delayed sample, then writes every line's
 * new one, then advances the write positions. A sample comes back exactly line_delay calls later (a
 * delay of 0 means a whole ring later). n calls equal fdn_delay_block_read_n16_avx2 followed by
 * fdn_delay_block_write_n16_avx2 on n frames.
 *   ring   the shared storage
 *   lines  uint32_t[64] from delay_lines_init; line_wpos is updated
 *   in     float[16], the samples to write
 *   out    float[16], receives the delayed samples; may be `in`
 * Thread    [audio-thread]. */
BRISEL_API void fdn_delay_stage_ref_n16(float* ring, uint32_t* lines, const float* in, float* out);

#endif
