// Where the samples of a piece stand in the main delay lines.
#ifndef BRISEL_CORE_AVX2_LOOP_MAIN_LINES_H
#define BRISEL_CORE_AVX2_LOOP_MAIN_LINES_H

#include <immintrin.h>

#include "brisel/ffdn_block.h"
#include "core/avx2/runs.h"

namespace brisel {

// Eight lines' integers.
inline __m256i load_lines(const uint32_t* lines) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(lines));
}

inline __m256i broadcast(uint32_t x) {
    return _mm256_set1_epi32(static_cast<int32_t>(x));
}

// A condition's lanes, a bit each.
inline uint32_t lanes(__m256i condition) {
    return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(condition)));
}

// The lines during one block of n frames. Their write positions stay where they are until the
// block's end; a piece names the frame t at which it starts. `prepared`: see feedback_loop.h.
class MainLines {
public:
    MainLines(ffdn_block_n16& e, uint32_t n, uint32_t prepared)
        : e_(e), n_(n), prepared_(prepared) {}

    // The addresses of the `length` delayed samples of each line: in its ring, in tap_block if it
    // is prepared or, where they wrap, in a copy.
    void find_reads(const float** rows, uint32_t t, uint32_t length) const {
        uint32_t elsewhere = locate(rows, e_.line_delay, t, length) | prepared_;
        for (; elsewhere != 0; elsewhere &= elsewhere - 1) {
            const auto line = static_cast<uint32_t>(__builtin_ctz(elsewhere));
            rows[line] = row_outside_ring(line, t, length);
        }
    }

    // The addresses that the lines' new samples go to; returns, a bit each, the lines
    // where these wrap.
    uint32_t find_writes(float** rows, uint32_t t, uint32_t length) const {
        return locate(rows, nullptr, t, length);
    }

    // Where the rings exceed the second-level cache, the processor loses track of what 16 lines
    // read and write: a block takes 1.2 to 1.5 times as long unless fetch_ahead helps.
    bool exceed_cache() const { return e_.ring_len >= 1u << 20; }

    // Asks for what lies 192 frames behind tile p of `rows`: for half of the lines, since two tiles
    // share a cache line, and the other half's turn is the next tile. Lines to be written are
    // fetched, too. A few tiles at a time: all of a piece at once is no help.
    static inline __attribute__((always_inline)) void fetch_ahead(const float* const* rows,
                                                                  size_t p) {
#pragma GCC unroll 8
        for (size_t k = 0; k < 8; ++k)
            _mm_prefetch(reinterpret_cast<const char*>(rows[(p & 8) + k] + p + 192), _MM_HINT_T1);
    }

    // New samples, for a line where they wrap.
    void write_wrapped(uint32_t line, const float* row, uint32_t t, uint32_t length) const {
        const uint32_t mask = e_.line_mask[line];
        copy_to_ring(e_.ring + e_.line_offset[line], mask + 1, (e_.line_wpos[line] + t) & mask, row,
                     length);
    }

private:
    // Addresses of what stands `delay` samples before frame t, a null delay for the write position.
    template <typename Pointer>
    uint32_t locate(Pointer* to, const uint32_t* delay, uint32_t t, uint32_t length) const {
        uint32_t wrapping = 0;
        for (uint32_t first = 0; first < BRISEL_LINES; first += 8) {
            const __m256i mask = load_lines(e_.line_mask + first);
            __m256i at = _mm256_add_epi32(load_lines(e_.line_wpos + first), broadcast(t));
            if (delay) at = _mm256_sub_epi32(at, load_lines(delay + first));
            at = _mm256_and_si256(at, mask);
            const __m256i last = _mm256_add_epi32(at, broadcast(length - 1));
            const __m256i index = _mm256_add_epi32(load_lines(e_.line_offset + first), at);
            const __m256i ring = _mm256_set1_epi64x(reinterpret_cast<intptr_t>(e_.ring));
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

    // Prepared lines have a row for the whole block; others are copied to work_block.
    __attribute__((noinline)) const float* row_outside_ring(uint32_t line, uint32_t t,
                                                            uint32_t length) const {
        if (prepared_ >> line & 1) return e_.tap_block + size_t{line} * n_ + t;
        const uint32_t mask = e_.line_mask[line];
        float* row = e_.work_block + size_t{line} * length;
        copy_from_ring(row, e_.ring + e_.line_offset[line], mask + 1,
                       (e_.line_wpos[line] + t - e_.line_delay[line]) & mask, length);
        return row;
    }

    ffdn_block_n16& e_;
    const uint32_t n_;
    const uint32_t prepared_;
};

} // namespace brisel

#endif
