// One cascade stage: each line of a block delayed through its ring, in place.
#include <immintrin.h>

#include "brisel/kernels_avx2.h"
#include "core/avx2/runs.h"

namespace {

// Frames `from` .. n-1 of one row, as defined: read before write, sample by sample.
void delay_samples(float* row, float* ring, uint32_t wpos, uint32_t mask, uint32_t delay,
                   uint32_t from, uint32_t n) {
    for (uint32_t t = from; t < n; ++t) {
        const float v = row[t];
        row[t] = ring[(wpos + t - delay) & mask];
        ring[(wpos + t) & mask] = v;
    }
}

// Delays of 1 to 15 samples: nearly the whole row moves within itself. `n` is a multiple of 8,
// not 0.
void delay_within_row(float* row, float* ring, uint32_t wpos, uint32_t size, uint32_t delay,
                      uint32_t n) {
    const uint32_t mask = size - 1;
    // The 16 samples before the block, then the block's first 16 (8 in the shortest block).
    alignas(32) float head[32];
    brisel::copy_from_ring(head, ring, size, (wpos - 16) & mask, 16);
    const uint32_t in_head = std::min(n, 16u);
    brisel::copy_run(head + 16, row, in_head);

    // What the ring keeps: the block's last `size` samples at most.
    const uint32_t kept = std::min(n, size);
    brisel::copy_to_ring(ring, size, (wpos + n - kept) & mask, row + n - kept, kept);

    // From the end backwards, so that no sample is overwritten before it has moved.
    for (uint32_t t = n; t > in_head; t -= 8)
        _mm256_storeu_ps(row + t - 8, _mm256_loadu_ps(row + t - 8 - delay));
    for (uint32_t t = 0; t < in_head; t += 8)
        _mm256_storeu_ps(row + t, _mm256_loadu_ps(head + 16 + t - delay));
}

// Delays of 16 samples and more: row and ring change places in straight runs, cut where the read or
// the write position wraps. Within a vector all reads come before all writes, which is the defined
// result because the delay exceeds the vector. `n` is a multiple of 8.
void delay_through_ring(float* row, float* ring, uint32_t wpos, uint32_t size, uint32_t delay,
                        uint32_t n) {
    const uint32_t mask = size - 1;
    uint32_t t = 0;
    while (t < n) {
        const uint32_t w = (wpos + t) & mask;
        const uint32_t r = (w - delay) & mask;
        const uint32_t run = std::min({n - t, size - w, size - r});
        const uint32_t vectors = run & ~7u;
        for (uint32_t k = 0; k < vectors; k += 8) {
            const __m256 v = _mm256_loadu_ps(row + t + k);
            _mm256_storeu_ps(row + t + k, _mm256_loadu_ps(ring + r + k));
            _mm256_storeu_ps(ring + w + k, v);
        }
        delay_samples(row, ring, wpos, mask, delay, t + vectors, t + run);
        t += run;
    }
}

} // namespace

void ffdn_postdelay_n16_avx2(float* block, float* ring, uint32_t* wpos, uint32_t size,
                             const uint32_t* delays, uint32_t n) {
    const uint32_t mask = size - 1;
    const uint32_t whole = n & ~7u;
    for (uint32_t line = 0; line < BRISEL_LINES; ++line) {
        const uint32_t delay = delays[line];
        if (delay == 0) continue;
        float* row = block + size_t{line} * n;
        float* line_ring = ring + size_t{line} * size;
        if (size < 16) {
            delay_samples(row, line_ring, *wpos, mask, delay, 0, n);
            continue;
        }
        if (delay >= 16)
            delay_through_ring(row, line_ring, *wpos, size, delay, whole);
        else if (whole > 0)
            delay_within_row(row, line_ring, *wpos, size, delay, whole);
        delay_samples(row, line_ring, *wpos, mask, delay, whole, n);
    }
    *wpos = (*wpos + n) & mask;
}
