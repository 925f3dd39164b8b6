// The fused feedback loop for processors with AVX-512: the steps of core/avx2/loop/fused_loop.cpp,
// whose diagram and letters hold here, in tiles of 16 frames by 16 lines. A tile has half the
// instructions for each frame, and its 16 rows fit into the registers:
//
//   - A and B are one step. Stage 0's rings hold 16 samples, a tile: what its lines put out is this
//     tile's row, shifted into the row of the tile before, which stands in the ring.
//   - All 16 lines of a frame are one register in the two-band filter, whose recursion takes four
//     cycles a frame. E of the tile before and A and B of the next one stand around it and fill
//     them.
//   - One loop body does all steps of a tile. So two pieces' results exist at a time: one is
//     computed, the other flushed.
#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "core/avx2/loop/main_lines.h"
#include "core/avx512/tiles16.h"
#include "core/avx512/units.h"

namespace brisel {
namespace {

constexpr uint32_t kTile = 16;   // frames, one register of a line
constexpr uint32_t kPiece = 128; // frames

// The default cascade: stage s delays line i by i * 16^s samples, in rings of 16^(s+1).
constexpr size_t kStage0Ring = 16;
constexpr size_t kStage1Ring = 256;
constexpr size_t kStage2Ring = 4096;

using PieceRows = float[BRISEL_LINES][kPiece];

struct alignas(64) Workspace {
    float filtered[kTile][BRISEL_LINES]; // filter output of one tile, frame by frame
    float undelayed[kTile];              // line 0's output of the last stage
    PieceRows results[2];                // what the main rings receive
    const float* reads[BRISEL_LINES];    // where this piece's delayed samples stand
    float* next_writes[BRISEL_LINES];    // where its results will go
    float* writes[BRISEL_LINES];         // where the results of the piece before go
};

inline __attribute__((always_inline)) void copy_tiles(float* to, const float* from, size_t count) {
#pragma GCC unroll 8
    for (size_t t = 0; t < count; t += kTile) _mm512_storeu_ps(to + t, _mm512_loadu_ps(from + t));
}

template <int K, Decay kDecay, bool kStereoIn>
class WideLoop {
public:
    WideLoop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, const PreparedLines& prepared)
        : e_(e), io_(io), n_(n), lines_(e, prepared) {}

    void run() {
        uint32_t length = 0;
        for (uint32_t t = 0; t < n_; t += length) {
            length = std::min(kPiece, n_ - t);
            lines_.find_reads(ws_.reads, t, length);
            const uint32_t wrapping = lines_.find_writes(ws_.next_writes, t, length);
            if (lines_.exceed_cache())
                run_piece<true>(t, length);
            else
                run_piece<false>(t, length);
            std::copy_n(ws_.next_writes, BRISEL_LINES, ws_.writes);
            flush_wrapping_rows(wrapping, t, length);
            piece_ ^= 1;
        }
        flush_piece(length);
        advance_positions(e_, n_);
    }

private:
    // The few rows that wrap are flushed at once, and stay where they are when their turn comes.
    void flush_wrapping_rows(uint32_t wrapping, uint32_t t, uint32_t length) {
        for (; wrapping != 0; wrapping &= wrapping - 1) {
            const auto line = static_cast<uint32_t>(__builtin_ctz(wrapping));
            float* row = ws_.results[piece_][line];
            lines_.write_wrapped(line, row, t, length);
            ws_.writes[line] = row;
        }
    }

    // Writes one row of the piece before into its main ring.
    inline __attribute__((always_inline)) void flush_row(size_t line, size_t length) {
        copy_tiles(ws_.writes[line], ws_.results[piece_ ^ 1][line], length);
    }

    // Straight code for a block's last piece of the usual lengths, 3 % of the instructions of a
    // block of 64 frames.
    void flush_piece(size_t length) {
        const auto flush_rows = [&](size_t n) __attribute__((always_inline)) {
            for (size_t line = 0; line < BRISEL_LINES; ++line) flush_row(line, n);
        };
        if (length == kPiece)
            flush_rows(kPiece);
        else if (length == kPiece / 2)
            flush_rows(kPiece / 2);
        else
            flush_rows(length);
    }

    template <bool kFetchAhead>
    __attribute__((noinline)) void run_piece(uint32_t t0, uint32_t length) {
        // In local variables: stores of vectors may alias anything, so that the compiler would load
        // members again after each of them.
        const uint32_t wpos1 = e_.stages[1].wpos + t0;
        const uint32_t wpos2 = e_.stages[2].wpos + t0;
        float* const ring1 = e_.stages[1].ring;
        float* const ring2 = e_.stages[2].ring;
        float* const results = ws_.results[piece_][0];
        __m512 memory = _mm512_loadu_ps(e_.shelf_state);
        // Two rows of the piece before a tile, apart, so that their cache misses overlap with
        // arithmetic.
        size_t line_to_flush = t0 > 0 ? 0 : BRISEL_LINES;
        const auto flush_next = [&]() __attribute__((always_inline)) {
            if (line_to_flush < BRISEL_LINES) flush_row(line_to_flush++, kPiece);
        };

        for (size_t p = 0; p < length; p += kTile) {
            if (kFetchAhead) {
                for (size_t half = p; half < p + kTile; half += 8) {
                    MainLines::fetch_ahead(ws_.reads, half);
                    MainLines::fetch_ahead(ws_.next_writes, half);
                }
            }
            Tile16 x;
            mix_out(x, t0, p);
            delay_by_stage0(x);
            flush_next();
            if (K >= 2) {
                fwht(x);
                store_rows(x, ring1 + ((wpos1 + p) & (kStage1Ring - 1)), kStage1Ring);
                load_delayed(x, ring1, wpos1 + p, kStage0Ring, kStage1Ring);
            }
            if (K >= 3) {
                fwht(x);
                store_rows(x, ring2 + ((wpos2 + p) & (kStage2Ring - 1)), kStage2Ring);
                load_delayed(x, ring2, wpos2 + p, kStage1Ring, kStage2Ring);
            }
            if (kDecay == Decay::kBroadband) {
                decay(x, t0, p, results);
            } else {
                transpose(x);
                if (p > 0) inject(t0, p - kTile, results);
                filter(x,
                       kDecay == Decay::kGliding ? io_.shelf_rows + kShelfStep * (t0 + p) : nullptr,
                       memory);
            }
            flush_next();
        }
        if (kDecay != Decay::kBroadband) {
            inject(t0, length - kTile, results);
            _mm512_storeu_ps(e_.shelf_state, memory);
        }
        for (; line_to_flush < BRISEL_LINES; ++line_to_flush) flush_row(line_to_flush, kPiece);
    }

    // A: output sums, each in the order of its lines; transform.
    inline __attribute__((always_inline)) void mix_out(Tile16& x, uint32_t t0, size_t p) {
        const __m512 dry = _mm512_loadu_ps(io_.x_left + t0 + p);
        __m512 left = _mm512_mul_ps(_mm512_set1_ps(e_.direct_left), dry);
        __m512 right = _mm512_mul_ps(_mm512_set1_ps(e_.direct_right), dry);
#pragma GCC unroll 16
        for (size_t line = 0; line < BRISEL_LINES; ++line) {
            x[line] = _mm512_loadu_ps(ws_.reads[line] + p);
            left = _mm512_fmadd_ps(_mm512_set1_ps(e_.out_left[line]), x[line], left);
            right = _mm512_fmadd_ps(_mm512_set1_ps(e_.out_right[line]), x[line], right);
        }
        _mm512_storeu_ps(io_.y_left + t0 + p, left);
        _mm512_storeu_ps(io_.y_right + t0 + p, right);
        fwht(x);
    }

    inline __attribute__((always_inline)) void delay_by_stage0(Tile16& x) {
        delay_by_stage0(x, e_.stages[0].ring, std::make_index_sequence<BRISEL_LINES - 1>());
    }

    template <size_t... k>
    inline __attribute__((always_inline)) void delay_by_stage0(Tile16& x, float* ring,
                                                               std::index_sequence<k...>) {
        (delay_line<k + 1>(x, ring + (k + 1) * kStage0Ring), ...);
    }

    // The ring takes the place of the tile before.
    template <size_t line>
    static inline __attribute__((always_inline)) void delay_line(Tile16& x, float* ring) {
        const __m512 row = x[line];
        x[line] = delayed_row<line>(row, ring);
        _mm512_storeu_ps(ring, row);
    }

    // What a stage receives. Its line 0 is not delayed, must not touch its ring and waits apart.
    inline __attribute__((always_inline)) void store_rows(const Tile16& x, float* to,
                                                          size_t stride) {
        _mm512_store_ps(ws_.undelayed, x[0]);
#pragma GCC unroll 16
        for (size_t line = 1; line < BRISEL_LINES; ++line)
            _mm512_storeu_ps(to + line * stride, x[line]);
    }

    // What it puts out, line i `step` * i samples late.
    inline __attribute__((always_inline)) void
    load_delayed(Tile16& x, const float* ring, size_t position, size_t step, size_t size) {
        x[0] = _mm512_load_ps(ws_.undelayed);
#pragma GCC unroll 16
        for (size_t line = 1; line < BRISEL_LINES; ++line)
            x[line] = _mm512_loadu_ps(ring + line * size + ((position - line * step) & (size - 1)));
    }

    // Two-band decay on columns: x[t] holds the lines of frame t.
    inline __attribute__((always_inline)) void filter(const Tile16& x, const float* shelf,
                                                      __m512& memory) {
        float* to = ws_.filtered[0];
        if (kDecay == Decay::kTwoBand) {
            const __m512 b0 = _mm512_loadu_ps(e_.shelf_b0);
            const __m512 a1 = _mm512_loadu_ps(e_.shelf_a1);
#pragma GCC unroll 16
            for (size_t t = 0; t < kTile; ++t) {
                memory = _mm512_fmadd_ps(a1, memory, _mm512_mul_ps(b0, x[t]));
                _mm512_store_ps(to + t * BRISEL_LINES, memory);
            }
            return;
        }
        const __m512 eighth = _mm512_set1_ps(0.125f);
#pragma GCC unroll 2
        for (size_t half = 0; half < kTile; half += 8, shelf += 8 * kShelfStep) {
            __m512 b0 = _mm512_loadu_ps(shelf);
            __m512 a1 = _mm512_loadu_ps(shelf + 16);
            const __m512 b0_step =
                _mm512_mul_ps(_mm512_sub_ps(_mm512_loadu_ps(shelf + 32), b0), eighth);
            const __m512 a1_step =
                _mm512_mul_ps(_mm512_sub_ps(_mm512_loadu_ps(shelf + 48), a1), eighth);
#pragma GCC unroll 8
            for (size_t t = half; t < half + 8; ++t) {
                b0 = _mm512_add_ps(b0, b0_step);
                a1 = _mm512_add_ps(a1, a1_step);
                memory = _mm512_fmadd_ps(a1, memory, _mm512_mul_ps(b0, x[t]));
                _mm512_store_ps(to + t * BRISEL_LINES, memory);
            }
        }
    }

    // E: back to rows; injection.
    inline __attribute__((always_inline)) void inject(uint32_t t0, size_t p, float* results) {
        Tile16 x;
#pragma GCC unroll 16
        for (size_t t = 0; t < kTile; ++t) x[t] = _mm512_load_ps(ws_.filtered[t]);
        transpose(x);
        add_input(x, t0, p, results);
    }

    // D and E with one gain a line.
    inline __attribute__((always_inline)) void decay(Tile16& x, uint32_t t0, size_t p,
                                                     float* results) {
#pragma GCC unroll 16
        for (size_t line = 0; line < BRISEL_LINES; ++line)
            x[line] = _mm512_mul_ps(x[line], _mm512_set1_ps(e_.decay_gain[line]));
        add_input(x, t0, p, results);
    }

    inline __attribute__((always_inline)) void add_input(const Tile16& x, uint32_t t0, size_t p,
                                                         float* results) {
        const float* gains = kStereoIn ? e_.in_left : e_.in_gain;
        const __m512 left = _mm512_loadu_ps(io_.x_left + t0 + p);
        const __m512 right =
            kStereoIn ? _mm512_loadu_ps(io_.x_right + t0 + p) : _mm512_setzero_ps();
#pragma GCC unroll 16
        for (size_t line = 0; line < BRISEL_LINES; ++line) {
            __m512 v = _mm512_fmadd_ps(_mm512_set1_ps(gains[line]), left, x[line]);
            if (kStereoIn) v = _mm512_fmadd_ps(_mm512_set1_ps(e_.in_right[line]), right, v);
            _mm512_store_ps(results + line * kPiece + p, v);
        }
    }

    ffdn_block_n16& e_;
    const BlockSignals io_;
    const uint32_t n_;
    const MainLines lines_;
    size_t piece_ = 0; // whose results are computed; the other one's are flushed
    Workspace ws_;
};

template <int K, Decay kDecay, bool kStereoIn>
void run_shape(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
               const PreparedLines& prepared) {
    WideLoop<K, kDecay, kStereoIn>(e, io, n, prepared).run();
}

template <int K>
void run_stages(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                const PreparedLines& prepared) {
    if (io.shelf_rows)
        run_shape<K, Decay::kGliding, true>(e, io, n, prepared);
    else if (e.two_band)
        io.x_right ? run_shape<K, Decay::kTwoBand, true>(e, io, n, prepared)
                   : run_shape<K, Decay::kTwoBand, false>(e, io, n, prepared);
    else
        io.x_right ? run_shape<K, Decay::kBroadband, true>(e, io, n, prepared)
                   : run_shape<K, Decay::kBroadband, false>(e, io, n, prepared);
}

} // namespace

void run_wide_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                   const PreparedLines& prepared) {
    if (e.stage_count == 1)
        run_stages<1>(e, io, n, prepared);
    else if (e.stage_count == 2)
        run_stages<2>(e, io, n, prepared);
    else
        run_stages<3>(e, io, n, prepared);
}

} // namespace brisel
