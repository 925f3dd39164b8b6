#include "live/engine/diffuser.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "core/avx2/fwht16.h"
#include "core/network_math.h"
#include "live/engine/ring.h"

namespace brisel::live {

namespace {

constexpr double kLongestSize = 0.5; // seconds
// The range of the delays as a share of the size.
constexpr double kTapRange = 1.0 / 16.0;
constexpr double kLineRange = 1.0;
constexpr uint64_t kSeed = 0x5CA77E12345678;

// One place in each eighth of 0 .. 1, in random order.
void draw_places(std::array<double, Diffuser::kChannels>& places, Xorshift64& random) {
    std::array<size_t, Diffuser::kChannels> order;
    std::iota(order.begin(), order.end(), size_t{0});
    for (size_t i = places.size() - 1; i > 0; --i)
        std::swap(order[i], order[random.next() % (i + 1)]);
    for (size_t i = 0; i < places.size(); ++i) {
        const double within = static_cast<double>(random.next() & 0xFFFFFF) * 0x1p-24;
        places[i] = (static_cast<double>(order[i]) + within) / static_cast<double>(places.size());
    }
}

// An unscaled transform of eight rows, tile by tile: `in(i)` and `out(i)` give the addresses of
// rows.
template <typename In, typename Out>
void transform_tile(In in, Out out) {
    __m256 x[8];
    for (size_t i = 0; i < 8; ++i) x[i] = _mm256_loadu_ps(in(i));
    fwht_lower_passes(x);
    for (size_t i = 0; i < 8; ++i) _mm256_storeu_ps(out(i), x[i]);
}

} // namespace

bool Diffuser::Rings::prepare(size_t count, uint32_t longest) {
    const uint32_t size = ring_size_above(longest + kLongestSlice);
    mask = size - 1;
    memory = make_floats(count * step());
    return memory != nullptr;
}

bool Diffuser::prepare(double rate) {
    rate_ = rate;
    auto random = Xorshift64::seeded(kSeed);
    draw_places(tap_places_, random);
    draw_places(line_places_, random);
    const auto longest = [&](double range) {
        return static_cast<uint32_t>(rate * kLongestSize * range) + kTile;
    };
    return inputs_.prepare(2, longest(kTapRange)) && lines_.prepare(kChannels, longest(kLineRange));
}

Diffuser::Delays Diffuser::delays(double size) const {
    Delays delays;
    for (size_t i = 0; i < kChannels; ++i) {
        const double frames = size * rate_;
        // The input of a tile is not there yet when the tile is run.
        delays.taps[i] = kTile + static_cast<uint32_t>(tap_places_[i] * kTapRange * frames);
        delays.lines[i] = static_cast<uint32_t>(line_places_[i] * kLineRange * frames);
    }
    return delays;
}

void Diffuser::start(double size) {
    old_ = new_ = delays(size);
    position_ = frames_ = 0;
}

void Diffuser::begin(uint32_t frames) {
    position_ += frames_;
    frames_ = frames;
}

void Diffuser::write(const float* const in[2], uint32_t from, uint32_t count) {
    const uint32_t start = static_cast<uint32_t>(position_) + from;
    for (size_t c = 0; c < 2; ++c)
        copy_to_ring(inputs_.ring(c), inputs_.mask + 1, start & inputs_.mask, in[c], count);
}

// The samples of a ring, `delay` frames back; what would lie before the start is silence.
const float* Diffuser::find(const Rings& rings, size_t ring, uint32_t delay, float* scratch) const {
    const uint32_t start = static_cast<uint32_t>(position_) - delay;
    const float* found = find_in_ring(rings.ring(ring), rings.mask, start, frames_, scratch);
    if (delay <= position_) return found;
    if (found != scratch) std::copy_n(found, frames_, scratch);
    std::fill_n(scratch, std::min<uint64_t>(delay - position_, frames_), 0.0f);
    return scratch;
}

// Delayed rows out of two rings, for even and odd channels, or out of a ring a channel.
void Diffuser::find_rows(Found& rows, const Rings& rings, const ChannelDelays& old_delays,
                         const ChannelDelays& new_delays, const Fade& resize) {
    for (size_t i = 0; i < kChannels; ++i) {
        const size_t ring = &rings == &inputs_ ? i % 2 : i;
        rows[i] = find(rings, ring, old_delays[i], scratch_[0][i].data());
        if (!resize.running()) continue;
        const float* next = find(rings, ring, new_delays[i], scratch_[1][i].data());
        float* mixed = scratch_[0][i].data();
        for (uint32_t t = 0; t < frames_; t += kTile)
            _mm256_storeu_ps(mixed + t, crossfade(_mm256_loadu_ps(rows[i] + t),
                                                  _mm256_loadu_ps(next + t), resize.weights(t)));
        rows[i] = mixed;
    }
}

void Diffuser::run(Rows& rows, const Fade& resize) {
    Found delayed;
    find_rows(delayed, inputs_, old_.taps, new_.taps, resize);
    const uint32_t start = static_cast<uint32_t>(position_) & lines_.mask;
    for (uint32_t t = 0; t < frames_; t += kTile) {
        float* line = lines_.ring(0) + ((start + t) & lines_.mask);
        transform_tile([&](size_t i) { return delayed[i] + t; },
                       [&](size_t i) { return line + i * lines_.step(); });
    }
    find_rows(delayed, lines_, old_.lines, new_.lines, resize);
    for (uint32_t t = 0; t < frames_; t += kTile)
        transform_tile([&](size_t i) { return delayed[i] + t; },
                       [&](size_t i) { return rows[i].data() + t; });
}

uint32_t Diffuser::longest_path() const {
    const auto longest = [](const ChannelDelays& delays) {
        return *std::max_element(delays.begin(), delays.end());
    };
    return std::max(longest(old_.taps), longest(new_.taps)) +
           std::max(longest(old_.lines), longest(new_.lines));
}

} // namespace brisel::live
