// The feedback loop for every network.
//
// A block runs in pieces, a piece in passes over its 16 rows, one a line:
//
//   main rings --A--> rows --[delays of stage 0]--B--> rows --[delays of stage 1]--B--> ... --C--> main rings
//
//   A   output sums; transform
//   B   transform, between two stages
//   C   decay; injection
//
// No pass copies a row just to delay it: it reads each line through a pointer that stands as many samples
// back as the delay says. That is in the row itself, behind the samples of history that are copied in
// front of it, or, for a delay of a piece and more, in the stage's ring.
#include "core/avx2/ffdn_generic_n16_avx2.h"

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "core/avx2/main_lines.h"
#include "core/avx2/runs.h"
#include "core/avx2/tiles.h"

namespace brisel {
namespace {

constexpr uint32_t kTile = 8;
constexpr uint32_t kPiece = 128;
// History, then the piece. The rest keeps the 16 rows of a tile out of one cache set.
constexpr size_t kRow = 2 * kPiece + 16;

struct alignas(64) Workspace {
    float rows[2][BRISEL_LINES][kRow];
    float filtered[2][2][8][8];         // of two tiles: [tile][lines 0-7, 8-15][frame][line]
    float in_gains[2][BRISEL_LINES][8]; // [side][line], broadcast
    float out_gains[2][BRISEL_LINES][8];
    const float* delayed[BRISEL_LINES]; // what the next pass reads
    float* homes[BRISEL_LINES];
};

template <bool kStereoOut, bool kStereoIn, Decay kDecay>
class GenericLoop {
public:
    GenericLoop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared)
        : e_(e), io_(io), n_(n), lines_(e, n, prepared) {
        broadcast_gains(ws_.out_gains[0], kStereoOut ? e.out_left : e.out_gain);
        if (kStereoOut) broadcast_gains(ws_.out_gains[1], e.out_right);
        broadcast_gains(ws_.in_gains[0], kStereoIn ? e.in_left : e.in_gain);
        if (kStereoIn) broadcast_gains(ws_.in_gains[1], e.in_right);
    }

    void run() {
        uint32_t length = 0;
        for (uint32_t t = 0; t < n_; t += length) {
            length = std::min(kPiece, n_ - t);
            lines_.find_delayed(ws_.delayed, t, length);
            mix_out(t, length);
            for (size_t line = 0; line < BRISEL_LINES; ++line)
                ws_.delayed[line] = front_[line] + kPiece; // without stages
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
        lines_.advance();
        for (int32_t s = 0; s < e_.stage_count; ++s)
            e_.stages[s].wpos = (e_.stages[s].wpos + n_) & e_.stages[s].mask;
    }

private:
    using Rows = float (*)[kRow];

    static void broadcast_gains(float (&to)[BRISEL_LINES][8], const float* gains) {
        for (size_t line = 0; line < BRISEL_LINES; ++line)
            _mm256_store_ps(to[line], _mm256_set1_ps(gains[line]));
    }

    static __m256 gain_of(const float* gains, size_t side, size_t line) {
        return _mm256_load_ps(gains + 8 * (side * BRISEL_LINES + line));
    }

    // A.
    __attribute__((noinline)) void mix_out(uint32_t t, uint32_t length) {
        const float* gains = opaque(ws_.out_gains[0][0]);
        const bool far = lines_.far();
        mix_out_piece<kStereoOut, kRow>(
            ws_.delayed, [&](size_t side, size_t line) { return gain_of(gains, side, line); },
            {kStereoOut ? e_.direct_left : e_.direct_gain, e_.direct_right}, io_.x_left + t,
            io_.y_left + t, kStereoOut ? io_.y_right + t : nullptr, front_[0] + kPiece, length,
            [&](size_t p) {
                if (far) MainLines::fetch_ahead(ws_.delayed, p);
            });
    }

    // B.
    __attribute__((noinline)) void transform(uint32_t length) {
        for (size_t p = 0; p < length; p += kTile) {
            float* out = opaque(back_[0] + kPiece + p);
            fwht_tile([&](size_t i) { return ws_.delayed[i] + p; },
                      [&](size_t i) { return out + i * kRow; });
        }
    }

    // Finds the delayed samples of the rows in front_: behind themselves, in the ring or, where they
    // cross its seam, in a copy.
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
                ws_.delayed[line] = row - delay;
            } else if (at + length <= stage.size) {
                ws_.delayed[line] = ring + at;
            } else {
                ws_.delayed[line] = front_[line];
                copy_from_ring(front_[line], ring, stage.size, at, length);
            }
        }
    }

    // Puts the rows in front_ into the stage's rings, once nobody reads there any more. A line without
    // delay has no use for its ring and leaves it alone.
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
        const float* x_left = io_.x_left + t;
        const float* x_right = kStereoIn ? io_.x_right + t : nullptr;
        if (kDecay != Decay::kBroadband)
            feed_back_two_bands(x_left, x_right, t, length);
        else
            feed_back_one_band(x_left, x_right, length);
    }

    // The filter's recursion waits for itself: the injection of the tile before fills it.
    void feed_back_two_bands(const float* x_left, const float* x_right, uint32_t t,
                             uint32_t length) {
        constexpr size_t kShelfStep = 2 * BRISEL_LINES / kTile; // floats a frame
        const float* rows = kDecay == Decay::kGliding ? io_.shelf_rows + kShelfStep * t : nullptr;
        const float* gains = opaque(ws_.in_gains[0][0]);
        const auto inject = [&](const float* filtered, size_t p) {
            const __m256 left = _mm256_loadu_ps(x_left + p);
            const __m256 right = kStereoIn ? _mm256_loadu_ps(x_right + p) : left;
            float* out = opaque(back_[0] + kPiece + p);
            inject_tile<kStereoIn>(
                filtered, left, right,
                [&](size_t side, size_t line) { return gain_of(gains, side, line); },
                [&](size_t line) { return out + line * kRow; });
        };
        __m256 memory[2] = {_mm256_loadu_ps(e_.shelf_state), _mm256_loadu_ps(e_.shelf_state + 8)};
        float* now = ws_.filtered[0][0][0];
        float* before = ws_.filtered[1][0][0];
        size_t p = 0;
        for (; p < length; p += kTile) {
            if (p > 0) inject(before, p - kTile);
            const auto row = [&](size_t line) { return ws_.delayed[line] + p; };
            if (kDecay == Decay::kGliding)
                filter_gliding_tile(now, rows + kShelfStep * p, memory, row);
            else
                filter_tile(now, e_.shelf_b0, memory, row);
            std::swap(now, before);
        }
        inject(before, p - kTile);
        _mm256_storeu_ps(e_.shelf_state, memory[0]);
        _mm256_storeu_ps(e_.shelf_state + 8, memory[1]);
    }

    void feed_back_one_band(const float* x_left, const float* x_right, uint32_t length) {
        const float* gains = opaque(ws_.in_gains[0][0]);
        for (size_t p = 0; p < length; p += kTile) {
            const __m256 left = _mm256_loadu_ps(x_left + p);
            const __m256 right = kStereoIn ? _mm256_loadu_ps(x_right + p) : left;
            float* out = opaque(back_[0] + kPiece + p);
            decay_tile<kStereoIn>(
                e_.decay_gain, left, right, [&](size_t line) { return ws_.delayed[line] + p; },
                [&](size_t side, size_t line) { return gain_of(gains, side, line); },
                [&](size_t line) { return out + line * kRow; });
        }
    }

    // Puts the rows in back_ into the main rings.
    __attribute__((noinline)) void write_lines(uint32_t t, uint32_t length) {
        const uint32_t crossing = lines_.find_homes(ws_.homes, t, length);
        for (uint32_t line = 0; line < BRISEL_LINES; ++line) {
            const float* row = back_[line] + kPiece;
            if (crossing >> line & 1)
                lines_.write(line, row, t, length);
            else
                copy_vectors(ws_.homes[line], row, length);
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

template <bool kStereoOut, bool kStereoIn>
void run(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    if (e.two_band)
        GenericLoop<kStereoOut, kStereoIn, Decay::kTwoBand>(e, io, n, prepared).run();
    else
        GenericLoop<kStereoOut, kStereoIn, Decay::kBroadband>(e, io, n, prepared).run();
}

} // namespace

void run_generic_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    if (io.shelf_rows)
        GenericLoop<true, true, Decay::kGliding>(e, io, n, prepared).run();
    else if (!io.y_right)
        run<false, false>(e, io, n, prepared);
    else if (io.x_right)
        run<true, true>(e, io, n, prepared);
    else
        run<true, false>(e, io, n, prepared);
}

} // namespace brisel
