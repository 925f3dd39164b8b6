// The block engine at work: whole random lives against the plain loops, bit for bit with all state.
// ffdn_differential_test.cpp compares it with the reference engine, which works sample by sample.
#include <optional>

#include "core/flush_to_zero.h"
#include "tests/block_engine.h"
#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using namespace block_engine;
using compare::Guarded;
using compare::Random;
using compare::Signal;

// Two engines with one past: `got` runs in the library, `expected` in the plain loops.
class Life {
public:
    Life(uint64_t stream, int32_t block_size) : random(stream), block_size_(block_size) {}

    void start(const Lines& lines, float t60) {
        ASSERT_EQ(init(got, lines, block_size_, t60), 0);
        ASSERT_EQ(init(expected, lines, block_size_, t60), 0);
    }

    template <typename Setter>
    void set(Setter setter) {
        EXPECT_EQ(setter(got.get()), setter(expected.get()));
    }

    enum class Ports { kMono, kStereoOut, kStereo };

    // Renders one block of any length, refused ones included, and compares outputs and state.
    void render(Ports ports, int32_t n, Signal signal, bool flush) {
        SCOPED_TRACE(testing::Message() << "ports " << static_cast<int>(ports) << ", n " << n
                                        << ", signal " << static_cast<int>(signal));
        const auto size = static_cast<size_t>(std::max(n, 8));
        Guarded left(compare::make(size, signal, random), random.integer(0, 7));
        Guarded right(compare::make(size, signal, random), random.integer(0, 7));
        const std::vector<float> before = compare::make(size, Signal::kNoise, random);
        Guarded y_left(before, random.integer(0, 7)), y_right(before, random.integer(0, 7));
        std::vector<float> plain_left = before, plain_right = before;
        std::optional<brisel::FlushToZeroScope> scope;
        if (flush) scope.emplace();
        int32_t status = 0, plain_status = 0;
        switch (ports) {
        case Ports::kMono:
            status = ffdn_block_n16_process(got.get(), left.data(), y_left.data(), n);
            plain_status = plain::process(expected.get(), left.data(), plain_left.data(), n);
            break;
        case Ports::kStereoOut:
            status = ffdn_block_n16_process_stereo(got.get(), left.data(), y_left.data(),
                                                   y_right.data(), n);
            plain_status = plain::process_stereo(expected.get(), left.data(), plain_left.data(),
                                                 plain_right.data(), n);
            break;
        case Ports::kStereo:
            status = ffdn_block_n16_process_stereo_in(got.get(), left.data(), right.data(),
                                                      y_left.data(), y_right.data(), n);
            plain_status = plain::process_stereo_in(expected.get(), left.data(), right.data(),
                                                    plain_left.data(), plain_right.data(), n);
            break;
        }
        scope.reset();
        EXPECT_EQ(status, plain_status);
        if (status != 0) ++refused;
        EXPECT_TRUE(compare::same_bits(y_left.span(), plain_left));
        EXPECT_TRUE(compare::same_bits(y_right.span(), plain_right));
        EXPECT_TRUE(left.intact() && right.intact() && y_left.intact() && y_right.intact());
        check_state();
    }

    void check_state() {
        ASSERT_TRUE(compare::same_state(got.record, expected.record));
        const double energy = ffdn_block_n16_state_energy(got.get());
        ASSERT_TRUE(energy >= 0 || std::isnan(energy));
    }

    Engine got, expected;
    Random random;
    int refused = 0;

private:
    int32_t block_size_;
};

using Ports = Life::Ports;
constexpr Ports kPorts[] = {Ports::kMono, Ports::kStereoOut, Ports::kStereo};

Lines random_lines(Random& random, int32_t block_size) {
    Lines lines;
    const int style = static_cast<int>(random.integer(0, 3));
    const auto shortest = static_cast<uint32_t>(block_size);
    for (size_t i = 0; i < 16; ++i) {
        uint32_t delay = random.integer(shortest, 4 * shortest + 64);
        if (style == 0) delay = shortest + random.integer(0, 2);
        if (style == 1) delay = std::bit_ceil(shortest + 40) - random.integer(1, 3);
        if (random.chance(0.01f)) delay = random.integer(1, shortest); // refuses long blocks
        lines.delays[i] = static_cast<int32_t>(delay);
        lines.ring_sizes[i] = std::bit_ceil(delay + 1) << (random.chance(0.1f) ? 1 : 0);
    }
    return lines;
}

// One accepted or refused call of a random setter.
void change_something(Life& life) {
    Random& random = life.random;
    const float t60 = random.chance(0.1f) ? 0.0f : random.real(0.002f, 3.0f);
    const auto K = random.integer(0, 4);
    std::vector<uint32_t> delays(5 * 16);
    const uint32_t spread = random.chance(0.03f) ? 65536 : random.chance(0.5f) ? 40 : 400;
    for (uint32_t& d : delays) d = random.chance(0.2f) ? 0 : random.integer(0, spread);
    if (random.chance(0.05f)) delays[random.integer(0, 15)] = 65537;
    const std::vector<float> left = compare::make(16, Signal::kNoise, random);
    const std::vector<float> right = compare::make(16, Signal::kNoise, random);
    std::vector<float> two_valued(32);
    for (size_t i = 0; i < 32; ++i) two_valued[i] = (i + i / 16) % 2 == 0 ? left[0] : right[0];
    const float direct[2] = {random.real(-1, 1), random.chance(0.5f) ? 0.0f : 0.25f};
    const uint64_t seed = random.integer(0, 3);
    const auto depth = static_cast<int32_t>(random.integer(0, 9));
    const float slowest = random.real(0.1f, 60.0f), density = random.real(-0.1f, 1.1f);

    switch (random.integer(0, 11)) {
    case 0:
    case 1:
        return life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_cascade(e, K, nullptr, kRate, t60);
        });
    case 2:
        return life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_cascade(e, K, delays.data(), kRate, t60);
        });
    case 3:
        return life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_vfm(e, K, seed, kRate, density, t60);
        });
    case 4:
        return life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_post_delays(e, K == 0 ? nullptr : delays.data(), kRate, t60);
        });
    case 5:
        return life.set([&](ffdn_block_n16* e) {
            ffdn_block_n16_clear_cascade(e);
            return 0;
        });
    case 6:
    case 7:
        return life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_two_band_t60(e, kRate, t60, t60 * 0.4f);
        });
    case 8:
        return life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_modulation(e, depth, kRate, seed, slowest, slowest * 2);
        });
    case 9:
        return life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_stereo_outputs(e, K == 0 ? nullptr : left.data(),
                                                     K == 1 ? nullptr : right.data(), direct[0],
                                                     direct[1]);
        });
    case 10:
        return life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_stereo_inputs(e, two_valued.data(), two_valued.data() + 16);
        });
    default: // the mono gains have no setter: they are the caller's to write
        return life.set([&](ffdn_block_n16* e) {
            std::copy_n(left.data(), 16, e->in_gain);
            std::copy_n(right.data(), 16, e->out_gain);
            e->direct_gain = direct[0];
            return 0;
        });
    }
}

} // namespace

TEST(BlockEngine, EqualsThePlainLoopsOverRandomLives) {
    constexpr int32_t kBlockSizes[] = {8, 64, 104, 256, 512, 1024};
    int refused = 0, rendered = 0;
    for (uint64_t life_number = 0; life_number < 120 && !HasFailure(); ++life_number) {
        SCOPED_TRACE(testing::Message() << "life " << life_number);
        Random choice(1000 + life_number);
        const int32_t block_size = choice.pick(kBlockSizes);
        Life life(life_number, block_size);
        life.start(random_lines(life.random, block_size), life.random.real(0.01f, 3.0f));
        const bool flush = life.random.chance(0.5f);
        if (life.random.chance(0.9f)) {
            const auto K = static_cast<uint32_t>(life_number % 4);
            life.set([K](ffdn_block_n16* e) { return set_like_reverb(e, K, 1.0f); });
        }
        // Half of them keep the reverb's own shape, but for what happens between blocks.
        const int changes =
            life.random.chance(0.5f) ? 0 : static_cast<int>(life.random.integer(1, 6));
        for (int k = 0; k < changes; ++k) change_something(life);

        for (int step = 0; step < 40 && !HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "step " << step);
            auto n = 8 * static_cast<int32_t>(
                             life.random.integer(1, static_cast<uint32_t>(block_size) / 8));
            if (life.random.chance(0.3f)) n = block_size;
            if (life.random.chance(0.05f)) {
                n = life.random.pick({-8, 0, 4, 12, block_size + 8, block_size - 1});
            }
            const Signal signal = life.random.chance(0.3f) ? Signal::kImpulses
                                  : life.random.chance(0.1f)
                                      ? life.random.pick(compare::kFiniteSignals)
                                      : Signal::kNoise;
            life.render(life.random.pick(kPorts), n, signal, flush);
            ++rendered;
            if (life.random.chance(0.1f)) change_something(life);
            if (!HasFailure()) life.check_state();
        }
        refused += life.refused;
    }
    // The lives must meet refusals, yet consist of something else.
    EXPECT_GT(refused, 50);
    EXPECT_LT(refused, rendered / 2);
}

TEST(BlockEngine, EqualsThePlainLoopsDownIntoDenormalSilence) {
    for (bool flush : {false, true}) {
        Life life(7, 256);
        life.start(default_lines(), 0.05f);
        life.set([](ffdn_block_n16* e) { return set_like_reverb(e, 2, 0.05f); });
        std::vector<float> zeros(256), y_left(256), y_right(256), plain_left(256), plain_right(256);
        life.render(Ports::kStereo, 256, Signal::kNoise, flush);
        bool denormal = false;
        // 60 dB in 0.05 s reaches 2^-149 (-897 dB) within 0.75 s.
        for (int block = 0; block < 150 && !HasFailure(); ++block) {
            std::optional<brisel::FlushToZeroScope> scope;
            if (flush) scope.emplace();
            ASSERT_EQ(ffdn_block_n16_process_stereo_in(life.got.get(), zeros.data(), zeros.data(),
                                                       y_left.data(), y_right.data(), 256),
                      0);
            plain::process_stereo_in(life.expected.get(), zeros.data(), zeros.data(),
                                     plain_left.data(), plain_right.data(), 256);
            scope.reset();
            EXPECT_TRUE(compare::same_bits(y_left, plain_left)) << "block " << block;
            EXPECT_TRUE(compare::same_bits(y_right, plain_right)) << "block " << block;
            life.check_state();
            for (float y : y_left) denormal |= std::fpclassify(y) == FP_SUBNORMAL;
        }
        EXPECT_EQ(denormal, !flush);
        if (flush) {
            EXPECT_EQ(ffdn_block_n16_state_energy(life.got.get()), 0.0);
        }
    }
}

// Modulation may push a delay past its ring's length; the masked read of the whole block then starts
// with the newest samples, and no rendering in pieces may change that.
TEST(BlockEngine, ReadsADelayModulatedPastItsRingForTheWholeBlock) {
    for (uint32_t K : {0u, 1u, 2u, 3u}) {
        Life life(8 + K, 1024);
        Lines lines = equal_lines(2047);
        for (size_t i = 0; i < 16; i += 2) lines.delays[i] = 1500 + static_cast<int32_t>(i);
        life.start(lines, 1.0f);
        life.set([K](ffdn_block_n16* e) { return set_like_reverb(e, K, 1.0f); });
        life.set([](ffdn_block_n16* e) {
            return ffdn_block_n16_set_modulation(e, 2, kRate, 5, 20.0f, 50.0f);
        });
        int past_ring = 0;
        for (int block = 0; block < 60 && !HasFailure(); ++block) {
            const int32_t n = life.random.pick({64, 256, 264, 512, 1024});
            life.render(Ports::kStereo, n, Signal::kNoise, true);
            for (size_t i = 0; i < 16; ++i) {
                past_ring += life.got->line_delay[i] > life.got->line_mask[i] + 1;
            }
        }
        EXPECT_GT(past_ring, 20) << "the case did not occur";
    }
}

TEST(BlockEngine, KeepsNonFiniteStateAsThePlainLoopsDo) {
    Life life(20, 128);
    life.start(random_lines(life.random, 128), 1.0f);
    life.set([](ffdn_block_n16* e) { return set_like_reverb(e, 2, 1.0f); });
    for (int block = 0; block < 30 && !HasFailure(); ++block) {
        life.render(Ports::kStereo, 128, block == 3 ? Signal::kNonFinite : Signal::kLargest, false);
    }
}
