// What the tests share: seeded random numbers, signals, buffers between guard bands, equality to
// the bit, and the whole state of a record as one vector.
#ifndef BRISEL_TESTS_COMPARE_H
#define BRISEL_TESTS_COMPARE_H

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <span>
#include <vector>

#include "brisel/ffdn_ref_n16.h"
#include "brisel/reverb.h"

#include <gtest/gtest.h>

namespace compare {

inline constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
inline constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Every random test starts from --gtest_random_seed (0 if not given), so that a failure repeats.
class Random {
public:
    explicit Random(uint64_t stream)
        : engine_(static_cast<uint64_t>(testing::GTEST_FLAG(random_seed)) * 1000003 + stream) {}

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

enum class Signal { kNoise, kImpulses, kQuiet, kDenormal, kLargest, kNonFinite, kSilence };
inline constexpr Signal kSignals[] = {Signal::kNoise,    Signal::kImpulses, Signal::kQuiet,
                                      Signal::kDenormal, Signal::kLargest,  Signal::kNonFinite};

inline float sample(Signal signal, Random& random) {
    const float noise = random.real(-1.0f, 1.0f);
    switch (signal) {
    case Signal::kImpulses:
        return random.chance(0.05f) ? noise : noise < 0 ? -0.0f : 0.0f;
    case Signal::kQuiet: // products with gains fall into the denormal range, or do not
        return noise * 0x1p-124f;
    case Signal::kDenormal:
        return noise * 0x1p-127f;
    case Signal::kLargest:
        return std::copysign(std::numeric_limits<float>::max(), noise);
    case Signal::kNonFinite:
        return random.chance(0.03f) ? random.pick({kNaN, kInfinity, -kInfinity}) : noise;
    case Signal::kSilence:
        return 0.0f;
    default:
        return noise;
    }
}

inline std::vector<float> make(size_t count, Signal signal, Random& random) {
    std::vector<float> samples(count);
    for (float& x : samples) x = sample(signal, random);
    return samples;
}

inline std::vector<float> noise(size_t count, uint64_t stream) {
    Random random(stream);
    return make(count, Signal::kNoise, random);
}

// `contents`, `offset` floats behind a 32-byte boundary, between guard bands of a NaN that no
// computation gives: a write outside shows in intact(), a read outside in the result.
class Guarded {
public:
    explicit Guarded(std::span<const float> contents, size_t offset = 0)
        : storage_(contents.size() + 144, std::bit_cast<float>(kPattern)), size_(contents.size()) {
        const auto address = reinterpret_cast<uintptr_t>(storage_.data() + 64);
        start_ = 64 + (0 - address / sizeof(float)) % 8 + offset % 8;
        std::copy(contents.begin(), contents.end(), data());
    }
    explicit Guarded(size_t size, size_t offset = 0) : Guarded(std::vector<float>(size), offset) {}

    float* data() { return storage_.data() + start_; }
    std::span<float> span() { return {data(), size_}; }
    bool intact() const {
        const auto untouched = [](float x) { return std::bit_cast<uint32_t>(x) == kPattern; };
        const auto from = storage_.begin() + static_cast<ptrdiff_t>(start_);
        return std::all_of(storage_.begin(), from, untouched) &&
               std::all_of(from + static_cast<ptrdiff_t>(size_), storage_.end(), untouched);
    }

private:
    static constexpr uint32_t kPattern = 0xffc5a5a5u;
    std::vector<float> storage_;
    size_t size_, start_ = 0;
};

// The state of a record: every field but the addresses, and what stands behind these. Bits, but one
// for every NaN: which one an operation gives is not settled.
using State = std::vector<uint32_t>;

template <typename T>
uint32_t word(T value) {
    if constexpr (std::is_same_v<T, float>)
        return std::bit_cast<uint32_t>(std::isnan(value) ? kNaN : value);
    else
        return static_cast<uint32_t>(value);
}

template <typename... Fields>
State flat(const Fields&... fields) {
    State state;
    const auto add = [&state](const auto& values) {
        for (const auto value : values) state.push_back(word(value));
    };
    const auto as_span = []<typename Field>(const Field& field) {
        if constexpr (std::is_arithmetic_v<Field>)
            return std::span<const Field>(&field, 1);
        else
            return std::span(field);
    };
    (add(as_span(fields)), ...);
    return state;
}

inline std::span<const float> memory(const float* from, uint64_t count) {
    return {from, from ? count : 0};
}

inline State state(const ffdn_block_stage& s) {
    return flat(s.delays, s.size, s.mask, s.wpos, memory(s.ring, uint64_t{16} * s.size));
}

inline State state(const ffdn_block_n16& e) {
    return flat(e.line_offset, e.line_mask, e.line_delay, e.line_wpos, e.ring_len, e.decay_gain,
                e.in_gain, e.out_gain, e.direct_gain, e.block_size, e.stage_count,
                state(e.stages[0]), state(e.stages[1]), state(e.stages[2]), e.shelf_b0, e.shelf_a1,
                e.shelf_state, e.two_band, e.out_left, e.out_right, e.direct_left, e.direct_right,
                e.stereo_out_set, e.mod_base_delay, e.mod_phase, e.mod_inc, e.mod_depth,
                e.mod_enabled, e.in_left, e.in_right, e.stereo_in_set, memory(e.ring, e.ring_len));
}

inline State state(const ffdn_n16& f) {
    State all = flat(f.line_delay, f.line_mask, f.line_wpos, f.decay_gain, f.in_gain, f.out_gain,
                     f.direct_gain, f.stage_count, f.shelf_b0, f.shelf_a1, f.shelf_state,
                     f.two_band, f.out_left, f.out_right, f.direct_left, f.direct_right, f.in_left,
                     f.in_right, f.stereo_out_set, f.stereo_in_set);
    for (const ffdn_n16_stage& s : f.stages)
        all = flat(all, s.stage_delay, s.size, s.mask, s.wpos,
                   memory(s.ring, 16 * static_cast<uint64_t>(s.size)));
    for (size_t i = 0; i < 16; ++i)
        all = flat(all, memory(f.line_buf[i], static_cast<uint64_t>(f.line_size[i])));
    return all;
}

inline State state(const ffdn_er& er) {
    return flat(er.n_taps, er.delays_l, er.delays_r, er.gains_l, er.gains_r, er.ring_len,
                er.ring_mask, er.write_pos, er.longest_tap, er.max_frames,
                memory(er.ring, static_cast<uint64_t>(er.ring_len)));
}

inline State state(const ffdn_eq& eq) {
    return flat(eq.low, eq.high, eq.state, eq.sample_rate, eq.low_hz, eq.high_hz, eq.gain_low_db,
                eq.gain_high_db, eq.active);
}

inline State state(const qv_reverb_params& p) {
    return flat(p.size, p.t60, p.cascade_stages, p.t60_high, p.damp, p.mix, p.width, p.modulate,
                p.er_enable, p.er_size, p.er_level, p.eq_low_db, p.eq_high_db);
}

inline State state(const qv_reverb& r) {
    return flat(state(r.engine), state(r.er), state(r.eq), state(r.params), r.sample_rate,
                r.max_frames, r.longest_delay, r.engine_ready, r.er_active, r.eq_ready,
                memory(r.buf_aux, static_cast<uint64_t>(r.max_frames)));
}

inline State state(std::span<const float> samples) {
    return flat(samples);
}

// Equal to the bit; shows the first difference, where floats stand as their bits.
template <typename Record>
testing::AssertionResult same(const Record& got, const Record& expected) {
    const State a = state(got), b = state(expected);
    const auto [x, y] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (x == a.end() && y == b.end()) return testing::AssertionSuccess();
    auto failure = testing::AssertionFailure() << "differ at " << x - a.begin() << std::hex;
    if (x != a.end()) failure << ": got 0x" << *x;
    if (y != b.end()) failure << ", expected 0x" << *y;
    return failure << std::dec << "; --gtest_random_seed=" << testing::GTEST_FLAG(random_seed);
}

// A record that starts as garbage, which the functions that make one overwrite, and that frees
// itself.
template <typename Record, void (*release)(Record*)>
struct Owned : Record {
    Owned() {
        std::fill_n(reinterpret_cast<unsigned char*>(static_cast<Record*>(this)), sizeof(Record),
                    0xA5);
    }
    ~Owned() { release(this); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
};
using Engine = Owned<ffdn_block_n16, ffdn_block_n16_free>;
using Reference = Owned<ffdn_n16, ffdn_n16_free>;
using Early = Owned<ffdn_er, ffdn_er_free>;

struct Destroy {
    void operator()(qv_reverb* rev) const { qv_reverb_destroy(rev); }
};
using Reverb = std::unique_ptr<qv_reverb, Destroy>;

inline Reverb create(int32_t sample_rate, int32_t max_frames) {
    return Reverb(qv_reverb_create(sample_rate, max_frames));
}

// Settings of all kinds, mostly accepted.
inline qv_reverb_params random_params(Random& random) {
    const auto or_zero = [&](float x) { return random.chance(0.4f) ? 0.0f : x; };
    return {.size = random.chance(0.1f) ? 0.5f : random.real(0.004f, 0.06f),
            .t60 = random.real(-0.05f, 4.0f),
            .cascade_stages = static_cast<int32_t>(random.integer(0, 19)) % 5 % 4,
            .t60_high = or_zero(random.real(0.01f, 3.0f)),
            .damp = or_zero(random.real(0.0f, 1.02f)),
            .mix = random.chance(0.2f) ? 1.0f : or_zero(random.real(0.0f, 1.0f)),
            .width = random.chance(0.2f) ? 1.0f : or_zero(random.real(0.0f, 1.0f)),
            .modulate = random.integer(0, 2),
            .er_enable = random.integer(0, 1) * random.integer(1, 2),
            .er_size = random.chance(0.1f) ? 0.004f : random.real(0.006f, 0.1f),
            .er_level = or_zero(random.real(0.0f, 1.5f)),
            .eq_low_db = or_zero(random.real(-24.0f, 24.2f)),
            .eq_high_db = or_zero(random.real(-24.0f, 24.2f))};
}

} // namespace compare

#endif
