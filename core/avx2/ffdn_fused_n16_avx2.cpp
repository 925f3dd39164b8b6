// The fused feedback loop.
//
// A block runs in pieces of 128 frames, a piece in tiles of eight. Rows are lines, eight lanes are
// eight frames of a line, except between C and D, where they are eight lines of a frame:
//
//   main rings --A--> short_rows --B--> middle ring --[B2--> long ring]--C--> filtered --D--> results
//       ^                                                                                        |
//       +------------------------------ row by row, while the next piece runs A -----------------+
//
//   A   output sums; transform
//   B   stage 0, delays 0, 1 .. 15; transform                  with two stages and more
//   B2  stage 1, delays 0, 16 .. 240; transform                with three stages
//   C   the last stage's delays; transposition; two-band filter, frame by frame
//   D   transposition back; injection
//
// With broadband decay C and D are one step without transpositions.
//
// What makes it fast, beside the kernels' own work:
//   - A block's samples pass through the first-level cache only: A reads the main rings in place, and
//     the results go back in runs of 128 samples. All 16 write positions are equal modulo 4 KiB, that
//     is, in one cache set: writing them tile by tile would throw each line out before it is full.
//   - Stage 0's rings hold 16 samples, so its rows live in a linear scratch that keeps the last 16
//     samples of the piece before. The other rings' delays and positions are multiples of eight: a
//     tile never straddles a seam.
//   - The filter's recursion takes four cycles a frame. D of the tile before and B of the next one
//     stand between two of its tiles and fill them.
#include "core/avx2/ffdn_fused_n16_avx2.h"

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "core/avx2/main_lines.h"
#include "core/avx2/runs.h"
#include "core/avx2/tiles.h"

namespace brisel {
namespace {

constexpr uint32_t kTile = 8;
constexpr uint32_t kPiece = 128;

// The default cascade: stage s delays line i by i * 16^s samples, in rings of 16^(s+1).
constexpr uint32_t kShortRing = 16;
constexpr uint32_t kMiddleRing = 256;
constexpr uint32_t kLongRing = 4096;

constexpr size_t kShortRow = kShortRing + kPiece;

// Floats of BlockSignals::shelf_rows a frame.
constexpr size_t kShelfStep = 2 * BRISEL_LINES / kTile;

struct alignas(64) Workspace {
    float short_rows[BRISEL_LINES][kShortRow]; // 16 samples of history, then the piece
    float middle_line0[kMiddleRing];           // line 0 is not delayed and must not touch its rings
    float long_rows[BRISEL_LINES][kPiece];     // what stage 2 receives in this piece
    float filtered[2][2][8][8];                // of two tiles: [tile][lines 0-7, 8-15][frame][line]
    float results[BRISEL_LINES][kPiece];       // what the main rings receive
    float in_gains[2][BRISEL_LINES][8];  // [side][line], broadcast; two lines are enough if the
    float out_gains[2][BRISEL_LINES][8]; // gains alternate
    const float* rows[BRISEL_LINES];     // where this piece's samples stand
    float* next_homes[BRISEL_LINES];     // where its results will go
    float* homes[BRISEL_LINES];          // where the results that are there go
};

template <int K, Decay kDecay, bool kStereoIn, bool kAlternating>
class FusedLoop {
public:
    FusedLoop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared)
        : e_(e), io_(io), n_(n), lines_(e, n, prepared) {}

    void run() {
        exchange_history<Direction::kTake>(0);
        uint32_t length = 0;
        for (uint32_t t = 0; t < n_; t += length) {
            length = std::min(kPiece, n_ - t);
            if (t > 0) keep_history();
            lines_.find_delayed(ws_.rows, t, length);
            const uint32_t crossing = lines_.find_homes(ws_.next_homes, t, length);
            if (lines_.far())
                mix_out<true>(t, length);
            else
                mix_out<false>(t, length);
            feed_back(t, length);
            std::copy_n(ws_.next_homes, BRISEL_LINES, ws_.homes);
            close_crossing_rows(crossing, t, length);
        }
        close_piece(n_ - length, length);
        advance();
        exchange_history<Direction::kGive>(length);
    }

private:
    enum class Direction { kTake, kGive };

    // Between stage 0's rings, whose position is a multiple of eight, and the 16 samples that stand
    // before frame `end` of the short rows, oldest first.
    template <Direction direction>
    void exchange_history(uint32_t end) {
        const size_t older = e_.stages[0].wpos; // 0 or 8
        for (size_t line = 1; line < BRISEL_LINES; ++line) {
            float* ring = e_.stages[0].ring + line * kShortRing;
            float* row = ws_.short_rows[line] + end;
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
        for (auto& row : ws_.short_rows) copy_vectors(row, row + kPiece, kShortRing);
    }

    // The few rows that cross a seam go home at once, and stay where they are when their turn comes.
    void close_crossing_rows(uint32_t crossing, uint32_t t, uint32_t length) {
        for (; crossing != 0; crossing &= crossing - 1) {
            const auto line = static_cast<uint32_t>(__builtin_ctz(crossing));
            lines_.write(line, ws_.results[line], t, length);
            ws_.homes[line] = ws_.results[line];
        }
    }

    // Sends one row of results home: into its main ring and, with three stages, into stage 2. All
    // positions and lengths are multiples of eight.
    inline __attribute__((always_inline)) void close_row(uint32_t line, uint32_t t,
                                                         uint32_t length) {
        copy_vectors(ws_.homes[line], ws_.results[line], length);
        if (K == 3 && line > 0)
            write_across_seam(e_.stages[2].ring + size_t{line} * kLongRing, kLongRing - 1,
                              e_.stages[2].wpos + t, ws_.long_rows[line], length);
    }

    // Straight code for the usual lengths, 2 % of the time of a block of 64 frames.
    void close_piece(uint32_t t, uint32_t length) {
        const auto close_rows = [&](uint32_t n) __attribute__((always_inline)) {
            for (uint32_t line = 0; line < BRISEL_LINES; ++line) close_row(line, t, n);
        };
        if (length == kPiece)
            close_rows(kPiece);
        else if (length == kPiece / 2)
            close_rows(kPiece / 2);
        else
            close_rows(length);
    }

    static void write_across_seam(float* ring, uint32_t mask, uint32_t position, const float* row,
                                  uint32_t length) {
        const uint32_t at = position & mask;
        const uint32_t first = std::min(mask + 1 - at, length);
        copy_vectors(ring + at, row, first);
        copy_vectors(ring, row + first, length - first);
    }

    static void broadcast_gains(float (&to)[2][BRISEL_LINES][8], const float* left,
                                const float* right) {
        for (size_t line = 0; line < (kAlternating ? 2 : BRISEL_LINES); ++line) {
            _mm256_store_ps(to[0][line], _mm256_set1_ps(left[line]));
            _mm256_store_ps(to[1][line], _mm256_set1_ps(right[line]));
        }
    }

    static __m256 gain_of(const float* gains, size_t side, size_t line) {
        return _mm256_load_ps(gains + 8 * (side * BRISEL_LINES + (kAlternating ? line % 2 : line)));
    }

    // A. Meanwhile the piece before goes home, a row a tile, so that its cache misses overlap with
    // arithmetic.
    template <bool kFar>
    __attribute__((noinline)) void mix_out(uint32_t t0, uint32_t length) {
        broadcast_gains(ws_.out_gains, e_.out_left, e_.out_right);
        const float* gains = opaque(ws_.out_gains[0][0]);
        // Alternating gains stay in registers, as far as these reach.
        const __m256 pair[2][2] = {{gain_of(gains, 0, 0), gain_of(gains, 0, 1)},
                                   {gain_of(gains, 1, 0), gain_of(gains, 1, 1)}};
        const auto gain = [&](size_t side, size_t line) {
            return kAlternating ? pair[side][line % 2] : gain_of(gains, side, line);
        };
        uint32_t line_to_close = t0 > 0 ? 0 : BRISEL_LINES;
        mix_out_piece<true, kShortRow>(ws_.rows, gain, {e_.direct_left, e_.direct_right},
                                       io_.x_left + t0, io_.y_left + t0, io_.y_right + t0,
                                       ws_.short_rows[0] + kShortRing, length, [&](size_t p) {
                                           if (kFar) {
                                               MainLines::fetch_ahead(ws_.rows, p);
                                               MainLines::fetch_ahead(ws_.next_homes, p);
                                           }
                                           if (line_to_close < BRISEL_LINES)
                                               close_row(line_to_close++, t0 - kPiece, kPiece);
                                       });
        while (line_to_close < BRISEL_LINES) close_row(line_to_close++, t0 - kPiece, kPiece);
    }

    // What the feedback of a piece needs, in local variables: stores of vectors may alias anything, so
    // that the compiler would load members again after each of them.
    struct Piece {
        float* middle;        // stage 1's rings
        const float* far;     // stage 2's rings
        uint32_t middle_wpos; // their positions at the piece's first frame
        uint32_t far_wpos;
        const float* x_left; // the piece's input
        const float* x_right;
        const float* shelf_rows; // where coefficients glide
    };

    // B, B2, C and D.
    __attribute__((noinline)) void feed_back(uint32_t t0, uint32_t length) {
        const Piece piece{e_.stages[1].ring,
                          e_.stages[2].ring,
                          e_.stages[1].wpos + t0,
                          e_.stages[2].wpos + t0,
                          io_.x_left + t0,
                          kStereoIn ? io_.x_right + t0 : nullptr,
                          kDecay == Decay::kGliding ? io_.shelf_rows + kShelfStep * t0 : nullptr};
        broadcast_gains(ws_.in_gains, kStereoIn ? e_.in_left : e_.in_gain, e_.in_right);
        if (kDecay == Decay::kBroadband) {
            for (uint32_t p = 0; p < length; p += kTile) {
                into_last_stage(piece, p);
                decay(piece, p);
            }
            return;
        }
        __m256 memory[2] = {_mm256_loadu_ps(e_.shelf_state), _mm256_loadu_ps(e_.shelf_state + 8)};
        float* now = ws_.filtered[0][0][0];
        float* before = ws_.filtered[1][0][0];
        uint32_t p = 0;
        for (; p < length; p += kTile) {
            into_last_stage(piece, p);
            if (p > 0) inject(piece, before, p - kTile);
            filter(piece, now, p, memory);
            std::swap(now, before);
        }
        inject(piece, before, p - kTile);
        _mm256_storeu_ps(e_.shelf_state, memory[0]);
        _mm256_storeu_ps(e_.shelf_state + 8, memory[1]);
    }

    // B and B2, as far as there are such stages.
    inline __attribute__((always_inline)) void into_last_stage(const Piece& piece, uint32_t p) {
        if (K >= 2) into_middle(piece, p);
        if (K >= 3) into_long(piece, p);
    }

    // Stage 0's output for line i stands i samples back.
    const float* short_row(size_t i, uint32_t p) const {
        return ws_.short_rows[0] + kShortRing + p + i * (kShortRow - 1);
    }

    // B.
    inline __attribute__((always_inline)) void into_middle(const Piece& piece, uint32_t p) {
        const uint32_t w = (piece.middle_wpos + p) & (kMiddleRing - 1);
        const float* in = opaque(short_row(0, p));
        float* line0 = opaque(ws_.middle_line0 + w);
        float* out = opaque(piece.middle + w);
        fwht_tile([&](size_t i) { return in + i * (kShortRow - 1); },
                  [&](size_t i) { return i == 0 ? line0 : out + i * kMiddleRing; });
    }

    // Stage 1's output.
    const float* middle_row(const Piece& piece, size_t i, uint32_t p) const {
        const uint32_t delay = 16 * static_cast<uint32_t>(i);
        const size_t r = (piece.middle_wpos + p - delay) & (kMiddleRing - 1);
        return i == 0 ? ws_.middle_line0 + r : piece.middle + i * kMiddleRing + r;
    }

    // B2.
    inline __attribute__((always_inline)) void into_long(const Piece& piece, uint32_t p) {
        float* out = opaque(ws_.long_rows[0] + p);
        fwht_tile([&](size_t i) { return middle_row(piece, i, p); },
                  [&](size_t i) { return out + i * kPiece; });
    }

    // Stage 2's output; only line 0's is of this piece.
    const float* long_row(const Piece& piece, size_t i, uint32_t p) const {
        const uint32_t delay = 256 * static_cast<uint32_t>(i);
        const size_t r = (piece.far_wpos + p - delay) & (kLongRing - 1);
        return i == 0 ? ws_.long_rows[0] + p : piece.far + i * kLongRing + r;
    }

    // The last stage's output.
    inline __attribute__((always_inline)) const float* last_row(const Piece& piece, size_t line,
                                                                uint32_t p) const {
        return K == 1   ? short_row(line, p)
               : K == 2 ? middle_row(piece, line, p)
                        : long_row(piece, line, p);
    }

    // C.
    inline __attribute__((always_inline)) void filter(const Piece& piece, float* filtered,
                                                      uint32_t p, __m256 (&memory)[2]) {
        const auto row = [&](size_t line) { return last_row(piece, line, p); };
        if (kDecay == Decay::kGliding)
            filter_gliding_tile(filtered, piece.shelf_rows + kShelfStep * p, memory, row);
        else
            filter_tile(filtered, e_.shelf_b0, memory, row);
    }

    // D. The gains come from memory, where a fused operation takes them for nothing: in registers they
    // would push out the filters' memories.
    inline __attribute__((always_inline)) void inject(const Piece& piece, const float* filtered,
                                                      uint32_t p) {
        float* out = opaque(ws_.results[0] + p);
        const float* gains = opaque(ws_.in_gains[0][0]);
        inject_tile<kStereoIn>(
            filtered, _mm256_loadu_ps(piece.x_left + p), right_input(piece, p),
            [&](size_t side, size_t line) { return gain_of(gains, side, line); },
            [&](size_t line) { return out + line * kPiece; });
    }

    // C and D with broadband decay.
    inline __attribute__((always_inline)) void decay(const Piece& piece, uint32_t p) {
        float* out = opaque(ws_.results[0] + p);
        const float* gains = opaque(ws_.in_gains[0][0]);
        decay_tile<kStereoIn>(
            e_.decay_gain, _mm256_loadu_ps(piece.x_left + p), right_input(piece, p),
            [&](size_t line) { return last_row(piece, line, p); },
            [&](size_t side, size_t line) { return gain_of(gains, side, line); },
            [&](size_t line) { return out + line * kPiece; });
    }

    static __m256 right_input(const Piece& piece, uint32_t p) {
        return kStereoIn ? _mm256_loadu_ps(piece.x_right + p) : _mm256_setzero_ps();
    }

    void advance() {
        lines_.advance();
        for (int s = 0; s < K; ++s)
            e_.stages[s].wpos = (e_.stages[s].wpos + n_) & e_.stages[s].mask;
    }

    ffdn_block_n16& e_;
    const BlockSignals io_;
    const uint32_t n_;
    MainLines lines_;
    Workspace ws_;
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

// The default cascade's stage s, at a position where tiles meet the ring's seam.
bool default_stage(const ffdn_block_stage& stage, int s) {
    const __m256i ramp = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i low = _mm256_slli_epi32(ramp, 4 * s);
    const __m256i high = _mm256_slli_epi32(_mm256_add_epi32(ramp, _mm256_set1_epi32(8)), 4 * s);
    const __m256i equal = _mm256_and_si256(_mm256_cmpeq_epi32(load_lines(stage.delays), low),
                                           _mm256_cmpeq_epi32(load_lines(stage.delays + 8), high));
    return lanes(equal) == 0xff && stage.wpos % kTile == 0;
}

// Tiles meet the main rings' seams.
bool aligned_positions(const ffdn_block_n16& e) {
    const __m256i both = _mm256_or_si256(load_lines(e.line_wpos), load_lines(e.line_wpos + 8));
    return _mm256_testz_si256(both, broadcast(kTile - 1));
}

bool all_alternate(const ffdn_block_n16& e, bool stereo_in) {
    return alternates(e.out_left) && alternates(e.out_right) &&
           (stereo_in ? alternates(e.in_left) && alternates(e.in_right) : alternates(e.in_gain));
}

template <int K, Decay kDecay, bool kStereoIn>
void run(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    if (all_alternate(e, kStereoIn))
        FusedLoop<K, kDecay, kStereoIn, true>(e, io, n, prepared).run();
    else
        FusedLoop<K, kDecay, kStereoIn, false>(e, io, n, prepared).run();
}

template <int K, Decay kDecay>
void run(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    if (io.x_right)
        run<K, kDecay, true>(e, io, n, prepared);
    else
        run<K, kDecay, false>(e, io, n, prepared);
}

template <int K>
void run(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    if (e.two_band)
        run<K, Decay::kTwoBand>(e, io, n, prepared);
    else
        run<K, Decay::kBroadband>(e, io, n, prepared);
}

template <int K>
void run_gliding(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    FusedLoop<K, Decay::kGliding, true, true>(e, io, n, prepared).run();
}

// Calls run(K) with the number of stages as a constant.
template <typename Run>
inline void with_stages(int32_t stages, Run run) {
    switch (stages) {
    case 1:
        run(std::integral_constant<int, 1>());
        break;
    case 2:
        run(std::integral_constant<int, 2>());
        break;
    default:
        run(std::integral_constant<int, 3>());
        break;
    }
}

} // namespace

bool fused_loop_applies(const ffdn_block_n16& e, const BlockSignals& io) {
    if (e.stage_count < 1 || !io.y_right) return false;
    for (int s = 0; s < e.stage_count; ++s)
        if (!default_stage(e.stages[s], s)) return false;
    return aligned_positions(e);
}

void run_fused_loop(ffdn_block_n16& e, const BlockSignals& io, uint32_t n, uint32_t prepared) {
    if (io.shelf_rows)
        with_stages(e.stage_count, [&](auto K) { run_gliding<K>(e, io, n, prepared); });
    else
        with_stages(e.stage_count, [&](auto K) { run<K>(e, io, n, prepared); });
}

} // namespace brisel
