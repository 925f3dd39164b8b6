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

// One place in each sixteenth of 0 .. 1, in random order.
void draw_places(std::array<double, BRISEL_LINES>& places, Xorshift64& random) {
    std::array<size_t, BRISEL_LINES> order;
    std::iota(order.begin(), order.end(), size_t{0});
    for (size_t i = BRISEL_LINES - 1; i > 0; --i)
        std::swap(order[i], order[random.next() % (i + 1)]);
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const double within = static_cast<double>(random.next() & 0xFFFFFF) * 0x1p-24;
        places[i] = (static_cast<double>(order[i]) + within) / BRISEL_LINES;
    }
}

} // namespace

bool Diffuser::Rings::prepare(size_t count, uint32_t longest) {
    const uint32_t size = ring_size_above(longest + kLongestSlice);
    mask = size - 1;
    memory = make_floats(count * size);
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
    return inputs_.prepare(2, longest(kTapRange)) &&
           lines_.prepare(BRISEL_LINES, longest(kLineRange));
}

Diffuser::Delays Diffuser::delays(double size) const {
    Delays delays;
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const double frames = size * rate_;
        // The input of a tile is not there yet when the tile is run.
        delays.taps[i] = kTile + static_cast<uint32_t>(tap_places_[i] * kTapRange * frames);
        delays.lines[i] = static_cast<uint32_t>(line_places_[i] * kLineRange * frames);
    }
    return delays;
}

void Diffuser::start(double size) {
    old_ = new_ = delays(size);
    position_ = 0;
}

void Diffuser::write(const float* const in[2], int32_t offset, uint32_t count) {
    const auto start = static_cast<uint32_t>(position_) + static_cast<uint32_t>(offset);
    for (size_t c = 0; c < 2; ++c)
        copy_to_ring(inputs_.ring(c), inputs_.mask + 1, start & inputs_.mask, in[c], count);
}

// The samples of a ring, `delay` frames back; what would lie before the start is silence.
const float* Diffuser::find(const Rings& rings, size_t ring, uint32_t delay, uint32_t frames,
                            float* scratch) const {
    const uint32_t start = static_cast<uint32_t>(position_) - delay;
    const float* found = find_in_ring(rings.ring(ring), rings.mask, start, frames, scratch);
    if (delay <= position_) return found;
    if (found != scratch) std::copy_n(found, frames, scratch);
    std::fill_n(scratch, std::min<uint64_t>(delay - position_, frames), 0.0f);
    return scratch;
}

// Delayed rows out of two rings, for even and odd lines, or out of a ring a line.
void Diffuser::find_rows(Rows& rows, const Rings& rings, const LineDelays& old_delays,
                         const LineDelays& new_delays, const Fade& resize, uint32_t frames) {
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        const size_t ring = &rings == &inputs_ ? i % 2 : i;
        rows[i] = find(rings, ring, old_delays[i], frames, scratch_[0][i].data());
        if (!resize.running()) continue;
        const float* next = find(rings, ring, new_delays[i], frames, scratch_[1][i].data());
        float* mixed = scratch_[0][i].data();
        for (uint32_t t = 0; t < frames; t += kTile)
            _mm256_storeu_ps(mixed + t, crossfade(_mm256_loadu_ps(rows[i] + t),
                                                  _mm256_loadu_ps(next + t), resize.weights(t)));
        rows[i] = mixed;
    }
}

void Diffuser::run(LineRows& rows, const Fade& resize, uint32_t frames) {
    Rows delayed;
    find_rows(delayed, inputs_, old_.taps, new_.taps, resize, frames);
    const uint32_t start = static_cast<uint32_t>(position_) & lines_.mask;
    for (uint32_t t = 0; t < frames; t += kTile) {
        float* line = lines_.ring(0) + ((start + t) & lines_.mask);
        const size_t step = size_t{lines_.mask} + 1;
        fwht_tile([&](size_t i) { return delayed[i] + t; },
                  [&](size_t i) { return line + i * step; });
    }
    find_rows(delayed, lines_, old_.lines, new_.lines, resize, frames);
    for (uint32_t t = 0; t < frames; t += kTile)
        fwht_tile([&](size_t i) { return delayed[i] + t; },
                  [&](size_t i) { return rows[i].data() + t; });
    position_ += frames;
}

uint32_t Diffuser::longest_path() const {
    const auto longest = [](const LineDelays& delays) {
        return *std::max_element(delays.begin(), delays.end());
    };
    return std::max(longest(old_.taps), longest(new_.taps)) +
           std::max(longest(old_.lines), longest(new_.lines));
}

} // namespace brisel::live
