// The early reflections: taps against a model of their own, processing against the plain loop bit for
// bit, and refusals.
#include <brisel/ffdn_er.h>

#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::Guarded;
using compare::Random;
using compare::Signal;

constexpr uint64_t kSeed = 0xE2C0FFEE12345678;

struct Generator {
    ffdn_er record;
    Generator(int32_t n_taps, int32_t max_frames, int32_t sample_rate, uint64_t seed, float size) {
        std::memset(&record, 0xA5, sizeof record); // init overwrites whatever it meets
        EXPECT_EQ(ffdn_er_init(&record, n_taps, max_frames, sample_rate, seed, size), 0);
    }
    ~Generator() { ffdn_er_free(&record); }
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;
    ffdn_er* get() { return &record; }
    ffdn_er* operator->() { return &record; }
};

// One channel's taps, drawn the way the header tells: geometric points with jitter, then gains with
// signs. `state` goes on to the next channel.
struct Taps {
    std::vector<int32_t> delays;
    std::vector<float> gains;

    Taps(int32_t n, double first, double last, uint64_t& state) {
        const auto step = [&state] {
            state ^= state << 13;
            state ^= state >> 7;
            return state ^= state << 17;
        };
        for (int32_t i = 0; i < n; ++i) {
            const double u = static_cast<double>(step() >> 40) / 16777216;
            const double place = std::clamp((i + (u - 0.5) * 0.8) / (n - 1), 0.0, 1.0);
            const double delay = std::floor(first * std::pow(last / first, place) + 0.5);
            delays.push_back(static_cast<int32_t>(std::clamp(delay, first, last)));
        }
        double energy = 0.0;
        for (int32_t i = 0; i < n; ++i) {
            const auto gain = static_cast<float>(std::exp(-3.0 * delays[size_t(i)] / last));
            gains.push_back(step() % 2 == 1 ? -gain : gain);
            energy += double(gain) * double(gain);
        }
        for (float& gain : gains) gain *= static_cast<float>(1 / std::sqrt(energy));
    }
};

void expect_taps(const Taps& model, const int32_t* delays, const float* gains) {
    for (size_t k = 0; k < model.delays.size(); ++k) {
        EXPECT_EQ(delays[k], model.delays[k]) << "tap " << k;
        // The model multiplies and divides in another order: a few steps of the last place.
        EXPECT_NEAR(gains[k], model.gains[k], 4 * 0x1p-24) << "tap " << k;
    }
}

} // namespace

TEST(EarlyReflections, TapsEqualAnIndependentModel) {
    struct Case {
        int32_t n_taps, sample_rate;
        uint64_t seed;
        float size;
    };
    for (const Case& c : {Case{12, 48000, kSeed, 0.06f},
                          {12, 44100, kSeed, 0.06f},
                          {24, 192000, 1, 0.5f},
                          {4, 9600, 77, 0.01f},
                          {7, 96000, 0, 0.03f}}) {
        SCOPED_TRACE(testing::Message() << c.n_taps << " taps at " << c.sample_rate << " Hz");
        Generator er(c.n_taps, 256, c.sample_rate, c.seed, c.size);
        const double first = std::floor(0.005 * c.sample_rate + 0.5);
        const double last = std::floor(double(c.size) * c.sample_rate + 0.5);
        uint64_t state = c.seed != 0 ? c.seed : 0xc0ffee5c00b1e000;
        expect_taps(Taps(c.n_taps, first, last, state), er->delays_l, er->gains_l);
        state ^= 0xa5a5a5a5deadbeef;
        expect_taps(Taps(c.n_taps, first, last, state), er->delays_r, er->gains_r);
    }
}

TEST(EarlyReflections, RingHoldsTheLongestTapAndABlock) {
    Random random(1);
    for (int k = 0; k < 200; ++k) {
        const auto n_taps = static_cast<int32_t>(random.integer(4, 24));
        const auto frames = static_cast<int32_t>(random.integer(1, 4096));
        const auto rate = static_cast<int32_t>(random.integer(1, 192000));
        Generator er(n_taps, frames, rate, random.integer(0, 1000), random.real(0.0051f, 0.5f));
        int32_t longest = 0;
        double energy_l = 0, energy_r = 0;
        for (int32_t i = 0; i < n_taps; ++i) {
            longest = std::max({longest, er->delays_l[i], er->delays_r[i]});
            energy_l += double(er->gains_l[i]) * double(er->gains_l[i]);
            energy_r += double(er->gains_r[i]) * double(er->gains_r[i]);
        }
        EXPECT_EQ(er->longest_tap, longest);
        EXPECT_EQ(static_cast<uint32_t>(er->ring_len),
                  std::max(32u, std::bit_ceil(static_cast<uint32_t>(frames + longest))));
        EXPECT_EQ(er->ring_mask, er->ring_len - 1);
        EXPECT_EQ(er->write_pos, 0);
        EXPECT_NEAR(energy_l, 1.0, 24 * 0x1p-22);
        EXPECT_NEAR(energy_r, 1.0, 24 * 0x1p-22);
        for (int32_t t = 0; t < er->ring_len; ++t) ASSERT_EQ(er->ring[t], 0.0f);
    }
}

TEST(EarlyReflections, EqualThePlainLoopOverRandomLives) {
    for (uint64_t life = 0; life < 80 && !HasFailure(); ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(100 + life);
        const auto n_taps = static_cast<int32_t>(life % 4 == 0 ? random.integer(4, 24) : 12);
        const int32_t max_frames = random.pick({8, 24, 33, 64, 256, 1024});
        // At 50 Hz all delays are 0 and a ring may hold no more than the block.
        const int32_t rate = random.pick({50, 1000, 9600, 44100, 48000, 96000});
        const float size = random.pick({0.0051f, 0.01f, 0.06f, 0.3f});
        Generator er(n_taps, max_frames, rate, life, size);
        Generator expected(n_taps, max_frames, rate, life, size);
        for (int block = 0; block < 60 && !HasFailure(); ++block) {
            // Any length, multiples of 8 or not.
            const uint32_t n = random.chance(0.3f)
                                   ? static_cast<uint32_t>(max_frames)
                                   : random.integer(1, static_cast<uint32_t>(max_frames));
            const Signal signal = block < 20 ? Signal::kNoise : random.pick(compare::kAllSignals);
            Guarded in(compare::make(n, signal, random), random.integer(0, 7));
            Guarded left(n, random.integer(0, 7)), right(n, random.integer(0, 7));
            std::vector<float> plain_left(n), plain_right(n);
            const auto frames = static_cast<int32_t>(n);
            // From a buffer of its own, or in place of an output.
            float* const from = random.pick({in.data(), left.data(), right.data()});
            std::copy_n(in.data(), n, from);
            EXPECT_EQ(ffdn_er_process_stereo(er.get(), from, left.data(), right.data(), frames), 0);
            EXPECT_EQ(plain::er_process(expected.get(), in.data(), plain_left.data(),
                                        plain_right.data(), frames),
                      0);
            EXPECT_TRUE(compare::same_bits(left.span(), plain_left));
            EXPECT_TRUE(compare::same_bits(right.span(), plain_right));
            EXPECT_TRUE(compare::same_state(er.record, expected.record));
            EXPECT_TRUE(in.intact() && left.intact() && right.intact());
        }
    }
}

TEST(EarlyReflections, SizesBarelyAboveTheMinimumGiveANarrowRange) {
    Generator er(24, 64, 48000, kSeed, 0.0050005f); // rounds to 240 samples, no more than the start
    for (size_t k = 0; k < 24; ++k) {
        EXPECT_TRUE(er->delays_l[k] == 240 || er->delays_l[k] == 241);
        EXPECT_TRUE(er->delays_r[k] == 240 || er->delays_r[k] == 241);
    }
}

TEST(EarlyReflections, RefusalsLeaveEverythingUntouched) {
    ffdn_er record, garbage;
    std::memset(&record, 0xA5, sizeof record);
    std::memset(&garbage, 0xA5, sizeof garbage);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(ffdn_er_init(nullptr, 12, 64, 48000, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&record, 3, 64, 48000, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&record, 25, 64, 48000, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&record, 12, 0, 48000, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&record, 12, 64, 0, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&record, 12, 64, -48000, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&record, 12, 64, 48000, 1, 0.005f), -1);
    EXPECT_EQ(ffdn_er_init(&record, 12, 64, 48000, 1, nan), -1);
    EXPECT_EQ(std::memcmp(&record, &garbage, sizeof record), 0);

    Generator er(12, 64, 48000, kSeed, 0.06f), untouched(12, 64, 48000, kSeed, 0.06f);
    std::vector<float> in(72, 1.0f), left(72, 7.0f), right(72, 7.0f);
    const std::vector<float> before = left;
    EXPECT_EQ(ffdn_er_process_stereo(er.get(), in.data(), left.data(), right.data(), 72), -1);
    EXPECT_EQ(ffdn_er_process_stereo(er.get(), in.data(), left.data(), right.data(), 0), -1);
    EXPECT_EQ(ffdn_er_process_stereo(nullptr, in.data(), left.data(), right.data(), 64), -1);
    EXPECT_EQ(ffdn_er_process_stereo(er.get(), nullptr, left.data(), right.data(), 64), -1);
    EXPECT_EQ(ffdn_er_process_stereo(er.get(), in.data(), nullptr, right.data(), 64), -1);
    EXPECT_EQ(ffdn_er_process_stereo(er.get(), in.data(), left.data(), nullptr, 64), -1);
    EXPECT_EQ(left, before);
    EXPECT_EQ(right, before);
    EXPECT_TRUE(compare::same_state(er.record, untouched.record));

    ffdn_er_free(er.get());
    EXPECT_EQ(er->ring, nullptr);
    ffdn_er_free(er.get());
    ffdn_er_free(nullptr);
}
