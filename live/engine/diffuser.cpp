#include "live/engine/diffuser.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

#include "core/avx2/fwht16.h"
#include "core/network_math.h"

namespace brisel::live {

namespace {

constexpr double kLongestSize = 0.5; // seconds
// The range of each stage's delays, as a share of the size.
constexpr double kRanges[] = {1.0 / 16.0, 0.5, 1.0};
constexpr uint64_t kSeed = 0x5CA77E12345678;

using Tile = float[BRISEL_LINES][kTile];

} // namespace

bool Diffuser::Rings::prepare(size_t count, uint32_t longest) {
    const uint32_t size = ring_size_above(longest + kLongestSlice, kTile);
    mask = size - 1;
    memory = make_floats(count * (size + kTile));
    return memory != nullptr;
}

void Diffuser::Rings::write(size_t i, uint64_t position, const float* tile) const {
    const uint32_t at = static_cast<uint32_t>(position) & mask;
    std::memcpy(ring(i) + at, tile, kTile * sizeof(float));
    if (at == 0) std::memcpy(ring(i) + mask + 1, tile, kTile * sizeof(float));
}

bool Diffuser::prepare(double rate) {
    rate_ = rate;
    // One delay in each sixteenth of the range, in random order.
    auto random = Xorshift64::seeded(kSeed);
    for (auto& places : places_) {
        std::array<size_t, BRISEL_LINES> order;
        std::iota(order.begin(), order.end(), size_t{0});
        for (size_t i = BRISEL_LINES - 1; i > 0; --i)
            std::swap(order[i], order[random.next() % (i + 1)]);
        for (size_t i = 0; i < BRISEL_LINES; ++i) {
            const double within = static_cast<double>(random.next() & 0xFFFFFF) * 0x1p-24;
            places[i] = (static_cast<double>(order[i]) + within) / BRISEL_LINES;
        }
    }
    for (size_t s = 0; s < kStages; ++s) {
        const auto longest = static_cast<uint32_t>(rate * kLongestSize * kRanges[s]) + kTile;
        if (!rings_[s].prepare(s == 0 ? 2 : BRISEL_LINES, longest)) return false;
    }
    return true;
}

Diffuser::Delays Diffuser::delays(double size) const {
    Delays delays;
    for (size_t s = 0; s < kStages; ++s)
        for (size_t i = 0; i < BRISEL_LINES; ++i) {
            delays[s][i] = static_cast<uint32_t>(places_[s][i] * kRanges[s] * size * rate_);
            if (s == 0) delays[s][i] += kTile; // a tile's input is not there yet
        }
    return delays;
}

void Diffuser::start(double size) {
    old_ = new_ = delays(size);
    position_ = 0;
}

void Diffuser::start_resize(double size) {
    new_ = delays(size);
}

void Diffuser::write(const float* const in[2], int32_t offset, uint32_t count) {
    const auto start = static_cast<uint32_t>(position_ + static_cast<uint64_t>(int64_t{offset}));
    const uint32_t mask = rings_[0].mask;
    for (size_t c = 0; c < 2; ++c) {
        float* ring = rings_[0].ring(c);
        for (uint32_t t = 0; t < count; ++t) {
            const uint32_t at = (start + t) & mask;
            ring[at] = in[c][t];
            if (at < kTile) ring[mask + 1 + at] = in[c][t];
        }
    }
}

// A tile `delay` frames back; what would lie before the start is silence.
void Diffuser::read(float* tile, const Rings& rings, size_t ring, uint32_t delay) const {
    const uint32_t at = (static_cast<uint32_t>(position_) - delay) & rings.mask;
    std::memcpy(tile, rings.ring(ring) + at, kTile * sizeof(float));
    if (delay > position_) std::fill_n(tile, std::min<uint64_t>(delay - position_, kTile), 0.0f);
}

void Diffuser::read_line(float* tile, size_t stage, size_t line, bool fading,
                         __m256 weights) const {
    const size_t ring = stage == 0 ? line % 2 : line;
    read(tile, rings_[stage], ring, old_[stage][line]);
    if (!fading) return;
    alignas(32) float next[kTile];
    read(next, rings_[stage], ring, new_[stage][line]);
    _mm256_store_ps(tile, crossfade(_mm256_load_ps(tile), _mm256_load_ps(next), weights));
}

void Diffuser::run(LineRows& rows, const Fade& resize, uint32_t frames) {
    const bool fading = resize.running();
    const __m256 input_gain = _mm256_set1_ps(0x1.6a09e6p-2f); // 1 / sqrt(8)
    for (uint32_t t = 0; t < frames; t += kTile) {
        const __m256 weights = fading ? resize.weights(t) : _mm256_setzero_ps();
        alignas(32) Tile before;
        alignas(32) Tile behind;
        const auto transform = [&] {
            fwht_tile([&](size_t i) { return before[i]; }, [&](size_t i) { return behind[i]; });
        };
        for (size_t i = 0; i < BRISEL_LINES; ++i) {
            read_line(before[i], 0, i, fading, weights);
            _mm256_store_ps(before[i], _mm256_mul_ps(_mm256_load_ps(before[i]), input_gain));
        }
        for (size_t s = 1; s < kStages; ++s) {
            transform();
            for (size_t i = 0; i < BRISEL_LINES; ++i) {
                rings_[s].write(i, position_, behind[i]);
                read_line(before[i], s, i, fading, weights);
            }
        }
        transform();
        for (size_t i = 0; i < BRISEL_LINES; ++i)
            _mm256_storeu_ps(rows[i].data() + t, _mm256_load_ps(behind[i]));
        position_ += kTile;
    }
}

uint32_t Diffuser::longest_path() const {
    uint32_t frames = 0;
    for (size_t s = 0; s < kStages; ++s) {
        uint32_t longest = 0;
        for (const Delays* delays : {&old_, &new_})
            longest =
                std::max(longest, *std::max_element((*delays)[s].begin(), (*delays)[s].end()));
        frames += longest;
    }
    return frames;
}

} // namespace brisel::live
