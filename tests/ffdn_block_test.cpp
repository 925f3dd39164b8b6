// The block engine at work: random lives against the plain loops, bit for bit with all state.
// Coefficients that its setters compute are the reference engine's in ffdn_ref_test.cpp.
#include <optional>

#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::Guarded;
using compare::Random;
using compare::Signal;

constexpr int32_t kRate = 48000;

struct Lines {
    int32_t delays[16];
    uint32_t sizes[16];
};

enum class Ports { kMono, kStereoOut, kStereo };

int32_t process(ffdn_block_n16* e, Ports ports, const float* x_l, const float* x_r, float* y_l,
                float* y_r, int32_t n) {
    return ports == Ports::kMono ? ffdn_block_n16_process(e, x_l, y_l, n)
           : ports == Ports::kStereoOut
               ? ffdn_block_n16_process_stereo(e, x_l, y_l, y_r, n)
               : ffdn_block_n16_process_stereo_in(e, x_l, x_r, y_l, y_r, n);
}

// Two engines with one past: `got` runs in the library, `expected` in the plain loops.
class Life {
public:
    Life(uint64_t stream, int32_t block_size, const Lines& lines, float t60) : random(stream) {
        for (compare::Engine* e : {&got, &expected})
            EXPECT_EQ(ffdn_block_n16_init(e, lines.delays, lines.sizes, block_size, kRate, t60), 0);
    }

    template <typename Setter>
    void set(Setter setter) {
        EXPECT_EQ(setter(&got), setter(&expected));
    }

    void set_like_reverb(uint32_t K, float t60) {
        set([=](ffdn_block_n16* e) {
            return ffdn_block_n16_set_cascade(e, K, nullptr, kRate, t60) |
                   ffdn_block_n16_set_two_band_t60(e, kRate, t60, t60 / 2) |
                   ffdn_block_n16_set_stereo_outputs(e, nullptr, nullptr, 0, 0) |
                   ffdn_block_n16_set_stereo_inputs(e, nullptr, nullptr);
        });
    }

    // Renders one block of any length, refused ones included, and compares outputs and state.
    void render(Ports ports, int32_t n, Signal signal, bool flush) {
        SCOPED_TRACE(testing::Message() << "ports " << int(ports) << ", n " << n << ", signal "
                                        << int(signal) << ", block " << blocks);
        const auto size = static_cast<size_t>(std::max(n, 8));
        Guarded x_l(compare::make(size, signal, random), random.integer(0, 7));
        Guarded x_r(compare::make(size, signal, random), random.integer(0, 7));
        const std::vector<float> before = compare::make(size, Signal::kNoise, random);
        Guarded y_l(before, random.integer(0, 7)), y_r(before, random.integer(0, 7));
        std::vector<float> plain_l = before, plain_r = before;
        std::optional<plain::FlushToZero> scope;
        if (flush) scope.emplace();
        const int32_t status =
            process(&got, ports, x_l.data(), x_r.data(), y_l.data(), y_r.data(), n);
        const int32_t plain_status =
            plain::process(&expected, x_l.data(), ports == Ports::kStereo ? x_r.data() : nullptr,
                           plain_l.data(), ports == Ports::kMono ? nullptr : plain_r.data(), n);
        scope.reset();
        ++blocks;
        refused += status != 0;
        EXPECT_EQ(status, plain_status);
        EXPECT_TRUE(compare::same<std::span<const float>>(y_l.span(), plain_l));
        EXPECT_TRUE(compare::same<std::span<const float>>(y_r.span(), plain_r));
        EXPECT_TRUE(x_l.intact() && x_r.intact() && y_l.intact() && y_r.intact());
        EXPECT_TRUE(compare::same<ffdn_block_n16>(got, expected));
        for (size_t i = 0; i < 16; ++i) past_ring += got.line_delay[i] > got.line_mask[i] + 1;
    }

    compare::Engine got, expected;
    Random random;
    int blocks = 0, refused = 0, past_ring = 0;
};

// Delays at, just above and far above the block; rings with hardly any room, so that modulation
// passes their ends, or shorter than the block, which is refused.
Lines random_lines(Random& random, int32_t block_size) {
    Lines lines;
    const auto block = static_cast<uint32_t>(block_size);
    const int style = static_cast<int>(random.integer(0, 3));
    for (size_t i = 0; i < 16; ++i) {
        uint32_t delay = random.integer(block, 4 * block + 64);
        if (style == 0) delay = block + random.integer(0, 2);
        if (style == 1) delay = std::bit_ceil(block + 40) - random.integer(1, 3);
        if (random.chance(0.01f)) delay = random.integer(1, block);
        lines.delays[i] = static_cast<int32_t>(delay);
        lines.sizes[i] = std::bit_ceil(delay + 1) << (random.chance(0.1f) ? 1 : 0);
    }
    return lines;
}

// Two gains in turn, as a stereo width sets them, and mostly all of them but one: an engine may
// take a shorter way for the former.
std::vector<float> nearly_alternating(Random& random) {
    const float even = random.real(-1, 1), odd = random.real(-1, 1);
    std::vector<float> gains(16);
    for (size_t i = 0; i < 16; ++i) gains[i] = i % 2 == 0 ? even : odd;
    if (random.chance(0.6f)) gains[random.integer(0, 15)] = random.real(-1, 1);
    return gains;
}

// One accepted or refused call of a random setter.
void change_something(Life& life) {
    Random& random = life.random;
    const float t60 = random.chance(0.1f) ? random.pick({0.0f, -1.0f}) : random.real(0.002f, 3.0f);
    const uint32_t K = random.integer(0, 4), seed = random.integer(0, 3);
    const uint32_t spread = random.chance(0.03f) ? 65536 : random.chance(0.5f) ? 40 : 400;
    std::vector<uint32_t> delays(5 * 16);
    for (uint32_t& d : delays) d = random.chance(0.2f) ? 0 : random.integer(0, spread);
    if (random.chance(0.05f)) delays[random.integer(0, 15)] = random.integer(65536, 65537);
    const auto left = random.chance(0.5f) ? nearly_alternating(random)
                                          : compare::make(16, Signal::kNoise, random);
    const auto right = nearly_alternating(random);
    const float direct = random.chance(0.5f) ? 0.0f : random.real(-1, 1);
    const float slowest = random.real(0.1f, 60.0f), density = random.real(-0.1f, 1.1f);
    const auto depth = static_cast<int32_t>(random.integer(0, 9));
    const uint32_t which = random.integer(0, 11);
    life.set([&](ffdn_block_n16* e) -> int32_t {
        switch (which) {
        case 0:
        case 1:
            return ffdn_block_n16_set_cascade(e, K, nullptr, kRate, t60);
        case 2:
            return ffdn_block_n16_set_cascade(e, K, delays.data(), kRate, t60);
        case 3:
            return ffdn_block_n16_set_vfm(e, K, seed, kRate, density, t60);
        case 4:
            return ffdn_block_n16_set_post_delays(e, K ? delays.data() : nullptr, kRate, t60);
        case 5:
            ffdn_block_n16_clear_cascade(e);
            return 0;
        case 6:
        case 7:
            return ffdn_block_n16_set_two_band_t60(e, kRate, t60, t60 * 0.4f);
        case 8:
            return ffdn_block_n16_set_modulation(e, depth, kRate, seed, slowest, slowest * 2);
        case 9:
            return ffdn_block_n16_set_stereo_outputs(
                e, K == 0 ? nullptr : left.data(), K == 1 ? nullptr : right.data(), direct, 0.25f);
        case 10:
            return ffdn_block_n16_set_stereo_inputs(e, left.data(), right.data());
        default: // the mono gains have no setter: they are the caller's to write
            std::copy_n(left.data(), 16, e->in_gain);
            std::copy_n(right.data(), 16, e->out_gain);
            e->direct_gain = direct;
            return 0;
        }
    });
}

} // namespace

TEST(FfdnBlock, EqualsThePlainLoopsOverRandomLives) {
    int refused = 0, rendered = 0, past_ring = 0;
    for (uint64_t k = 0; k < 150 && !HasFailure(); ++k) {
        SCOPED_TRACE(testing::Message() << "life " << k);
        Random choice(1000 + k);
        const int32_t block_size = choice.pick({8, 64, 104, 256, 512, 1024});
        Life life(k, block_size, random_lines(choice, block_size), choice.real(0.01f, 3.0f));
        const bool flush = choice.chance(0.5f);
        if (choice.chance(0.9f)) life.set_like_reverb(static_cast<uint32_t>(k % 4), 1.0f);
        // Half of them keep the reverb's own shape, but for what happens between blocks.
        for (uint32_t n = choice.chance(0.5f) ? 0 : choice.integer(1, 6); n > 0; --n)
            change_something(life);
        for (int step = 0; step < 40 && !HasFailure(); ++step) {
            auto n = 8 * static_cast<int32_t>(choice.integer(1, uint32_t(block_size) / 8));
            if (choice.chance(0.3f)) n = block_size;
            if (choice.chance(0.05f))
                n = choice.pick({-8, 0, 4, 12, block_size + 8, block_size - 1});
            const Signal signal = choice.chance(0.3f)   ? Signal::kImpulses
                                  : choice.chance(0.1f) ? choice.pick(compare::kSignals)
                                                        : Signal::kNoise;
            const Ports ports = choice.pick({Ports::kMono, Ports::kStereoOut, Ports::kStereo});
            life.render(ports, n, signal, flush);
            if (choice.chance(0.1f)) change_something(life);
        }
        rendered += life.blocks;
        refused += life.refused;
        past_ring += life.past_ring;
    }
    // The lives meet refusals and lines modulated past their rings, yet consist of something else.
    EXPECT_GT(refused, 50);
    EXPECT_LT(refused, rendered / 2);
    EXPECT_GT(past_ring, 100);
}

// The two gains of the shorter way, and every single gain that leaves it.
TEST(FfdnBlock, SeesEverySingleGainThatBreaksAnAlternatingPattern) {
    for (uint32_t odd_one = 0; odd_one < 64 && !HasFailure(); ++odd_one) {
        SCOPED_TRACE(testing::Message() << "gain " << odd_one);
        Random random(odd_one);
        Life life(odd_one, 64, random_lines(random, 64), 1.0f);
        life.set_like_reverb(2, 1.0f);
        std::vector<float> gains(64);
        for (size_t i = 0; i < 64; ++i) gains[i] = i % 2 == 0 ? 0.3f : 0.1f;
        gains[odd_one] = 0.2f;
        life.set([&](ffdn_block_n16* e) {
            return ffdn_block_n16_set_stereo_outputs(e, gains.data(), &gains[16], 0, 0) |
                   ffdn_block_n16_set_stereo_inputs(e, &gains[32], &gains[48]);
        });
        for (int block = 0; block < 10; ++block)
            life.render(Ports::kStereo, 64, Signal::kNoise, true);
    }
}

// Deep modulation takes a delay beyond its ring. A block that fits into the delay but not into the
// ring is refused: it would overrun the storage of all lines.
TEST(FfdnBlock, RefusesABlockLongerThanARingHoweverLongTheDelay) {
    Lines lines;
    std::fill_n(lines.delays, 16, 1000);
    std::fill_n(lines.sizes, 16, 4096u);
    lines.delays[15] = 60;
    lines.sizes[15] = 64;
    Life life(1, 128, lines, 1.0f);
    life.set([](ffdn_block_n16* e) {
        return ffdn_block_n16_set_modulation(e, 28, kRate, 1, 100.0f, 3000.0f);
    });
    int beyond = 0;
    for (int block = 0; block < 300 && !HasFailure(); ++block) {
        life.render(Ports::kMono, 72, Signal::kNoise, true);
        beyond += life.got.line_delay[15] >= 72;
        life.render(Ports::kMono, 32, Signal::kNoise, true);
    }
    EXPECT_GT(beyond, 20);
    EXPECT_EQ(life.refused, 300); // the longer ones, each time
}
