// The block engine's configuration: refusals, storage, what setters take from elsewhere. Coefficients and
// rings are compared with the reference engine's in ffdn_differential_test.cpp.
#include <numbers>

#include "tests/block_engine.h"
#include "tests/compare.h"

namespace {

using namespace block_engine;
using compare::Random;
using compare::Signal;

} // namespace

TEST(BlockEngineInit, RefusesWithoutTouchingOrWithAZeroedRecord) {
    Engine engine;
    ffdn_block_n16 garbage;
    std::memcpy(&garbage, engine.get(), sizeof garbage);
    const Lines good = default_lines();
    const auto* delays = good.delays.data();
    const auto* sizes = good.ring_sizes.data();
    EXPECT_EQ(ffdn_block_n16_init(nullptr, delays, sizes, 64, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_init(engine.get(), nullptr, sizes, 64, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_init(engine.get(), delays, nullptr, 64, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_init(engine.get(), delays, sizes, 0, kRate, 1), -1);
    EXPECT_EQ(std::memcmp(engine.get(), &garbage, sizeof garbage), 0);

    const auto refused_at_5 = [&](int32_t delay, uint32_t size) {
        Lines lines = default_lines();
        lines.delays[5] = delay;
        lines.ring_sizes[5] = size;
        EXPECT_EQ(init(engine, lines, 64, 1), -1) << delay << " in " << size;
        EXPECT_EQ(engine->line_delay[4], 1129u);
        EXPECT_EQ(engine->line_offset[4], 4 * 2048u);
        ffdn_block_n16 zero{};
        std::memcpy(&zero, engine.get(), 256); // the first four arrays
        EXPECT_EQ(std::memcmp(engine.get(), &zero, sizeof zero), 0);
    };
    refused_at_5(1024, 1024);
    refused_at_5(10, 1000);
    refused_at_5(0, 0);
    refused_at_5(-1, 2048);
    Lines tight = default_lines();
    tight.delays[5] = 1023;
    tight.ring_sizes[5] = 1024;
    EXPECT_EQ(init(engine, tight, 64, 1), 0);
    EXPECT_EQ(engine->ring_len, 15u * 2048 + 1024);
    ffdn_block_n16_free(engine.get());
    EXPECT_EQ(engine->ring, nullptr);
    ffdn_block_n16_free(engine.get());
    ffdn_block_n16_free(nullptr);
}

TEST(BlockEngineInit, AlignsEveryRingAndTakesTheLongestStageDelay) {
    Engine engine;
    ASSERT_EQ(init(engine, default_lines(), 64, 2.0f), 0);
    std::array<uint32_t, 32> delays{};
    delays[3] = BRISEL_MAX_STAGE_DELAY;
    ASSERT_EQ(ffdn_block_n16_set_cascade(engine.get(), 2, delays.data(), kRate, 2.0f), 0);
    for (const float* pointer : {engine->ring, engine->tap_block, engine->work_block,
                                 engine->stages[0].ring, engine->stages[1].ring}) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(pointer) % 32, 0u);
    }
    EXPECT_EQ(engine->stages[0].size, 2 * BRISEL_MAX_STAGE_DELAY);
    EXPECT_EQ(engine->stages[1].size, 16u);
    EXPECT_EQ(engine->stages[2].ring, nullptr);
}

TEST(BlockEngineCascade, RefusalsChangeNothing) {
    Engine engine, untouched;
    for (Engine* e : {&engine, &untouched}) {
        init_like_reverb(*e, 2, 1.0f);
        std::vector<float> y(64), x(64, 0.5f);
        ASSERT_EQ(ffdn_block_n16_process(e->get(), x.data(), y.data(), 64), 0);
    }
    std::array<uint32_t, 64> too_long{};
    too_long[31] = 65537;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    ffdn_block_n16* e = engine.get();
    EXPECT_EQ(ffdn_block_n16_set_cascade(e, 4, nullptr, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_cascade(e, 2, too_long.data(), kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_cascade(nullptr, 1, nullptr, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_vfm(e, 4, 0, kRate, 0.5f, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_vfm(e, 2, 0, kRate, 0.0f, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_vfm(e, 2, 0, kRate, 1.01f, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_vfm(e, 3, 0, kRate, 0.0001f, 1), -1); // delays above 65536
    EXPECT_EQ(ffdn_block_n16_set_vfm(nullptr, 1, 0, kRate, 0.5f, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_post_delays(e, too_long.data() + 16, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_post_delays(nullptr, nullptr, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_two_band_t60(e, kRate, 0, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_two_band_t60(e, kRate, 1, -1), -1);
    EXPECT_EQ(ffdn_block_n16_set_two_band_t60(e, kRate, nan, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_two_band_t60(e, 0, 1, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_two_band_t60(nullptr, kRate, 1, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_modulation(e, 0, kRate, 0, 1, 2), -1);
    EXPECT_EQ(ffdn_block_n16_set_modulation(e, 997 - 31, kRate, 0, 1, 2), -1);
    EXPECT_EQ(ffdn_block_n16_set_modulation(e, 2, 0, 0, 1, 2), -1);
    EXPECT_EQ(ffdn_block_n16_set_modulation(e, 2, kRate, 0, 0, 2), -1);
    EXPECT_EQ(ffdn_block_n16_set_modulation(e, 2, kRate, 0, 2, 1), -1);
    EXPECT_EQ(ffdn_block_n16_set_modulation(nullptr, 2, kRate, 0, 1, 2), -1);
    EXPECT_EQ(ffdn_block_n16_set_stereo_outputs(nullptr, nullptr, nullptr, 0, 0), -1);
    EXPECT_EQ(ffdn_block_n16_set_stereo_inputs(nullptr, nullptr, nullptr), -1);
    EXPECT_TRUE(compare::same_state(engine.record, untouched.record));
}

TEST(BlockEngineModulation, DrawsPhasesAndRatesFromTheSeed) {
    Engine engine, defaulted;
    init_like_reverb(engine, 2, 1.0f);
    init_like_reverb(defaulted, 2, 1.0f);
    ASSERT_EQ(ffdn_block_n16_set_modulation(engine.get(), 997 - 32, kRate, 1, 0.5f, 0.5f), 0);
    ASSERT_EQ(ffdn_block_n16_set_modulation(engine.get(), 8, kRate, 0xc0ffee5c00b1e000, 0.3f, 9),
              0);
    ASSERT_EQ(ffdn_block_n16_set_modulation(defaulted.get(), 8, kRate, 0, 0.3f, 9), 0);
    EXPECT_TRUE(compare::same_state(engine.record, defaulted.record));
    EXPECT_EQ(engine->mod_depth, 8);
    EXPECT_EQ(engine->mod_enabled, 1u);
    EXPECT_TRUE(compare::same_array(engine->mod_base_delay, engine->line_delay));

    uint64_t x = 0xc0ffee5c00b1e000;
    const auto draw = [&x] {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        return static_cast<double>(x % 16777216) / 16777216;
    };
    for (size_t i = 0; i < 16; ++i) {
        const double two_pi = 2 * std::numbers::pi;
        EXPECT_FLOAT_EQ(engine->mod_phase[i], static_cast<float>(draw() * two_pi));
        const double hz = double(0.3f) + draw() * (9.0 - double(0.3f));
        EXPECT_FLOAT_EQ(engine->mod_inc[i], static_cast<float>(hz * two_pi / kRate));
    }
}

TEST(BlockEngineGains, TakeDefaultsAndTheirOwnVectorsSwapped) {
    Engine engine;
    ASSERT_EQ(init(engine, default_lines(), 64, 1.0f), 0);
    std::vector<float> y(64), x(64);
    EXPECT_EQ(ffdn_block_n16_process_stereo(engine.get(), x.data(), y.data(), y.data(), 64), -1);
    EXPECT_EQ(
        ffdn_block_n16_process_stereo_in(engine.get(), x.data(), x.data(), y.data(), y.data(), 64),
        -1);
    Random random(50);
    const std::vector<float> left = compare::make(16, Signal::kNoise, random);
    ffdn_n16_stereo_gains defaults;
    ffdn_n16_default_stereo_outputs(defaults.left, defaults.right);
    ASSERT_EQ(ffdn_block_n16_set_stereo_outputs(engine.get(), left.data(), nullptr, 3, 4), 0);
    EXPECT_EQ(
        ffdn_block_n16_process_stereo_in(engine.get(), x.data(), x.data(), y.data(), y.data(), 64),
        -1);
    ASSERT_EQ(ffdn_block_n16_set_stereo_inputs(engine.get(), nullptr, left.data()), 0);
    const auto expect = [](const float* got, const float* expected) {
        EXPECT_TRUE(compare::same_bits(std::span(got, 16), std::span(expected, 16)));
    };
    expect(engine->out_left, left.data());
    expect(engine->out_right, defaults.right);
    expect(engine->in_left, defaults.left);
    expect(engine->in_right, left.data());
    EXPECT_EQ(engine->direct_left, 3.0f);
    EXPECT_EQ(engine->direct_right, 4.0f);

    ffdn_block_n16* e = engine.get();
    ASSERT_EQ(ffdn_block_n16_set_stereo_outputs(e, e->out_right, e->out_left, 0, 0), 0);
    ASSERT_EQ(ffdn_block_n16_set_stereo_inputs(e, e->in_right, e->in_left), 0);
    expect(e->out_left, defaults.right);
    expect(e->out_right, left.data());
    expect(e->in_left, left.data());
    expect(e->in_right, defaults.left);
}
