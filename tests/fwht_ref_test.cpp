// The scalar Walsh-Hadamard transforms, against the matrix and against a recursive statement of their
// order of additions.
#include <brisel/fwht_ref.h>

#include <array>
#include <bit>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "tests/compare.h"

namespace {

using Frame = std::array<float, 16>;

// One butterfly network written top down: the transform of a sum and a difference of halves.
void recursive_hadamard(float* x, size_t n) {
    if (n == 1) return;
    for (size_t j = 0; j < n / 2; ++j) {
        const float a = x[j], b = x[j + n / 2];
        x[j] = a + b;
        x[j + n / 2] = a - b;
    }
    recursive_hadamard(x, n / 2);
    recursive_hadamard(x + n / 2, n / 2);
}

} // namespace

TEST(FwhtRef, IsTheScaledHadamardMatrixInNaturalOrder) {
    for (int32_t n = 1; n <= 256; n *= 2) {
        std::vector<float> x(static_cast<size_t>(n));
        for (int32_t j = 0; j < n; ++j) x[static_cast<size_t>(j)] = static_cast<float>(j * j % 97);
        const std::vector<float> input = x;
        fwht_ref(x.data(), n);
        const float scale = 1.0f / std::sqrt(static_cast<float>(n));
        for (uint32_t k = 0; k < x.size(); ++k) {
            float sum = 0.0f; // of small integers, hence exact in any order
            for (uint32_t j = 0; j < x.size(); ++j) {
                sum += std::popcount(j & k) % 2 == 0 ? input[j] : -input[j];
            }
            ASSERT_EQ(x[k], sum * scale) << "n " << n << ", k " << k;
        }
    }
}

TEST(FwhtRef, AddsInTheOrderOfItsSpans) {
    for (uint64_t round = 0; round < 200; ++round) {
        Frame input;
        std::ranges::copy(compare::noise(input.size(), round), input.begin());
        Frame sixteen = input, general = input, recursive = input;
        fwht_ref_n16(sixteen.data());
        fwht_ref(general.data(), 16);
        recursive_hadamard(recursive.data(), 16);
        for (size_t k = 0; k < 16; ++k) {
            ASSERT_EQ(sixteen[k], 0.25f * recursive[k]) << "round " << round << ", k " << k;
            ASSERT_EQ(general[k], sixteen[k]) << "round " << round << ", k " << k;
        }
    }
}

TEST(FwhtRef, LeavesEmptyInputAlone) {
    float x = 3.0f;
    fwht_ref(&x, 0);
    fwht_ref(&x, -16);
    EXPECT_EQ(x, 3.0f);
}
