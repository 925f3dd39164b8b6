// Early reflections and output EQ: taps against a model of their own, the EQ's response against the
// analogue shelves that it renders, and processing against the plain loops bit for bit.
#include <complex>
#include <numbers>

#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::Guarded;
using compare::Random;
using compare::Signal;
using Complex = std::complex<double>;

constexpr uint64_t kSeed = 0xE2C0FFEE12345678;

// One channel's taps, drawn the way the header tells: geometric points with jitter, then gains with
// signs. `state` goes on to the next channel.
void expect_taps(const int32_t* delays, const float* gains, int32_t n, double first, double last,
                 uint64_t& state) {
    const auto step = [&state] {
        state ^= state << 13;
        state ^= state >> 7;
        return state ^= state << 17;
    };
    for (int32_t i = 0; i < n; ++i) {
        const double u = static_cast<double>(step() >> 40) / 16777216;
        const double place = std::clamp((i + (u - 0.5) * 0.8) / (n - 1), 0.0, 1.0);
        const double delay = std::floor(first * std::pow(last / first, place) + 0.5);
        EXPECT_EQ(delays[i], std::clamp(delay, first, last)) << "tap " << i;
    }
    double energy = 0.0;
    for (int32_t i = 0; i < n; ++i) energy += std::exp(-6.0 * delays[i] / last);
    // The model multiplies and divides in another order: a few steps of the last place.
    constexpr double kTolerance = 4 * 0x1p-24;
    for (int32_t i = 0; i < n; ++i) {
        const double sign = step() % 2 == 1 ? -1.0 : 1.0;
        const double gain = sign * std::exp(-3.0 * delays[i] / last) / std::sqrt(energy);
        EXPECT_NEAR(gains[i], gain, kTolerance) << "tap " << i;
    }
}

ffdn_eq make_eq(int32_t sample_rate, float low_db, float high_db) {
    ffdn_eq eq;
    std::fill_n(reinterpret_cast<unsigned char*>(&eq), sizeof eq,
                0xA5); // init overwrites all of it
    EXPECT_EQ(ffdn_eq_init(&eq, sample_rate, 250.0f, 4500.0f), 0);
    ffdn_eq_set_gains(&eq, low_db, high_db);
    return eq;
}

// The analogue low shelf of slope 1, A (s^2 + sqrt(2A) s + A) / (A s^2 + sqrt(2A) s + 1) with A^2
// the gain, met by the digital filter where s = j tan(w / 2) / tan(w0 / 2); the high shelf is the
// low one at 1 / s.
Complex shelf(bool low, double gain_db, double hz, double corner_hz, double rate) {
    const double A = std::pow(10.0, gain_db / 40.0), pi = std::numbers::pi;
    Complex s(0.0, std::tan(pi * hz / rate) / std::tan(pi * corner_hz / rate));
    if (!low) s = 1.0 / s;
    const Complex damping = std::sqrt(2.0 * A) * s;
    return A * (s * s + damping + A) / (A * s * s + damping + 1.0);
}

} // namespace

TEST(EarlyReflections, TapsEqualAnIndependentModelAndTheRingHoldsThemAndABlock) {
    struct Case {
        int32_t n_taps, max_frames, sample_rate;
        uint64_t seed;
        float size;
    };
    for (const Case& c :
         {Case{12, 256, 48000, kSeed, 0.06f},
          {24, 4096, 192000, 1, 0.5f},
          {12, 1024, 64000, 2, 0.5f}, // the latest tap is just below a power of two
          {4, 1, 9600, 77, 0.01f},
          {7, 8, 96000, 0, 0.03f},
          {24, 64, 48000, kSeed, 0.0050005f}}) { // rounds to 240 samples, as the first
        SCOPED_TRACE(testing::Message() << c.n_taps << " taps at " << c.sample_rate << " Hz");
        compare::Early er;
        ASSERT_EQ(ffdn_er_init(&er, c.n_taps, c.max_frames, c.sample_rate, c.seed, c.size), 0);
        const double first = std::floor(0.005 * c.sample_rate + 0.5);
        const double last = std::max(std::floor(double(c.size) * c.sample_rate + 0.5), first + 1);
        uint64_t state = c.seed != 0 ? c.seed : 0xc0ffee5c00b1e000;
        expect_taps(er.delays_l, er.gains_l, c.n_taps, first, last, state);
        state ^= 0xa5a5a5a5deadbeef;
        expect_taps(er.delays_r, er.gains_r, c.n_taps, first, last, state);
        int32_t longest = 0;
        for (size_t i = 0; i < static_cast<size_t>(c.n_taps); ++i)
            longest = std::max({longest, er.delays_l[i], er.delays_r[i]});
        EXPECT_EQ(er.longest_tap, longest);
        EXPECT_EQ(uint32_t(er.ring_len),
                  std::max(32u, std::bit_ceil(uint32_t(c.max_frames + longest))));
        EXPECT_EQ(er.ring_mask, er.ring_len - 1);
        EXPECT_EQ(std::count(er.ring, er.ring + er.ring_len, 0.0f), er.ring_len);
    }
}

TEST(EarlyReflections, EqualThePlainLoopOverRandomLives) {
    for (uint64_t life = 0; life < 80 && !HasFailure(); ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(100 + life);
        const auto n_taps = static_cast<int32_t>(life % 4 == 0 ? random.integer(4, 24) : 12);
        const int32_t max_frames = random.pick({8, 24, 33, 64, 256, 1024});
        // At 50 Hz all delays are 0 and a ring may hold no more than the block.
        const int32_t rate = random.pick({50, 1000, 9600, 48000, 64000, 96000});
        const float size = random.pick({0.0051f, 0.01f, 0.06f, 0.5f});
        compare::Early er, expected;
        for (compare::Early* e : {&er, &expected})
            ASSERT_EQ(ffdn_er_init(e, n_taps, max_frames, rate, life, size), 0);
        for (int block = 0; block < 60 && !HasFailure(); ++block) {
            // Any length, multiples of 8 or not.
            const auto most = static_cast<uint32_t>(max_frames);
            const uint32_t n = random.chance(0.3f) ? most : random.integer(1, most);
            const Signal signal = block < 20 ? Signal::kNoise : random.pick(compare::kSignals);
            Guarded in(compare::make(n, signal, random), random.integer(0, 7));
            Guarded left(n, random.integer(0, 7)), right(n, random.integer(0, 7));
            std::vector<float> plain_left(n), plain_right(n);
            const auto frames = static_cast<int32_t>(n);
            // From a buffer of its own, or in place of an output.
            float* const from = random.pick({in.data(), left.data(), right.data()});
            std::copy_n(in.data(), n, from);
            EXPECT_EQ(ffdn_er_process_stereo(&er, from, left.data(), right.data(), frames), 0);
            plain::er_process(&expected, in.data(), plain_left.data(), plain_right.data(), frames);
            EXPECT_TRUE(compare::same<std::span<const float>>(left.span(), plain_left));
            EXPECT_TRUE(compare::same<std::span<const float>>(right.span(), plain_right));
            EXPECT_TRUE(compare::same<ffdn_er>(er, expected));
            EXPECT_TRUE(in.intact() && left.intact() && right.intact());
        }
    }
}

TEST(OutputEq, ResponseIsThatOfTheAnalogueShelves) {
    constexpr double kTwoPi = 2 * std::numbers::pi;
    for (const int32_t rate : {9600, 44100, 192000}) {
        // Coefficients are rounded to 2^-24 and 2^-25 of values up to 2 and 1; at low frequencies
        // the polynomials are as small as (2 pi 250 / rate)^2, which magnifies the rounding.
        const double tolerance = 1e-5 + 2 * 0x1p-22 / std::pow(kTwoPi * 250 / rate, 2);
        for (const auto& [low_db, high_db] :
             {std::pair{6.0f, 0.0f}, {0.0f, -9.0f}, {-24.0f, 24.0f}}) {
            ffdn_eq eq = make_eq(rate, low_db, high_db);
            std::vector<float> left(static_cast<size_t>(rate) / 5), right(left.size());
            left[0] = 1.0f;
            ffdn_eq_process_stereo(&eq, left.data(), right.data(), rate / 5);
            for (const double hz : {20.0, 250.0, 700.0, 2000.0, 4500.0, 0.49 * rate}) {
                Complex measured = 0.0;
                for (size_t t = 0; t < left.size(); ++t)
                    measured += double(left[t]) * std::polar(1.0, -kTwoPi * hz * double(t) / rate);
                const Complex expected =
                    shelf(true, low_db, hz, 250, rate) * shelf(false, high_db, hz, 4500, rate);
                EXPECT_LT(std::abs(measured - expected), tolerance * std::abs(expected))
                    << hz << " Hz at " << rate << " Hz, gains " << low_db << ", " << high_db;
            }
            EXPECT_EQ(std::count(right.begin(), right.end(), 0.0f), rate / 5);
        }
    }
}

// Bit for bit with its memories, which outlast changes of gains; coefficients depend on the last
// gains only, limited to 24 dB; gains of 0 dB leave the samples alone.
TEST(OutputEq, EqualsThePlainLoopWhateverGainsWereSetBefore) {
    for (uint64_t life = 0; life < 20 && !HasFailure(); ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(life);
        ffdn_eq eq = make_eq(48000, 0, 0), expected = eq;
        for (int block = 0; block < 80 && !HasFailure(); ++block) {
            if (random.chance(0.2f)) {
                const float gains[] = {0.0f, -0.0f, 24.0f, 30.0f, -100.0f, random.real(-24, 24)};
                const float low = random.pick(gains), high = random.pick(gains);
                ffdn_eq_set_gains(&eq, low, high);
                ffdn_eq fresh =
                    make_eq(48000, std::clamp(low, -24.0f, 24.0f), std::clamp(high, -24.0f, 24.0f));
                std::copy_n(expected.state, 8, fresh.state);
                expected = fresh;
            }
            const uint32_t n =
                random.chance(0.5f) ? 8 * random.integer(1, 64) : random.integer(1, 99);
            const Signal signal = block < 70 ? Signal::kNoise : random.pick(compare::kSignals);
            Guarded left(compare::make(n, signal, random), random.integer(0, 7));
            Guarded right(compare::make(n, Signal::kNoise, random), random.integer(0, 7));
            std::vector<float> plain_left(left.span().begin(), left.span().end());
            std::vector<float> plain_right(right.span().begin(), right.span().end());
            const auto frames = static_cast<int32_t>(n);
            ffdn_eq_process_stereo(&eq, left.data(), right.data(), frames);
            plain::eq_process(&expected, plain_left.data(), plain_right.data(), frames);
            EXPECT_TRUE(compare::same<std::span<const float>>(left.span(), plain_left));
            EXPECT_TRUE(compare::same<std::span<const float>>(right.span(), plain_right));
            EXPECT_TRUE(compare::same(eq, expected)) << "block " << block;
            EXPECT_TRUE(left.intact() && right.intact());
        }
    }
    ffdn_eq hot = make_eq(48000, compare::kNaN, 0);
    EXPECT_EQ(hot.active, 1u); // a NaN is no bypass
}
