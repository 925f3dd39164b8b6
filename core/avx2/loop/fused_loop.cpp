// The fused feedback loop.
//
// A block runs in pieces of 128 frames, a piece in tiles of eight. Rows are lines, eight lanes are
// eight frames of a line; between filter and injection they are eight lines of a frame:
//
//   main rings --A--> stage 0 --B--> stage 1 --C--> stage 2 --D--> filtered tiles --E--> results
//       ^                                                                                   |
//       +--------------- flushed row by row, while the next piece runs A -------------------+
//
//   A   output sums; transform into the rows of stage 0
//   B   out of stage 0, delays 0, 1 .. 15; transform           with two stages and more
//   C   out of stage 1, delays 0, 16 .. 240; transform         with three stages
//   D   out of the last stage; transposition; two-band filter, frame by frame
//   E   transposition back; injection
//
// With broadband decay D and E are one step without transpositions.
//
// What makes it fast, beside the steps' own work:
//   - A block's samples pass through the first-level cache only: A reads the main rings in place,
//     and the results are flushed in runs of 128 samples. All 16 write positions are equal modulo 4
//     KiB, that is, in one cache set: writing them tile by tile would throw each line out before it
//     is full.
//   - Stage 0's rings hold 16 samples, so its rows live in a linear scratch that keeps the last 16
//     samples of the piece before. The other rings' delays and positions are multiples of eight: a
//     tile never wraps.
//   - The filter's recursion takes four cycles a frame. E of the tile before and B and C of the
//     next one stand between two of its tiles and fill them.
#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "core/avx2/loop/feedback_loop.h"
#include "core/avx2/loop/lanes.h"
#include "core/avx2/loop/loop_parts.h"
#include "core/avx2/loop/main_lines.h"
#include "core/avx2/runs.h"
#include "core/avx2/tiles.h"

namespace brisel {
namespace {

// The default cascade: stage s delays line i by i * 16^s samples, in rings of 16^(s+1).
constexpr uint32_t kStage0Ring = 16;
constexpr uint32_t kStage1Ring = 256;
constexpr uint32_t kStage2Ring = 4096;

constexpr size_t kStage0Row = kStage0Ring + kPiece;

template <size_t kGainPeriod>
struct alignas(64) Workspace {
    float stage0_rows[BRISEL_LINES][kStage0Row]; // 16 samples of history, then the piece
    float stage1_line0[kStage1Ring];         // line 0 is not delayed and must not touch its rings
    float stage2_rows[BRISEL_LINES][kPiece]; // what stage 2 receives in this piece
    FilteredTiles filtered;
    float results[BRISEL_LINES][kPiece]; // what the main rings receive
    LaneGains<kGainPeriod> in_gains;
    LaneGains<kGainPeriod> out_gains;
    const float* reads[BRISEL_LINES]; // where this piece's delayed samples stand
    float* next_writes[BRISEL_LINES]; // where its results will go
    float* writes[BRISEL_LINES];      // where the results that are there go
};

template <int K, Decay kDecay, bool kStereoIn, bool kAlternating>
class FusedLoop {
public:
    FusedLoop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, const PreparedLines& prepared)
        : e_(e), io_(io), n_(n), lines_(e, prepared) {}

    void run() {
        exchange_history<Direction::kTake>(0);
        uint32_t length = 0;
        for (uint32_t t = 0; t < n_; t += length) {
            length = std::min(kPiece, n_ - t);
            if (t > 0) keep_history();
            lines_.find_reads(ws_.reads, t, length);
            const uint32_t wrapping = lines_.find_writes(ws_.next_writes, t, length);
            if (lines_.exceed_cache())
                mix_out<true>(t, length);
            else
                mix_out<false>(t, length);
            feed_back(t, length);
            std::copy_n(ws_.next_writes, BRISEL_LINES, ws_.writes);
            flush_wrapping_rows(wrapping, t, length);
        }
        flush_piece(n_ - length, length);
        advance_positions(e_, n_);
        exchange_history<Direction::kGive>(length);
    }

private:
    enum class Direction { kTake, kGive };
    static constexpr size_t kGainPeriod = kAlternating ? 2 : BRISEL_LINES;

    // Between stage 0's rings, whose position is a multiple of eight, and the 16 samples that stand
    // before frame `end` of its rows, oldest first.
    template <Direction direction>
    void exchange_history(uint32_t end) {
        const size_t older = e_.stages[0].wpos; // 0 or 8
        for (size_t line = 1; line < BRISEL_LINES; ++line) {
            float* ring = e_.stages[0].ring + line * kStage0Ring;
            float* row = ws_.stage0_rows[line] + end;
            float* const halves[2][2] = {{ring + older, row}, {ring + (older ^ 8), row + 8}};
            for (const auto& [in_ring, in_row] : halves) {
                if (direction == Direction::kTake)
                    _mm256_storeu_ps(in_row, _mm256_loadu_ps(in_ring));
                else
                    _mm256_storeu_ps(in_ring, _mm256_loadu_ps(in_row));
            }
        }
    }

    void keep_history() {
        for (auto& row : ws_.stage0_rows) copy_vectors(row, row + kPiece, kStage0Ring);
    }

    // The few rows that wrap are flushed at once, and stay where they are when their turn comes.
    void flush_wrapping_rows(uint32_t wrapping, uint32_t t, uint32_t length) {
        for (; wrapping != 0; wrapping &= wrapping - 1) {
            const auto line = static_cast<uint32_t>(__builtin_ctz(wrapping));
            lines_.write_wrapped(line, ws_.results[line], t, length);
            ws_.writes[line] = ws_.results[line];
        }
    }

    // Writes one row of results into its main ring and, with three stages, what stage 2 received.
    // All positions and lengths are multiples of eight.
    inline __attribute__((always_inline)) void flush_row(uint32_t line, uint32_t t,
                                                         uint32_t length) {
        copy_vectors(ws_.writes[line], ws_.results[line], length);
        if (K == 3 && line > 0)
            write_ring(e_.stages[2].ring + size_t{line} * kStage2Ring, kStage2Ring - 1,
                       e_.stages[2].wpos + t, ws_.stage2_rows[line], length);
    }

    // Straight code for the usual lengths, 2 % of the time of a block of 64 frames.
    void flush_piece(uint32_t t, uint32_t length) {
        const auto flush_rows = [&](uint32_t n) __attribute__((always_inline)) {
            for (uint32_t line = 0; line < BRISEL_LINES; ++line) flush_row(line, t, n);
        };
        if (length == kPiece)
            flush_rows(kPiece);
        else if (length == kPiece / 2)
            flush_rows(kPiece / 2);
        else
            flush_rows(length);
    }

    static void write_ring(float* ring, uint32_t mask, uint32_t position, const float* row,
                           uint32_t length) {
        const uint32_t at = position & mask;
        const uint32_t first = std::min(mask + 1 - at, length);
        copy_vectors(ring + at, row, first);
        copy_vectors(ring, row + first, length - first);
    }

    // A. Meanwhile the piece before is flushed, a row a tile, so that its cache misses overlap with
    // arithmetic.
    template <bool kFetchAhead>
    __attribute__((noinline)) void mix_out(uint32_t t0, uint32_t length) {
        ws_.out_gains.set(0, e_.out_left);
        ws_.out_gains.set(1, e_.out_right);
        const auto gain_of = ws_.out_gains.reader();
        // Alternating gains stay in registers, as far as these reach.
        const __m256 pair[2][2] = {{gain_of(0, 0), gain_of(0, 1)}, {gain_of(1, 0), gain_of(1, 1)}};
        const auto gain = [&](size_t side, size_t line) {
            return kAlternating ? pair[side][line % 2] : gain_of(side, line);
        };
        uint32_t line_to_flush = t0 > 0 ? 0 : BRISEL_LINES;
        mix_out_piece<true, kStage0Row>(ws_.reads, gain, {e_.direct_left, e_.direct_right},
                                        io_.x_left + t0, io_.y_left + t0, io_.y_right + t0,
                                        ws_.stage0_rows[0] + kStage0Ring, length, [&](size_t p) {
                                            if (kFetchAhead) {
                                                MainLines::fetch_ahead(ws_.reads, p);
                                                MainLines::fetch_ahead(ws_.next_writes, p);
                                            }
                                            if (line_to_flush < BRISEL_LINES)
                                                flush_row(line_to_flush++, t0 - kPiece, kPiece);
                                        });
        while (line_to_flush < BRISEL_LINES) flush_row(line_to_flush++, t0 - kPiece, kPiece);
    }

    // The stages' rings and their positions at a piece's first frame, in local variables: stores of
    // vectors may alias anything, so that the compiler would load members again after each of them.
    struct Stages {
        float* ring1;
        const float* ring2;
        uint32_t wpos1;
        uint32_t wpos2;
    };

    // B to E.
    __attribute__((noinline)) void feed_back(uint32_t t0, uint32_t length) {
        const Stages stages{e_.stages[1].ring, e_.stages[2].ring, e_.stages[1].wpos + t0,
                            e_.stages[2].wpos + t0};
        ws_.in_gains.set(0, kStereoIn ? e_.in_left : e_.in_gain);
        ws_.in_gains.set(1, e_.in_right);
        feed_back_piece<kDecay, kStereoIn, kPiece>(
            e_, kDecay == Decay::kGliding ? io_.shelf_rows + kShelfStep * t0 : nullptr,
            ws_.filtered, ws_.in_gains, io_.x_left + t0, kStereoIn ? io_.x_right + t0 : nullptr,
            ws_.results[0], length,
            [&](size_t p) __attribute__((always_inline)) {
                if (K >= 2) stage0_into_1(stages, p);
                if (K >= 3) stage1_into_2(stages, p);
            },
            [&](size_t line, size_t p) __attribute__((always_inline)) {
                return K == 1   ? stage0_output(line, p)
                       : K == 2 ? stage1_output(stages, line, p)
                                : stage2_output(stages, line, p);
            });
    }

    // Line i stands i samples back.
    const float* stage0_output(size_t i, size_t p) const {
        return ws_.stage0_rows[0] + kStage0Ring + p + i * (kStage0Row - 1);
    }

    const float* stage1_output(const Stages& stages, size_t i, size_t p) const {
        const size_t r = (stages.wpos1 + p - 16 * i) & (kStage1Ring - 1);
        return i == 0 ? ws_.stage1_line0 + r : stages.ring1 + i * kStage1Ring + r;
    }

    // Only line 0's is of this piece.
    const float* stage2_output(const Stages& stages, size_t i, size_t p) const {
        const size_t r = (stages.wpos2 + p - 256 * i) & (kStage2Ring - 1);
        return i == 0 ? ws_.stage2_rows[0] + p : stages.ring2 + i * kStage2Ring + r;
    }

    // B.
    inline __attribute__((always_inline)) void stage0_into_1(const Stages& stages, size_t p) {
        const size_t w = (stages.wpos1 + p) & (kStage1Ring - 1);
        const float* in = opaque(stage0_output(0, p));
        float* line0 = opaque(ws_.stage1_line0 + w);
        float* out = opaque(stages.ring1 + w);
        fwht_tile([&](size_t i) { return in + i * (kStage0Row - 1); },
                  [&](size_t i) { return i == 0 ? line0 : out + i * kStage1Ring; });
    }

    // C.
    inline __attribute__((always_inline)) void stage1_into_2(const Stages& stages, size_t p) {
        float* out = opaque(ws_.stage2_rows[0] + p);
        fwht_tile([&](size_t i) { return stage1_output(stages, i, p); },
                  [&](size_t i) { return out + i * kPiece; });
    }

    ffdn_block_n16& e_;
    const BlockSignals io_;
    const uint32_t n_;
    MainLines lines_;
    Workspace<kGainPeriod> ws_;
};

// Every gain equals the one two lines before, to the bit.
bool alternates(const float* gains) {
    const auto bits = [](const float* from) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    };
    const __m256i first = bits(gains);
    const __m256i pair = _mm256_permute4x64_epi64(first, 0); // gains 0 and 1, four times
    const __m256i equal = _mm256_and_si256(_mm256_cmpeq_epi32(pair, first),
                                           _mm256_cmpeq_epi32(pair, bits(gains + 8)));
    return lanes(equal) == 0xff;
}

// The default cascade's stage s, at a position from which no tile wraps.
bool default_stage(const ffdn_block_stage& stage, int s) {
    const __m256i ramp = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i low = _mm256_slli_epi32(ramp, 4 * s);
    const __m256i high = _mm256_slli_epi32(_mm256_add_epi32(ramp, _mm256_set1_epi32(8)), 4 * s);
    const __m256i equal = _mm256_and_si256(_mm256_cmpeq_epi32(load_lines(stage.delays), low),
                                           _mm256_cmpeq_epi32(load_lines(stage.delays + 8), high));
    return lanes(equal) == 0xff && stage.wpos % kTile == 0;
}

// No tile wraps in the main rings' new samples.
bool aligned_positions(const ffdn_block_n16& e) {
    const __m256i both = _mm256_or_si256(load_lines(e.line_wpos), load_lines(e.line_wpos + 8));
    return _mm256_testz_si256(both, broadcast(kTile - 1));
}

bool all_alternate(const ffdn_block_n16& e, bool stereo_in) {
    return alternates(e.out_left) && alternates(e.out_right) &&
           (stereo_in ? alternates(e.in_left) && alternates(e.in_right) : alternates(e.in_gain));
}

// The instances' numbers: number of stages, two bands, stereo input, alternating gains; then those
// whose coefficients glide, by number of stages.
constexpr size_t kGlidingShapes = 24;
template <size_t shape>
using FusedShape = std::conditional_t<
    (shape < kGlidingShapes),
    FusedLoop<1 + shape / 8 % 3, (shape / 4 % 2 > 0) ? Decay::kTwoBand : Decay::kBroadband,
              (shape / 2 % 2 > 0), (shape % 2 > 0)>,
    FusedLoop<1 + shape % 3, Decay::kGliding, true, true>>;
constexpr auto kLoops = loop_table<FusedShape>(std::make_index_sequence<kGlidingShapes + 3>());

} // namespace

bool fused_loop_applies(const ffdn_block_n16& e, const BlockSignals& io) {
    if (e.stage_count < 1 || !io.y_right) return false;
    for (int s = 0; s < e.stage_count; ++s)
        if (!default_stage(e.stages[s], s)) return false;
    return aligned_positions(e);
}

void run_fused_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                    const PreparedLines& prepared) {
    const auto stages = static_cast<size_t>(e.stage_count - 1);
    const bool stereo_in = io.x_right;
    const size_t shape = io.shelf_rows ? kGlidingShapes + stages
                                       : 8 * stages + (e.two_band ? 4 : 0) + (stereo_in ? 2 : 0) +
                                             (all_alternate(e, stereo_in) ? 1 : 0);
    kLoops[shape](e, io, n, prepared);
}

} // namespace brisel
