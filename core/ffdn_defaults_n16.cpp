// The generators of the default network design. The engines decide what they accept; nothing is
// checked here.
#include "brisel/ffdn_defaults_n16.h"

#include <algorithm>

#include "core/ffdn_defaults_n16.h"
#include "core/network_math.h"

namespace {

// The number of values that the first velvet stage draws its 16 offsets from.
uint64_t velvet_spread(float density) {
    if (density > 0.0f && density <= 1.0f) {
        const int32_t farthest = brisel::truncate_to_int32(15.0f / density + 0.5f);
        return static_cast<uint64_t>(std::max(15, farthest)) + 1;
    }
    return BRISEL_LINES;
}

void draw_distinct_offsets(brisel::Xorshift64& random, uint64_t spread, int32_t* offsets) {
    int32_t* const end = offsets + BRISEL_LINES;
    for (int32_t* next = offsets; next != end;) {
        const auto candidate = static_cast<int32_t>(random.next() % spread);
        if (std::find(offsets, next, candidate) == next) *next++ = candidate;
    }
}

// Each channel takes every other line, eight with 1/sqrt(8) each.
void default_stereo_gains(float* left, float* right) {
    for (int line = 0; line < BRISEL_LINES; ++line) {
        const bool even = line % 2 == 0;
        left[line] = even ? brisel::kInvSqrt8 : 0.0f;
        right[line] = even ? 0.0f : brisel::kInvSqrt8;
    }
}

} // namespace

void ffdn_n16_default_params(int32_t* delays, int32_t* buffer_sizes) {
    std::copy_n(brisel::kLinePrimes, BRISEL_LINES, delays);
    std::fill_n(buffer_sizes, BRISEL_LINES, 2048);
}

void ffdn_n16_default_post_params(int32_t* post_delays) {
    for (int32_t line = 0; line < BRISEL_LINES; ++line) post_delays[line] = line;
}

void ffdn_n16_default_cascade_params(int32_t K, int32_t* stage_delays) {
    uint32_t spacing = 1; // 16^k
    for (int32_t k = 0; k < K; ++k, spacing *= 16) {
        for (uint32_t line = 0; line < BRISEL_LINES; ++line) {
            *stage_delays++ = static_cast<int32_t>(line * spacing);
        }
    }
}

void ffdn_n16_default_vfm_params(int32_t K, uint64_t vfm_seed, int32_t* stage_delays,
                                 float vfm_density) {
    if (K < 1) return;
    auto random = brisel::Xorshift64::seeded(vfm_seed);
    const int32_t* const offsets = stage_delays;
    draw_distinct_offsets(random, velvet_spread(vfm_density), stage_delays);

    uint32_t spacing = 16; // 16^k; 0 from stage 8 on
    for (int32_t k = 1; k < K; ++k, spacing *= 16) {
        stage_delays += BRISEL_LINES;
        const uint32_t jitter_range = spacing > 3 ? spacing / 2 + 1 : 3;
        const uint32_t jitter_centre = spacing > 3 ? spacing / 4 : 1;
        for (int line = 0; line < BRISEL_LINES; ++line) {
            const auto jitter = static_cast<uint32_t>(random.next() % jitter_range);
            const uint32_t grid = static_cast<uint32_t>(offsets[line]) * spacing;
            const auto delay = static_cast<int32_t>(grid + jitter - jitter_centre);
            stage_delays[line] = std::max(0, delay);
        }
    }
}

void ffdn_n16_default_stereo_inputs(float* left, float* right) {
    default_stereo_gains(left, right);
}

void ffdn_n16_default_stereo_outputs(float* left, float* right) {
    default_stereo_gains(left, right);
}
