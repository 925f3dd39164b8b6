// The reference engine: the rounding of each path against its definition, and equality with the
// block engine, which has the same setters and is compared with plain loops in ffdn_block_test.cpp.
#include <array>

#include "brisel/ffdn_defaults_n16.h"
#include "brisel/fwht_ref.h"
#include "tests/compare.h"

namespace {

using compare::noise;
using compare::Random;
using compare::Signal;
using Frame = std::array<float, 16>;

constexpr int32_t kRate = 48000;

void init(ffdn_n16& f, int32_t shortest, int32_t step, int32_t size, float t60) {
    int32_t delays[16], sizes[16];
    for (int32_t i = 0; i < 16; ++i) delays[i] = shortest + step * i;
    std::fill_n(sizes, 16, size);
    ASSERT_EQ(ffdn_n16_init(&f, delays, sizes, kRate, t60), 0);
}

// What both engines have.
template <typename E>
compare::State common(const E& e) {
    compare::State s = compare::flat(
        e.line_delay, e.line_mask, e.line_wpos, e.decay_gain, e.in_gain, e.out_gain, e.direct_gain,
        e.stage_count, e.shelf_b0, e.shelf_a1, e.shelf_state, e.two_band, e.out_left, e.out_right,
        e.direct_left, e.in_left, e.in_right, e.stereo_out_set, e.stereo_in_set);
    for (const auto& stage : e.stages)
        s = compare::flat(s, stage.size, stage.wpos,
                          compare::memory(stage.ring, 16 * uint64_t(stage.size)));
    for (size_t i = 0; i < 16; ++i) {
        const float* ring;
        if constexpr (std::is_same_v<E, compare::Engine>)
            ring = e.ring + e.line_offset[i];
        else
            ring = e.line_buf[i];
        s = compare::flat(s, compare::memory(ring, uint64_t(e.line_mask[i]) + 1));
    }
    return s;
}

uint32_t bits(float x) {
    return std::bit_cast<uint32_t>(x);
}

} // namespace

// The order and the fusing of every sum and product, seen from outside: without a cascade all that
// a step computes with stands in the public record.
TEST(FfdnRef, EachPathRoundsWhereItsDefinitionSays) {
    for (const bool two_band : {false, true}) {
        compare::Reference f;
        init(f, 3, 2, 64, 0.01f);
        if (two_band) {
            ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 0.02f, 0.005f), 0);
        }
        const std::vector<float> gains = noise(6 * 16, 10);
        std::copy_n(gains.data(), 16, f.in_gain);
        std::copy_n(&gains[16], 16, f.out_gain);
        f.direct_gain = 0.3f;
        ASSERT_EQ(ffdn_n16_set_stereo_outputs(&f, &gains[32], &gains[48], 0.7f, -0.2f), 0);
        ASSERT_EQ(ffdn_n16_set_stereo_inputs(&f, &gains[64], &gains[80]), 0);

        const std::vector<float> x = noise(3000, 5), x_r = noise(3000, 6);
        for (size_t t = 0; t < x.size(); ++t) {
            Frame taps, memory = std::to_array(f.shelf_state);
            for (size_t i = 0; i < 16; ++i)
                taps[i] = f.line_buf[i][(f.line_wpos[i] - f.line_delay[i]) & f.line_mask[i]];
            Frame scattered = taps;
            fwht_ref_n16(scattered.data());
            const size_t path = t / 50 % 3; // mono, stereo, stereo in
            float left = 0, right = 0, want_left, want_right = 0;
            if (path == 0) {
                want_left = std::fma(x[t], f.direct_gain, f.out_gain[0] * taps[0]);
                for (size_t i = 1; i < 16; ++i) want_left += f.out_gain[i] * taps[i];
                left = ffdn_n16_process(&f, x[t]);
            } else {
                want_left = x[t] * f.direct_left;
                want_right = (path == 1 ? x[t] : x_r[t]) * f.direct_right;
                for (size_t i = 0; i < 16; ++i) {
                    want_left = std::fma(taps[i], f.out_left[i], want_left);
                    want_right = std::fma(taps[i], f.out_right[i], want_right);
                }
                if (path == 1)
                    ffdn_n16_process_stereo(&f, &left, &right, x[t]);
                else
                    ffdn_n16_process_stereo_in(&f, &left, &right, x[t], x_r[t]);
            }
            ASSERT_EQ(bits(left), bits(want_left)) << t;
            ASSERT_EQ(bits(right), bits(want_right)) << t;
            for (size_t i = 0; i < 16; ++i) {
                const float s = scattered[i];
                const float filtered = std::fma(memory[i], f.shelf_a1[i], f.shelf_b0[i] * s);
                const float decayed = two_band ? filtered : f.decay_gain[i] * s;
                float v = std::fma(x[t], f.in_gain[i], decayed);
                if (path == 2)
                    v = std::fma(x_r[t], f.in_right[i], std::fma(x[t], f.in_left[i], decayed));
                else if (!two_band)
                    v = std::fma(f.decay_gain[i], s, x[t] * f.in_gain[i]);
                const float newest = f.line_buf[i][(f.line_wpos[i] - 1) & f.line_mask[i]];
                ASSERT_EQ(bits(newest), bits(v)) << "line " << i << ", frame " << t;
                ASSERT_EQ(bits(f.shelf_state[i]), two_band ? bits(filtered) : 0u) << t;
            }
        }
    }
}

// The same calls on both: coefficients, outputs, rings, stored energy.
TEST(FfdnRef, EqualsTheBlockEngineOverRandomLives) {
    int sounded = 0;
    for (uint64_t life = 0; life < 60 && !HasFailure(); ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(life);
        int32_t delays[16], sizes[16];
        for (size_t i = 0; i < 16; ++i) {
            delays[i] = static_cast<int32_t>(random.integer(64, 300));
            sizes[i] = static_cast<int32_t>(std::bit_ceil(uint32_t(delays[i]) + 1));
        }
        compare::Reference f;
        compare::Engine e;
        const auto as_unsigned = [](int32_t* from) { return reinterpret_cast<uint32_t*>(from); };
        ASSERT_EQ(ffdn_n16_init(&f, delays, sizes, kRate, 2), 0);
        ASSERT_EQ(ffdn_block_n16_init(&e, delays, as_unsigned(sizes), 64, kRate, 2), 0);
        const auto both = [](int32_t ours, int32_t theirs) { EXPECT_EQ(ours, theirs); };
        for (int step = 0; step < 60 && !HasFailure(); ++step) {
            const uint32_t K = random.integer(0, 3), seed = random.integer(0, 99);
            const auto k = static_cast<int32_t>(K);
            const float t60 = random.real(-0.5f, 4.0f), density = random.real(0.02f, 1.0f);
            int32_t stages[48];
            for (int32_t& d : stages) d = random.chance(0.3f) ? 0 : int32_t(random.integer(0, 300));
            int32_t* const given = random.chance(0.5f) ? stages : nullptr;
            const std::vector<float> gains = noise(32, seed);
            switch (step == 0 ? 5 : random.integer(0, 24)) {
            case 0:
                both(ffdn_n16_set_cascade(&f, k, given, kRate, t60),
                     ffdn_block_n16_set_cascade(&e, K, as_unsigned(given), kRate, t60));
                break;
            case 1:
                both(ffdn_n16_set_vfm(&f, K, seed, kRate, density, t60),
                     ffdn_block_n16_set_vfm(&e, K, seed, kRate, density, t60));
                break;
            case 2:
                if (K == 0) std::fill_n(stages, 16, 0); // no stage at all, as without delays
                both(ffdn_n16_set_post_delays(&f, given, kRate, t60),
                     ffdn_block_n16_set_post_delays(&e, as_unsigned(given), kRate, t60));
                break;
            case 3:
                ffdn_n16_clear_cascade(&f);
                ffdn_block_n16_clear_cascade(&e);
                break;
            case 4:
                both(ffdn_n16_set_two_band_t60(&f, kRate, t60, t60 / 3),
                     ffdn_block_n16_set_two_band_t60(&e, kRate, t60, t60 / 3));
                break;
            case 5: // the defaults, the caller's gains, or the record's own vectors swapped
                const float* left = K == 0 ? nullptr : gains.data();
                const float* right = K == 1 ? nullptr : &gains[16];
                const bool swap = K == 3;
                ffdn_n16_set_stereo_outputs(&f, swap ? f.out_right : left,
                                            swap ? f.out_left : right, density, 0);
                ffdn_block_n16_set_stereo_outputs(&e, swap ? e.out_right : left,
                                                  swap ? e.out_left : right, density, 0);
                ffdn_n16_set_stereo_inputs(&f, swap ? f.in_right : right, swap ? f.in_left : left);
                ffdn_block_n16_set_stereo_inputs(&e, swap ? e.in_right : right,
                                                 swap ? e.in_left : left);
            }
            const auto x_l = compare::make(64, Signal::kNoise, random);
            const auto x_r = compare::make(64, Signal::kImpulses, random);
            std::vector<float> y_l(64), y_r(64), ref_l(64), ref_r(64);
            ASSERT_EQ(ffdn_block_n16_process_stereo_in(&e, x_l.data(), x_r.data(), y_l.data(),
                                                       y_r.data(), 64),
                      0);
            for (size_t t = 0; t < 64; ++t)
                ffdn_n16_process_stereo_in(&f, &ref_l[t], &ref_r[t], x_l[t], x_r[t]);
            EXPECT_TRUE(compare::same<std::span<const float>>(y_l, ref_l));
            EXPECT_EQ(y_r,
                      ref_r); // a zero's sign comes from the input, of the left or the right side
            EXPECT_TRUE(step % 4 != 0 || common(f) == common(e));
            EXPECT_EQ(ffdn_n16_state_energy(&f), ffdn_block_n16_state_energy(&e));
            sounded += ref_r[63] != 0.0f;
        }
    }
    EXPECT_GT(sounded, 1500);
}
