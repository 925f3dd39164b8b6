// The layout of the block engine's delay lines and their scalar reference.
#include <brisel/fdn_delay_stage_ref.h>

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

TEST(DelayLinesInit, LaysTheRingsOutOneBehindTheOther) {
    uint32_t lines[64], sizes[16], delays[16];
    uint64_t total = 0;
    for (uint32_t i = 0; i < 16; ++i) {
        sizes[i] = 1u << (i % 5);
        delays[i] = sizes[i] - 1;
    }
    std::fill_n(lines, 64, 77u);
    EXPECT_EQ(delay_lines_init(lines, sizes, delays), 94u);
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(lines[i], total);
        EXPECT_EQ(lines[16 + i], sizes[i] - 1);
        EXPECT_EQ(lines[32 + i], delays[i]);
        EXPECT_EQ(lines[48 + i], 0u);
        total += sizes[i];
    }
}

TEST(DelayLinesInit, StopsAtTheFirstUnusableLine) {
    struct Fault {
        uint32_t size, delay;
    };
    for (const Fault fault : {Fault{0, 0}, Fault{1000, 10}, Fault{1024, 1024}, Fault{1024, ~0u}}) {
        uint32_t lines[64], sizes[16], delays[16];
        std::fill_n(lines, 64, 77u);
        std::fill_n(sizes, 16, 1024u);
        std::fill_n(delays, 16, 1023u);
        sizes[5] = fault.size;
        delays[5] = fault.delay;
        EXPECT_EQ(delay_lines_init(lines, sizes, delays), 0u);
        EXPECT_EQ(lines[4], 4096u);
        for (size_t field = 0; field < 64; field += 16) EXPECT_EQ(lines[field + 5], 77u);
    }
}

TEST(FdnDelayStageRef, ReturnsEverySampleAfterItsLinesDelay) {
    uint32_t lines[64], sizes[16], delays[16];
    for (uint32_t i = 0; i < 16; ++i) {
        sizes[i] = 32;
        delays[i] = 2 * i + 1; // up to the longest of a ring of 32
    }
    delays[0] = 0; // means a whole ring
    ASSERT_EQ(delay_lines_init(lines, sizes, delays), 512u);
    std::vector<float> ring(512);
    std::vector<float> ring_in_place(512);
    uint32_t lines_in_place[64];
    std::copy_n(lines, 64, lines_in_place);

    for (int32_t t = 0; t < 96; ++t) {
        float in[16], out[16], in_out[16];
        for (int32_t i = 0; i < 16; ++i) in[i] = in_out[i] = static_cast<float>(1000 * i + t + 1);
        fdn_delay_stage_ref_n16(ring.data(), lines, in, out);
        fdn_delay_stage_ref_n16(ring_in_place.data(), lines_in_place, in_out, in_out);
        for (int32_t i = 0; i < 16; ++i) {
            const int32_t written = t - (i == 0 ? 32 : 2 * i + 1);
            const float expected = written < 0 ? 0.0f : static_cast<float>(1000 * i + written + 1);
            ASSERT_EQ(out[i], expected) << "line " << i << ", call " << t;
            ASSERT_EQ(in_out[i], expected) << "line " << i << ", call " << t;
            ASSERT_EQ(lines[48 + i], static_cast<uint32_t>(t + 1) % 32);
        }
    }
}
