// Drives the late reverberation as an effect does: host blocks of any length, settings that change
// on tiles, tiles run ahead of their input where a block ends inside one.
#ifndef BRISEL_TESTS_LATE_HOST_H
#define BRISEL_TESTS_LATE_HOST_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "core/flush_to_zero.h"
#include "live/engine/late.h"

using Stereo = std::array<std::vector<float>, 2>;

struct Change {
    uint32_t frame; // a multiple of kTile
    brisel::live::LateSettings settings;
};

inline constexpr brisel::live::LateSettings kLateDefaults;

inline Stereo noise(uint32_t frames, uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0.0f, 0.1f);
    Stereo x;
    for (auto& side : x) {
        side.resize(frames);
        for (float& sample : side) sample = normal(random);
    }
    return x;
}

class LateHost {
public:
    explicit LateHost(brisel::live::Late& late) : late_(late) {}

    // One host block, `from` .. `to` - 1 of the signal; changes lie on the signal's frames.
    void block(const Stereo& in, Stereo& out, uint32_t from, uint32_t to,
               const std::vector<Change>& changes) {
        using brisel::live::kTile;
        const brisel::FlushToZeroScope flush_to_zero;
        for (uint32_t t = from; t < to;) {
            const float* const x[2] = {in[0].data() + t, in[1].data() + t};
            if (left_ > 0) {
                const uint32_t count = std::min(left_, to - t);
                for (size_t c = 0; c < 2; ++c)
                    std::copy_n(&kept_[c][kTile - left_], count, &out[c][t]);
                late_.inject(x, kTile - left_, kTile - left_ + count);
                left_ -= count;
                t += count;
                continue;
            }
            while (next_ < changes.size() && changes[next_].frame <= t)
                late_.set(changes[next_++].settings);
            if (to - t >= kTile) {
                uint32_t slice = std::min((to - t) / kTile * kTile, brisel::live::kLongestSlice);
                if (next_ < changes.size()) slice = std::min(slice, changes[next_].frame - t);
                float* const y[2] = {&out[0][t], &out[1][t]};
                late_.run(x, y, slice);
                t += slice;
            } else {
                float* const y[2] = {kept_[0], kept_[1]};
                late_.run_ahead(y);
                left_ = kTile;
            }
        }
    }

    // The whole signal in blocks of random length, at most `longest`.
    Stereo render(const Stereo& in, const std::vector<Change>& changes, uint32_t longest,
                  uint32_t seed) {
        const auto frames = static_cast<uint32_t>(in[0].size());
        std::mt19937 random(seed);
        Stereo out = {std::vector<float>(frames), std::vector<float>(frames)};
        for (uint32_t t = 0; t < frames;) {
            const uint32_t n = std::min(1 + static_cast<uint32_t>(random()) % longest, frames - t);
            block(in, out, t, t + n, changes);
            t += n;
        }
        return out;
    }

private:
    brisel::live::Late& late_;
    float kept_[2][brisel::live::kTile] = {};
    uint32_t left_ = 0;
    size_t next_ = 0;
};

#endif
