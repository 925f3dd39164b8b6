#include "live/engine/predelay.h"

#include <algorithm>

#include "core/avx2/runs.h"
#include "core/network_math.h"

namespace brisel::live {

namespace {

constexpr double kEntrySeconds = 0.02;

// out[t] = body(t) for the frames from .. to - 1, as whole vectors: what lies outside the frames is
// computed and not kept.
template <typename Body>
void in_tiles(float* out, uint32_t from, uint32_t to, Body body) {
    for (uint32_t t = from & ~(kTile - 1); t < to; t += kTile) {
        alignas(32) float tile[kTile];
        _mm256_store_ps(tile, body(t));
        const uint32_t first = std::max(t, from), last = std::min(t + kTile, to);
        std::copy(tile + (first - t), tile + (last - t), out + first);
    }
}

} // namespace

bool Predelay::prepare(double rate) {
    rate_ = rate;
    const auto longest = static_cast<uint32_t>(kLongest * rate + 0.5);
    const uint32_t size = ring_size_above(longest + kLongestSlice);
    mask_ = size - 1;
    for (Floats& ring : rings_)
        if (!(ring = make_floats(size))) return false;
    fade_.set_length(whole_tiles(rate, kDelayFadeSeconds));
    entry_.set_length(whole_tiles(rate, kEntrySeconds));
    target_ = 0;
    reset();
    return true;
}

void Predelay::reset() {
    written_ = 0;
    now_ = next_ = target_;
    fade_.finish();
    entry_.finish();
}

void Predelay::set_seconds(double seconds) {
    target_ = static_cast<uint32_t>(std::clamp(seconds, 0.0, kLongest) * rate_ + 0.5);
}

void Predelay::begin() {
    if (fade_.running()) return;
    now_ = next_;
    if (target_ == now_) return;
    next_ = target_;
    fade_.start();
}

void Predelay::read(int channel, float* to, uint32_t delay, uint32_t from, uint32_t count) const {
    // Frames whose delayed sample is older than everything written.
    const uint64_t first = written_ + from;
    const uint32_t empty =
        first >= delay ? 0 : static_cast<uint32_t>(std::min<uint64_t>(delay - first, count));
    std::fill_n(to, empty, 0.0f);
    const auto start = static_cast<uint32_t>(first + empty - delay) & mask_;
    copy_from_ring(to + empty, rings_[channel].get(), mask_ + 1, start, count - empty);
}

void Predelay::run(const float* const in[2], uint32_t from, uint32_t to) {
    const uint32_t count = to - from;
    const auto start = static_cast<uint32_t>(written_ + from) & mask_;
    for (int c : {0, 1}) {
        const float* input = in[c];
        if (entry_.running()) {
            input = entering_[c];
            in_tiles(entering_[c], from, to, [&](uint32_t t) {
                return _mm256_mul_ps(_mm256_loadu_ps(in[c] + t), entry_.weights(t));
            });
        }
        copy_to_ring(rings_[c].get(), mask_ + 1, start, input + from, count);
        if (!fade_.running() && next_ == 0) {
            delayed_[c] = input;
            continue;
        }
        delayed_[c] = out_[c];
        read(c, out_[c] + from, next_, from, count);
        if (!fade_.running()) continue;
        read(c, old_ + from, now_, from, count);
        in_tiles(out_[c], from, to, [&](uint32_t t) {
            return crossfade(_mm256_load_ps(old_ + t), _mm256_load_ps(out_[c] + t),
                             fade_.weights(t));
        });
    }
}

void Predelay::advance(uint32_t frames) {
    written_ += frames;
    fade_.advance(frames);
    entry_.advance(frames);
}

uint32_t Predelay::longest() const {
    return fade_.running() ? std::max(now_, next_) : next_;
}

} // namespace brisel::live
