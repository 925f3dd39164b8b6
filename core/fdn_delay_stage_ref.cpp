// The layout of the 16 main delay lines in one shared storage and, sample by sample, what the
// vector kernels fdn_delay_block_read_n16_avx2 and fdn_delay_block_write_n16_avx2 do by the block.
#include "brisel/fdn_delay_stage_ref.h"

#include <algorithm>
#include <cstddef>

#include "core/network_math.h"

namespace {

// The four arrays that a `lines` argument consists of.
struct LineArrays {
    explicit LineArrays(uint32_t* lines)
        : offset(lines), mask(lines + BRISEL_LINES), delay(lines + size_t{2} * BRISEL_LINES),
          wpos(lines + size_t{3} * BRISEL_LINES) {}
    uint32_t* offset;
    uint32_t* mask;
    uint32_t* delay;
    uint32_t* wpos;
};

} // namespace

uint64_t delay_lines_init(uint32_t* lines, const uint32_t* buffer_sizes, const uint32_t* delays) {
    const LineArrays l(lines);
    uint64_t total = 0;
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const uint32_t size = buffer_sizes[line];
        const uint32_t delay = delays[line];
        if (!brisel::is_power_of_two(size) || delay >= size) return 0;
        l.offset[line] = static_cast<uint32_t>(total);
        l.mask[line] = size - 1;
        l.delay[line] = delay;
        l.wpos[line] = 0;
        total += size;
    }
    return total;
}

void fdn_delay_stage_ref_n16(float* ring, uint32_t* lines, const float* in, float* out) {
    const LineArrays l(lines);
    float delayed[BRISEL_LINES];
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const uint32_t rpos = (l.wpos[line] - l.delay[line]) & l.mask[line];
        delayed[line] = ring[l.offset[line] + rpos];
    }
    for (int line = 0; line < BRISEL_LINES; ++line) {
        ring[l.offset[line] + l.wpos[line]] = in[line];
        l.wpos[line] = (l.wpos[line] + 1) & l.mask[line];
    }
    std::copy_n(delayed, BRISEL_LINES, out); // last, because `out` may be `in`
}
