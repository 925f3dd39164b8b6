#include "core/avx2/loop/main_lines.h"

#include <immintrin.h>

#include "core/avx2/loop/lanes.h"
#include "core/avx2/runs.h"

namespace brisel {
namespace {

// Addresses of what stands `delay` samples before frame t, a null delay for the write position.
// Returns, a bit each, the lines where `length` samples wrap.
template <typename Pointer>
uint32_t locate(const ffdn_block_n16& e, Pointer* to, const uint32_t* delay, uint32_t t,
                uint32_t length) {
    uint32_t wrapping = 0;
    for (uint32_t first = 0; first < BRISEL_LINES; first += 8) {
        const __m256i mask = load_lines(e.line_mask + first);
        __m256i at = _mm256_add_epi32(load_lines(e.line_wpos + first), broadcast(t));
        if (delay) at = _mm256_sub_epi32(at, load_lines(delay + first));
        at = _mm256_and_si256(at, mask);
        const __m256i last = _mm256_add_epi32(at, broadcast(length - 1));
        const __m256i index = _mm256_add_epi32(load_lines(e.line_offset + first), at);
        const __m256i ring = _mm256_set1_epi64x(reinterpret_cast<intptr_t>(e.ring));
        for (size_t half = 0; half < 2; ++half) {
            const __m128i four =
                half ? _mm256_extracti128_si256(index, 1) : _mm256_castsi256_si128(index);
            const __m256i bytes = _mm256_slli_epi64(_mm256_cvtepu32_epi64(four), 2);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + first + 4 * half),
                                _mm256_add_epi64(ring, bytes));
        }
        wrapping |= lanes(_mm256_cmpgt_epi32(last, mask)) << first;
    }
    return wrapping;
}

} // namespace

void MainLines::find_reads(const float** rows, uint32_t t, uint32_t length) const {
    uint32_t elsewhere = locate(e_, rows, e_.line_delay, t, length) | prepared_.lines;
    for (; elsewhere != 0; elsewhere &= elsewhere - 1) {
        const auto line = static_cast<uint32_t>(__builtin_ctz(elsewhere));
        rows[line] = row_outside_ring(line, t, length);
    }
}

uint32_t MainLines::find_writes(float** rows, uint32_t t, uint32_t length) const {
    return locate(e_, rows, nullptr, t, length);
}

void MainLines::write_wrapped(uint32_t line, const float* row, uint32_t t, uint32_t length) const {
    const uint32_t mask = e_.line_mask[line];
    copy_to_ring(e_.ring + e_.line_offset[line], mask + 1, (e_.line_wpos[line] + t) & mask, row,
                 length);
}

// Prepared lines have a row for the whole block; others are copied to work_block.
const float* MainLines::row_outside_ring(uint32_t line, uint32_t t, uint32_t length) const {
    if (prepared_.lines >> line & 1) return prepared_.rows + line * prepared_.stride + t;
    const uint32_t mask = e_.line_mask[line];
    float* row = e_.work_block + size_t{line} * length;
    copy_from_ring(row, e_.ring + e_.line_offset[line], mask + 1,
                   (e_.line_wpos[line] + t - e_.line_delay[line]) & mask, length);
    return row;
}

void advance_positions(ffdn_block_n16& e, uint32_t n) {
    for (size_t first = 0; first < BRISEL_LINES; first += 8) {
        const __m256i next = _mm256_add_epi32(load_lines(e.line_wpos + first), broadcast(n));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(e.line_wpos + first),
                            _mm256_and_si256(next, load_lines(e.line_mask + first)));
    }
    for (int32_t s = 0; s < e.stage_count; ++s)
        e.stages[s].wpos = (e.stages[s].wpos + n) & e.stages[s].mask;
}

} // namespace brisel
