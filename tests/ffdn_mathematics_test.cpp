// What the mathematics of the network promises, measured on the engines: the transform is orthogonal,
// the feedback matrix paraunitary, and each band dies in its time. ffdn_losslessness_test.cpp measures
// a network without decay.
#include <brisel/ffdn_block.h>
#include <brisel/ffdn_defaults_n16.h>
#include <brisel/ffdn_ref_n16.h>
#include <brisel/kernels_avx2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <numeric>
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include "tests/compare.h"
#include "tests/decay_time.h"

namespace {

using compare::noise;
constexpr int32_t kRate = 48000;
constexpr int32_t kBlock = 512;
constexpr double kUnitRoundoff = 0x1p-24; // of a float, rounding to nearest

double energy(std::span<const float> x) {
    return std::transform_reduce(x.begin(), x.end(), 0.0, std::plus<>(),
                                 [](double v) { return v * v; });
}

} // namespace

// ---- The transform ------------------------------------------------------------------------------

// Each of the four passes rounds sums whose exact values have twice the energy of its input, with an
// error of at most one unit roundoff relative to each sum, hence relative to the vector's norm; the
// scaling by 1/4 is exact. One transform errs by at most (1 + u)^4 - 1 < 5 u of the norm.
TEST(Transform, IsItsOwnInverseAndPreservesEnergy) {
    constexpr double kBound = 5 * kUnitRoundoff;
    for (uint32_t seed = 0; seed < 300; ++seed) {
        alignas(32) std::array<float, 16 * 8> block;
        const std::vector<float> input = noise(block.size(), seed);
        std::ranges::copy(input, block.begin());
        fwht_n16_block_avx2(block.data(), 8);
        const double before = energy(input), after = energy(block);
        ASSERT_NEAR(after, before, 2.1 * kBound * before) << "seed " << seed;
        fwht_n16_block_avx2(block.data(), 8);
        double error = 0.0;
        for (size_t i = 0; i < input.size(); ++i) error += std::pow(double{block[i]} - input[i], 2);
        ASSERT_LE(std::sqrt(error), 2.1 * kBound * std::sqrt(before)) << "seed " << seed;
    }
}

// ---- The feedback matrix ------------------------------------------------------------------------

namespace {

using Matrix = std::array<std::array<std::vector<double>, 16>, 16>; // [to][from], impulse responses

// Impulse responses of the feedback matrix between all lines: without decay, what one line's impulse
// writes into the other lines is just that, until the first echo returns. The lines of 8192 samples
// leave room for the longest response.
Matrix impulse_responses(ffdn_n16& f, size_t length) {
    Matrix responses;
    for (size_t from = 0; from < 16; ++from) {
        for (size_t i = 0; i < 16; ++i) std::fill_n(f.line_buf[i], f.line_size[i], 0.0f);
        for (int32_t k = 0; k < f.stage_count; ++k) {
            std::fill_n(f.stages[k].ring, 16 * f.stages[k].size, 0.0f);
        }
        // Placed so that it is the next sample to leave its line.
        f.line_buf[from][(f.line_wpos[from] - f.line_delay[from]) & f.line_mask[from]] = 1.0f;
        for (size_t t = 0; t < length; ++t) ffdn_n16_process(&f, 0.0f);
        for (size_t to = 0; to < 16; ++to) {
            auto& h = responses[to][from];
            for (size_t t = 0; t < length; ++t) {
                const auto age = static_cast<int32_t>(length - t);
                h.push_back(f.line_buf[to][(f.line_wpos[to] - age) & f.line_mask[to]]);
            }
        }
    }
    return responses;
}

// Largest deviation of A^H A from the identity at `count` frequencies over the whole band.
double deviation_from_unitary(const Matrix& h, size_t length, int count) {
    double worst = 0.0;
    for (int k = 0; k < count; ++k) {
        const double w = std::numbers::pi * (k + 0.37) / count;
        std::vector<std::complex<double>> rotation(length);
        for (size_t t = 0; t < length; ++t) {
            rotation[t] = std::polar(1.0, -w * static_cast<double>(t));
        }
        std::array<std::array<std::complex<double>, 16>, 16> a{};
        for (size_t i = 0; i < 16; ++i) {
            for (size_t j = 0; j < 16; ++j) {
                for (size_t t = 0; t < length; ++t) {
                    if (h[i][j][t] != 0.0) a[i][j] += h[i][j][t] * rotation[t];
                }
            }
        }
        for (size_t i = 0; i < 16; ++i) {
            for (size_t j = 0; j < 16; ++j) {
                std::complex<double> product = i == j ? -1.0 : 0.0;
                for (size_t l = 0; l < 16; ++l) product += std::conj(a[l][i]) * a[l][j];
                worst = std::max(worst, std::abs(product));
            }
        }
    }
    return worst;
}

} // namespace

// Powers of 1/4 make the responses exact; what is left is the rounding of sums of at most 256 terms
// of 1/64 in double precision and of products of such sums, some 256 * 16 units of 2^-53 at the very
// most.
TEST(FeedbackMatrix, IsUnitaryAtEveryFrequencyAndScattersEveryEcho) {
    constexpr double kBound = 256 * 16 * 0x1p-53;
    constexpr size_t kLength = 7168; // the longest velvet delays at density 0.6: 25 + 404 + 6464
    for (int32_t K = 0; K <= 3; ++K) {
        for (const bool velvet : {false, true}) {
            std::array<int32_t, 16> delays, sizes;
            delays.fill(8191);
            sizes.fill(8192);
            ffdn_n16 f;
            ASSERT_EQ(ffdn_n16_init(&f, delays.data(), sizes.data(), kRate, 0.0f), 0);
            if (velvet) {
                ASSERT_EQ(ffdn_n16_set_vfm(&f, static_cast<uint32_t>(K), 5, kRate, 0.6f, 0.0f), 0);
            } else {
                ASSERT_EQ(ffdn_n16_set_cascade(&f, K, nullptr, kRate, 0.0f), 0);
            }
            const Matrix h = impulse_responses(f, kLength);
            EXPECT_LE(deviation_from_unitary(h, kLength, 12), kBound) << "K " << K;
            // Every line reaches every line along 16^(K-1) ways, which the default delays keep apart.
            for (size_t i = 0; !velvet && i < 16; ++i) {
                for (size_t j = 0; j < 16; ++j) {
                    const auto echoes =
                        std::ranges::count_if(h[i][j], [](double v) { return v != 0; });
                    ASSERT_EQ(echoes, K < 2 ? 1 : K == 2 ? 16 : 256) << "K " << K;
                }
            }
            ffdn_n16_free(&f);
        }
    }
}

// ---- Decay --------------------------------------------------------------------------------------

namespace {

// What each of the 16 lines gives out after an impulse into the default network.
std::vector<std::vector<float>> line_responses(int32_t K, float t60_low, float t60_high,
                                               double seconds) {
    ffdn_n16_params params;
    ffdn_n16_default_params(params.delays, params.buffer_sizes);
    uint32_t sizes[BRISEL_LINES];
    std::copy_n(params.buffer_sizes, BRISEL_LINES, sizes);
    const auto blocks = static_cast<size_t>(seconds * kRate / kBlock);
    std::vector<std::vector<float>> responses(BRISEL_LINES, std::vector<float>(blocks * kBlock));
    for (size_t line = 0; line < BRISEL_LINES; line += 2) { // two at a time, one an output
        ffdn_block_n16 e;
        EXPECT_EQ(ffdn_block_n16_init(&e, params.delays, sizes, kBlock, kRate, 0.0f), 0);
        const auto stages = static_cast<uint32_t>(K);
        EXPECT_EQ(ffdn_block_n16_set_cascade(&e, stages, nullptr, kRate, 0.0f), 0);
        EXPECT_EQ(ffdn_block_n16_set_two_band_t60(&e, kRate, t60_low, t60_high), 0);
        float left[BRISEL_LINES] = {}, right[BRISEL_LINES] = {};
        left[line] = right[line + 1] = 1.0f;
        ffdn_block_n16_set_stereo_outputs(&e, left, right, 0.0f, 0.0f);
        std::vector<float> x(kBlock);
        x[0] = 1.0f;
        for (size_t t = 0; t < blocks * kBlock; t += kBlock) {
            EXPECT_EQ(ffdn_block_n16_process_stereo(&e, x.data(), &responses[line][t],
                                                    &responses[line + 1][t], kBlock),
                      0);
            x[0] = 0.0f;
        }
        ffdn_block_n16_free(&e);
    }
    return responses;
}

// Energy over time in the band of +/- 600 Hz around `centre` = 0 Hz or half the sample rate, summed over
// all signals, one value every kStep samples. The filter is a Blackman-windowed low-pass, its signs
// alternating for the upper band.
enum class Centre { kZero, kHalfRate };
constexpr size_t kStep = 32;
constexpr double kStepSeconds = double{kStep} / kRate;

std::vector<double> band_energy(const std::vector<std::vector<float>>& signals, Centre centre) {
    constexpr int kTaps = 1025, kCentre = kTaps / 2;
    constexpr double kPi = std::numbers::pi, kCutoff = 600.0 / kRate;
    std::vector<double> h;
    for (int n = 0; n < kTaps; ++n) {
        const double t = n - kCentre, w = 2 * kPi * n / (kTaps - 1);
        const double window = 0.42 - 0.5 * std::cos(w) + 0.08 * std::cos(2 * w);
        const double low_pass = t == 0 ? 2 * kCutoff : std::sin(2 * kPi * kCutoff * t) / (kPi * t);
        h.push_back(low_pass * window * (centre == Centre::kHalfRate && n % 2 != 0 ? -1 : 1));
    }
    std::vector<double> energies;
    for (size_t t = 0; t + h.size() <= signals[0].size(); t += kStep) {
        double sum = 0.0;
        for (const auto& x : signals) {
            const double y = std::transform_reduce(h.begin(), h.end(), &x[t], 0.0);
            sum += y * y;
        }
        energies.push_back(sum);
    }
    return energies;
}

} // namespace

TEST(TwoBandDecay, GivesTheSetTimesAtLowAndHighFrequenciesWithinFivePercent) {
    struct Times {
        float low, high;
    };
    for (const Times t60 : {Times{2.0f, 0.5f}, Times{0.6f, 1.2f}, Times{1.0f, 1.0f}}) {
        for (int32_t K = 0; K <= 3; ++K) {
            const double seconds = 0.8 * std::max(t60.low, t60.high) + 0.2;
            const auto responses = line_responses(K, t60.low, t60.high, seconds);
            const double low = schroeder_t60(band_energy(responses, Centre::kZero), kStepSeconds);
            const double high =
                schroeder_t60(band_energy(responses, Centre::kHalfRate), kStepSeconds);
            EXPECT_NEAR(low, t60.low, 0.05 * t60.low) << "K " << K << ", high " << t60.high;
            EXPECT_NEAR(high, t60.high, 0.05 * t60.high) << "K " << K << ", low " << t60.low;
        }
    }
}
