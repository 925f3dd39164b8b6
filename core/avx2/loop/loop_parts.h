// What the two AVX2 loops are made of: pieces and tiles, gains in lanes, the end of a turn from the
// last stage to the new samples.
#ifndef BRISEL_CORE_AVX2_LOOP_LOOP_PARTS_H
#define BRISEL_CORE_AVX2_LOOP_LOOP_PARTS_H

#include <immintrin.h>

#include <array>
#include <cstddef>
#include <utility>

#include "core/avx2/loop/feedback_loop.h"
#include "core/avx2/loop/main_lines.h"
#include "core/avx2/tiles.h"

namespace brisel {

constexpr uint32_t kTile = 8;    // frames, one vector of a line
constexpr uint32_t kPiece = 128; // frames; the rows of a piece stay in the first-level cache

// Gains of the lines on both sides (0 left, 1 right), each in all lanes of a vector. Gains that
// repeat after kPeriod lines stand there once.
template <size_t kPeriod>
struct LaneGains {
    alignas(32) float lanes[2][kPeriod][8];

    void set(size_t side, const float* gains) {
        for (size_t line = 0; line < kPeriod; ++line)
            _mm256_store_ps(lanes[side][line], _mm256_set1_ps(gains[line]));
    }

    // gain(side, line), from memory, where a fused operation takes it for nothing.
    auto reader() const {
        return [from = opaque(lanes[0][0])](size_t side, size_t line) {
            return _mm256_load_ps(from + 8 * (side * kPeriod + line % kPeriod));
        };
    }
};

// Filter output of two tiles: [tile][lines 0-7, 8-15][frame][line].
using FilteredTiles = float[2][2][8][8];

// The end of a turn, for a piece: decay and injection into rows of kOutRow floats. First in each
// tile comes `before(p)`, work of the caller's; then `row(line, p)` gives the address of the last
// stage's output.
//
// The two-band filter's recursion takes four cycles a frame. The injection of the tile before and
// the caller's work for the next one stand between two of its tiles and fill them.
//
// `shelf_rows`, where coefficients glide, starts with the row of the first tile.
//
// Where signals and rows stand comes by value: stores of vectors may alias anything, so that the
// compiler would load a member again after each of them.
template <Decay kDecay, bool kStereoIn, size_t kOutRow, size_t kPeriod, typename Before,
          typename Row>
inline __attribute__((always_inline)) void
feed_back_piece(ffdn_block_n16& e, const float* shelf_rows, FilteredTiles& filtered,
                const LaneGains<kPeriod>& in_gains, const float* x_left, const float* x_right,
                float* out, size_t length, Before before, Row row) {
    const auto right_input = [=](size_t p) {
        return kStereoIn ? _mm256_loadu_ps(x_right + p) : _mm256_setzero_ps();
    };
    if (kDecay == Decay::kBroadband) {
        for (size_t p = 0; p < length; p += kTile) {
            before(p);
            float* to = opaque(out + p);
            decay_tile<kStereoIn>(
                e.decay_gain, _mm256_loadu_ps(x_left + p), right_input(p),
                [&](size_t line) { return row(line, p); }, in_gains.reader(),
                [&](size_t line) { return to + line * kOutRow; });
        }
        return;
    }
    const auto inject = [&](const float* tile, size_t p) __attribute__((always_inline)) {
        float* to = opaque(out + p);
        inject_tile<kStereoIn>(tile, _mm256_loadu_ps(x_left + p), right_input(p), in_gains.reader(),
                               [&](size_t line) { return to + line * kOutRow; });
    };
    __m256 memory[2] = {_mm256_loadu_ps(e.shelf_state), _mm256_loadu_ps(e.shelf_state + 8)};
    float* now = filtered[0][0][0];
    float* last = filtered[1][0][0];
    size_t p = 0;
    for (; p < length; p += kTile) {
        before(p);
        if (p > 0) inject(last, p - kTile);
        const auto delayed = [&](size_t line) { return row(line, p); };
        if (kDecay == Decay::kGliding)
            filter_gliding_tile(now, shelf_rows + kShelfStep * p, memory, delayed);
        else
            filter_tile(now, e.shelf_b0, memory, delayed);
        std::swap(now, last);
    }
    inject(last, p - kTile);
    _mm256_storeu_ps(e.shelf_state, memory[0]);
    _mm256_storeu_ps(e.shelf_state + 8, memory[1]);
}

// A loop has an instance for each shape of a network: a table of them by the shape's number.
template <typename Loop>
void run_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
              const PreparedLines& prepared) {
    Loop(e, io, n, prepared).run();
}

template <template <size_t> typename Loop, size_t... shape>
constexpr auto loop_table(std::index_sequence<shape...>) {
    return std::array{run_loop<Loop<shape>>...};
}

} // namespace brisel

#endif
