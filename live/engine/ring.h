// Reading runs of samples out of rings whose size is a power of two.
#ifndef BRISEL_LIVE_RING_H
#define BRISEL_LIVE_RING_H

#include <cstdint>

#include "core/avx2/runs.h"

namespace brisel::live {

// The `count` samples from index `start` on, which may lie beyond the ring's end: in place or,
// where they cross the seam, in `scratch`.
inline const float* find_in_ring(const float* ring, uint32_t mask, uint32_t start, uint32_t count,
                                 float* scratch) {
    start &= mask;
    if (start + count <= mask + 1) return ring + start;
    copy_from_ring(scratch, ring, mask + 1, start, count);
    return scratch;
}

} // namespace brisel::live

#endif
