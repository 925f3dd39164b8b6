// The feedback loop for every network.
//
// A block runs in pieces, a piece in passes over its 16 rows, one a line:
//
//   main rings --A--> rows --[stage 0's delays]--B--> rows --[stage 1's]--B--> ... --C--> rings
//
//   A   output sums; transform
//   B   transform, between two stages
//   C   decay; injection
//
// No pass copies a row just to delay it: it reads each line through a pointer that stands as many
// samples back as the delay says. That is in the row itself, behind the samples of history that are
// copied in front of it, or, for a delay of a piece and more, in the stage's ring.
#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "core/avx2/loop/feedback_loop.h"
#include "core/avx2/loop/loop_parts.h"
#include "core/avx2/loop/main_lines.h"
#include "core/avx2/runs.h"
#include "core/avx2/tiles.h"

namespace brisel {
namespace {

// History, then the piece. The rest keeps the 16 rows of a tile out of one cache set.
constexpr size_t kRow = 2 * kPiece + 16;

struct alignas(64) Workspace {
    float rows[2][BRISEL_LINES][kRow];
    FilteredTiles filtered;
    LaneGains<BRISEL_LINES> in_gains;
    LaneGains<BRISEL_LINES> out_gains;
    const float* reads[BRISEL_LINES]; // what the next pass reads
    float* writes[BRISEL_LINES];      // where the results go
};

template <bool kStereoOut, bool kStereoIn, Decay kDecay>
class GenericLoop {
public:
    GenericLoop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                const PreparedLines& prepared)
        : e_(e), io_(io), n_(n), lines_(e, prepared) {
        ws_.out_gains.set(0, kStereoOut ? e.out_left : e.out_gain);
        if (kStereoOut) ws_.out_gains.set(1, e.out_right);
        ws_.in_gains.set(0, kStereoIn ? e.in_left : e.in_gain);
        if (kStereoIn) ws_.in_gains.set(1, e.in_right);
    }

    void run() {
        uint32_t length = 0;
        for (uint32_t t = 0; t < n_; t += length) {
            length = std::min(kPiece, n_ - t);
            lines_.find_reads(ws_.reads, t, length);
            mix_out(t, length);
            for (size_t line = 0; line < BRISEL_LINES; ++line)
                ws_.reads[line] = front_[line] + kPiece; // without stages
            for (int32_t s = 0; s < e_.stage_count; ++s) {
                if (s > 0) {
                    transform(length);
                    store(e_.stages[s - 1], t, length);
                    std::swap(front_, back_);
                }
                find_delayed(e_.stages[s], t, length);
            }
            feed_back(t, length);
            if (e_.stage_count > 0) store(e_.stages[e_.stage_count - 1], t, length);
            write_lines(t, length);
        }
        advance_positions(e_, n_);
    }

private:
    using Rows = float (*)[kRow];

    // A.
    __attribute__((noinline)) void mix_out(uint32_t t, uint32_t length) {
        const bool fetch_ahead = lines_.exceed_cache();
        mix_out_piece<kStereoOut, kRow>(
            ws_.reads, ws_.out_gains.reader(),
            {kStereoOut ? e_.direct_left : e_.direct_gain, e_.direct_right}, io_.x_left + t,
            io_.y_left + t, kStereoOut ? io_.y_right + t : nullptr, front_[0] + kPiece, length,
            [&](size_t p) {
                if (fetch_ahead) MainLines::fetch_ahead(ws_.reads, p);
            });
    }

    // B.
    __attribute__((noinline)) void transform(uint32_t length) {
        for (size_t p = 0; p < length; p += kTile) {
            float* out = opaque(back_[0] + kPiece + p);
            fwht_tile([&](size_t i) { return ws_.reads[i] + p; },
                      [&](size_t i) { return out + i * kRow; });
        }
    }

    // Finds the delayed samples of the rows in front_: behind themselves, in the ring or, where
    // they wrap, in a copy.
    __attribute__((noinline)) void find_delayed(const ffdn_block_stage& stage, uint32_t t,
                                                uint32_t length) {
        const uint32_t mask = stage.mask;
        const uint32_t w = stage.wpos + t;
        const float* ring = stage.ring;
        for (size_t line = 0; line < BRISEL_LINES; ++line, ring += stage.size) {
            float* row = front_[line] + kPiece;
            const uint32_t delay = stage.delays[line];
            const uint32_t at = (w - delay) & mask;
            if (delay < length) {
                const uint32_t history = (delay + 7) & ~7u;
                copy_from_ring(row - history, ring, stage.size, (w - history) & mask, history);
                ws_.reads[line] = row - delay;
            } else if (at + length <= stage.size) {
                ws_.reads[line] = ring + at;
            } else {
                ws_.reads[line] = front_[line];
                copy_from_ring(front_[line], ring, stage.size, at, length);
            }
        }
    }

    // Puts the rows in front_ into the stage's rings, once nobody reads there any more. A line
    // without delay has no use for its ring and leaves it alone.
    __attribute__((noinline)) void store(const ffdn_block_stage& stage, uint32_t t,
                                         uint32_t length) {
        const uint32_t kept = std::min(length, stage.size);
        const uint32_t at = (stage.wpos + t + length - kept) & stage.mask;
        for (size_t line = 0; line < BRISEL_LINES; ++line)
            if (stage.delays[line] > 0)
                copy_to_ring(stage.ring + line * stage.size, stage.size, at,
                             front_[line] + kPiece + length - kept, kept);
    }

    // C. The results are left in back_.
    __attribute__((noinline)) void feed_back(uint32_t t, uint32_t length) {
        feed_back_piece<kDecay, kStereoIn, kRow>(
            e_, kDecay == Decay::kGliding ? io_.shelf_rows + kShelfStep * t : nullptr, ws_.filtered,
            ws_.in_gains, io_.x_left + t, kStereoIn ? io_.x_right + t : nullptr, back_[0] + kPiece,
            length, [](size_t) {}, [&](size_t line, size_t p) { return ws_.reads[line] + p; });
    }

    // Puts the rows in back_ into the main rings.
    __attribute__((noinline)) void write_lines(uint32_t t, uint32_t length) {
        const uint32_t wrapping = lines_.find_writes(ws_.writes, t, length);
        for (uint32_t line = 0; line < BRISEL_LINES; ++line) {
            const float* row = back_[line] + kPiece;
            if (wrapping >> line & 1)
                lines_.write_wrapped(line, row, t, length);
            else
                copy_vectors(ws_.writes[line], row, length);
        }
    }

    ffdn_block_n16& e_;
    const BlockSignals io_;
    const uint32_t n_;
    MainLines lines_;
    Workspace ws_;
    Rows front_ = ws_.rows[0]; // what the last transform wrote
    Rows back_ = ws_.rows[1];  // what the next pass writes
};

// The instances' numbers: mono to mono, mono to stereo, stereo to stereo; two bands. The
// coefficients of the last one glide, in stereo.
constexpr size_t kGlidingShape = 6;
constexpr Decay decay_of(size_t shape) {
    if (shape == kGlidingShape) return Decay::kGliding;
    return shape % 2 != 0 ? Decay::kTwoBand : Decay::kBroadband;
}
template <size_t shape>
using GenericShape = GenericLoop<(shape / 2 > 0), (shape / 2 > 1), decay_of(shape)>;
constexpr auto kLoops = loop_table<GenericShape>(std::make_index_sequence<kGlidingShape + 1>());

} // namespace

void run_generic_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n,
                      const PreparedLines& prepared) {
    const size_t channels = !io.y_right ? 0 : io.x_right ? 2 : 1;
    const size_t shape = io.shelf_rows ? kGlidingShape : 2 * channels + (e.two_band ? 1 : 0);
    kLoops[shape](e, io, n, prepared);
}

} // namespace brisel
