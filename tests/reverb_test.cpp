// The reverb object: creation, settings, refusals that change nothing, the restart from silence.
#include <initializer_list>

#include "tests/reverb_object.h"

namespace {

using namespace reverb_object;
using compare::Random;
using compare::Signal;

constexpr auto kInfinity = std::numeric_limits<float>::infinity();
constexpr auto kNaN = std::numeric_limits<float>::quiet_NaN();

} // namespace

TEST(ReverbCreate, RefusesWhatItCannotRun) {
    EXPECT_FALSE(create(48000, 100)); // no multiple of 8
    EXPECT_FALSE(create(48000, 0));
    EXPECT_FALSE(create(48000, -8));
    EXPECT_FALSE(create(0, 64));
    EXPECT_FALSE(create(-48000, 64));
    EXPECT_FALSE(create(9000, 64)); // 4500 Hz must lie below half the rate
    EXPECT_FALSE(create(8000, 64));
    EXPECT_FALSE(create(48000, 1928)); // the shortest line has 1920 samples
    EXPECT_TRUE(create(9001, 64));
    EXPECT_TRUE(create(48000, 1920));
    qv_reverb_destroy(nullptr);
}

TEST(ReverbCreate, HasTheDocumentedDefaults) {
    const Reverb rev = create(48000, 256);
    const qv_reverb_params expected = {0.04f, 2.0f, 2,     0.0f, 0.3f, 0.3f, 0.8f,
                                       1,     0,    0.06f, 0.5f, 0.0f, 0.0f};
    EXPECT_TRUE(same_params(rev->params, expected));
    const uint32_t first[] = {1920, 1985, 2047, 2113};
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(rev->engine.line_delay[i], first[i]);
    EXPECT_EQ(rev->engine.line_mask[2], 2047u);
    EXPECT_EQ(rev->engine.line_mask[3], 4095u);
    EXPECT_EQ(rev->longest_delay, 2867);
    EXPECT_EQ(rev->engine.mod_depth, 2);
    // Damp 0.3 at 2 s: the high band decays in 2 * 0.1^0.3 = 1.0024 s.
    const double b0 = rev->engine.shelf_b0[0], a1 = rev->engine.shelf_a1[0];
    EXPECT_NEAR(20 * std::log10(b0 / (1 + a1)), -60 * 1920 / (48000 * 1.002374), 1e-5);
    EXPECT_STREQ(qv_dsp_version(), "0.1.0");
    EXPECT_EQ(qv_dsp_cpu_features() & 1, 1u); // the tests could not run without AVX2
}

TEST(ReverbSet, RefusesEveryBadFieldAndChangesNothing) {
    const Reverb rev = create(48000, 256), untouched = create(48000, 256);
    for (const Reverb* r : {&rev, &untouched}) {
        qv_reverb_params params = (*r)->params;
        params.er_enable = 1;
        params.eq_low_db = 4.0f;
        ASSERT_EQ(qv_reverb_set(r->get(), &params), 0);
        std::vector<float> in(256, 0.25f), out(256);
        for (int block = 0; block < 20; ++block) {
            ASSERT_EQ(
                qv_reverb_process(r->get(), in.data(), in.data(), out.data(), out.data(), 256), 0);
        }
    }
    const auto refused = [&](const char* what, auto change) {
        qv_reverb_params params = rev->params;
        change(params);
        EXPECT_EQ(qv_reverb_set(rev.get(), &params), -1) << what;
        EXPECT_TRUE(same_reverb(*rev, *untouched)) << what;
    };
    const auto refused_values = [&](const char* what, float qv_reverb_params::*field,
                                    std::initializer_list<float> values) {
        for (float value : values) refused(what, [=](qv_reverb_params& p) { p.*field = value; });
    };
    using P = qv_reverb_params;
    // At 48 kHz a size below 256 samples cannot hold a block.
    refused_values("size", &P::size, {0.0f, -0.04f, 0.501f, 0.005f, kInfinity, kNaN});
    refused_values("t60", &P::t60, {0.0f, -1.0f, kNaN});
    refused_values("t60_high", &P::t60_high, {-0.1f, kNaN});
    refused_values("damp", &P::damp, {-0.01f, 1.01f, kNaN});
    refused_values("mix", &P::mix, {-0.01f, 1.01f, kNaN});
    refused_values("width", &P::width, {-0.01f, 1.01f, kNaN});
    // From 0.001 s on the range allows it, yet the taps need more than 0.005 s.
    refused_values("er_size", &P::er_size, {0.0005f, 0.003f, 0.005f, 0.51f, kNaN});
    refused_values("er_level", &P::er_level, {-0.1f, kNaN});
    refused_values("eq_low_db", &P::eq_low_db, {-24.1f, 24.1f, kNaN});
    refused_values("eq_high_db", &P::eq_high_db, {-24.1f, 30.0f, kNaN});
    for (int32_t K : {-1, 4}) {
        refused("cascade_stages", [K](P& p) { p.cascade_stages = K; });
    }
    EXPECT_EQ(qv_reverb_set(rev.get(), nullptr), -1);
    EXPECT_EQ(qv_reverb_set(nullptr, &rev->params), -1);
    EXPECT_TRUE(same_reverb(*rev, *untouched));

    // Without early reflections their settings may be any numbers.
    qv_reverb_params params = rev->params;
    params.er_enable = 0;
    for (const Reverb* r : {&rev, &untouched}) ASSERT_EQ(qv_reverb_set(r->get(), &params), 0);
    for (float P::*field : {&P::er_size, &P::er_level}) {
        P broken = params;
        broken.*field = kNaN;
        EXPECT_EQ(qv_reverb_set(rev.get(), &broken), -1);
    }
    EXPECT_TRUE(same_reverb(*rev, *untouched));
    params.er_size = 99.0f;
    params.er_level = -1.0f;
    EXPECT_EQ(qv_reverb_set(rev.get(), &params), 0);
    params = rev->params;
    params.size = 256.0f / 48000.0f; // just holds the block
    EXPECT_EQ(qv_reverb_set(rev.get(), &params), 0);
}

// However long the object has sounded, whatever it was set to: an accepted set leaves it like a new
// one with the same settings, but for the EQ's memories.
TEST(ReverbSet, RestartsFromSilenceLikeAFreshObject) {
    Random random(5);
    for (int32_t rate : {48000, 96000}) {
        const Reverb rev = create(rate, 256);
        for (int change = 0; change < 60 && !HasFailure(); ++change) {
            SCOPED_TRACE(testing::Message() << rate << " Hz, change " << change);
            // From one block to several turns of the longest ring.
            const uint32_t blocks = random.chance(0.1f) ? 600 : random.integer(0, 30);
            for (uint32_t block = 0; block < blocks; ++block) {
                const uint32_t n = random.chance(0.5f) ? 256 : 8 * random.integer(1, 32);
                Block noise(n, Signal::kNoise, random);
                ASSERT_EQ(noise.render(qv_reverb_process, rev.get(), static_cast<int32_t>(n)), 0);
            }
            if (random.chance(0.2f)) {
                std::vector<float> tail(700);
                EXPECT_EQ(qv_reverb_flush(rev.get(), tail.data(), nullptr, 700), 696);
            }
            qv_reverb_params params = random_params(random);
            if (change % 4 == 0) params = rev->params; // the very same settings restart it, too
            const Reverb fresh = create(rate, 256);
            const int32_t status = qv_reverb_set(rev.get(), &params);
            ASSERT_EQ(qv_reverb_set(fresh.get(), &params), status);
            if (status != 0) continue;
            std::copy_n(rev->eq.state, 8, fresh->eq.state);
            ASSERT_TRUE(same_reverb(*rev, *fresh));
        }
    }
}

TEST(ReverbSet, TakesItsOwnRecordAsArgument) {
    const Reverb rev = create(48000, 256), expected = create(48000, 256);
    qv_reverb_params params = expected->params;
    params.size = 0.1f;
    params.t60 = 5.0f;
    params.cascade_stages = 3;
    params.er_enable = 1;
    rev->params = params;
    ASSERT_EQ(qv_reverb_set(rev.get(), &rev->params), 0);
    ASSERT_EQ(qv_reverb_set(expected.get(), &params), 0);
    EXPECT_TRUE(same_reverb(*rev, *expected));
}
