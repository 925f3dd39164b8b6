// Block engines under test: a record that starts as garbage, line lengths, the reverb's own shape.
#ifndef BRISEL_TESTS_BLOCK_ENGINE_H
#define BRISEL_TESTS_BLOCK_ENGINE_H

#include <brisel/ffdn_block.h>
#include <brisel/ffdn_defaults_n16.h>

#include <array>
#include <bit>
#include <cstring>

#include <gtest/gtest.h>

namespace block_engine {

inline constexpr uint32_t kRate = 48000;

struct Engine {
    ffdn_block_n16 record;
    Engine() { std::memset(&record, 0xA5, sizeof record); } // init overwrites whatever it meets
    ~Engine() { ffdn_block_n16_free(&record); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ffdn_block_n16* get() { return &record; }
    ffdn_block_n16* operator->() { return &record; }
};

struct Lines {
    std::array<int32_t, 16> delays;
    std::array<uint32_t, 16> ring_sizes;
};

inline Lines equal_lines(int32_t delay) {
    Lines lines;
    lines.delays.fill(delay);
    lines.ring_sizes.fill(std::bit_ceil(static_cast<uint32_t>(delay) + 1));
    return lines;
}

inline Lines default_lines() {
    Lines lines;
    ffdn_n16_default_params(lines.delays.data(),
                            reinterpret_cast<int32_t*>(lines.ring_sizes.data()));
    return lines;
}

inline int32_t init(Engine& engine, const Lines& lines, int32_t block_size, float t60) {
    return ffdn_block_n16_init(engine.get(), lines.delays.data(), lines.ring_sizes.data(),
                               block_size, kRate, t60);
}

// The shape that the reverb uses: default cascade, two bands, stereo in and out.
inline int32_t set_like_reverb(ffdn_block_n16* e, uint32_t K, float t60) {
    if (ffdn_block_n16_set_cascade(e, K, nullptr, kRate, t60) != 0) return -1;
    if (ffdn_block_n16_set_two_band_t60(e, kRate, t60, t60 / 2) != 0) return -1;
    if (ffdn_block_n16_set_stereo_outputs(e, nullptr, nullptr, 0, 0) != 0) return -1;
    return ffdn_block_n16_set_stereo_inputs(e, nullptr, nullptr);
}

inline void init_like_reverb(Engine& engine, uint32_t K, float t60) {
    ASSERT_EQ(init(engine, default_lines(), 512, t60), 0);
    ASSERT_EQ(set_like_reverb(engine.get(), K, t60), 0);
}

} // namespace block_engine

#endif
