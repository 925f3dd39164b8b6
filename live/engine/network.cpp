#include "live/engine/network.h"

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "brisel/ffdn_defaults_n16.h"
#include "core/ffdn_block.h"
#include "core/network_math.h"
#include "live/engine/ring.h"
#include "live/engine/turn.h"

namespace brisel::live {

namespace {

// Each row enters a line of either side, with signs that are orthogonal: rows that come out of a
// transform must not add up to one of those that went in. (-1)^(x1 x2) for the left side and
// (-1)^(x1 x2 + x3) for the right one, x the bits of the row's number, draw on four of eight each.
constexpr float kSigns[BRISEL_LINES] = {1, 1, 1, 1, 1, 1, -1, -1, 1, -1, 1, -1, 1, -1, -1, 1};

// v[t] += sign * (gain[t] * row[t])
void add_scaled(float* v, const float* gain, const float* row, size_t frames, float sign) {
    const __m256 flip = _mm256_set1_ps(sign < 0.0f ? -0.0f : 0.0f);
    size_t t = 0;
    for (; t + 8 <= frames; t += 8) {
        const __m256 signed_row = _mm256_xor_ps(_mm256_loadu_ps(row + t), flip);
        _mm256_storeu_ps(
            v + t, _mm256_fmadd_ps(_mm256_loadu_ps(gain + t), signed_row, _mm256_loadu_ps(v + t)));
    }
    for (; t < frames; ++t) v[t] = std::fma(gain[t], sign * row[t], v[t]);
}

} // namespace

bool Network::prepare(double rate, const Taps& taps) {
    constexpr uint32_t kShortestRing = 16;
    engine_ = {};
    uint32_t sizes[BRISEL_LINES];
    for (size_t i = 0; i < BRISEL_LINES; ++i)
        sizes[i] = ring_size_above(taps.longest_possible()[i], kShortestRing);
    lay_out_lines(engine_, taps.longest_possible().data(), sizes, kLongestSlice);
    ring_ = make_floats(engine_.ring_len);
    tap_block_ = make_floats(uint64_t{BRISEL_LINES} * kLongestSlice);
    work_block_ = make_floats(uint64_t{BRISEL_LINES} * kLongestSlice);
    if (!ring_ || !tap_block_ || !work_block_) return false;
    engine_.ring = ring_.get();
    engine_.tap_block = tap_block_.get();
    engine_.work_block = work_block_.get();
    engine_.two_band = 1;
    ffdn_block_n16_set_stereo_outputs(&engine_, nullptr, nullptr, 0.0f, 0.0f);
    ffdn_block_n16_set_stereo_inputs(&engine_, nullptr, nullptr);

    uint32_t delays[BRISEL_MAX_STAGES][BRISEL_LINES];
    ffdn_n16_default_cascade_params(BRISEL_MAX_STAGES, reinterpret_cast<int32_t*>(delays[0]));
    for (size_t s = 0; s < BRISEL_MAX_STAGES; ++s) {
        lay_out_stage(stages_[s], delays[s]);
        stage_rings_[s] = make_floats(uint64_t{BRISEL_LINES} * stages_[s].size);
        if (!stage_rings_[s]) return false;
        stages_[s].ring = stage_rings_[s].get();
    }
    decay_.prepare(rate);
    written_ = 0;
    return true;
}

void Network::start(int stages, const Taps& taps, const DecayGlide& glide) {
    // The main rings keep their samples: forget() clears what is read of them.
    for (int32_t s = 0; s < engine_.stage_count; ++s) {
        const ffdn_block_stage& stage = engine_.stages[s];
        const uint64_t filled = std::min(written_, uint64_t{stage.size});
        for (size_t i = 0; i < BRISEL_LINES; ++i)
            std::memset(stage.ring + i * stage.size, 0, filled * sizeof(float));
    }
    std::copy(stages_.begin(), stages_.end(), engine_.stages);
    engine_.stage_count = stages;
    std::fill_n(engine_.line_wpos, BRISEL_LINES, 0u);
    std::fill_n(engine_.shelf_state, BRISEL_LINES, 0.0f);
    written_ = 0;
    random_ = Xorshift64::seeded(0);

    decay_.jump(glide, loops(taps.from()));
    settled_ = false;
    from_silence_ = true;
    if (taps.resizing()) start_resize(taps, glide);
}

Loops Network::loops(const LineDelays& lines) const {
    Loops loops;
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        uint32_t frames = lines[i];
        for (int32_t s = 0; s < engine_.stage_count; ++s) frames += engine_.stages[s].delays[i];
        loops[i] = static_cast<int32_t>(frames);
    }
    return loops;
}

uint32_t Network::stage_frames() const {
    uint32_t frames = 0;
    for (int32_t s = 0; s < engine_.stage_count; ++s)
        frames += engine_.stages[s].delays[BRISEL_LINES - 1];
    return frames;
}

void Network::start_resize(const Taps& taps, const DecayGlide& glide) {
    decay_.start_resize(glide, loops(taps.to()));
    std::array<float, BRISEL_LINES> roots;
    decay_.gain_roots(glide, roots);
    for (size_t p = 0; p < kPairs; ++p) {
        const size_t i = first_of_pair(p);
        const float root = 0.5f * (roots[i] + roots[i + 2]);
        gain_roots_[p] = random_.next() >> 63 ? -root : root;
    }
}

void Network::finish_resize() {
    decay_.finish_resize();
    settled_ = false;
}

// Zeroes what `count` frames from the one `after` frames ahead on would find `delay` frames back
// from before the start.
void Network::forget(size_t line, uint32_t delay, uint32_t after, uint32_t count) {
    const uint64_t now = written_ + after;
    if (delay <= now) return;
    const uint32_t older = std::min(count, static_cast<uint32_t>(delay - now));
    const uint32_t mask = engine_.line_mask[line];
    const uint32_t start = static_cast<uint32_t>(now - delay) & mask;
    const uint32_t first = std::min(older, mask + 1 - start);
    std::memset(ring(line) + start, 0, first * sizeof(float));
    std::memset(ring(line), 0, (older - first) * sizeof(float));
}

void Network::forget_older(const Taps& taps, uint32_t frames) {
    if (written_ >= taps.longest()) return;
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        if (taps.resizing()) {
            forget(i, Taps::modulated(taps.from(), i, taps.offset(i)), 0, frames);
            forget(i, Taps::modulated(taps.to(), i, taps.offset(i)), 0, frames);
            continue;
        }
        const size_t pair = pair_of(i);
        if ((taps.moving_pairs() >> pair & 1) == 0) {
            forget(i, taps.delays()[i], 0, frames);
            continue;
        }
        uint32_t t = 0;
        for (const PairRun& run : taps.runs(pair)) {
            forget(i, Taps::modulated(taps.to(), i, run.from), t, run.frames);
            forget(i, Taps::modulated(taps.to(), i, run.to), t, run.frames);
            t += run.frames;
        }
    }
}

// A line's samples `delay` frames back from the one `after` frames ahead on.
const float* Network::tap(size_t line, uint32_t delay, uint32_t after, uint32_t count,
                          float* scratch) {
    const uint32_t start = static_cast<uint32_t>(written_) + after - delay;
    return find_in_ring(ring(line), engine_.line_mask[line], start, count, scratch);
}

// The lines that are not just read out of their rings stand in tap_block afterwards; returns them,
// a bit each.
uint32_t Network::read_lines(const Taps& taps, uint32_t frames) {
    forget_older(taps, frames);
    if (taps.resizing()) {
        read_resizing(taps, frames);
        return 0xFFFF;
    }
    std::copy_n(taps.delays().data(), BRISEL_LINES, engine_.line_delay);
    uint32_t prepared = 0;
    for (uint32_t rest = taps.moving_pairs(); rest != 0; rest &= rest - 1) {
        const auto pair = static_cast<uint32_t>(std::countr_zero(rest));
        read_pair(taps, pair, frames);
        prepared |= 5u << first_of_pair(pair);
    }
    return prepared;
}

void Network::read_pair(const Taps& taps, size_t pair, uint32_t frames) {
    const __m256 ramp = _mm256_setr_ps(0.f, 1.f, 2.f, 3.f, 4.f, 5.f, 6.f, 7.f);
    const __m256 one = _mm256_set1_ps(1.0f);
    const size_t first = first_of_pair(pair);
    uint32_t t = 0;
    for (const PairRun& run : taps.runs(pair)) {
        const float* found[2][2];
        float* rows[2];
        for (size_t k = 0; k < 2; ++k) {
            const size_t i = first + 2 * k;
            rows[k] = engine_.tap_block + i * frames + t;
            const int32_t offsets[2] = {run.from, run.to};
            for (size_t end = 0; end < 2; ++end)
                found[k][end] = tap(i, Taps::modulated(taps.to(), i, offsets[end]), t, run.frames,
                                    scratch_[2 * k + end].data());
            if (!run.fading()) copy_vectors(rows[k], found[k][1], run.frames);
        }
        t += run.frames;
        if (!run.fading()) continue;
        const __m256 scale = _mm256_set1_ps(1.0f / static_cast<float>(run.length));
        for (uint32_t k = 0; k < run.frames; k += kTile) {
            const __m256 frame =
                _mm256_add_ps(_mm256_set1_ps(static_cast<float>(run.position + k)), ramp);
            turn_tile(found, rows, k, Turn(smoothstep(_mm256_mul_ps(frame, scale)), one));
        }
    }
}

void Network::read_resizing(const Taps& taps, uint32_t frames) {
    const float* found[kPairs][2][2];
    float* rows[kPairs][2];
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const size_t k = i % 4 / 2;
        const size_t p = pair_of(i);
        rows[p][k] = engine_.tap_block + i * frames;
        const LineDelays* ends[2] = {&taps.from(), &taps.to()};
        for (size_t end = 0; end < 2; ++end)
            found[p][k][end] = tap(i, Taps::modulated(*ends[end], i, taps.offset(i)), 0, frames,
                                   scratch_[2 * i + end].data());
    }
    const __m256 eighths = ramp(0.0f, 1.0f);
    const __m256 roots = _mm256_load_ps(gain_roots_.data());
    Fade fade = taps.resize();
    const auto turns = [&] { return Turn(_mm256_set1_ps(fade.weight()), roots); }; // of eight pairs
    Turn end = turns();
    for (uint32_t t = 0; t < frames; t += kTile) {
        const Turn begin = end;
        fade.advance(kTile);
        end = turns();
        alignas(32) float now[2][kPairs];
        alignas(32) float way[2][kPairs];
        _mm256_store_ps(now[0], begin.cosine);
        _mm256_store_ps(now[1], begin.sine);
        _mm256_store_ps(way[0], _mm256_sub_ps(end.cosine, begin.cosine));
        _mm256_store_ps(way[1], _mm256_sub_ps(end.sine, begin.sine));
        for (size_t p = 0; p < kPairs; ++p) {
            const auto glide = [&](size_t k) {
                return _mm256_fmadd_ps(_mm256_broadcast_ss(&way[k][p]), eighths,
                                       _mm256_broadcast_ss(&now[k][p]));
            };
            Turn turn;
            turn.cosine = glide(0);
            turn.sine = glide(1);
            turn_tile(found[p], rows[p], t, turn);
        }
    }
}

const float* Network::shelf_rows(const Taps& taps, const DecayGlide& glide, uint32_t knot,
                                 uint32_t frames) {
    if (!glide.moving() && !taps.resizing()) {
        if (!settled_) decay_.settled(glide, engine_, from_silence_);
        settled_ = true;
        return nullptr;
    }
    settled_ = from_silence_ = false;
    Fade fade = taps.resize();
    for (uint32_t t = 0; t <= frames; t += kTile) {
        decay_.row(shelf_rows_[t / kTile], knot + t,
                   taps.resizing() ? weight_of(fade.weight()) : 0.0f);
        fade.advance(kTile);
    }
    return shelf_rows_[0].b0.data();
}

void Network::run(const Taps& taps, const DecayGlide& glide, uint32_t knot,
                  const float* const in[2], float* const out[2], uint32_t frames) {
    const uint32_t prepared = read_lines(taps, frames);
    const float* shelf = shelf_rows(taps, glide, knot, frames);
    run_block(engine_, {in[0], in[1], out[0], out[1], shelf}, frames, prepared);
    written_ += frames;
}

void Network::mix_early_outputs(float* const out[2], const float* near, const float* early,
                                uint32_t frames) {
    const float* rows[BRISEL_LINES];
    for (size_t i = 0; i < BRISEL_LINES; ++i)
        rows[i] = tap(i, frames, 0, frames, scratch_[i].data());
    const __m256 gain = _mm256_set1_ps(engine_.out_left[0]);
    for (size_t c = 0; c < 2; ++c)
        for (uint32_t t = 0; t < frames; t += kTile) {
            __m256 sum = _mm256_setzero_ps();
            for (size_t i = c; i < BRISEL_LINES; i += 2)
                sum = _mm256_add_ps(sum, _mm256_loadu_ps(rows[i] + t));
            const __m256 lines =
                _mm256_mul_ps(_mm256_loadu_ps(near + t), _mm256_loadu_ps(out[c] + t));
            const __m256 weight = _mm256_mul_ps(_mm256_loadu_ps(early + t), gain);
            _mm256_storeu_ps(out[c] + t, _mm256_fmadd_ps(weight, sum, lines));
        }
}

// Calls body(samples, t, n) for the one or two parts of a line's ring that hold `count` frames; n
// samples from the t-th of them on.
template <typename Body>
void Network::each_run(size_t line, uint32_t frames, uint32_t from, uint32_t count, Body body) {
    const uint32_t mask = engine_.line_mask[line];
    const uint32_t start = (static_cast<uint32_t>(written_) - frames + from) & mask;
    const size_t first = std::min(count, mask + 1 - start);
    body(ring(line) + start, size_t{0}, first);
    if (first < count) body(ring(line), first, count - first);
}

void Network::inject(const float* const in[2], uint32_t frames, uint32_t from, uint32_t count) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const float to_left = engine_.in_left[i];
        const float to_right = engine_.in_right[i];
        each_run(i, frames, from, count, [&](float* v, size_t t, size_t n) {
            const float* left = in[0] + t;
            const float* right = in[1] + t;
            for (size_t k = 0; k < n; ++k)
                v[k] = std::fma(to_right, right[k], std::fma(to_left, left[k], v[k]));
        });
    }
}

void Network::inject_rows(const HalfRows& rows, const float* gain, uint32_t frames, uint32_t from,
                          uint32_t count) {
    for (size_t i = 0; i < BRISEL_LINES; ++i)
        each_run(i, frames, from, count, [&](float* v, size_t t, size_t n) {
            add_scaled(v, gain + from + t, rows[i / 2].data() + from + t, n, kSigns[i]);
        });
}

} // namespace brisel::live
