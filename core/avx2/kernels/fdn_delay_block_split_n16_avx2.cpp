// Whole-block transfers between the main delay lines and a line-major block.
#include "brisel/kernels_avx2.h"
#include "core/avx2/runs.h"

namespace {

// The four arrays of a `lines` argument.
constexpr uint32_t kOffset = 0;
constexpr uint32_t kMask = 16;
constexpr uint32_t kDelay = 32;
constexpr uint32_t kWpos = 48;

} // namespace

void fdn_delay_block_read_n16_avx2(const float* ring, const uint32_t* lines, float* block,
                                   uint32_t n) {
    for (uint32_t line = 0; line < BRISEL_LINES; ++line) {
        const uint32_t mask = lines[kMask + line];
        const uint32_t start = (lines[kWpos + line] - lines[kDelay + line]) & mask;
        brisel::copy_from_ring(block + size_t{line} * n, ring + lines[kOffset + line], mask + 1,
                               start, n);
    }
}

void fdn_delay_block_write_n16_avx2(float* ring, uint32_t* lines, const float* block, uint32_t n) {
    for (uint32_t line = 0; line < BRISEL_LINES; ++line) {
        const uint32_t mask = lines[kMask + line];
        uint32_t& wpos = lines[kWpos + line];
        brisel::copy_to_ring(ring + lines[kOffset + line], mask + 1, wpos, block + size_t{line} * n,
                             n);
        wpos = (wpos + n) & mask;
    }
}
