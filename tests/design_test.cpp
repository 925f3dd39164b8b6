// What is designed before sound runs: the default delays and gains, velvet matrices, the decay of
// every line, and the modulation's step. The last two are computed by vectors that must round like
// the plain formulas.
#include <array>
#include <numbers>
#include <optional>

#include "brisel/ffdn_defaults_n16.h"
#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::Random;

constexpr int32_t kUntouched = -12345;
using Stages = std::vector<int32_t>; // stage-major, 16 a stage

// One more stage than asked for shows writing past the end.
template <typename Generator>
Stages generated(int32_t K, Generator generate) {
    const size_t wanted = static_cast<size_t>(std::max(K, 0)) * 16;
    Stages stages(wanted + 16, kUntouched);
    generate(stages.data());
    EXPECT_EQ(std::count(stages.begin(), stages.end(), kUntouched), 16) << "K " << K;
    stages.resize(wanted);
    return stages;
}

Stages velvet(int32_t K, uint64_t seed, float density) {
    return generated(K, [=](int32_t* to) { ffdn_n16_default_vfm_params(K, seed, to, density); });
}

} // namespace

TEST(DefaultDesign, IsPrimesPowersOfSixteenAndAlternatingGains) {
    const int32_t primes[] = {997,  1031, 1063, 1097, 1129, 1163, 1193, 1229,
                              1259, 1291, 1321, 1361, 1399, 1429, 1453, 1489};
    ffdn_n16_params lines;
    ffdn_n16_post_params post;
    ffdn_n16_stereo_gains in, out;
    ffdn_n16_default_params(lines.delays, lines.buffer_sizes);
    ffdn_n16_default_post_params(post.post_delays);
    ffdn_n16_default_stereo_inputs(in.left, in.right);
    ffdn_n16_default_stereo_outputs(out.left, out.right);
    // More stages than an engine takes; from stage 8 on 16^k is 0.
    const Stages stages = generated(9, [](int32_t* to) { ffdn_n16_default_cascade_params(9, to); });
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(lines.delays[i], primes[i]);
        EXPECT_EQ(lines.buffer_sizes[i], 2048);
        EXPECT_EQ(post.post_delays[i], static_cast<int32_t>(i));
        for (size_t k = 0; k < 9; ++k)
            EXPECT_EQ(stages[16 * k + i], static_cast<int32_t>(static_cast<uint32_t>(i << 4 * k)));
        for (const auto& gains : {in, out}) {
            EXPECT_EQ(gains.left[i], i % 2 == 0 ? static_cast<float>(std::sqrt(0.125)) : 0.0f);
            EXPECT_EQ(gains.right[i], gains.left[i ^ 1]);
        }
    }
    for (const int32_t none : {0, -3})
        EXPECT_TRUE(generated(none, [=](int32_t* to) {
                        ffdn_n16_default_cascade_params(none, to);
                    }).empty());
}

// Expected delays come from a separate program in another language (integers of any length, so that
// no wrap-around is implied), written from the definition of the generator.
TEST(VelvetDesign, EqualsIndependentlyComputedDelays) {
    struct Case {
        int32_t stages;
        uint64_t seed;
        float density;
        Stages delays;
    };
    const std::vector<Case> cases = {
        // clang-format off
        {3, 0, 1.0f, {
            0, 7, 2, 15, 8, 9, 5, 11, 13, 10, 1, 4, 14, 3, 6, 12,
            0, 115, 35, 240, 127, 146, 82, 175, 204, 162, 12, 62, 226, 46, 100, 193,
            36, 1743, 514, 3798, 2096, 2312, 1293, 2801,
            3386, 2565, 268, 1061, 3594, 831, 1511, 3013}},
        {1, 42, 0.01f, {
            159, 996, 694, 599, 1356, 283, 1000, 1319, 1440, 958, 278, 897, 1236, 1209, 1311, 460}},
        // clang-format on
    };
    for (const Case& c : cases) EXPECT_EQ(velvet(c.stages, c.seed, c.density), c.delays) << c.seed;
    EXPECT_EQ(velvet(3, 0xc0ffee5c00b1e000, 1.0f), cases[0].delays); // what seed 0 stands for
    // What is no density counts as 1; the spread of the last one does not fit an integer.
    for (const float density : {0.0f, -1.0f, 1.5f, compare::kNaN, 1e-9f})
        EXPECT_EQ(velvet(3, 0, density), cases[0].delays) << density;
    EXPECT_TRUE(velvet(0, 7, 0.5f).empty() && velvet(-1, 7, 0.5f).empty());
}

// ---- Decay --------------------------------------------------------------------------------------

namespace {

// Half of all times and lengths as reverbs have them, the others from everywhere.
float random_t60(Random& random) {
    return std::exp(random.chance(0.5f) ? random.real(-3.0f, 3.0f) : random.real(-20.0f, 30.0f));
}

float random_t60_high(Random& random, float t60) {
    if (random.chance(0.2f)) return random_t60(random);
    if (random.chance(0.3f)) return std::nextafter(t60, random.pick({0.0f, 1e30f}));
    return t60 * std::pow(0.1f, random.real(0.0f, 1.0f));
}

struct Gains {
    float decay[16], b0[16], a1[16];
};

Gains plain_gains(const ffdn_block_n16& e, int32_t rate, float t60_low, float t60_high) {
    const auto base = [rate](double t60) { return std::pow(10.0, -3.0 / (rate * t60)); };
    Gains gains;
    for (size_t i = 0; i < 16; ++i) {
        uint32_t loop = e.line_delay[i];
        for (int32_t s = 0; s < e.stage_count; ++s) loop += e.stages[s].delays[i];
        const double low = std::pow(base(t60_low), static_cast<int32_t>(loop));
        const double high = std::pow(base(t60_high), static_cast<int32_t>(loop)), r = low / high;
        const bool none = high == 0.0 || std::isinf(r); // such a line returns nothing
        gains.decay[i] = static_cast<float>(low);
        gains.b0[i] = none ? 0.0f : static_cast<float>(2.0 * low / (r + 1.0));
        gains.a1[i] = none ? 0.0f : static_cast<float>((r - 1.0) / (r + 1.0));
    }
    return gains;
}

void expect_gains(const float* got, const float* expected) {
    EXPECT_TRUE(compare::same(std::span(got, 16), std::span(expected, 16)));
}

} // namespace

TEST(Decay, OfAllLinesEqualsThePlainFormulas) {
    for (const bool flush : {false, true}) { // hosts set it, or not
        std::optional<plain::FlushToZero> scope;
        if (flush) scope.emplace();
        Random random(1);
        ffdn_block_n16 e{};
        for (int k = 0; k < 100000 && !HasFailure(); ++k) {
            const int32_t rate = random.pick({1, 9001, 44100, 48000, 192000, 2147483647});
            const float t60 = random_t60(random), t60_high = random_t60_high(random, t60);
            const bool usual = random.chance(0.7f);
            for (uint32_t& delay : e.line_delay)
                delay = usual                  ? random.integer(8, 150000)
                        : random.chance(0.05f) ? random.integer(0x7fff0000, 0x80010000)
                                               : random.integer(0, 70);
            e.stage_count = static_cast<int32_t>(random.integer(0, 3));
            for (ffdn_block_stage& stage : e.stages)
                for (uint32_t& delay : stage.delays) delay = random.integer(0, 4000);
            SCOPED_TRACE(testing::Message()
                         << rate << " Hz, " << t60 << " s, " << t60_high << " s");
            const bool usable = t60_high > 0;
            ASSERT_EQ(ffdn_block_n16_set_two_band_t60(&e, rate, t60, t60_high), usable ? 0 : -1);
            if (!usable) continue;
            const Gains whole = plain_gains(e, rate, t60, t60_high);
            expect_gains(e.shelf_b0, whole.b0);
            expect_gains(e.shelf_a1, whole.a1);
            e.stage_count = 0; // the engine frees the stages that it had
            ASSERT_EQ(ffdn_block_n16_set_cascade(&e, 0, nullptr, uint32_t(rate), t60), 0);
            expect_gains(e.decay_gain, plain_gains(e, rate, t60, t60_high).decay);
        }
    }
}

// ---- Modulation ---------------------------------------------------------------------------------

namespace {

constexpr float kTwoPi = 6.2831855f;

float any_phase(Random& random, int32_t depth) {
    const double quarter = random.integer(0, 3) * std::numbers::pi / 2;
    float phase = random.real(0.0f, kTwoPi);
    switch (random.integer(0, 9)) {
    case 0: // around the period and its multiples, and out of all order
        phase =
            random.pick({0.0f, -0.0f, 1e-40f, -1e-30f, -1.0f, 100.0f, -1e30f, kTwoPi, 2 * kTwoPi});
        break;
    case 1:
    case 2:
    case 3:
        // Where the sine times the depth is half a sample, and an approximate sine rounds the wrong
        // way.
        const auto below = static_cast<double>(random.integer(0, uint32_t(depth) - 1));
        phase =
            static_cast<float>(quarter + random.pick({1, -1}) * std::asin((below + 0.5) / depth));
    }
    for (uint32_t away = random.integer(0, 4); away > 0; --away)
        phase = std::nextafter(phase, random.pick({0.0f, 7.0f}));
    return phase;
}

} // namespace

// Phases, delays and the refusal at the first line that is too short, wherever the two could part.
TEST(Modulation, OfAllLinesEqualsLineByLine) {
    for (const bool flush : {false, true}) {
        std::optional<plain::FlushToZero> scope;
        if (flush) scope.emplace();
        Random random(2);
        ffdn_block_n16 e{};
        int refused = 0;
        for (int run = 0; run < 40000 && !HasFailure(); ++run) {
            const int32_t n = random.pick({1, 8, 64, 256, 1024, 1 << 20});
            e.mod_depth = random.pick({1, 2, 2, 3, 30, 5000, 100000, 1 << 25});
            const float most = random.chance(0.1f) ? 15.0f : random.chance(0.5f) ? 0.1f : kTwoPi;
            for (size_t i = 0; i < 16; ++i) {
                e.mod_phase[i] = any_phase(random, e.mod_depth);
                e.mod_inc[i] = random.chance(0.3f) ? 0 : random.real(0, most / float(n));
                e.mod_base_delay[i] = uint32_t(e.mod_depth) + random.integer(uint32_t(n), 1 << 21);
            }
            if (random.chance(0.3f))
                e.mod_base_delay[random.integer(0, 15)] =
                    std::max(8u, uint32_t(n)) + random.integer(0, 8) - 4;
            for (int step = 0; step < 8; ++step) {
                ffdn_block_n16 expected = e;
                const int32_t status = ffdn_block_n16_apply_modulation(&e, n);
                ASSERT_EQ(status, plain::apply_modulation(&expected, n)) << "run " << run;
                ASSERT_TRUE(compare::same(e, expected)) << "depth " << e.mod_depth << ", n " << n;
                refused += status != 0;
            }
        }
        EXPECT_GT(refused, 5000);
    }
}

TEST(Modulation, DrawsPhasesAndRatesFromTheSeed) {
    ffdn_block_n16 e{};
    std::fill_n(e.line_delay, 16, 40u);
    ASSERT_EQ(ffdn_block_n16_set_modulation(&e, 8, 48000, 0, 0.3f, 9), 0);
    EXPECT_TRUE(e.mod_depth == 8 && std::ranges::equal(e.mod_base_delay, e.line_delay));
    uint64_t x = 0xc0ffee5c00b1e000; // what seed 0 stands for
    const auto draw = [&x] {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        return static_cast<double>(x % 16777216) / 16777216;
    };
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_FLOAT_EQ(e.mod_phase[i], static_cast<float>(draw() * 2 * std::numbers::pi));
        const double hz = double(0.3f) + draw() * (9.0 - double(0.3f));
        EXPECT_FLOAT_EQ(e.mod_inc[i], static_cast<float>(hz * 2 * std::numbers::pi / 48000));
    }
}
