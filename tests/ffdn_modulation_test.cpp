// The modulation step, all lines at once, against its definition line by line: phases, delays and the
// refusal bit for bit, wherever the two could part.
#include <numbers>

#include "core/flush_to_zero.h"
#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::Random;

constexpr float kTwoPi = 6.2831855f;

struct Pair {
    ffdn_block_n16 ours{};
    ffdn_block_n16 plain{};
    int32_t status = 0; // of the last step

    // Both take the step from the state of `ours`.
    testing::AssertionResult step(int32_t n) {
        std::memcpy(&plain, &ours, sizeof plain);
        status = ffdn_block_n16_apply_modulation(&ours, n);
        const int32_t expected = plain::apply_modulation(&plain, n);
        compare::FieldCheck check(ours, plain);
        check.field("mod_phase", &ffdn_block_n16::mod_phase)
            .field("line_delay", &ffdn_block_n16::line_delay);
        if (status == expected && check.result()) return testing::AssertionSuccess();
        auto failure = testing::AssertionFailure();
        return failure << "depth " << ours.mod_depth << ", n " << n << ": " << status << ", not "
                       << expected << "; " << check.result().message();
    }
};

void draw(ffdn_block_n16& e, Random& random, int32_t depth, float fastest) {
    for (int i = 0; i < BRISEL_LINES; ++i) {
        e.mod_phase[i] = random.real(0.0f, kTwoPi);
        e.mod_inc[i] = random.real(0.0f, fastest);
        e.mod_base_delay[i] = static_cast<uint32_t>(depth) + random.integer(32, 100000);
    }
    e.mod_depth = depth;
}

// With and without flush-to-zero: hosts set it, or not.
void in_both_modes(void (*test)(Random&)) {
    Random random(1);
    test(random);
    const brisel::FlushToZeroScope flush_to_zero;
    test(random);
}

} // namespace

TEST(Modulation, OfAllLinesEqualsLineByLineOverLongRuns) {
    in_both_modes([](Random& random) {
        Pair pair;
        for (int run = 0; run < 1000 && !testing::Test::HasFailure(); ++run) {
            const int32_t depth = random.pick({1, 2, 2, 3, 8, 30, 300, 5000, 100000, 1 << 25});
            const int32_t n = random.pick({1, 8, 64, 100, 256, 1024, 8192, 1 << 20});
            // Up to a whole period a step, seldom more.
            const float most = random.chance(0.1f) ? 15.0f : random.chance(0.5f) ? 0.1f : kTwoPi;
            draw(pair.ours, random, depth, most / static_cast<float>(n));
            for (int k = 0; k < 500; ++k) ASSERT_TRUE(pair.step(n)) << "run " << run;
        }
    });
}

// Phases whose sine times the depth lies at half a sample or within a few units in the last place of
// it: where an approximate sine rounds the wrong way.
TEST(Modulation, RoundsHalfSamplesAsTheSineOfTheLibraryDoes) {
    in_both_modes([](Random& random) {
        Pair pair;
        for (int run = 0; run < 30000 && !testing::Test::HasFailure(); ++run) {
            const auto depth = static_cast<int32_t>(random.integer(1, run % 2 ? 3 : 3000));
            draw(pair.ours, random, depth, 0.0f);
            for (float& phase : pair.ours.mod_phase) {
                const auto below = static_cast<double>(random.integer(0, uint32_t(depth) - 1));
                const double angle = std::asin((below + 0.5) / depth);
                const double quarter = random.pick({0.0, 1.0, 2.0, 3.0}) * std::numbers::pi / 2;
                phase = static_cast<float>(quarter + (random.chance(0.5f) ? angle : -angle));
                for (uint32_t away = random.integer(0, 4); away > 0; --away)
                    phase = std::nextafter(phase, run % 3 ? 0.0f : 7.0f);
            }
            ASSERT_TRUE(pair.step(8)) << "run " << run;
        }
    });
}

TEST(Modulation, WrapsEveryFinitePhase) {
    in_both_modes([](Random& random) {
        std::vector<float> phases = {0.0f,  -0.0f, 1e-40f, -1e-40f, 1e-30f, -1e-30f,
                                     -1.0f, -7.0f, 100.0f, 1e9f,    -1e30f};
        for (float period : {0.5f, 1.0f, 2.0f, 3.0f}) {
            const float p = period * kTwoPi;
            for (float x : {p, std::nextafter(p, 0.0f), std::nextafter(p, 99.0f)})
                phases.push_back(x);
        }
        Pair pair;
        for (int run = 0; run < 3000 && !testing::Test::HasFailure(); ++run) {
            draw(pair.ours, random, 2, run % 2 ? 0.0f : 1e-3f);
            const uint32_t odd = random.integer(1, 16); // lines out of the ordinary
            for (uint32_t i = 0; i < odd; ++i)
                pair.ours.mod_phase[random.integer(0, 15)] =
                    phases[random.integer(0, static_cast<uint32_t>(phases.size()) - 1)];
            ASSERT_TRUE(pair.step(8)) << "run " << run;
        }
    });
}

// A delay below the block's length: the lines before it have moved, the others have not.
TEST(Modulation, StopsAtTheFirstLineThatIsTooShort) {
    in_both_modes([](Random& random) {
        Pair pair;
        int refused = 0;
        for (int run = 0; run < 20000 && !testing::Test::HasFailure(); ++run) {
            draw(pair.ours, random, 4, 0.001f);
            for (uint32_t i = random.integer(0, 2); i > 0; --i)
                pair.ours.mod_base_delay[random.integer(0, 15)] = random.integer(250, 262);
            ASSERT_TRUE(pair.step(256)) << "run " << run;
            refused += pair.status != 0;
        }
        EXPECT_GT(refused, 5000);
    });
}
