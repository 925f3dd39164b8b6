#include "live/engine/predelay.h"

#include <algorithm>
#include <cmath>

#include "core/avx2/runs.h"
#include "core/network_math.h"

namespace brisel::live {

namespace {

constexpr double kShort = 0.06; // seconds, of the short history
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

bool Predelay::allocate(History& history, uint32_t size) {
    history.size = size;
    for (Floats& ring : history.rings)
        if (!(ring = make_floats(size))) return false;
    return true;
}

bool Predelay::prepare(double rate) {
    rate_ = rate;
    const auto ring_of = [rate](double seconds) {
        return ring_size_above(static_cast<uint32_t>(std::lround(seconds * rate)) + kLongestSlice);
    };
    if (!allocate(short_, ring_of(kShort)) || !allocate(long_, ring_of(kLongest))) return false;
    fade_.set_length(whole_tiles(rate, kDelayFadeSeconds));
    entry_.set_length(whole_tiles(rate, kEntrySeconds));
    target_ = 0;
    reset();
    return true;
}

void Predelay::reset() {
    written_ = oldest_ = 0;
    now_ = next_ = target_;
    fade_.finish();
    entry_.finish();
    history_ = &history_for(now_);
}

// No tap of the short history lies where its beginning may rise.
const Predelay::History& Predelay::history_for(uint32_t delay) const {
    return delay + entry_.length() + 2 * kLongestSlice < short_.size ? short_ : long_;
}

// With as much of the past as the short history holds, which begins without an edge.
void Predelay::move_to(const History& history) {
    if (history_ == &history) return;
    const auto held =
        static_cast<uint32_t>(std::min<uint64_t>(written_ - oldest_, short_.size - kLongestSlice));
    oldest_ = written_ - held;
    for (uint32_t copied = 0; copied < held;) {
        const auto from = static_cast<uint32_t>(oldest_ + copied) & (history_->size - 1);
        const auto to = static_cast<uint32_t>(oldest_ + copied) & (history.size - 1);
        const uint32_t count = std::min({held - copied, history_->size - from, history.size - to});
        for (int c : {0, 1})
            copy_run(history.rings[c].get() + to, history_->rings[c].get() + from, count);
        copied += count;
    }
    const uint32_t rise = std::min(entry_.length(), held);
    for (uint32_t t = 0; t < rise; ++t) {
        const float weight = smootherstep(static_cast<float>(t) / static_cast<float>(rise));
        for (const Floats& ring : history.rings)
            ring[static_cast<uint32_t>(oldest_ + t) & (history.size - 1)] *= weight;
    }
    history_ = &history;
}

void Predelay::set_seconds(double seconds) {
    target_ = static_cast<uint32_t>(std::lround(std::clamp(seconds, 0.0, kLongest) * rate_));
}

void Predelay::begin() {
    if (fade_.running()) return;
    now_ = next_;
    move_to(history_for(std::max(now_, target_)));
    if (target_ == now_) return;
    next_ = target_;
    fade_.start();
}

void Predelay::read(int channel, float* to, uint32_t delay, uint32_t from, uint32_t count) const {
    // Frames whose delayed sample is older than everything held.
    const uint64_t first = written_ + from, earliest = oldest_ + delay;
    const uint32_t empty =
        first >= earliest ? 0 : static_cast<uint32_t>(std::min<uint64_t>(earliest - first, count));
    std::fill_n(to, empty, 0.0f);
    const auto start = static_cast<uint32_t>(first + empty - delay) & (history_->size - 1);
    copy_from_ring(to + empty, history_->rings[channel].get(), history_->size, start,
                   count - empty);
}

void Predelay::run(const float* const in[2], uint32_t from, uint32_t to) {
    const uint32_t count = to - from;
    const auto start = static_cast<uint32_t>(written_ + from) & (history_->size - 1);
    for (int c : {0, 1}) {
        const float* input = in[c];
        if (entry_.running()) {
            input = entering_[c];
            in_tiles(entering_[c], from, to, [&](uint32_t t) {
                return _mm256_mul_ps(_mm256_loadu_ps(in[c] + t), entry_.weights(t));
            });
        }
        copy_to_ring(history_->rings[c].get(), history_->size, start, input + from, count);
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
