// The generators of the default network design, against values written out or computed elsewhere.
#include <brisel/ffdn_defaults_n16.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr int32_t kUntouched = -12345;

using Stages = std::vector<int32_t>; // stage-major, 16 a stage

// What a generator of stages wrote; one more stage than asked for shows writing past the end.
template <typename Generator>
Stages generated(int32_t K, Generator generate) {
    const size_t wanted = static_cast<size_t>(K > 0 ? K : 0) * BRISEL_LINES;
    Stages stages(wanted + BRISEL_LINES, kUntouched);
    generate(stages.data());
    for (size_t i = wanted; i < stages.size(); ++i) EXPECT_EQ(stages[i], kUntouched) << "K " << K;
    stages.resize(wanted);
    return stages;
}

Stages cascade(int32_t K) {
    return generated(K, [K](int32_t* out) { ffdn_n16_default_cascade_params(K, out); });
}

Stages velvet(int32_t K, uint64_t seed, float density) {
    return generated(K, [=](int32_t* out) { ffdn_n16_default_vfm_params(K, seed, out, density); });
}

} // namespace

TEST(DefaultDesign, LinesAreSixteenRisingPrimesInRingsOf2048) {
    const std::array<int32_t, 16> primes = {997,  1031, 1063, 1097, 1129, 1163, 1193, 1229,
                                            1259, 1291, 1321, 1361, 1399, 1429, 1453, 1489};
    ffdn_n16_params params;
    ffdn_n16_default_params(params.delays, params.buffer_sizes);
    for (size_t line = 0; line < 16; ++line) {
        EXPECT_EQ(params.delays[line], primes[line]);
        EXPECT_EQ(params.buffer_sizes[line], 2048);
    }
}

TEST(DefaultDesign, PostDelaysCountTheLines) {
    ffdn_n16_post_params params;
    ffdn_n16_default_post_params(params.post_delays);
    for (int32_t line = 0; line < 16; ++line) EXPECT_EQ(params.post_delays[line], line);
}

TEST(DefaultDesign, CascadeStagesAreSpacedByPowersOfSixteen) {
    EXPECT_TRUE(cascade(0).empty());
    EXPECT_TRUE(cascade(-3).empty());
    const Stages stages = cascade(9); // more than an engine takes; from stage 8 on 16^k is 0
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(stages[i], static_cast<int32_t>(i));
        EXPECT_EQ(stages[16 + i], static_cast<int32_t>(16 * i));
        EXPECT_EQ(stages[32 + i], static_cast<int32_t>(256 * i));
        EXPECT_EQ(stages[7 * 16 + i], static_cast<int32_t>(static_cast<uint32_t>(i) << 28));
        EXPECT_EQ(stages[8 * 16 + i], 0);
    }
    EXPECT_EQ(cascade(1), Stages(stages.begin(), stages.begin() + 16));
}

TEST(DefaultDesign, StereoGainsSplitTheLinesWithUnitEnergy) {
    for (const auto generate : {ffdn_n16_default_stereo_inputs, ffdn_n16_default_stereo_outputs}) {
        ffdn_n16_stereo_gains gains;
        generate(gains.left, gains.right);
        for (int line = 0; line < 16; ++line) {
            const float* const fed = line % 2 == 0 ? gains.left : gains.right;
            const float* const unfed = line % 2 == 0 ? gains.right : gains.left;
            EXPECT_EQ(fed[line], 0.353553385f);
            EXPECT_EQ(unfed[line], 0.0f);
        }
        EXPECT_EQ(gains.left[0], static_cast<float>(std::sqrt(0.125)));
    }
}

// Expected delays come from a separate program in another language (integers of any length, so that
// no wrap-around is implied), written from the definition of the generator.
TEST(VelvetDesign, EqualsIndependentlyComputedDelays) {
    struct Case {
        int32_t K;
        uint64_t seed;
        float density;
        Stages delays;
    };
    const std::vector<Case> cases = {
        // clang-format off
        {3, 0, 1.0f, {
            0, 7, 2, 15, 8, 9, 5, 11, 13, 10, 1, 4, 14, 3, 6, 12,
            0, 115, 35, 240, 127, 146, 82, 175, 204, 162, 12, 62, 226, 46, 100, 193,
            36, 1743, 514, 3798, 2096, 2312, 1293, 2801, 3386, 2565, 268, 1061, 3594, 831, 1511, 3013}},
        {3, 1, 1.0f, {
            1, 9, 5, 13, 15, 14, 4, 6, 3, 11, 12, 0, 2, 10, 7, 8,
            18, 148, 76, 204, 239, 221, 65, 92, 48, 172, 189, 0, 28, 156, 113, 124,
            306, 2335, 1269, 3346, 3797, 3639, 1036, 1586, 764, 2825, 3051, 46, 540, 2561, 1819, 2076}},
        {3, 20240229, 0.5f, {
            13, 22, 6, 7, 14, 19, 3, 1, 25, 21, 23, 11, 8, 24, 28, 9,
            212, 351, 92, 112, 226, 304, 49, 17, 403, 333, 371, 176, 131, 388, 450, 141,
            3355, 5600, 1532, 1855, 3622, 4902, 782, 316, 6355, 5384, 5872, 2801, 2050, 6127, 7123, 2315}},
        {2, 0xffffffffffffffff, 0.1f, {
            21, 54, 67, 127, 18, 88, 20, 29, 145, 126, 84, 32, 68, 0, 34, 142,
            335, 866, 1074, 2036, 284, 1408, 320, 460, 2320, 2016, 1343, 515, 1092, 1, 545, 2276}},
        {3, 0x123456789abcdef, 0.3f, {
            28, 22, 32, 2, 39, 23, 33, 38, 15, 14, 19, 0, 7, 10, 48, 47,
            450, 351, 511, 34, 625, 365, 527, 612, 244, 227, 301, 0, 112, 159, 765, 753,
            7181, 5608, 8143, 465, 9920, 5884, 8442, 9737, 3819, 3587, 4864, 0, 1793, 2550, 12248, 12051}},
        {1, 42, 0.01f, {
            159, 996, 694, 599, 1356, 283, 1000, 1319, 1440, 958, 278, 897, 1236, 1209, 1311, 460}},
        // clang-format on
    };
    for (const Case& c : cases) {
        EXPECT_EQ(velvet(c.K, c.seed, c.density), c.delays)
            << "K " << c.K << ", seed " << c.seed << ", density " << c.density;
    }
    EXPECT_EQ(velvet(3, 0xc0ffee5c00b1e000, 1.0f), cases[0].delays); // what seed 0 stands for
}

TEST(VelvetDesign, TakesTheNarrowSpreadWhenTheDensityIsNoDensity) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // The last one is a density, but its spread does not fit an integer.
    for (const float density : {0.0f, -1.0f, 1.5f, nan, 1e-9f}) {
        EXPECT_EQ(velvet(3, 7, density), velvet(3, 7, 1.0f)) << density;
    }
    EXPECT_NE(velvet(3, 7, 0.9f), velvet(3, 7, 1.0f));
    EXPECT_TRUE(velvet(0, 7, 0.5f).empty());
    EXPECT_TRUE(velvet(-1, 7, 0.5f).empty());
}

// The properties that the scattering relies on, for many seeds.
TEST(VelvetDesign, DrawsDistinctOffsetsAndJittersTheGridByAQuarter) {
    for (uint64_t seed = 1; seed <= 500; ++seed) {
        const float density = 1.0f / static_cast<float>(1 + seed % 7);
        const auto farthest = static_cast<int32_t>(15 * (1 + seed % 7));
        const Stages d = velvet(3, seed, density);
        for (size_t i = 0; i < 16; ++i) {
            ASSERT_GE(d[i], 0);
            ASSERT_LE(d[i], farthest) << "seed " << seed;
            for (size_t j = 0; j < i; ++j) ASSERT_NE(d[i], d[j]) << "seed " << seed;
            ASSERT_LE(std::abs(d[16 + i] - 16 * d[i]), 4) << "seed " << seed;
            ASSERT_LE(std::abs(d[32 + i] - 256 * d[i]), 64) << "seed " << seed;
            ASSERT_GE(d[16 + i], 0) << "seed " << seed;
            ASSERT_GE(d[32 + i], 0) << "seed " << seed;
        }
    }
}
