// The reference engine by itself: set-up, refusals, the rounding of each path.
// ffdn_differential_test.cpp compares it with the block engine, ffdn_mathematics_test.cpp measures
// what the network as a whole must keep.
#include <brisel/ffdn_defaults_n16.h>
#include <brisel/ffdn_ref_n16.h>
#include <brisel/fwht_ref.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/compare.h"

namespace {

using compare::noise;
constexpr int32_t kRate = 48000;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

using Frame = std::array<float, BRISEL_LINES>;
using Delays = std::array<int32_t, BRISEL_LINES>;

uint32_t bits(float x) {
    return std::bit_cast<uint32_t>(x);
}

Frame gains(uint32_t seed) {
    Frame frame;
    std::ranges::copy(noise(BRISEL_LINES, seed), frame.begin());
    return frame;
}

Delays all(int32_t value) {
    Delays delays;
    delays.fill(value);
    return delays;
}

// A network that frees itself; by default the default lines without decay.
struct Network : ffdn_n16 {
    explicit Network(float t60 = 0.0f) {
        ffdn_n16_params params;
        ffdn_n16_default_params(params.delays, params.buffer_sizes);
        EXPECT_EQ(ffdn_n16_init(this, params.delays, params.buffer_sizes, kRate, t60), 0);
    }
    Network(const Delays& delays, const Delays& sizes, float t60) {
        EXPECT_EQ(ffdn_n16_init(this, delays.data(), sizes.data(), kRate, t60), 0);
    }
    ~Network() { ffdn_n16_free(this); }
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    Frame taps() const {
        Frame s;
        for (size_t i = 0; i < s.size(); ++i) {
            s[i] = line_buf[i][(line_wpos[i] - line_delay[i]) & line_mask[i]];
        }
        return s;
    }
    // The sample that went into line i last.
    float newest(size_t i) const { return line_buf[i][(line_wpos[i] - 1) & line_mask[i]]; }

    // The record and all memory behind it.
    std::vector<unsigned char> snapshot() const {
        std::vector<unsigned char> bytes;
        const auto append = [&bytes](const void* from, size_t size) {
            const auto* first = static_cast<const unsigned char*>(from);
            bytes.insert(bytes.end(), first, first + size);
        };
        append(static_cast<const ffdn_n16*>(this), sizeof(ffdn_n16));
        for (size_t i = 0; i < BRISEL_LINES; ++i) {
            append(line_buf[i], sizeof(float) * static_cast<size_t>(line_size[i]));
        }
        for (int32_t k = 0; k < stage_count; ++k) {
            append(stages[k].ring, sizeof(float) * 16 * static_cast<size_t>(stages[k].size));
        }
        return bytes;
    }
};

} // namespace

// ---- Configuration ------------------------------------------------------------------------------

TEST(FfdnRef, StartsSilentWithUnitPowerGains) {
    Network f(2.0f);
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(f.in_gain[i], 0.25f);
        EXPECT_EQ(f.out_gain[i], 0.25f);
        EXPECT_EQ(f.line_wpos[i], 0);
        EXPECT_EQ(f.out_left[i], 0.0f);
        EXPECT_EQ(f.in_right[i], 0.0f);
    }
    EXPECT_EQ(f.direct_gain, 0.0f);
    EXPECT_EQ(f.stage_count, 0);
    EXPECT_EQ(f.two_band + f.stereo_out_set + f.stereo_in_set, 0);
    EXPECT_EQ(ffdn_n16_state_energy(&f), 0.0);
}

TEST(FfdnRef, RefusesUnusableLinesAndFreesWhatItHad) {
    struct Fault {
        int32_t delay, size;
    };
    for (const Fault fault :
         {Fault{0, 1024}, Fault{-1, 1024}, Fault{1024, 1024}, Fault{1, 1}, Fault{10, 1000},
          Fault{10, 0}, Fault{1, -1024}, Fault{1, std::numeric_limits<int32_t>::min()}}) {
        Delays delays = all(1023), sizes = all(1024);
        delays[3] = fault.delay;
        sizes[3] = fault.size;
        ffdn_n16 f;
        std::memset(&f, 0x5a, sizeof f); // a used record's remains must not be freed
        EXPECT_EQ(ffdn_n16_init(&f, delays.data(), sizes.data(), kRate, 1.0f), -1);
        EXPECT_NE(f.line_buf[2], nullptr);
        EXPECT_EQ(f.line_buf[3], nullptr);
        ffdn_n16_free(&f);
        for (const float* ring : f.line_buf) EXPECT_EQ(ring, nullptr);
        ffdn_n16_free(&f);
    }
    ffdn_n16_free(nullptr);
}

TEST(FfdnRef, SizesEachStageAboveItsLongestDelay) {
    struct Case {
        int32_t longest, size;
    };
    Network f;
    for (const Case c : {Case{0, 16}, Case{1, 16}, Case{15, 16}, Case{16, 32}, Case{17, 32},
                         Case{255, 256}, Case{256, 512}, Case{65536, 131072}}) {
        Delays delays = all(0);
        delays[7] = c.longest;
        ASSERT_EQ(ffdn_n16_set_cascade(&f, 1, delays.data(), kRate, 1.0f), 0);
        EXPECT_EQ(f.stages[0].size, c.size);
        EXPECT_EQ(f.stages[0].mask, c.size - 1);
        EXPECT_EQ(f.stages[0].wpos, 0);
        EXPECT_EQ(std::count(f.stages[0].ring, f.stages[0].ring + 16 * c.size, 0.0f), 16 * c.size);
    }
}

// Both decays against the formulas in extended precision; the rounding to float leaves half a unit in
// the last place, which neighbouring floats around the exact value cover.
TEST(FfdnRef, DecayFollowsTheWholeLoop) {
    const auto nearly = [](float actual, long double exact) {
        const auto rounded = static_cast<float>(exact);
        return actual >= std::nextafter(rounded, -1.0f) && actual <= std::nextafter(rounded, 2.0f);
    };
    for (int32_t K = 0; K <= 3; ++K) {
        Network f;
        ffdn_n16_cascade_params cascade{};
        ffdn_n16_default_cascade_params(K, cascade.stage_delays[0]);
        ASSERT_EQ(ffdn_n16_set_cascade(&f, K, nullptr, kRate, 1.7f), 0);
        ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 2.5f, 0.4f), 0);
        for (size_t i = 0; i < 16; ++i) {
            long double loop = f.line_delay[i];
            for (size_t k = 0; k < 3; ++k) loop += cascade.stage_delays[k][i];
            const auto gain = [loop](float t60) {
                return std::exp(-3 * std::log(10.0L) * loop /
                                (static_cast<long double>(t60) * kRate));
            };
            const long double low = gain(2.5f), high = gain(0.4f), r = low / high;
            EXPECT_TRUE(nearly(f.decay_gain[i], gain(1.7f))) << "K " << K << ", line " << i;
            EXPECT_TRUE(nearly(f.shelf_b0[i], 2 * low / (r + 1))) << "K " << K << ", line " << i;
            EXPECT_TRUE(nearly(f.shelf_a1[i], (r - 1) / (r + 1))) << "K " << K << ", line " << i;
        }
        ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 1.7f, 1.7f), 0);
        for (size_t i = 0; i < 16; ++i) {
            EXPECT_EQ(f.shelf_b0[i], f.decay_gain[i]);
            EXPECT_EQ(f.shelf_a1[i], 0.0f);
        }
        for (const float none : {0.0f, -1.0f}) {
            ASSERT_EQ(ffdn_n16_set_cascade(&f, K, nullptr, kRate, none), 0);
            EXPECT_EQ(std::count(f.decay_gain, f.decay_gain + 16, 1.0f), 16);
        }
    }
}

TEST(FfdnRef, CascadeSettersInstallTheirDesigns) {
    Network f(1.0f);
    ffdn_n16_vfm_params velvet;
    ffdn_n16_default_vfm_params(3, 99, velvet.stage_delays[0], 0.4f);
    ASSERT_EQ(ffdn_n16_set_vfm(&f, 3, 99, kRate, 0.4f, 1.0f), 0);
    ASSERT_EQ(f.stage_count, 3);
    for (size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(std::memcmp(f.stages[k].stage_delay, velvet.stage_delays[k], 64), 0);
    }
    ASSERT_EQ(ffdn_n16_set_vfm(&f, 0, 99, kRate, 0.4f, 1.0f), 0);
    EXPECT_EQ(f.stage_count, 0);
    EXPECT_EQ(f.stages[0].ring, nullptr);

    ffdn_n16_post_params post;
    ffdn_n16_default_post_params(post.post_delays);
    ASSERT_EQ(ffdn_n16_set_post_delays(&f, post.post_delays, kRate, 1.0f), 0);
    EXPECT_EQ(f.stage_count, 1);
    EXPECT_EQ(f.stages[0].size, 16);
    EXPECT_EQ(std::memcmp(f.stages[0].stage_delay, post.post_delays, 64), 0);

    const Delays zeros = all(0);
    for (const int32_t* none : {static_cast<const int32_t*>(nullptr), zeros.data()}) {
        ASSERT_EQ(ffdn_n16_set_cascade(&f, 2, nullptr, kRate, 1.0f), 0);
        ASSERT_EQ(ffdn_n16_set_post_delays(&f, none, kRate, 1.0f), 0);
        EXPECT_EQ(f.stage_count, 0);
    }
}

TEST(FfdnRef, CascadeSettersEmptyTheStagesAndKeepTheLines) {
    Network f(1.0f);
    ASSERT_EQ(ffdn_n16_set_cascade(&f, 2, nullptr, kRate, 1.0f), 0);
    for (const float x : noise(3000, 1)) ffdn_n16_process(&f, x);
    double line_energy = 0.0;
    for (size_t i = 0; i < 16; ++i) {
        for (int32_t age = 1; age <= f.line_delay[i]; ++age) {
            const double v = f.line_buf[i][(f.line_wpos[i] - age) & f.line_mask[i]];
            line_energy += v * v;
        }
    }
    ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 1.0f, 0.5f), 0);
    EXPECT_GT(ffdn_n16_state_energy(&f), line_energy);
    ASSERT_EQ(ffdn_n16_set_cascade(&f, 2, nullptr, kRate, 2.0f), 0);
    EXPECT_EQ(ffdn_n16_state_energy(&f), line_energy);
    EXPECT_EQ(f.two_band, 0);
    EXPECT_EQ(std::count(f.shelf_b0, f.shelf_b0 + 16, 0.0f), 16);

    ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 1.0f, 0.5f), 0);
    const float decay = f.decay_gain[5], b0 = f.shelf_b0[5];
    ffdn_n16_clear_cascade(&f);
    EXPECT_EQ(f.stage_count, 0);
    EXPECT_EQ(f.two_band, 1);
    EXPECT_EQ(f.decay_gain[5], decay);
    EXPECT_EQ(f.shelf_b0[5], b0);
    EXPECT_EQ(ffdn_n16_state_energy(&f), line_energy);
}

TEST(FfdnRef, RefusalsLeaveEverythingAsItWas) {
    Network f(1.0f);
    ASSERT_EQ(ffdn_n16_set_cascade(&f, 3, nullptr, kRate, 1.0f), 0);
    ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 1.0f, 0.5f), 0);
    for (const float x : noise(2000, 2)) ffdn_n16_process(&f, x);
    Delays long_delay = all(3), negative = all(3);
    long_delay[15] = 65537;
    negative[0] = -1;

    const auto before = f.snapshot();
    EXPECT_EQ(ffdn_n16_set_cascade(&f, 4, nullptr, kRate, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_cascade(&f, -1, nullptr, kRate, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_cascade(&f, 1, long_delay.data(), kRate, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_cascade(&f, 1, negative.data(), kRate, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_post_delays(&f, long_delay.data(), kRate, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_post_delays(&f, negative.data(), kRate, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_vfm(&f, 4, 1, kRate, 0.5f, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_vfm(&f, 0xffffffffu, 1, kRate, 0.5f, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_vfm(&f, 1, 1, kRate, 0.0f, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_vfm(&f, 1, 1, kRate, -0.5f, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_vfm(&f, 1, 1, kRate, 1.5f, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_vfm(&f, 3, 1, kRate, 0.001f, 1.0f), -1); // delays above 65536
    EXPECT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 0.0f, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 1.0f, -1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, kNan, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_two_band_t60(&f, 0, 1.0f, 1.0f), -1);
    EXPECT_EQ(f.snapshot(), before);

    EXPECT_EQ(ffdn_n16_set_cascade(nullptr, 0, nullptr, kRate, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_vfm(nullptr, 0, 1, kRate, 0.5f, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_post_delays(nullptr, nullptr, kRate, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_two_band_t60(nullptr, kRate, 1.0f, 1.0f), -1);
    EXPECT_EQ(ffdn_n16_set_stereo_outputs(nullptr, nullptr, nullptr, 0, 0), -1);
    EXPECT_EQ(ffdn_n16_set_stereo_inputs(nullptr, nullptr, nullptr), -1);
}

TEST(FfdnRef, StereoSettersTakeDefaultsForMissingVectorsAndSwapTheirOwn) {
    Network f;
    ffdn_n16_stereo_gains defaults;
    ffdn_n16_default_stereo_outputs(defaults.left, defaults.right);
    const Frame mine = gains(3);
    const auto equal = [](const float* a, const float* b) { return std::memcmp(a, b, 64) == 0; };

    ASSERT_EQ(ffdn_n16_set_stereo_outputs(&f, mine.data(), nullptr, 0.5f, -0.5f), 0);
    EXPECT_TRUE(equal(f.out_left, mine.data()));
    EXPECT_TRUE(equal(f.out_right, defaults.right));
    EXPECT_EQ(f.direct_left, 0.5f);
    EXPECT_EQ(f.direct_right, -0.5f);
    EXPECT_EQ(f.stereo_out_set, 1);
    ASSERT_EQ(ffdn_n16_set_stereo_outputs(&f, f.out_right, f.out_left, 0.0f, 0.0f), 0);
    EXPECT_TRUE(equal(f.out_left, defaults.right));
    EXPECT_TRUE(equal(f.out_right, mine.data()));

    ASSERT_EQ(ffdn_n16_set_stereo_inputs(&f, nullptr, mine.data()), 0);
    EXPECT_TRUE(equal(f.in_left, defaults.left));
    EXPECT_TRUE(equal(f.in_right, mine.data()));
    EXPECT_EQ(f.stereo_in_set, 1);
    ASSERT_EQ(ffdn_n16_set_stereo_inputs(&f, f.in_right, f.in_left), 0);
    EXPECT_TRUE(equal(f.in_left, mine.data()));
    EXPECT_TRUE(equal(f.in_right, defaults.left));
}

// ---- Processing ---------------------------------------------------------------------------------

TEST(FfdnRef, AnswersAnImpulseDirectlyAndThenAfterTheShortestLine) {
    Network f(1.0f);
    f.direct_gain = 0.5f;
    EXPECT_EQ(ffdn_n16_process(&f, 1.0f), 0.5f);
    for (int32_t t = 1; t < 997; ++t) ASSERT_EQ(ffdn_n16_process(&f, 0.0f), 0.0f) << t;
    EXPECT_EQ(ffdn_n16_process(&f, 0.0f), 0.0625f); // in and out with 0.25, the decay comes later
}

TEST(FfdnRef, StereoCallsNeedTheirGains) {
    Network f(1.0f);
    for (const float x : noise(1500, 4)) {
        float left = 1.0f, right = 1.0f;
        ffdn_n16_process_stereo_in(&f, &left, &right, x, -x);
        ASSERT_EQ(left, 0.0f);
        ASSERT_EQ(right, 0.0f);
    }
    EXPECT_EQ(ffdn_n16_state_energy(&f), 0.0);
}

// The order and the fusing of every sum and product, seen from outside: without a cascade all that a
// step computes with stands in the public record.
TEST(FfdnRef, EachPathRoundsWhereItsDefinitionSays) {
    for (const bool two_band : {false, true}) {
        Delays delays, sizes = all(64);
        for (int32_t i = 0; i < 16; ++i) delays[static_cast<size_t>(i)] = 3 + 2 * i;
        Network f(delays, sizes, 0.01f);
        if (two_band) {
            ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, kRate, 0.02f, 0.005f), 0);
        }
        std::ranges::copy(gains(10), f.in_gain);
        std::ranges::copy(gains(11), f.out_gain);
        f.direct_gain = 0.3f;
        ASSERT_EQ(ffdn_n16_set_stereo_outputs(&f, gains(12).data(), gains(13).data(), 0.7f, -0.2f),
                  0);
        ASSERT_EQ(ffdn_n16_set_stereo_inputs(&f, gains(14).data(), gains(15).data()), 0);

        const std::vector<float> x = noise(3000, 5), x_r = noise(3000, 6);
        for (size_t t = 0; t < x.size(); ++t) {
            const Frame taps = f.taps();
            const Frame memory = std::to_array(f.shelf_state);
            Frame scattered = taps;
            fwht_ref_n16(scattered.data());
            const int path = static_cast<int>(t / 50) % 3; // mono, stereo, stereo in

            if (path == 0) {
                float y = std::fma(x[t], f.direct_gain, f.out_gain[0] * taps[0]);
                for (size_t i = 1; i < 16; ++i) y += f.out_gain[i] * taps[i];
                ASSERT_EQ(bits(ffdn_n16_process(&f, x[t])), bits(y)) << t;
            } else {
                float left, right;
                float want_left = x[t] * f.direct_left;
                float want_right = (path == 1 ? x[t] : x_r[t]) * f.direct_right;
                for (size_t i = 0; i < 16; ++i) {
                    want_left = std::fma(taps[i], f.out_left[i], want_left);
                    want_right = std::fma(taps[i], f.out_right[i], want_right);
                }
                if (path == 1) {
                    ffdn_n16_process_stereo(&f, &left, &right, x[t]);
                } else {
                    ffdn_n16_process_stereo_in(&f, &left, &right, x[t], x_r[t]);
                }
                ASSERT_EQ(bits(left), bits(want_left)) << t;
                ASSERT_EQ(bits(right), bits(want_right)) << t;
            }

            for (size_t i = 0; i < 16; ++i) {
                const float s = scattered[i];
                const float filtered = std::fma(memory[i], f.shelf_a1[i], f.shelf_b0[i] * s);
                const float decayed = two_band ? filtered : f.decay_gain[i] * s;
                float v;
                if (path == 2) {
                    v = std::fma(x_r[t], f.in_right[i], std::fma(x[t], f.in_left[i], decayed));
                } else if (two_band) {
                    v = std::fma(x[t], f.in_gain[i], decayed);
                } else {
                    v = std::fma(f.decay_gain[i], s, x[t] * f.in_gain[i]);
                }
                ASSERT_EQ(bits(f.newest(i)), bits(v)) << "line " << i << ", frame " << t;
                if (two_band) {
                    ASSERT_EQ(bits(f.shelf_state[i]), bits(filtered)) << t;
                }
            }
        }
    }
}

TEST(FfdnRef, StateEnergyCountsWhatCanStillBeHeard) {
    const Delays delays = all(5), sizes = all(16);
    Network f(delays, sizes, 0.0f);
    Delays stage = all(0);
    stage[2] = 4;
    ASSERT_EQ(ffdn_n16_set_cascade(&f, 1, stage.data(), kRate, 0.0f), 0);
    // Samples older than a delay are no longer counted, whatever still stands in the ring.
    for (size_t i = 0; i < 16; ++i) std::fill_n(f.line_buf[i], 16, 1.0f);
    std::fill_n(f.stages[0].ring, 16 * 16, 2.0f);
    EXPECT_EQ(ffdn_n16_state_energy(&f), 16 * 5 * 1.0 + 4 * 4.0);
    f.line_buf[3][15] = 3.0f; // the newest, as wpos is 0
    f.line_buf[3][10] = 9.0f; // the sixth newest
    f.stages[0].ring[2 * 16 + 12] = 5.0f;
    f.stages[0].ring[3 * 16 + 15] = 7.0f; // a line without delay
    EXPECT_EQ(ffdn_n16_state_energy(&f), 16 * 5 * 1.0 + 8.0 + 4 * 4.0 + 21.0);
}
