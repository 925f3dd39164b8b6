// Every vector kernel against its definition: equal bits in results, rings and state for every
// length, at odd alignments, at ring wraps, on hostile signals, with and without flush-to-zero, and
// nothing touched outside the buffers.
#include "bench/kernels.h"

#include <optional>

#include "brisel/fdn_delay_stage_ref.h"
#include "brisel/fwht_ref.h"
#include "tests/compare.h"

namespace {

using compare::Random;
using compare::Signal;
using kernels::Buffers;

uint32_t any_delay(Random& random) {
    return random.chance(0.5f) ? random.integer(0, 600)
                               : random.pick({0u, 1u, 2u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 240u});
}

// Lines that hold n frames, sometimes with a delay beyond the ring, as modulation brings it about;
// stage delays of any length, in rings as short as can be. Positions are mostly about to wrap.
void draw(Buffers& b, std::span<const uint32_t> sizes, Signal signal, Random& random) {
    const uint32_t n = b.frames;
    for (float& x : b.all()) x = compare::sample(signal, random);
    for (uint32_t i = 0, at = 0; i < 16; at += sizes[i++]) {
        b.lines[i] = at;
        b.lines[16 + i] = sizes[i] - 1;
        b.lines[32 + i] = random.integer(n, sizes[i] + (random.chance(0.2f) ? 9 : 0));
        b.lines[48 + i] = sizes[i] - random.integer(1, random.chance(0.5f) ? n : sizes[i]);
        b.stage_delays[i] = any_delay(random) % b.stage_size;
        b.gains[i] = random.chance(0.1f) ? 0.0f : random.real(-1, 1);
        b.gains[16 + i] = random.chance(0.1f) ? 1.0f : random.real(-1, 1);
        b.shelf[16 + i] = random.chance(0.1f) ? 0.0f : random.real(-1, 1);
    }
    b.stage_wpos = b.stage_size - random.integer(1, std::min(b.stage_size, n + 1));
}

void check(const kernels::Kernel& kernel, uint32_t n, Signal signal, Random& random) {
    SCOPED_TRACE(testing::Message() << kernel.name << ", n " << n << ", signal " << int(signal));
    uint32_t sizes[16], total = 0;
    for (uint32_t& size : sizes) total += size = std::bit_ceil(n) << random.integer(0, 1);
    const uint32_t stage_size = 1u << random.integer(0, 10);
    const size_t offset = kernel.aligned ? 0 : random.integer(0, 7);
    Buffers got(n, total, stage_size, offset), expected(n, total, stage_size, offset);
    draw(got, sizes, signal, random);
    expected.copy(got);
    std::optional<plain::FlushToZero> flush;
    if (random.chance(0.5f)) flush.emplace();
    for (int call = 0; call < 2; ++call) { // the second one goes on from the state of the first one
        kernel.ours(got);
        kernel.plain(expected);
    }
    flush.reset();
    EXPECT_TRUE(compare::same<std::span<const float>>(got.all(), expected.all()));
    EXPECT_TRUE(std::ranges::equal(got.lines, expected.lines));
    EXPECT_EQ(got.stage_wpos, expected.stage_wpos);
}

constexpr kernels::Kernel kApart[] = {
    {"ffdn_mix_in_n16_avx2", kernels::mix_in<true, true>, kernels::mix_in<false, true>},
    {"ffdn_mix_in_jot_n16_avx2", kernels::mix_in_jot<true, true>, kernels::mix_in_jot<false, true>},
};

} // namespace

TEST(Kernels, EqualTheirDefinitionsAtEveryLengthAlignmentAndWrap) {
    Random random(1);
    for (uint32_t n = 1; n <= 1024; n += n < 80 ? 1 : n < 129 ? 49 : n / 2) {
        for (const Signal signal : compare::kSignals) {
            for (const auto& kernel : kernels::kKernels) check(kernel, n, signal, random);
            for (const auto& kernel : kApart) check(kernel, n, signal, random);
            if (HasFailure()) return;
        }
    }
}

TEST(Kernels, TransformIsTheScaledHadamardMatrixInNaturalOrder) {
    for (int32_t n = 1; n <= 256; n *= 2) {
        std::vector<float> x(static_cast<size_t>(n));
        for (int32_t j = 0; j < n; ++j) x[static_cast<size_t>(j)] = static_cast<float>(j * j % 97);
        const std::vector<float> input = x;
        fwht_ref(x.data(), n);
        const float scale = 1.0f / std::sqrt(static_cast<float>(n));
        for (uint32_t k = 0; k < x.size(); ++k) {
            float sum = 0.0f; // of small integers, hence exact in any order
            for (uint32_t j = 0; j < x.size(); ++j)
                sum += std::popcount(j & k) % 2 == 0 ? input[j] : -input[j];
            ASSERT_EQ(x[k], sum * scale) << "n " << n << ", k " << k;
        }
    }
}

// The scalar transforms round in the order of the definition, frame by frame.
TEST(Kernels, ScalarTransformsGiveTheBitsOfTheDefinition) {
    constexpr uint32_t kFrames = 256;
    const std::vector<float> input = compare::noise(16 * kFrames, 2);
    std::vector<float> block = input;
    plain::fwht_n16_block(block.data(), kFrames);
    for (uint32_t t = 0; t < kFrames; ++t) {
        float sixteen[16], general[16];
        for (uint32_t i = 0; i < 16; ++i) sixteen[i] = general[i] = input[i * kFrames + t];
        fwht_ref_n16(sixteen);
        fwht_ref(general, 16);
        for (uint32_t i = 0; i < 16; ++i) {
            ASSERT_EQ(sixteen[i], block[i * kFrames + t]) << t;
            ASSERT_EQ(general[i], block[i * kFrames + t]) << t;
        }
    }
}

// delay_lines_init lays the rings out one behind the other; the scalar stage returns every sample
// after its line's delay, where 0 means a whole ring.
TEST(Kernels, ScalarDelayStageReturnsEverySampleAfterItsLinesDelay) {
    uint32_t lines[64], sizes[16], delays[16], total = 0;
    for (uint32_t i = 0; i < 16; ++i) {
        sizes[i] = 32u << i % 3;
        delays[i] = i == 1 ? sizes[i] - 1 : 2 * i;
    }
    ASSERT_EQ(delay_lines_init(lines, sizes, delays), 16 * 32 + 5 * 32 + 5 * 96);
    for (size_t i = 0; i < 16; total += sizes[i++]) {
        EXPECT_EQ(lines[i], total);
        EXPECT_EQ(lines[16 + i], sizes[i] - 1);
        EXPECT_EQ(lines[32 + i], delays[i]);
        EXPECT_EQ(lines[48 + i], 0u);
    }
    std::vector<float> ring(total);
    for (uint32_t t = 0; t < 300; ++t) {
        float frame[16];
        for (uint32_t i = 0; i < 16; ++i) frame[i] = static_cast<float>(1000 * i + t + 1);
        fdn_delay_stage_ref_n16(ring.data(), lines, frame, frame);
        for (uint32_t i = 0; i < 16; ++i) {
            const uint32_t delay = delays[i] == 0 ? sizes[i] : delays[i];
            const auto expected = static_cast<float>(1000 * i + t + 1 - delay);
            ASSERT_EQ(frame[i], t < delay ? 0.0f : expected) << "line " << i << ", call " << t;
        }
    }
}
