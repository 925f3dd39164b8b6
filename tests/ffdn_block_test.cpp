// The block engine's configuration: what init and each setter set and refuse.
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

TEST(BlockEngineInit, GivesSilentLinesWithTheDecayOfEachLength) {
    Engine engine;
    ASSERT_EQ(init(engine, default_lines(), 64, 2.0f), 0);
    EXPECT_EQ(ffdn_block_n16_state_energy(engine.get()), 0.0);
    EXPECT_NEAR(engine->decay_gain[0], 0.93078, 1e-5); // 10^(-3 * 997 / 96000)
    for (size_t i = 0; i < 16; ++i) {
        // 20 log10 of the gain is 60 dB times the line's share of the decay time.
        const double db = 20 * std::log10(double(engine->decay_gain[i]));
        EXPECT_NEAR(db, -60.0 * engine->line_delay[i] / (2.0 * kRate), 1e-5);
        EXPECT_EQ(engine->in_gain[i], 0.25f);
        EXPECT_EQ(engine->out_gain[i], 0.25f);
        EXPECT_EQ(engine->line_wpos[i], 0u);
    }
    EXPECT_EQ(engine->direct_gain, 0.0f);
    for (const float* pointer : {engine->ring, engine->tap_block, engine->work_block}) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(pointer) % 32, 0u);
    }
    for (float t60 : {0.0f, -1.0f}) {
        Engine endless;
        ASSERT_EQ(init(endless, default_lines(), 64, t60), 0);
        for (float gain : endless->decay_gain) EXPECT_EQ(gain, 1.0f);
    }
}

TEST(BlockEngineCascade, SizesItsRingsAndCountsStageDelaysIntoTheDecay) {
    Engine engine;
    ASSERT_EQ(init(engine, default_lines(), 64, 2.0f), 0);
    for (const auto& [longest, size] : {std::pair{0u, 16u},
                                        {15u, 16u},
                                        {16u, 32u},
                                        {17u, 32u},
                                        {256u, 512u},
                                        {65536u, 131072u}}) {
        std::array<uint32_t, 32> delays{};
        delays[3] = longest;
        delays[16 + 3] = 7;
        ASSERT_EQ(ffdn_block_n16_set_cascade(engine.get(), 2, delays.data(), kRate, 2.0f), 0);
        EXPECT_EQ(engine->stages[0].size, size);
        EXPECT_EQ(engine->stages[0].mask, size - 1);
        EXPECT_EQ(engine->stages[1].size, 16u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(engine->stages[0].ring) % 32, 0u);
        const double loop = 1097.0 + longest + 7;
        EXPECT_NEAR(20 * std::log10(double(engine->decay_gain[3])), -60 * loop / (2.0 * kRate),
                    1e-5 * loop / 1000);
    }
    const uint32_t post[16] = {3, 0, 5};
    ASSERT_EQ(ffdn_block_n16_set_post_delays(engine.get(), post, kRate, 2.0f), 0);
    EXPECT_EQ(engine->stage_count, 1);
    EXPECT_EQ(engine->stages[0].delays[2], 5u);
    EXPECT_EQ(engine->stages[1].ring, nullptr);
    const uint32_t none[16] = {};
    for (const uint32_t* nothing : {none, static_cast<const uint32_t*>(nullptr)}) {
        ASSERT_EQ(ffdn_block_n16_set_post_delays(engine.get(), post, kRate, 2.0f), 0);
        ASSERT_EQ(ffdn_block_n16_set_post_delays(engine.get(), nothing, kRate, 2.0f), 0);
        EXPECT_EQ(engine->stage_count, 0);
        EXPECT_NEAR(engine->decay_gain[0], 0.93078, 1e-5);
    }
    ASSERT_EQ(ffdn_block_n16_set_vfm(engine.get(), 3, 99, kRate, 1.0f, 2.0f), 0);
    int32_t velvet[3][16];
    ffdn_n16_default_vfm_params(3, 99, velvet[0], 1.0f);
    for (size_t k = 0; k < 3; ++k) {
        for (size_t i = 0; i < 16; ++i) {
            EXPECT_EQ(engine->stages[k].delays[i], static_cast<uint32_t>(velvet[k][i]));
        }
    }
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

TEST(BlockEngineDecay, TwoBandsHaveTheirOwnTimesAtBothEnds) {
    Engine engine;
    init_like_reverb(engine, 3, 1.0f);
    ASSERT_EQ(ffdn_block_n16_set_two_band_t60(engine.get(), kRate, 2.0f, 0.5f), 0);
    for (size_t i = 0; i < 16; ++i) {
        double loop = engine->line_delay[i];
        for (const ffdn_block_stage& stage : engine->stages) loop += stage.delays[i];
        const double b0 = engine->shelf_b0[i], a1 = engine->shelf_a1[i];
        // Rounding of a1 moves 1 - a1 by 2^-25 of at least 0.05, hence the decibels by 6e-6.
        EXPECT_NEAR(20 * std::log10(b0 / (1 - a1)), -60 * loop / (2.0 * kRate), 1e-5);
        EXPECT_NEAR(20 * std::log10(b0 / (1 + a1)), -60 * loop / (0.5 * kRate), 1e-5);
        EXPECT_GT(a1, 0.0);
    }
    ASSERT_EQ(ffdn_block_n16_set_two_band_t60(engine.get(), kRate, 1.0f, 1.0f), 0);
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(engine->shelf_a1[i], 0.0f);
        EXPECT_FLOAT_EQ(engine->shelf_b0[i], engine->decay_gain[i]);
    }
    // Every cascade setter switches the filters off.
    ASSERT_EQ(ffdn_block_n16_set_cascade(engine.get(), 1, nullptr, kRate, 1.0f), 0);
    EXPECT_EQ(engine->two_band, 0u);
    for (size_t i = 0; i < 16; ++i) EXPECT_EQ(engine->shelf_b0[i], 0.0f);
}

TEST(BlockEngineModulation, DrawsPhasesAndRatesAndSwingsByTheDepth) {
    Engine engine, defaulted;
    init_like_reverb(engine, 2, 1.0f);
    init_like_reverb(defaulted, 2, 1.0f);
    ASSERT_EQ(ffdn_block_n16_set_modulation(engine.get(), 997 - 32, kRate, 1, 0.5f, 0.5f), 0);
    ASSERT_EQ(ffdn_block_n16_set_modulation(engine.get(), 8, kRate, 0xc0ffee5c00b1e000, 0.3f, 9),
              0);
    ASSERT_EQ(ffdn_block_n16_set_modulation(defaulted.get(), 8, kRate, 0, 0.3f, 9), 0);
    EXPECT_TRUE(compare::same_state(engine.record, defaulted.record));

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

    std::array<uint32_t, 16> lowest, highest;
    std::copy_n(engine->line_delay, 16, lowest.begin());
    highest = lowest;
    for (int block = 0; block < 4000; ++block) {
        ASSERT_EQ(ffdn_block_n16_apply_modulation(engine.get(), 64), 0);
        for (size_t i = 0; i < 16; ++i) {
            lowest[i] = std::min(lowest[i], engine->line_delay[i]);
            highest[i] = std::max(highest[i], engine->line_delay[i]);
            ASSERT_GE(engine->mod_phase[i], 0.0f);
            ASSERT_LT(engine->mod_phase[i], 6.2831855f);
        }
    }
    for (size_t i = 0; i < 16; ++i) { // 5.3 s hold at least one whole swing
        EXPECT_EQ(lowest[i], engine->mod_base_delay[i] - 8);
        EXPECT_EQ(highest[i], engine->mod_base_delay[i] + 8);
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
