// The reference engine: the rounding of each path against its definition, and equality with the block
// engine, which has the same setters and is compared with plain loops in ffdn_block_test.cpp.
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

uint32_t bits(float x) {
    return std::bit_cast<uint32_t>(x);
}

} // namespace

TEST(FfdnRef, AnswersAnImpulseDirectlyAndThenAfterTheShortestLine) {
    compare::Reference f;
    init(f, 997, 30, 2048, 1.0f);
    EXPECT_EQ(ffdn_n16_state_energy(&f), 0.0);
    f.direct_gain = 0.5f;
    EXPECT_EQ(ffdn_n16_process(&f, 1.0f), 0.5f);
    for (int32_t t = 1; t < 997; ++t) ASSERT_EQ(ffdn_n16_process(&f, 0.0f), 0.0f) << t;
    EXPECT_EQ(ffdn_n16_process(&f, 0.0f), 0.0625f); // in and out with 0.25, the decay comes later
}

// The order and the fusing of every sum and product, seen from outside: without a cascade all that a step
// computes with stands in the public record.
TEST(FfdnRef, EachPathRoundsWhereItsDefinitionSays) {
    for (const bool two_band : {false, true}) {
        compare::Reference f;
        init(f, 3, 2, 64, 0.01f);
        if (two_band) {
            ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 0.02f, 0.005f), 0);
        }
        const std::vector<float> gains = noise(6 * 16, 10);
        std::copy_n(&gains[0], 16, f.in_gain);
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

namespace {

// Both engines through the same calls. Stage delays fit into one type, as both take them.
struct Pair {
    compare::Reference ref;
    compare::Engine block;

    // Random cascades, refused ones included, two-band decay and gains.
    void set(Random& random) {
        const float t60 =
            random.chance(0.2f) ? random.pick({0.0f, -1.0f}) : random.real(0.05f, 9.0f);
        const uint32_t K = random.integer(0, 3), seed = random.integer(0, 99);
        const float density = random.real(0.02f, 1.0f);
        int32_t delays[48];
        for (int32_t& d : delays) d = random.chance(0.3f) ? 0 : int32_t(random.integer(0, 300));
        if (random.chance(0.1f)) delays[5] = random.pick({65536, 65537, -1});
        const auto* same = reinterpret_cast<const uint32_t*>(delays);
        const int32_t k = static_cast<int32_t>(K);
        switch (random.integer(0, 6)) {
        case 0:
            EXPECT_EQ(ffdn_n16_set_cascade(&ref, k, nullptr, kRate, t60),
                      ffdn_block_n16_set_cascade(&block, K, nullptr, kRate, t60));
            break;
        case 1:
            EXPECT_EQ(ffdn_n16_set_cascade(&ref, k, delays, kRate, t60),
                      ffdn_block_n16_set_cascade(&block, K, same, kRate, t60));
            break;
        case 2:
            EXPECT_EQ(ffdn_n16_set_vfm(&ref, K, seed, kRate, density, t60),
                      ffdn_block_n16_set_vfm(&block, K, seed, kRate, density, t60));
            break;
        case 3:
            if (K == 0) std::fill_n(delays, 16, 0); // no stage at all, as without delays
            EXPECT_EQ(ffdn_n16_set_post_delays(&ref, K == 1 ? nullptr : delays, kRate, t60),
                      ffdn_block_n16_set_post_delays(&block, K == 1 ? nullptr : same, kRate, t60));
            break;
        case 4:
            ffdn_n16_clear_cascade(&ref);
            ffdn_block_n16_clear_cascade(&block);
            break;
        case 5:
            EXPECT_EQ(ffdn_n16_set_two_band_t60(&ref, kRate, t60, t60 / 3),
                      ffdn_block_n16_set_two_band_t60(&block, kRate, t60, t60 / 3));
            break;
        default:
            // Each setter may take its defaults, or its own vectors swapped.
            const std::vector<float> gains = noise(32, seed);
            const float* left = K == 0 ? nullptr : &gains[0];
            const float* right = K == 1 ? nullptr : &gains[16];
            const bool swap = K == 3;
            ffdn_n16_set_stereo_outputs(&ref, swap ? ref.out_right : left,
                                        swap ? ref.out_left : right, density, 0);
            ffdn_block_n16_set_stereo_outputs(&block, swap ? block.out_right : left,
                                              swap ? block.out_left : right, density, 0);
            ffdn_n16_set_stereo_inputs(&ref, swap ? ref.in_right : right,
                                       swap ? ref.in_left : left);
            ffdn_block_n16_set_stereo_inputs(&block, swap ? block.in_right : right,
                                             swap ? block.in_left : left);
        }
    }

    // What both have.
    void compare_state() const {
        const auto common = [](const auto& e, auto... rest) {
            compare::State s =
                compare::flat(e.line_delay, e.line_mask, e.line_wpos, e.decay_gain, e.in_gain,
                              e.out_gain, e.direct_gain, e.stage_count, e.shelf_b0, e.shelf_a1,
                              e.shelf_state, e.two_band, e.out_left, e.out_right, e.direct_left,
                              e.in_left, e.in_right, e.stereo_out_set, e.stereo_in_set, rest...);
            for (int32_t k = 0; k < e.stage_count; ++k)
                s = compare::flat(s, e.stages[k].size, e.stages[k].wpos,
                                  compare::memory(e.stages[k].ring,
                                                  16 * static_cast<uint64_t>(e.stages[k].size)));
            return s;
        };
        compare::State rings;
        for (size_t i = 0; i < 16; ++i)
            rings =
                compare::flat(rings, compare::memory(ref.line_buf[i], uint64_t(ref.line_size[i])));
        EXPECT_EQ(common(ref, rings), common(block, compare::memory(block.ring, block.ring_len)));
        EXPECT_EQ(ffdn_n16_state_energy(&ref), ffdn_block_n16_state_energy(&block));
    }
};

} // namespace

TEST(FfdnRef, EqualsTheBlockEngineOverRandomLives) {
    int sounded = 0;
    for (uint64_t life = 0; life < 80 && !HasFailure(); ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(life);
        int32_t delays[16], sizes[16];
        for (size_t i = 0; i < 16; ++i) {
            delays[i] = static_cast<int32_t>(random.integer(8, 300));
            sizes[i] = static_cast<int32_t>(std::bit_ceil(uint32_t(delays[i]) + 1));
        }
        Pair pair;
        ASSERT_EQ(ffdn_n16_init(&pair.ref, delays, sizes, kRate, 2.0f), 0);
        ASSERT_EQ(ffdn_block_n16_init(&pair.block, delays, reinterpret_cast<uint32_t*>(sizes), 64,
                                      kRate, 2.0f),
                  0);
        pair.compare_state();
        ffdn_n16_set_stereo_outputs(&pair.ref, nullptr, nullptr, 0, 0);
        ffdn_block_n16_set_stereo_outputs(&pair.block, nullptr, nullptr, 0, 0);
        ffdn_n16_set_stereo_inputs(&pair.ref, nullptr, nullptr);
        ffdn_block_n16_set_stereo_inputs(&pair.block, nullptr, nullptr);
        for (int step = 0; step < 60 && !HasFailure(); ++step) {
            if (random.chance(0.2f)) pair.set(random);
            const uint32_t n =
                8 * random.integer(
                        1, std::min(8u, uint32_t(*std::min_element(delays, delays + 16)) / 8));
            const auto x_l = compare::make(n, Signal::kNoise, random);
            const auto x_r = compare::make(n, Signal::kImpulses, random);
            std::vector<float> y_l(n), y_r(n), ref_l(n), ref_r(n);
            ASSERT_EQ(ffdn_block_n16_process_stereo_in(&pair.block, x_l.data(), x_r.data(),
                                                       y_l.data(), y_r.data(), int32_t(n)),
                      0);
            for (size_t t = 0; t < n; ++t)
                ffdn_n16_process_stereo_in(&pair.ref, &ref_l[t], &ref_r[t], x_l[t], x_r[t]);
            EXPECT_TRUE(compare::same<std::span<const float>>(y_l, ref_l));
            EXPECT_EQ(y_r,
                      ref_r); // a zero's sign comes from the input, of the left or the right side
            pair.compare_state();
            sounded += ref_r[n - 1] != 0.0f;
        }
    }
    EXPECT_GT(sounded, 2000);
}

// Samples older than a delay no longer count, whatever still stands in the ring.
TEST(FfdnRef, StateEnergyCountsWhatCanStillBeHeard) {
    compare::Reference f;
    init(f, 5, 0, 16, 0.0f);
    const int32_t stage[16] = {0, 0, 4};
    ASSERT_EQ(ffdn_n16_set_cascade(&f, 1, stage, kRate, 0.0f), 0);
    for (float* ring : f.line_buf) std::fill_n(ring, 16, 1.0f);
    std::fill_n(f.stages[0].ring, 16 * 16, 2.0f);
    f.line_buf[3][15] = 3.0f; // the newest, as wpos is 0
    f.line_buf[3][10] = 9.0f; // the sixth newest
    f.stages[0].ring[2 * 16 + 12] = 5.0f;
    f.stages[0].ring[3 * 16 + 15] = 7.0f; // a line without delay
    EXPECT_EQ(ffdn_n16_state_energy(&f), 16 * 5 * 1.0 + 8.0 + 4 * 4.0 + 21.0);
}
