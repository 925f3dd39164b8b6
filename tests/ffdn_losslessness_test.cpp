// A network without decay keeps its energy: the feedback matrix is paraunitary, and everything else on
// the way around the loop moves samples unchanged.
#include <brisel/ffdn_block.h>
#include <brisel/ffdn_defaults_n16.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

#include "tests/compare.h"

namespace {

constexpr int32_t kRate = 48000;
constexpr int32_t kBlock = 512;

class Losslessness : public testing::TestWithParam<int32_t> {
protected:
    Losslessness() {
        ffdn_n16_params params;
        ffdn_n16_default_params(params.delays, params.buffer_sizes);
        uint32_t sizes[BRISEL_LINES];
        std::copy_n(params.buffer_sizes, BRISEL_LINES, sizes);
        EXPECT_EQ(ffdn_block_n16_init(&e_, params.delays, sizes, kBlock, kRate, 0.0f), 0);
        const auto K = static_cast<uint32_t>(GetParam());
        EXPECT_EQ(ffdn_block_n16_set_cascade(&e_, K, nullptr, kRate, 0.0f), 0);
    }
    ~Losslessness() override { ffdn_block_n16_free(&e_); }

    void run(const std::vector<float>& x, int32_t blocks) {
        std::vector<float> y(kBlock);
        for (; blocks > 0; --blocks) {
            ASSERT_EQ(ffdn_block_n16_process(&e_, x.data(), y.data(), kBlock), 0);
        }
    }

    ffdn_block_n16 e_;
};

} // namespace

// What changes the energy is the rounding in the transforms. The rounding error of a sum is at most
// u = 2^-24 of it, with either sign, so one pass over a frame of 16 samples changes the frame's energy
// by 2 sum(x e), with a standard deviation of at most 2 u / sqrt(3) * sqrt(sum x^4) / sum(x^2) of it,
// which for noise is 2 u / sqrt(3) * sqrt(3 / 16) = u / 2, and a transform of four passes by u. A frame
// holds one part in N of the energy, where N is the number of frames in flight. The changes add up like
// a random walk: after M transforms of frames to u * sqrt(M) / N. Six standard deviations are allowed.
TEST_P(Losslessness, EnergyStaysForTenMinutes) {
    for (uint64_t block = 0; block < 50; ++block) run(compare::noise(kBlock, block), 1);
    const double start = ffdn_block_n16_state_energy(&e_);
    EXPECT_GT(start, 1.0);

    constexpr int32_t kBlocks = 600 * kRate / kBlock;
    run(std::vector<float>(kBlock), kBlocks);
    const double drift = ffdn_block_n16_state_energy(&e_) / start - 1.0;

    double in_flight = std::accumulate(e_.line_delay, e_.line_delay + BRISEL_LINES, 0.0);
    for (int32_t k = 0; k < e_.stage_count; ++k) {
        const uint32_t* const delays = e_.stages[k].delays;
        in_flight = std::accumulate(delays, delays + BRISEL_LINES, in_flight);
    }
    in_flight /= BRISEL_LINES;
    const double transforms = double{kBlocks} * kBlock * std::max(e_.stage_count, 1);
    const double deviation = 0x1p-24 * std::sqrt(transforms) / in_flight;
    RecordProperty("drift_in_standard_deviations", std::to_string(drift / deviation));
    EXPECT_LE(std::abs(drift), 6 * deviation);
}

INSTANTIATE_TEST_SUITE_P(Stages, Losslessness, testing::Range(0, 4));
