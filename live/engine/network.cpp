#include "live/engine/network.h"

#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "brisel/ffdn_defaults_n16.h"
#include "core/avx2/runs.h"
#include "core/ffdn_block_signals.h"
#include "core/ffdn_block_storage.h"
#include "core/network_math.h"

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
void tap_weights(std::array<float, BRISEL_LINES>& weights, float s,
                 const std::array<float, BRISEL_LINES>& gain_ratios) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const float share = s * gain_ratios[i];
        weights[i] = share / (1.0f - s + share);
    }
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
            continue;
        }
        uint32_t t = 0;
        for (const TapRun& run : taps.runs(i)) {
            forget(i, run.from, t, run.frames);
            forget(i, run.to, t, run.frames);
            t += run.frames;
        }
    }
}

void Network::read(float* to, size_t line, uint32_t delay, uint32_t after, uint32_t count) {
    const uint32_t mask = engine_.line_mask[line];
    const uint32_t start = (static_cast<uint32_t>(written_) + after - delay) & mask;
    copy_from_ring(to, ring(line), mask + 1, start, count);
}

// The lines that are not just read out of their rings stand in tap_block afterwards; returns them, a bit
// each.
uint32_t Network::read_lines(const Taps& taps, uint32_t frames) {
    forget_older(taps, frames);
    if (taps.resizing()) {
        read_resizing(taps, frames);
        return 0xFFFF;
    }
    uint32_t prepared = 0;
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const auto runs = taps.runs(i);
        engine_.line_delay[i] = runs[0].to;
        const bool rests = std::none_of(runs.begin(), runs.end(), [&](const TapRun& run) {
            return run.fading() || run.to != runs[0].to;
        });
        if (rests) continue;
        read_line(runs, i, engine_.tap_block + i * frames);
        prepared |= 1u << i;
    }
    return prepared;
}

void Network::read_line(std::span<const TapRun> runs, size_t line, float* row) {
    uint32_t t = 0;
    for (const TapRun& run : runs) {
        read(row + t, line, run.to, t, run.frames);
        if (run.fading()) {
            float* old = old_[0].data();
            read(old, line, run.from, t, run.frames);
            const float scale = 1.0f / static_cast<float>(run.length);
            for (uint32_t k = 0; k < run.frames; ++k) {
                const float x = static_cast<float>(run.position + k) * scale;
                const float s = x * x * (3.0f - 2.0f * x);
                row[t + k] = std::fma(s, row[t + k] - old[k], old[k]);
            }
        }
        t += run.frames;
    }
}

void Network::read_resizing(const Taps& taps, uint32_t frames) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        read(old_[i].data(), i, taps.from(i), 0, frames);
        read(new_[i].data(), i, taps.to(i), 0, frames);
    }
    Fade fade = taps.resize();
    std::array<float, BRISEL_LINES> begin;
    std::array<float, BRISEL_LINES> end;
    tap_weights(end, fade.weight(), gain_ratios_);
    for (uint32_t t = 0; t < frames; t += kTile) {
        begin = end;
        fade.advance(kTile);
        tap_weights(end, fade.weight(), gain_ratios_);
        const float next_gain = reserve_.next_gain(fade.weight());
        const __m256 gain = ramp(gain_, next_gain);
        gain_ = next_gain;
        __m256 taken = _mm256_setzero_ps();
        __m256 before = _mm256_setzero_ps();
        __m256 behind = _mm256_setzero_ps();
        for (size_t i = 0; i < BRISEL_LINES; ++i) {
            const __m256 a = _mm256_loadu_ps(old_[i].data() + t);
            const __m256 way = _mm256_sub_ps(_mm256_loadu_ps(new_[i].data() + t), a);
            const __m256 w = ramp(begin[i], end[i]);
            const __m256 step = _mm256_mul_ps(w, way);
            const __m256 mixed = _mm256_add_ps(a, step);
            const __m256 row = _mm256_mul_ps(mixed, gain);
            // w (1 - w) way^2
            taken = _mm256_fmadd_ps(step, _mm256_sub_ps(way, step), taken);
            before = _mm256_fmadd_ps(mixed, mixed, before);
            behind = _mm256_fmadd_ps(row, row, behind);
            _mm256_storeu_ps(engine_.tap_block + i * frames + t, row);
        }
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

void Network::inject(const float* const in[2], uint32_t from, uint32_t count) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const uint32_t tile = static_cast<uint32_t>(written_ - kTile) & engine_.line_mask[i];
        float* v = ring(i) + tile + from;
        for (uint32_t t = 0; t < count; ++t)
            v[t] = std::fma(engine_.in_right[i], in[1][t],
                            std::fma(engine_.in_left[i], in[0][t], v[t]));
    }
    for (size_t c = 0; c < 2; ++c) std::copy_n(in[c], count, inputs_[0][c] + from);
}

void Network::add_rows(const LineRows& rows, const float* gain, uint32_t frames, uint32_t from,
                       uint32_t count) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const uint32_t mask = engine_.line_mask[i];
        const uint32_t start = static_cast<uint32_t>(written_ - frames) + from;
        const float* row = rows[i].data() + from;
        for (uint32_t t = 0; t < count;) {
            const uint32_t at = (start + t) & mask;
            const uint32_t run = std::min(count - t, mask + 1 - at);
            float* v = ring(i) + at;
            for (uint32_t k = 0; k < run; ++k)
                v[k] = std::fma(gain[from + t + k], row[t + k], v[k]);
            t += run;
        }
    }
}

void Network::early_outputs(float* const out[2], uint32_t frames) {
    for (size_t c = 0; c < 2; ++c) {
        const float* slice = inputs_of_slice_[c];
        for (uint32_t t = 0; t < kTile; ++t) out[c][t] = -inputs_[1][c][t];
        for (uint32_t t = kTile; t < frames; ++t) out[c][t] = -slice[t - kTile];
    }
    const float gain = engine_.out_left[0];
    float* row = old_[0].data();
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        read(row, i, frames + kTile, 0, frames);
        float* sum = out[i % 2];
        for (uint32_t t = 0; t < frames; ++t) sum[t] = std::fma(gain, row[t], sum[t]);
    }
}

} // namespace brisel::live
