// The output EQ: its response against the analogue shelves that it renders, processing against the
// plain loop bit for bit, memories across blocks and settings, bypass and refusals.
#include <brisel/ffdn_eq.h>

#include <complex>
#include <numbers>

#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::Guarded;
using compare::Random;
using compare::Signal;
using Complex = std::complex<double>;

ffdn_eq make(int32_t sample_rate, float low_db, float high_db) {
    ffdn_eq eq;
    std::memset(&eq, 0xA5, sizeof eq); // init overwrites whatever it meets
    EXPECT_EQ(ffdn_eq_init(&eq, sample_rate, 250.0f, 4500.0f), 0);
    ffdn_eq_set_gains(&eq, low_db, high_db);
    return eq;
}

// The analogue low shelf of slope 1, A (s^2 + sqrt(2A) s + A) / (A s^2 + sqrt(2A) s + 1) with
// A^2 the gain, met by the digital filter where s = j tan(w / 2) / tan(w0 / 2); the high shelf is
// the low one at 1 / s.
Complex shelf(bool low, double gain_db, double hz, double corner_hz, double rate) {
    const double A = std::pow(10.0, gain_db / 40.0), pi = std::numbers::pi;
    Complex s(0.0, std::tan(pi * hz / rate) / std::tan(pi * corner_hz / rate));
    if (!low) s = 1.0 / s;
    const Complex damping = std::sqrt(2.0 * A) * s;
    return A * (s * s + damping + A) / (A * s * s + damping + 1.0);
}

} // namespace

TEST(OutputEq, ResponseIsThatOfTheAnalogueShelves) {
    // Coefficients are rounded to 2^-24 and 2^-25 of values up to 2 and 1; at low frequencies the
    // polynomials are as small as (2 pi 250 / rate)^2, which magnifies the rounding.
    for (int32_t rate : {9600, 44100, 48000, 192000}) {
        const double smallest = std::pow(2 * std::numbers::pi * 250 / rate, 2);
        const double tolerance = 1e-5 + 2 * 0x1p-22 / smallest;
        for (const auto& [low_db, high_db] : {std::pair{6.0f, 0.0f},
                                              {0.0f, -9.0f},
                                              {-24.0f, 24.0f},
                                              {24.0f, -24.0f},
                                              {3.0f, 2.0f}}) {
            ffdn_eq eq = make(rate, low_db, high_db);
            std::vector<float> left(static_cast<size_t>(rate) / 5), right(left.size());
            left[0] = 1.0f;
            ffdn_eq_process_stereo(&eq, left.data(), right.data(),
                                   static_cast<int32_t>(left.size()));
            for (double hz : {20.0, 100.0, 250.0, 700.0, 2000.0, 4500.0, 0.49 * rate}) {
                Complex measured = 0.0;
                for (size_t t = 0; t < left.size(); ++t) {
                    measured += double(left[t]) *
                                std::polar(1.0, -2 * std::numbers::pi * hz * double(t) / rate);
                }
                const Complex expected =
                    shelf(true, low_db, hz, 250, rate) * shelf(false, high_db, hz, 4500, rate);
                EXPECT_LT(std::abs(measured - expected), tolerance * std::abs(expected))
                    << hz << " Hz at " << rate << " Hz, gains " << low_db << ", " << high_db;
            }
            for (float y : right) ASSERT_EQ(y, 0.0f);
        }
    }
}

TEST(OutputEq, EqualsThePlainLoopAndKeepsItsMemoriesAcrossGains) {
    for (uint64_t life = 0; life < 20 && !HasFailure(); ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(life);
        ffdn_eq eq = make(48000, 0, 0), expected = make(48000, 0, 0);
        for (int block = 0; block < 80 && !HasFailure(); ++block) {
            if (random.chance(0.2f)) {
                const float low = random.chance(0.3f) ? 0.0f : random.real(-30, 30);
                const float high = random.chance(0.3f) ? 0.0f : random.real(-30, 30);
                ffdn_eq_set_gains(&eq, low, high);
                ffdn_eq_set_gains(&expected, low, high);
            }
            const uint32_t n =
                random.chance(0.5f) ? 8 * random.integer(1, 64) : random.integer(1, 99);
            const Signal signal = block < 70 && random.chance(0.8f)
                                      ? Signal::kNoise
                                      : random.pick(compare::kFiniteSignals);
            Guarded left(compare::make(n, signal, random), random.integer(0, 7));
            Guarded right(compare::make(n, signal, random), random.integer(0, 7));
            std::vector<float> plain_left(left.span().begin(), left.span().end());
            std::vector<float> plain_right(right.span().begin(), right.span().end());
            ffdn_eq_process_stereo(&eq, left.data(), right.data(), static_cast<int32_t>(n));
            plain::eq_process(&expected, plain_left.data(), plain_right.data(),
                              static_cast<int32_t>(n));
            EXPECT_TRUE(compare::same_bits(left.span(), plain_left)) << "block " << block;
            EXPECT_TRUE(compare::same_bits(right.span(), plain_right)) << "block " << block;
            EXPECT_TRUE(compare::same_state(eq, expected)) << "block " << block;
            EXPECT_TRUE(left.intact() && right.intact());
        }
    }
}

TEST(OutputEq, CoefficientsDependOnTheLastGainsOnly) {
    Random random(32);
    const float gains[] = {0.0f, -0.0f, 3.0f, -9.0f, 24.0f, 30.0f, -100.0f, std::nanf("")};
    ffdn_eq eq = make(48000, 0, 0);
    for (int k = 0; k < 400; ++k) {
        const float low = random.pick(gains), high = random.pick(gains);
        ffdn_eq_set_gains(&eq, low, high);
        ASSERT_TRUE(compare::same_state(eq, make(48000, low, high))) << low << ", " << high;
    }
}

// A NaN or an infinity stays in the channel that it came in by.
TEST(OutputEq, NonFiniteSamplesStayInTheirChannel) {
    Random random(30);
    ffdn_eq eq = make(48000, 6, -6), alone = make(48000, 6, -6);
    std::vector<float> left = compare::make(256, Signal::kNonFinite, random);
    std::vector<float> right = compare::make(256, Signal::kNoise, random);
    std::vector<float> silent(256), right_alone = right;
    ffdn_eq_process_stereo(&eq, left.data(), right.data(), 256);
    ffdn_eq_process_stereo(&alone, silent.data(), right_alone.data(), 256);
    EXPECT_TRUE(std::isnan(left[255]));
    EXPECT_TRUE(compare::same_bits(right, right_alone));
}

TEST(OutputEq, ZeroGainsBypassAndKeepTheMemories) {
    Random random(31);
    ffdn_eq eq = make(48000, 6, 3);
    std::vector<float> left = compare::make(64, Signal::kNoise, random), right = left;
    ffdn_eq_process_stereo(&eq, left.data(), right.data(), 64);
    const ffdn_eq before = eq;
    ffdn_eq_set_gains(&eq, 0.0f, -0.0f);
    EXPECT_EQ(eq.active, 0u);
    for (const float* coefficients : {eq.low, eq.high}) {
        const float identity[5] = {1, 0, 0, 0, 0};
        EXPECT_TRUE(compare::same_bits(std::span(coefficients, 5), identity));
    }
    const std::vector<float> hostile = compare::make(64, Signal::kNonFinite, random);
    left = right = hostile;
    ffdn_eq_process_stereo(&eq, left.data(), right.data(), 64);
    EXPECT_EQ(compare::words(left), compare::words(hostile));
    EXPECT_EQ(compare::words(right), compare::words(hostile));
    ffdn_eq_set_gains(&eq, 6, 3);
    EXPECT_TRUE(compare::same_state(eq, before));
    ffdn_eq_process_stereo(&eq, left.data(), right.data(), 0);
    ffdn_eq_process_stereo(nullptr, left.data(), right.data(), 64);
    ffdn_eq_set_gains(nullptr, 1, 1);
    EXPECT_TRUE(compare::same_state(eq, before));
}

TEST(OutputEq, ClampsGainsAndRefusesCornersOutOfOrder) {
    ffdn_eq eq = make(48000, 30, -30);
    EXPECT_EQ(eq.gain_low_db, 24.0f);
    EXPECT_EQ(eq.gain_high_db, -24.0f);
    EXPECT_EQ(eq.active, 1u);
    ffdn_eq_set_gains(&eq, std::numeric_limits<float>::quiet_NaN(), 0.0f);
    EXPECT_EQ(eq.active, 1u);

    const ffdn_eq before = eq;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(ffdn_eq_init(nullptr, 48000, 250, 4500), -1);
    EXPECT_EQ(ffdn_eq_init(&eq, 0, 250, 4500), -1);
    EXPECT_EQ(ffdn_eq_init(&eq, 48000, 0, 4500), -1);
    EXPECT_EQ(ffdn_eq_init(&eq, 48000, 250, 24000), -1);
    EXPECT_EQ(ffdn_eq_init(&eq, 9000, 250, 4500), -1);
    EXPECT_EQ(ffdn_eq_init(&eq, 48000, 24000, 4500), -1);
    EXPECT_EQ(ffdn_eq_init(&eq, 48000, 4500, 4500), -1);
    EXPECT_EQ(ffdn_eq_init(&eq, 48000, nan, 4500), -1);
    EXPECT_TRUE(compare::same_state(eq, before));
    EXPECT_EQ(ffdn_eq_init(&eq, 9001, 250, 4500), 0);
    for (float memory : eq.state) EXPECT_EQ(memory, 0.0f);
    EXPECT_EQ(eq.active, 0u);
}
