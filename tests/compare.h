// What the bit-for-bit tests share: seeded random numbers, hostile signals, buffers between guard
// bands, and comparisons that show where two buffers part.
#ifndef BRISEL_TESTS_COMPARE_H
#define BRISEL_TESTS_COMPARE_H

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <span>
#include <type_traits>
#include <vector>

#include <brisel/reverb.h>
#include <gtest/gtest.h>

namespace compare {

// Every random test starts from --gtest_random_seed (default 0), so a failure repeats.
inline uint64_t seed() {
    return static_cast<uint64_t>(testing::GTEST_FLAG(random_seed));
}

class Random {
public:
    explicit Random(uint64_t stream) : engine_(seed() * 1000003 + stream) {}

    // Uniform in low .. high, both included.
    uint32_t integer(uint32_t low, uint32_t high) {
        return std::uniform_int_distribution<uint32_t>(low, high)(engine_);
    }
    float real(float low, float high) {
        return std::uniform_real_distribution<float>(low, high)(engine_);
    }
    bool chance(float probability) { return real(0.0f, 1.0f) < probability; }
    template <typename T, size_t N>
    T pick(const T (&choices)[N]) {
        return choices[integer(0, N - 1)];
    }

private:
    std::mt19937_64 engine_;
};

enum class Signal { kNoise, kQuiet, kImpulses, kLargest, kAlternating, kDenormal, kNonFinite };
inline constexpr Signal kFiniteSignals[] = {Signal::kNoise,       Signal::kQuiet,
                                            Signal::kImpulses,    Signal::kLargest,
                                            Signal::kAlternating, Signal::kDenormal};
inline constexpr Signal kAllSignals[] = {Signal::kNoise,    Signal::kQuiet,       Signal::kImpulses,
                                         Signal::kLargest,  Signal::kAlternating, Signal::kDenormal,
                                         Signal::kNonFinite};

inline void fill(std::span<float> to, Signal signal, Random& random) {
    constexpr float kMax = std::numeric_limits<float>::max();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(), kInfinity, -kInfinity};
    for (size_t k = 0; k < to.size(); ++k) {
        const float noise = random.real(-1.0f, 1.0f);
        switch (signal) {
        case Signal::kNoise:
            to[k] = noise;
            break;
        // Products with gains fall into the denormal range, or do not, sample by sample.
        case Signal::kQuiet:
            to[k] = noise * 0x1p-124f;
            break;
        case Signal::kImpulses:
            to[k] = random.chance(0.05f) ? noise : noise < 0 ? -0.0f : 0.0f;
            break;
        case Signal::kLargest:
            to[k] = noise < 0 ? -kMax : kMax;
            break;
        case Signal::kAlternating:
            to[k] = k % 2 == 0 ? kMax : -kMax;
            break;
        case Signal::kDenormal:
            to[k] = noise * 0x1p-127f;
            break;
        case Signal::kNonFinite:
            to[k] = random.chance(0.03f) ? random.pick(odd) : noise;
            break;
        }
    }
}

inline std::vector<float> make(size_t count, Signal signal, Random& random) {
    std::vector<float> samples(count);
    fill(samples, signal, random);
    return samples;
}

inline std::vector<float> noise(size_t count, uint64_t stream) {
    Random random(stream);
    return make(count, Signal::kNoise, random);
}

// `size` floats, `offset` floats behind a 32-byte boundary, between guard bands of a NaN that no
// computation gives: a write outside shows in intact(), a read outside in the result.
class Guarded {
public:
    explicit Guarded(size_t size, size_t offset = 0)
        : storage_(size + 2 * kGuard + 16, std::bit_cast<float>(kPattern)), size_(size) {
        const auto address = reinterpret_cast<uintptr_t>(storage_.data() + kGuard);
        start_ = kGuard + (0 - address / sizeof(float)) % 8 + offset % 8;
        std::fill_n(storage_.begin() + static_cast<ptrdiff_t>(start_), size, 0.0f);
    }
    explicit Guarded(std::span<const float> contents, size_t offset = 0)
        : Guarded(contents.size(), offset) {
        std::copy(contents.begin(), contents.end(), data());
    }

    float* data() { return storage_.data() + start_; }
    size_t size() const { return size_; }
    std::span<float> span() { return {data(), size_}; }

    bool intact() const {
        for (size_t k = 0; k < storage_.size(); ++k) {
            const bool inside = k >= start_ && k < start_ + size_;
            if (!inside && std::bit_cast<uint32_t>(storage_[k]) != kPattern) return false;
        }
        return true;
    }

private:
    static constexpr size_t kGuard = 64;
    static constexpr uint32_t kPattern = 0xffc5a5a5u;
    std::vector<float> storage_;
    size_t size_, start_ = 0;
};

inline bool same(float a, float b) {
    return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b) ||
           (std::isnan(a) && std::isnan(b)); // which NaN an operation gives is not settled
}

template <typename Integer>
bool same(Integer a, Integer b) {
    return a == b;
}

// Equal element by element; of floats the bits: -0 differs from +0, but every NaN equals every other.
template <typename T>
testing::AssertionResult same_all(std::span<const T> got, std::span<const T> expected) {
    if (got.size() != expected.size()) {
        return testing::AssertionFailure() << got.size() << " elements, not " << expected.size();
    }
    if (got.empty() || std::memcmp(got.data(), expected.data(), got.size_bytes()) == 0) {
        return testing::AssertionSuccess();
    }
    size_t first = 0, different = 0;
    for (size_t k = got.size(); k-- > 0;) {
        if (same(got[k], expected[k])) continue;
        first = k;
        ++different;
    }
    if (different == 0) return testing::AssertionSuccess();
    auto failure = testing::AssertionFailure();
    failure << different << " of " << got.size() << " differ, the first at " << first;
    const size_t end = std::min(first + 3, got.size());
    for (size_t k = first - std::min<size_t>(first, 2); k < end; ++k) {
        failure << "\n  [" << k << "] got " << std::hexfloat << got[k] << " expected "
                << expected[k] << std::defaultfloat;
    }
    return failure << "\n  --gtest_random_seed=" << seed();
}

inline testing::AssertionResult same_bits(std::span<const float> got,
                                          std::span<const float> expected) {
    return same_all(got, expected);
}

template <typename T, size_t N>
testing::AssertionResult same_array(const T (&got)[N], const T (&expected)[N]) {
    return same_all(std::span<const T>(got), std::span<const T>(expected));
}

// The bit patterns, for data that is moved and must come out unchanged, NaN included.
inline std::vector<uint32_t> words(std::span<const float> samples) {
    std::vector<uint32_t> bits(samples.size());
    if (!bits.empty()) std::memcpy(bits.data(), samples.data(), samples.size_bytes());
    return bits;
}

// Compares two records field by field and keeps the first difference.
template <typename Record>
class FieldCheck {
public:
    FieldCheck(const Record& got, const Record& expected) : got_(got), expected_(expected) {}

    template <typename Field>
    FieldCheck& field(const char* name, Field Record::*member) {
        if constexpr (std::is_array_v<Field>) {
            return note(name, same_array(got_.*member, expected_.*member));
        } else {
            return note(name, same_all(std::span<const Field>(&(got_.*member), 1),
                                       std::span<const Field>(&(expected_.*member), 1)));
        }
    }
    FieldCheck& ring(uint64_t got_size, uint64_t expected_size) {
        const auto contents = [](const Record& record, uint64_t size) {
            return std::span<const float>(record.ring, record.ring ? size : 0);
        };
        return note("ring",
                    same_bits(contents(got_, got_size), contents(expected_, expected_size)));
    }
    FieldCheck& note(const char* name, const testing::AssertionResult& same) {
        if (result_ && !same)
            result_ = testing::AssertionFailure() << name << ": " << same.message();
        return *this;
    }
    const testing::AssertionResult& result() const { return result_; }

private:
    const Record &got_, &expected_;
    testing::AssertionResult result_ = testing::AssertionSuccess();
};

inline testing::AssertionResult same_state(const ffdn_block_stage& got,
                                           const ffdn_block_stage& expected) {
    using Stage = ffdn_block_stage;
    return FieldCheck(got, expected)
        .field("delays", &Stage::delays)
        .field("size", &Stage::size)
        .field("mask", &Stage::mask)
        .field("wpos", &Stage::wpos)
        .ring(uint64_t{BRISEL_LINES} * got.size, uint64_t{BRISEL_LINES} * expected.size)
        .result();
}

// Everything but the addresses and the scratch blocks.
inline testing::AssertionResult same_state(const ffdn_block_n16& got,
                                           const ffdn_block_n16& expected) {
    using Engine = ffdn_block_n16;
    return FieldCheck(got, expected)
        .field("line_offset", &Engine::line_offset)
        .field("line_mask", &Engine::line_mask)
        .field("line_delay", &Engine::line_delay)
        .field("line_wpos", &Engine::line_wpos)
        .field("ring_len", &Engine::ring_len)
        .ring(got.ring_len, expected.ring_len)
        .field("decay_gain", &Engine::decay_gain)
        .field("in_gain", &Engine::in_gain)
        .field("out_gain", &Engine::out_gain)
        .field("direct_gain", &Engine::direct_gain)
        .field("block_size", &Engine::block_size)
        .field("stage_count", &Engine::stage_count)
        .note("stages[0]", same_state(got.stages[0], expected.stages[0]))
        .note("stages[1]", same_state(got.stages[1], expected.stages[1]))
        .note("stages[2]", same_state(got.stages[2], expected.stages[2]))
        .field("shelf_b0", &Engine::shelf_b0)
        .field("shelf_a1", &Engine::shelf_a1)
        .field("shelf_state", &Engine::shelf_state)
        .field("two_band", &Engine::two_band)
        .field("out_left", &Engine::out_left)
        .field("out_right", &Engine::out_right)
        .field("direct_left", &Engine::direct_left)
        .field("direct_right", &Engine::direct_right)
        .field("stereo_out_set", &Engine::stereo_out_set)
        .field("mod_base_delay", &Engine::mod_base_delay)
        .field("mod_phase", &Engine::mod_phase)
        .field("mod_inc", &Engine::mod_inc)
        .field("mod_depth", &Engine::mod_depth)
        .field("mod_enabled", &Engine::mod_enabled)
        .field("in_left", &Engine::in_left)
        .field("in_right", &Engine::in_right)
        .field("stereo_in_set", &Engine::stereo_in_set)
        .result();
}

inline testing::AssertionResult same_state(const ffdn_er& got, const ffdn_er& expected) {
    return FieldCheck(got, expected)
        .field("n_taps", &ffdn_er::n_taps)
        .field("delays_l", &ffdn_er::delays_l)
        .field("delays_r", &ffdn_er::delays_r)
        .field("gains_l", &ffdn_er::gains_l)
        .field("gains_r", &ffdn_er::gains_r)
        .field("ring_len", &ffdn_er::ring_len)
        .field("ring_mask", &ffdn_er::ring_mask)
        .field("write_pos", &ffdn_er::write_pos)
        .field("longest_tap", &ffdn_er::longest_tap)
        .field("max_frames", &ffdn_er::max_frames)
        .ring(static_cast<uint64_t>(got.ring_len), static_cast<uint64_t>(expected.ring_len))
        .result();
}

inline testing::AssertionResult same_state(const ffdn_eq& got, const ffdn_eq& expected) {
    return FieldCheck(got, expected)
        .field("low", &ffdn_eq::low)
        .field("high", &ffdn_eq::high)
        .field("state", &ffdn_eq::state)
        .field("sample_rate", &ffdn_eq::sample_rate)
        .field("low_hz", &ffdn_eq::low_hz)
        .field("high_hz", &ffdn_eq::high_hz)
        .field("gain_low_db", &ffdn_eq::gain_low_db)
        .field("gain_high_db", &ffdn_eq::gain_high_db)
        .field("active", &ffdn_eq::active)
        .result();
}

} // namespace compare

#endif
