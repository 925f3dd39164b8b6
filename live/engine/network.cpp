#include "live/engine/network.h"

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "brisel/ffdn_defaults_n16.h"
#include "core/ffdn_block_signals.h"
#include "core/ffdn_block_storage.h"
#include "core/network_math.h"
#include "live/engine/ring.h"

namespace brisel::live {

namespace {

float sum_of(__m256 x) {
    alignas(32) float lanes[8];
    _mm256_store_ps(lanes, x);
    float sum = 0.0f;
    for (const float lane : lanes) sum += lane;
    return sum;
}

// Of a line that fades from old to new taps: w = s r / (1 - s + s r), so that each tap is fed back with
// its own length's gain when the filter's gain is the mix 1 - s : s of both.
void tap_weights(float* weights, float s, const std::array<float, BRISEL_LINES>& gain_ratios) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const float share = s * gain_ratios[i];
        weights[i] = share / (1.0f - s + share);
    }
}

__m256 smoothstep(__m256 x) {
    const __m256 slope = _mm256_fnmadd_ps(_mm256_set1_ps(2.0f), x, _mm256_set1_ps(3.0f));
    return _mm256_mul_ps(_mm256_mul_ps(x, x), slope);
}

} // namespace

float EnergyReserve::next_gain(float weight) const {
    constexpr float kShare = 1.0f / 16.0f; // of the reserve, a tile
    constexpr float kMost = 1.0f;          // of the lines' energy: 3 dB
    constexpr float kSilence = 1e-20f;
    if (level_ < kSilence) return 1.0f;
    // What a fade takes is as little at its ends.
    const float window = std::min(1.0f, 8.0f * weight * (1.0f - weight));
    return std::sqrt(1.0f + window * std::clamp(kShare * energy_ / level_, -0.5f, kMost));
}

void EnergyReserve::settle(float taken, float before, float behind) {
    energy_ += taken - (behind - before);
    level_ = before;
}

bool Network::prepare(double rate, const Taps& taps) {
    constexpr uint32_t kShortestRing = 16;
    engine_ = {};
    uint32_t sizes[BRISEL_LINES];
    for (size_t i = 0; i < BRISEL_LINES; ++i)
        sizes[i] = ring_size_above(taps.longest_delays()[i], kShortestRing);
    lay_out_lines(engine_, taps.longest_delays().data(), sizes, kLongestSlice);
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
    std::memset(inputs_, 0, sizeof inputs_);
    written_ = 0;

    decay_.jump(glide, loops(taps.base_from()));
    settled_ = false;
    from_silence_ = true;
    reserve_.empty();
    gain_ = 1.0f;
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
    decay_.start_resize(glide, loops(taps.base_to()));
    decay_.gain_ratios(glide, gain_ratios_);
    // What a sweep's last fade has left over is the next one's.
    if (written_ != resized_at_) reserve_.empty();
}

void Network::finish_resize() {
    decay_.finish_resize();
    settled_ = false;
    gain_ = 1.0f;
    resized_at_ = written_;
}

// Zeroes what `count` frames from the one `after` frames ahead on would find `delay` frames back from
// before the start.
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
        forget(i, kTile, 0, kTile);
        if (taps.resizing()) {
            forget(i, taps.from(i), 0, frames);
            forget(i, taps.to(i), 0, frames);
        } else if (taps.moving_lines() >> i & 1) {
            uint32_t t = 0;
            for (const TapRun& run : taps.runs(i)) {
                forget(i, run.from, t, run.frames);
                forget(i, run.to, t, run.frames);
                t += run.frames;
            }
        } else {
            forget(i, taps.delays()[i], 0, frames);
        }
    }
}

// A line's samples `delay` frames back from the one `after` frames ahead on.
const float* Network::tap(size_t line, uint32_t delay, uint32_t after, uint32_t count,
                          float* scratch) {
    const uint32_t start = static_cast<uint32_t>(written_) + after - delay;
    return find_in_ring(ring(line), engine_.line_mask[line], start, count, scratch);
}

// The lines that are not just read out of their rings stand in tap_block afterwards; returns them, a bit
// each.
uint32_t Network::read_lines(const Taps& taps, uint32_t frames) {
    forget_older(taps, frames);
    if (taps.resizing()) {
        read_resizing(taps, frames);
        return 0xFFFF;
    }
    std::copy_n(taps.delays().data(), BRISEL_LINES, engine_.line_delay);
    for (uint32_t rest = taps.moving_lines(); rest != 0; rest &= rest - 1) {
        const auto line = static_cast<uint32_t>(std::countr_zero(rest));
        read_line(taps.runs(line), line, engine_.tap_block + size_t{line} * frames);
    }
    return taps.moving_lines();
}

void Network::read_line(std::span<const TapRun> runs, size_t line, float* row) {
    const __m256 ramp = _mm256_setr_ps(0.f, 1.f, 2.f, 3.f, 4.f, 5.f, 6.f, 7.f);
    uint32_t t = 0;
    for (const TapRun& run : runs) {
        const float* a = tap(line, run.from, t, run.frames, scratch_[0].data());
        if (!run.fading()) {
            copy_vectors(row + t, a, run.frames);
            t += run.frames;
            continue;
        }
        const float* b = tap(line, run.to, t, run.frames, scratch_[1].data());
        const __m256 scale = _mm256_set1_ps(1.0f / static_cast<float>(run.length));
        for (uint32_t k = 0; k < run.frames; k += kTile) {
            const auto frame = static_cast<float>(run.position + k);
            const __m256 x = _mm256_mul_ps(_mm256_add_ps(_mm256_set1_ps(frame), ramp), scale);
            const __m256 old_tap = _mm256_loadu_ps(a + k);
            const __m256 new_tap = _mm256_loadu_ps(b + k);
            _mm256_storeu_ps(row + t + k, crossfade(old_tap, new_tap, smoothstep(x)));
        }
        t += run.frames;
    }
}

void Network::read_resizing(const Taps& taps, uint32_t frames) {
    const __m256 eighths = ramp(0.0f, 1.0f);
    const float* a[BRISEL_LINES];
    const float* b[BRISEL_LINES];
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        a[i] = tap(i, taps.from(i), 0, frames, scratch_[2 * i].data());
        b[i] = tap(i, taps.to(i), 0, frames, scratch_[2 * i + 1].data());
    }
    Fade fade = taps.resize();
    alignas(32) float begin[BRISEL_LINES];
    alignas(32) float end[BRISEL_LINES];
    alignas(32) float more[BRISEL_LINES];
    tap_weights(end, fade.weight(), gain_ratios_);
    for (uint32_t t = 0; t < frames; t += kTile) {
        fade.advance(kTile);
        std::copy_n(end, BRISEL_LINES, begin);
        tap_weights(end, fade.weight(), gain_ratios_);
        for (size_t i = 0; i < BRISEL_LINES; ++i) more[i] = end[i] - begin[i];
        const float next_gain = reserve_.next_gain(fade.weight());
        const __m256 gain = ramp(gain_, next_gain);
        gain_ = next_gain;
        __m256 taken = _mm256_setzero_ps();
        __m256 before = _mm256_setzero_ps();
        float* row = engine_.tap_block + t;
        for (size_t i = 0; i < BRISEL_LINES; ++i, row += frames) {
            const __m256 old_tap = _mm256_loadu_ps(a[i] + t);
            const __m256 way = _mm256_sub_ps(_mm256_loadu_ps(b[i] + t), old_tap);
            const __m256 weight =
                _mm256_fmadd_ps(_mm256_set1_ps(more[i]), eighths, _mm256_set1_ps(begin[i]));
            const __m256 step = _mm256_mul_ps(weight, way);
            const __m256 mixed = _mm256_add_ps(old_tap, step);
            taken = _mm256_fmadd_ps(step, _mm256_sub_ps(way, step), taken);
            before = _mm256_fmadd_ps(mixed, mixed, before);
            _mm256_storeu_ps(row, _mm256_mul_ps(mixed, gain));
        }
        const __m256 behind = _mm256_mul_ps(before, _mm256_mul_ps(gain, gain));
        reserve_.settle(sum_of(taken), sum_of(before), sum_of(behind));
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
    for (uint32_t t = 0; t < frames; t += kTile) {
        fade.advance(kTile);
        decay_.row(shelf_rows_[t / kTile], knot + t, taps.resizing() ? fade.weight() : 0.0f);
    }
    return shelf_rows_[0].b0.data();
}

void Network::run(const Taps& taps, const DecayGlide& glide, uint32_t knot,
                  const float* const in[2], float* const out[2], uint32_t frames) {
    const uint32_t prepared = read_lines(taps, frames);
    const float* shelf = shelf_rows(taps, glide, knot, frames);
    run_block(engine_, {in[0], in[1], out[0], out[1], shelf}, frames, prepared);
    written_ += frames;
    std::memcpy(inputs_[1], inputs_[0], sizeof inputs_[0]);
    for (size_t c = 0; c < 2; ++c) {
        inputs_of_slice_[c] = in[c];
        std::copy_n(in[c] + frames - kTile, kTile, inputs_[0][c]);
    }
}

float* Network::last_tile(size_t line) {
    return ring(line) + (static_cast<uint32_t>(written_ - kTile) & engine_.line_mask[line]);
}

void Network::inject(const float* const in[2], uint32_t from, uint32_t count) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        float* v = last_tile(i) + from;
        for (uint32_t t = 0; t < count; ++t)
            v[t] = std::fma(engine_.in_right[i], in[1][t],
                            std::fma(engine_.in_left[i], in[0][t], v[t]));
    }
    for (size_t c = 0; c < 2; ++c) std::copy_n(in[c], count, inputs_[0][c] + from);
}

void Network::add_rows(const LineRows& rows, const float* gain, uint32_t frames) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const uint32_t mask = engine_.line_mask[i];
        const uint32_t start = static_cast<uint32_t>(written_) - frames;
        const float* row = rows[i].data();
        for (uint32_t t = 0; t < frames; t += kTile) {
            float* v = ring(i) + ((start + t) & mask);
            _mm256_storeu_ps(v, _mm256_fmadd_ps(_mm256_loadu_ps(gain + t), _mm256_loadu_ps(row + t),
                                                _mm256_loadu_ps(v)));
        }
    }
}

void Network::add_to_tile(const LineRows& rows, const float* gain, uint32_t from, uint32_t count) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        float* v = last_tile(i);
        for (uint32_t t = from; t < from + count; ++t) v[t] = std::fma(gain[t], rows[i][t], v[t]);
    }
}

void Network::early_outputs(float* const out[2], uint32_t frames) {
    const float* rows[BRISEL_LINES];
    for (size_t i = 0; i < BRISEL_LINES; ++i)
        rows[i] = tap(i, frames + kTile, 0, frames, scratch_[i].data());
    const __m256 gain = _mm256_set1_ps(engine_.out_left[0]);
    for (size_t c = 0; c < 2; ++c)
        for (uint32_t t = 0; t < frames; t += kTile) {
            const float* input = t == 0 ? inputs_[1][c] : inputs_of_slice_[c] + t - kTile;
            __m256 sum = _mm256_setzero_ps();
            for (size_t i = c; i < BRISEL_LINES; i += 2)
                sum = _mm256_add_ps(sum, _mm256_loadu_ps(rows[i] + t));
            _mm256_storeu_ps(out[c] + t, _mm256_fmsub_ps(gain, sum, _mm256_loadu_ps(input)));
        }
}

} // namespace brisel::live
