// The decay of all lines, computed by vectors, against the plain formulas: gains and shelves bit for
// bit over all times, rates and lengths that a caller may give.
#include "core/flush_to_zero.h"
#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::Random;

struct Gains {
    float decay[BRISEL_LINES], b0[BRISEL_LINES], a1[BRISEL_LINES];
};

double base_of(double sample_rate, double t60) {
    return std::pow(10.0, -3.0 / (sample_rate * t60));
}

Gains plain_gains(const ffdn_block_n16& e, int32_t sample_rate, float t60, float t60_high) {
    Gains gains;
    const double low = base_of(sample_rate, t60), high = base_of(sample_rate, t60_high);
    for (uint32_t i = 0; i < BRISEL_LINES; ++i) {
        uint32_t samples = e.line_delay[i];
        for (int32_t s = 0; s < e.stage_count; ++s) samples += e.stages[s].delays[i];
        const double g_low = std::pow(low, static_cast<int32_t>(samples));
        const double g_high = std::pow(high, static_cast<int32_t>(samples));
        const double r = g_low / g_high;
        const bool no_ratio = g_high == 0.0 || std::isinf(r);
        gains.decay[i] = static_cast<float>(g_low);
        gains.b0[i] = no_ratio ? 0.0f : static_cast<float>(2.0 * g_low / (r + 1.0));
        gains.a1[i] = no_ratio ? 0.0f : static_cast<float>((r - 1.0) / (r + 1.0));
    }
    return gains;
}

// Half of all times and lengths as reverbs have them, the others from everywhere.
float random_t60(Random& random) {
    return std::exp(random.chance(0.5f) ? random.real(-3.0f, 3.0f) : random.real(-20.0f, 30.0f));
}

float random_t60_high(Random& random, float t60) {
    switch (random.integer(0, 5)) {
    case 0:
        return t60;
    case 1:
        return std::nextafter(t60, random.chance(0.5f) ? 0.0f : 1e30f);
    case 2:
        return t60 * random.real(0.99f, 1.01f);
    case 3:
        return random_t60(random);
    default:
        return t60 * std::pow(0.1f, random.real(0.0f, 1.0f));
    }
}

void draw_lengths(ffdn_block_n16& e, Random& random) {
    const bool usual = random.chance(0.7f);
    for (uint32_t i = 0; i < BRISEL_LINES; ++i)
        e.line_delay[i] = usual                  ? random.integer(8, 150000)
                          : random.chance(0.05f) ? random.integer(0x7fff0000, 0x80010000)
                                                 : random.integer(0, 70);
    e.stage_count = static_cast<int32_t>(random.integer(0, 3));
    for (ffdn_block_stage& stage : e.stages)
        for (uint32_t& delay : stage.delays) delay = random.integer(0, 4000);
}

void compare_sets(uint64_t stream, int count) {
    Random random(stream);
    constexpr int32_t kRates[] = {1, 9001, 22050, 44100, 48000, 96000, 192000, 2147483647};
    ffdn_block_n16 e{};
    for (int k = 0; k < count && !testing::Test::HasFailure(); ++k) {
        const int32_t rate = random.pick(kRates);
        const float t60 = random_t60(random), t60_high = random_t60_high(random, t60);
        draw_lengths(e, random);
        ASSERT_EQ(ffdn_block_n16_set_two_band_t60(&e, rate, t60, t60_high), t60_high > 0 ? 0 : -1);
        if (!(t60_high > 0)) continue;
        const Gains expected = plain_gains(e, rate, t60, t60_high);
        SCOPED_TRACE(testing::Message() << rate << " Hz, " << t60 << " s, " << t60_high << " s");
        EXPECT_TRUE(compare::same_array(e.shelf_b0, expected.b0));
        EXPECT_TRUE(compare::same_array(e.shelf_a1, expected.a1));
        // Without stages: the engine frees those that it had.
        e.stage_count = 0;
        ASSERT_EQ(ffdn_block_n16_set_cascade(&e, 0, nullptr, uint32_t(rate), t60), 0);
        const Gains alone = plain_gains(e, rate, t60, t60_high);
        EXPECT_TRUE(compare::same_array(e.decay_gain, alone.decay));
    }
}

} // namespace

TEST(Decay, OfAllLinesEqualsThePlainFormulas) {
    compare_sets(1, 100000);
}

TEST(Decay, OfAllLinesEqualsThePlainFormulasUnderFlushToZero) {
    const brisel::FlushToZeroScope flush_to_zero;
    compare_sets(2, 100000);
}
