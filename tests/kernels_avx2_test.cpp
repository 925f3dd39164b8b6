// Every vector kernel against its definition: equal bits in results, rings and state for every length,
// at odd alignments, at ring wraps, on hostile signals, with and without flush-to-zero, and nothing
// read or written outside the buffers.
#include <brisel/fwht_ref.h>
#include <brisel/kernels_avx2.h>

#include <array>
#include <numeric>

#include "core/flush_to_zero.h"
#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::Guarded;
using compare::Random;
using compare::Signal;

// One buffer twice: `got` for the kernel, at any alignment, `expected` for the definition.
struct Twin {
    Guarded got, expected;

    Twin(std::span<const float> contents, size_t offset)
        : got(contents, offset), expected(contents) {}
    Twin(size_t count, Signal signal, Random& random)
        : Twin(compare::make(count, signal, random), random.integer(0, 7)) {}

    void check(const char* name) {
        EXPECT_TRUE(compare::same_bits(got.span(), expected.span())) << name;
        EXPECT_TRUE(got.intact()) << name << ": written outside";
    }
    // For kernels that only move samples: the very same bits, those of a NaN included.
    void check_moved(const char* name) {
        EXPECT_EQ(compare::words(got.span()), compare::words(expected.span())) << name;
        EXPECT_TRUE(got.intact()) << name << ": written outside";
    }
};

template <typename Calls>
void in_mode(bool flush, Calls calls) {
    if (flush) {
        const brisel::FlushToZeroScope scope;
        calls();
    } else {
        calls();
    }
}

// Runs body(n, signal, flush, random) for every length, signal and floating-point mode.
template <typename Body>
void sweep(uint32_t shortest, Body body) {
    std::vector<uint32_t> lengths(80 - shortest + 1);
    std::iota(lengths.begin(), lengths.end(), shortest);
    lengths.insert(lengths.end(), {120, 128, 129, 240, 256, 264, 511, 512, 1000, 1024});
    Random random(shortest);
    for (Signal signal : compare::kAllSignals) {
        for (uint32_t n : lengths) {
            for (bool flush : {false, true}) {
                SCOPED_TRACE(testing::Message() << "n " << n << ", signal "
                                                << static_cast<int>(signal) << ", flush " << flush);
                body(n, signal, flush, random);
                if (testing::Test::HasFailure()) return;
            }
        }
    }
}

std::vector<float> gains(Random& random) {
    std::vector<float> g = compare::make(16, Signal::kNoise, random);
    g[random.integer(0, 15)] = 0.0f; // a product with 0 still counts: it can turn -0 into +0
    g[random.integer(0, 15)] = 1.0f;
    return g;
}

} // namespace

TEST(KernelsAvx2, TransformEqualsItsDefinition) {
    sweep(0, [](uint32_t n, Signal signal, bool flush, Random& random) {
        Twin block(compare::make(16 * n, signal, random), 0); // aligned, as the kernel demands
        in_mode(flush, [&] {
            fwht_n16_block_avx2(block.got.data(), n);
            plain::fwht_n16_block(block.expected.data(), n);
        });
        block.check("block");
    });
}

TEST(KernelsAvx2, TransformGivesTheBitsOfTheScalarReference) {
    Random random(1);
    for (Signal signal : compare::kAllSignals) {
        constexpr uint32_t n = 24;
        Guarded block(compare::make(16 * n, signal, random));
        std::vector<float> expected(16 * n);
        for (uint32_t t = 0; t < n; ++t) {
            float frame[16];
            for (uint32_t i = 0; i < 16; ++i) frame[i] = block.data()[i * n + t];
            fwht_ref_n16(frame);
            for (uint32_t i = 0; i < 16; ++i) expected[i * n + t] = frame[i];
        }
        fwht_n16_block_avx2(block.data(), n);
        EXPECT_TRUE(compare::same_bits(block.span(), expected)) << "signal " << int(signal);
    }
}

TEST(KernelsAvx2, MixInEqualsItsDefinitionInPlaceAndApart) {
    sweep(0, [](uint32_t n, Signal signal, bool flush, Random& random) {
        const std::vector<float> gain = gains(random), in_gain = gains(random);
        Twin x(n, signal, random), block(16 * n, signal, random);
        Twin apart(16 * n, Signal::kNoise, random);
        in_mode(flush, [&] {
            ffdn_mix_in_n16_avx2(apart.got.data(), block.got.data(), gain.data(), in_gain.data(),
                                 x.got.data(), n);
            plain::ffdn_mix_in_n16(apart.expected.data(), block.expected.data(), gain.data(),
                                   in_gain.data(), x.expected.data(), n);
            ffdn_mix_in_n16_avx2(block.got.data(), block.got.data(), gain.data(), in_gain.data(),
                                 x.got.data(), n);
            plain::ffdn_mix_in_n16(block.expected.data(), block.expected.data(), gain.data(),
                                   in_gain.data(), x.expected.data(), n);
        });
        apart.check("apart");
        block.check("in place");
        x.check("x");
    });
}

TEST(KernelsAvx2, TwoBandMixInEqualsItsDefinitionAndCarriesItsMemory) {
    sweep(1, [](uint32_t n, Signal signal, bool flush, Random& random) {
        const std::vector<float> in_gain = gains(random);
        std::vector<float> filter = compare::make(48, Signal::kNoise, random);
        const uint32_t line = random.integer(0, 15);
        filter[16 + line] = 0.0f;      // no recursion
        filter[32 + line] = 0x1p-130f; // a denormal memory
        Twin shelf(filter, random.integer(0, 7));
        Twin x(n, signal, random), block(16 * n, signal, random);
        Twin apart(16 * n, Signal::kNoise, random);
        in_mode(flush, [&] {
            ffdn_mix_in_jot_n16_avx2(apart.got.data(), block.got.data(), shelf.got.data(),
                                     in_gain.data(), x.got.data(), n);
            plain::ffdn_mix_in_jot_n16(apart.expected.data(), block.expected.data(),
                                       shelf.expected.data(), in_gain.data(), x.expected.data(), n);
            ffdn_mix_in_jot_n16_avx2(block.got.data(), block.got.data(), shelf.got.data(),
                                     in_gain.data(), x.got.data(), n);
            plain::ffdn_mix_in_jot_n16(block.expected.data(), block.expected.data(),
                                       shelf.expected.data(), in_gain.data(), x.expected.data(), n);
        });
        apart.check("apart");
        block.check("in place");
        shelf.check("shelf");
        x.check("x");
    });
}

TEST(KernelsAvx2, MixOutEqualsItsDefinition) {
    sweep(0, [](uint32_t n, Signal signal, bool flush, Random& random) {
        const std::vector<float> left = gains(random), right = gains(random);
        const float direct[2] = {random.real(-1, 1), random.chance(0.5f) ? 0.0f : 0.5f};
        Twin x(n, signal, random), block(16 * n, signal, random);
        Twin mono(n, Signal::kNoise, random);
        Twin y_left(n, Signal::kNoise, random), y_right(n, Signal::kNoise, random);
        in_mode(flush, [&] {
            ffdn_mix_out_n16_avx2(mono.got.data(), block.got.data(), right.data(), &direct[1],
                                  x.got.data(), n);
            plain::ffdn_mix_out_n16(mono.expected.data(), block.expected.data(), right.data(),
                                    &direct[1], x.expected.data(), n);
            ffdn_mix_out_stereo_n16_avx2(y_left.got.data(), y_right.got.data(), block.got.data(),
                                         left.data(), right.data(), direct, x.got.data(), n);
            plain::ffdn_mix_out_stereo_n16(y_left.expected.data(), y_right.expected.data(),
                                           block.expected.data(), left.data(), right.data(), direct,
                                           x.expected.data(), n);
        });
        mono.check("mono");
        y_left.check("left");
        y_right.check("right");
        block.check("block");
        x.check("x");
    });
}

TEST(KernelsAvx2, DelayReadAndWriteEqualTheirDefinitionsAtEveryWrap) {
    sweep(1, [](uint32_t n, Signal signal, bool flush, Random& random) {
        uint32_t lines[64], total = 0;
        for (uint32_t i = 0; i < 16; ++i) {
            const uint32_t size = std::bit_ceil(n) << random.integer(0, 2);
            lines[i] = total;
            lines[16 + i] = size - 1;
            // Modulation may carry a delay past its ring's length; the read masks it.
            lines[32 + i] =
                random.chance(0.2f) ? size + random.integer(0, 9) : random.integer(n, size);
            lines[48 + i] = random.chance(0.3f) ? size - std::min(size, random.integer(1, n))
                                                : random.integer(0, size - 1);
            total += size;
        }
        uint32_t expected_lines[64];
        std::copy_n(lines, 64, expected_lines);
        Twin ring(total, signal, random);
        Twin read(16 * n, Signal::kNoise, random), written(16 * n, signal, random);
        in_mode(flush, [&] {
            fdn_delay_block_read_n16_avx2(ring.got.data(), lines, read.got.data(), n);
            plain::fdn_delay_block_read_n16(ring.expected.data(), expected_lines,
                                            read.expected.data(), n);
            fdn_delay_block_write_n16_avx2(ring.got.data(), lines, written.got.data(), n);
            plain::fdn_delay_block_write_n16(ring.expected.data(), expected_lines,
                                             written.expected.data(), n);
        });
        read.check_moved("block read");
        ring.check_moved("ring");
        written.check_moved("block written");
        EXPECT_TRUE(compare::same_array(lines, expected_lines));
    });
}

namespace {

// One stage delay over three successive calls, the later ones of other lengths.
void check_stage_delay(const std::array<uint32_t, 16>& delays, uint32_t size, uint32_t n,
                       Signal signal, bool flush, Random& random) {
    Twin ring(16 * size, signal, random);
    uint32_t wpos = random.chance(0.5f) ? size - 1 - random.integer(0, std::min(size - 1, n))
                                        : random.integer(0, size - 1);
    uint32_t expected_wpos = wpos;
    for (uint32_t frames : {n, random.integer(1, 40), n}) {
        SCOPED_TRACE(testing::Message() << "frames " << frames << " size " << size << " from wpos "
                                        << wpos << " delays " << testing::PrintToString(delays));
        Twin block(16 * frames, signal, random);
        in_mode(flush, [&] {
            ffdn_postdelay_n16_avx2(block.got.data(), ring.got.data(), &wpos, size, delays.data(),
                                    frames);
            plain::ffdn_postdelay_n16(block.expected.data(), ring.expected.data(), &expected_wpos,
                                      size, delays.data(), frames);
        });
        block.check_moved("block");
        ring.check_moved("ring");
        EXPECT_EQ(wpos, expected_wpos);
        if (testing::Test::HasFailure()) return;
    }
}

std::array<uint32_t, 16> progression(uint32_t first, uint32_t step) {
    std::array<uint32_t, 16> delays;
    for (uint32_t i = 0; i < 16; ++i) delays[i] = first + i * step;
    return delays;
}

} // namespace

TEST(KernelsAvx2, StageDelayEqualsItsDefinitionForEveryLength) {
    constexpr uint32_t kEdges[] = {0, 1, 2, 7, 8, 9, 15, 16, 17, 31, 240, 255};
    sweep(1, [&](uint32_t n, Signal signal, bool flush, Random& random) {
        check_stage_delay(progression(0, 1), 16, n, signal, flush, random);
        check_stage_delay(progression(0, 16), 256, n, signal, flush, random);
        std::array<uint32_t, 16> mixed;
        for (uint32_t& delay : mixed) delay = random.pick(kEdges);
        check_stage_delay(mixed, 256u << random.integer(0, 1), n, signal, flush, random);
    });
}

TEST(KernelsAvx2, StageDelayEqualsItsDefinitionForEveryDelay) {
    Random random(2);
    constexpr uint32_t kFrames[] = {8, 16, 24, 64, 200, 256, 1024};
    for (uint32_t delay = 0; delay < 520; delay += delay < 48 ? 1 : 13) {
        std::array<uint32_t, 16> delays;
        delays.fill(delay);
        delays[delay % 16] = 0; // its row and ring stay as they are, between others that move
        const uint32_t size = std::max(16u, std::bit_ceil(delay + 1)) << random.integer(0, 1);
        check_stage_delay(delays, size, random.pick(kFrames), Signal::kNonFinite, false, random);
        if (HasFailure()) return;
    }
    for (uint32_t size : {1u, 2u, 4u, 8u}) { // rings shorter than a vector
        std::array<uint32_t, 16> delays;
        for (uint32_t& delay : delays) delay = random.integer(0, size - 1);
        for (uint32_t n : {1u, 7u, 8u, 24u, 129u}) {
            check_stage_delay(delays, size, n, Signal::kNonFinite, false, random);
        }
    }
    check_stage_delay(progression(0, 256), 4096, 512, Signal::kNoise, true, random);
    check_stage_delay({}, 16, 64, Signal::kNoise, true, random);
    check_stage_delay(progression(65536 - 15, 1), 131072, 256, Signal::kNoise, true, random);
}
