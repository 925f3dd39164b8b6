/* Scalar fast Walsh-Hadamard transforms: the orthonormal mixing matrix of the network.
 *
 *   X[k] = 1/sqrt(n) * sum over j of (-1)^popcount(j AND k) * x[j]      natural (Sylvester) order
 *
 * The matrix is symmetric and orthonormal: the transform is its own inverse and preserves the sum
 * of squares, both up to rounding. Butterfly passes run with spans n/2, n/4, ... 1, in this order,
 * each writing first + second and first - second; the scaling comes last. The vector kernel
 * fwht_n16_block_avx2 computes the same bits.
 *
 * Source: Fino & Algazi, "Unified matrix treatment of the fast Walsh-Hadamard transform", 1976.
 */
#ifndef BRISEL_FWHT_REF_H
#define BRISEL_FWHT_REF_H

#include "export.h"

/* Transforms n values in place.
 *   x  float[n]
 *   n  a power of two (not checked: other lengths read and write past the end); n < 1 does nothing
 * Thread    [any-thread]. */
BRISEL_API void fwht_ref(float* x, int32_t n);

/* Transforms one 16-line frame in place; the scale is exactly 0.25.
 *   x  float[16]
 * Thread    [any-thread]. */
BRISEL_API void fwht_ref_n16(float* x);

#endif
