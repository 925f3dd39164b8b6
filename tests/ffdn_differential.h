// Random configurations of a network for ffdn_differential_test.cpp: drawn from one seed, printed in
// one line. Everything that the run of a configuration depends on is drawn here.
#ifndef BRISEL_TESTS_FFDN_DIFFERENTIAL_H
#define BRISEL_TESTS_FFDN_DIFFERENTIAL_H

#include <brisel/ffdn_defaults_n16.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "tests/compare.h"

namespace differential {

using compare::Random;
using Frame = std::array<float, BRISEL_LINES>;
using Delays = std::array<int32_t, BRISEL_LINES>;

inline constexpr int32_t kShortestBlock = 8;

enum class Matrix { kKeep, kNone, kDefault, kVelvet, kGiven, kPostDefault, kPostGiven, kPostNull };
enum class Path { kMono, kStereo, kStereoIn };
enum class Sound { kNoise, kImpulses, kSine, kSilence, kFullScale, kQuiet, kDenormal };

struct TwoBand {
    float low, high; // seconds
};

// A null vector asks for the default.
struct ChannelGains {
    std::optional<Frame> left, right;
    float direct_left = 0.0f, direct_right = 0.0f; // outputs only
};

// A set of calls between two stretches of sound, and the sound.
struct Phase {
    Matrix matrix = Matrix::kNone;
    uint32_t stages = 0;
    uint64_t velvet_seed = 0;
    float velvet_density = 1.0f;
    std::vector<int32_t> stage_delays; // stages * 16
    float t60 = 0.0f;                  // seconds, of the cascade setters
    std::optional<TwoBand> two_band;
    std::optional<ChannelGains> outputs, inputs;
    Path path = Path::kMono;
    Sound sound = Sound::kNoise;
    size_t offset = 0; // of all buffers from a 32-byte boundary, in floats
    std::vector<int32_t> blocks;

    size_t frames() const {
        size_t sum = 0;
        for (const int32_t n : blocks) sum += static_cast<size_t>(n);
        return sum;
    }
};

struct Configuration {
    uint64_t seed = 0;
    bool flush_to_zero = false;
    int32_t sample_rate = 0;
    Delays delays{}, sizes{};
    int32_t block_size = 0;
    float t60 = 0.0f;
    Frame in_gain{}, out_gain{}; // of the mono paths
    float direct_gain = 0.0f;
    std::vector<Phase> phases;
};

// ---- Drawing ------------------------------------------------------------------------------------

inline float log_uniform(Random& random, float low, float high) {
    return low * std::pow(high / low, random.real(0.0f, 1.0f));
}

inline int32_t integer(Random& random, int32_t low, int32_t high) {
    return static_cast<int32_t>(
        random.integer(static_cast<uint32_t>(low), static_cast<uint32_t>(high)));
}

inline float draw_t60(Random& random) {
    if (random.chance(0.25f)) return random.chance(0.5f) ? 0.0f : -1.0f;
    return log_uniform(random, 0.05f, 20.0f);
}

inline Frame draw_gains(Random& random) {
    Frame gains;
    const float sparsity = random.chance(0.3f) ? 0.7f : 0.0f;
    for (float& g : gains) g = random.chance(sparsity) ? 0.0f : random.real(-1.0f, 1.0f);
    return gains;
}

// One gain for the even lines and one for the odd, as a stereo width sets them.
inline Frame draw_alternating_gains(Random& random) {
    const float even = random.real(-1.0f, 1.0f), odd = random.real(-1.0f, 1.0f);
    Frame gains;
    for (size_t i = 0; i < gains.size(); ++i) gains[i] = i % 2 == 0 ? even : odd;
    return gains;
}

inline ChannelGains draw_channel_gains(Random& random, bool alternating) {
    ChannelGains gains;
    if (alternating) {
        gains.left = draw_alternating_gains(random);
        gains.right = draw_alternating_gains(random);
        return gains;
    }
    if (random.chance(0.7f)) gains.left = draw_gains(random);
    if (random.chance(0.7f)) gains.right = draw_gains(random);
    if (random.chance(0.4f)) {
        gains.direct_left = random.real(-1.0f, 1.0f);
        gains.direct_right = random.real(-1.0f, 1.0f);
    }
    return gains;
}

inline void draw_lines(Random& random, Configuration& c) {
    if (random.chance(0.1f)) {
        ffdn_n16_default_params(c.delays.data(), c.sizes.data());
        return;
    }
    const int32_t longest = random.pick({16, 64, 64, 300, 300, 1200});
    const bool equal = random.chance(0.1f);
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        c.delays[i] = equal && i > 0 ? c.delays[0] : integer(random, kShortestBlock, longest);
        c.sizes[i] = 16;
        while (c.sizes[i] <= c.delays[i]) c.sizes[i] *= 2;
        if (random.chance(0.3f)) c.sizes[i] *= random.pick({2, 4, 8});
    }
}

inline void draw_matrix(Random& random, Phase& phase, bool first) {
    phase.matrix = random.pick({Matrix::kNone, Matrix::kDefault, Matrix::kDefault, Matrix::kVelvet,
                                Matrix::kVelvet, Matrix::kGiven, Matrix::kGiven,
                                Matrix::kPostDefault, Matrix::kPostGiven, Matrix::kPostNull});
    if (!first && random.chance(0.3f)) phase.matrix = Matrix::kKeep;
    phase.t60 = draw_t60(random);
    phase.stages = random.integer(0, BRISEL_MAX_STAGES);
    phase.velvet_seed = random.chance(0.1f) ? 0 : random.integer(1, 0xffffffff);
    phase.velvet_density = log_uniform(random, 0.05f, 1.0f); // the lowest can be refused
    // Stage delays below, around and above the block; many zeros; seldom the longest of all.
    const int32_t longest = random.pick({1, 7, 31, 31, 300, 300, 2500});
    const float zeros = random.pick({0.0f, 0.2f, 0.9f});
    const size_t count = size_t{BRISEL_LINES} * (phase.matrix == Matrix::kGiven ? phase.stages : 1);
    for (size_t i = 0; i < count; ++i) {
        phase.stage_delays.push_back(random.chance(zeros) ? 0 : integer(random, 0, longest));
    }
    if (!phase.stage_delays.empty() && random.chance(0.003f)) phase.stage_delays.back() = 65536;
}

inline std::vector<int32_t> draw_blocks(Random& random, const Configuration& c) {
    const auto [shortest, longest] = std::ranges::minmax(c.delays);
    const int32_t most = std::min(shortest, c.block_size) / 8;
    const bool whole = random.chance(0.2f);
    // Long enough for sound to come back from most lines, mostly; sometimes barely started, sometimes
    // long enough for it to come through the stages too.
    int32_t left = random.chance(0.8f) ? 2 * longest + 200 : 8 + longest / 2;
    if (random.chance(0.3f)) left += 300;
    if (random.chance(0.05f)) left += 5000;
    std::vector<int32_t> blocks;
    while (left > 0) {
        blocks.push_back(8 * (whole ? most : integer(random, 1, most)));
        left -= blocks.back();
    }
    return blocks;
}

inline Configuration draw(uint64_t seed) {
    Random random(seed);
    Configuration c;
    c.seed = seed;
    c.flush_to_zero = random.chance(0.5f);
    c.sample_rate = random.pick({8000, 44100, 48000, 192000});
    draw_lines(random, c);
    c.block_size = random.pick({8, 64, 250, 1024});
    c.t60 = draw_t60(random);
    // The defaults, or gains that no operation sets but that a caller may write.
    c.in_gain.fill(0.25f);
    c.out_gain.fill(0.25f);
    if (random.chance(0.5f)) {
        c.in_gain = draw_gains(random);
        c.out_gain = draw_gains(random);
        c.direct_gain = random.real(-1.0f, 1.0f);
    }
    for (int count = integer(random, 1, 3); count > 0; --count) {
        Phase phase;
        const bool first = c.phases.empty();
        // A reverb's usual set-up, on the calls of which an engine may take shorter ways.
        const bool usual = random.chance(0.3f);
        draw_matrix(random, phase, first);
        if (usual && phase.matrix != Matrix::kKeep) phase.matrix = Matrix::kDefault;
        if (usual || random.chance(0.5f)) {
            phase.two_band = {log_uniform(random, 0.05f, 20.0f), log_uniform(random, 0.05f, 20.0f)};
        }
        if (first || usual || random.chance(0.3f)) {
            phase.outputs = draw_channel_gains(random, usual);
        }
        if (first || usual || random.chance(0.3f)) {
            phase.inputs = draw_channel_gains(random, usual);
        }
        phase.path = random.pick({Path::kMono, Path::kStereo, Path::kStereoIn, Path::kStereoIn});
        if (usual && random.chance(0.7f)) phase.path = Path::kStereoIn;
        phase.sound = random.pick({Sound::kNoise, Sound::kNoise, Sound::kNoise, Sound::kImpulses,
                                   Sound::kSine, Sound::kSilence, Sound::kFullScale, Sound::kQuiet,
                                   Sound::kDenormal});
        phase.offset = random.integer(0, 7);
        phase.blocks = draw_blocks(random, c);
        c.phases.push_back(std::move(phase));
    }
    return c;
}

inline void fill(std::span<float> x, Sound sound, Random& random) {
    constexpr float kTwoPi = 2.0f * std::numbers::pi_v<float>;
    const float phase = random.real(0.0f, kTwoPi), step = log_uniform(random, 0.001f, kTwoPi / 2);
    for (size_t t = 0; t < x.size(); ++t) {
        const float noise = random.real(-1.0f, 1.0f);
        switch (sound) {
        case Sound::kNoise:
            x[t] = noise;
            break;
        case Sound::kImpulses:
            x[t] = random.chance(0.02f) ? noise : 0.0f;
            break;
        case Sound::kSine:
            x[t] = std::sin(phase + step * static_cast<float>(t));
            break;
        case Sound::kSilence:
            x[t] = 0.0f;
            break;
        case Sound::kFullScale:
            x[t] = noise < 0.0f ? -1.0f : 1.0f;
            break;
        case Sound::kQuiet: // products with gains fall into the denormal range, or do not
            x[t] = noise * 0x1p-123f;
            break;
        case Sound::kDenormal:
            x[t] = noise * 0x1p-127f;
            break;
        }
    }
}

// ---- Printing -----------------------------------------------------------------------------------

template <typename Values>
void print(std::ostream& out, const char* name, const Values& values) {
    out << ' ' << name << " [";
    for (size_t i = 0; i < values.size(); ++i) out << (i > 0 ? " " : "") << values[i];
    out << ']';
}

inline void print(std::ostream& out, const char* name, const ChannelGains& gains) {
    out << ' ' << name;
    if (gains.left) print(out, "left", *gains.left);
    if (gains.right) print(out, "right", *gains.right);
    if (!gains.left || !gains.right) out << " else default";
    out << " direct " << gains.direct_left << ' ' << gains.direct_right;
}

inline std::ostream& operator<<(std::ostream& out, const Phase& phase) {
    static constexpr const char* kMatrices[] = {"kept",  "none",         "default",     "velvet",
                                                "given", "post default", "post delays", "no post"};
    static constexpr const char* kPaths[] = {"mono", "stereo out", "stereo in and out"};
    static constexpr const char* kSounds[] = {"noise",      "impulses", "sine",    "silence",
                                              "full scale", "quiet",    "denormal"};
    out << " matrix " << kMatrices[static_cast<size_t>(phase.matrix)];
    const Matrix matrix = phase.matrix;
    if (matrix == Matrix::kDefault || matrix == Matrix::kVelvet) out << " K " << phase.stages;
    if (matrix == Matrix::kVelvet) {
        out << " seed " << phase.velvet_seed << " density " << phase.velvet_density;
    }
    if (matrix == Matrix::kGiven || matrix == Matrix::kPostGiven) {
        print(out, "delays", phase.stage_delays);
    }
    if (matrix != Matrix::kKeep) out << " T60 " << phase.t60;
    if (phase.two_band) out << " two-band " << phase.two_band->low << ' ' << phase.two_band->high;
    if (phase.outputs) print(out, "outputs", *phase.outputs);
    if (phase.inputs) print(out, "inputs", *phase.inputs);
    out << ", " << kPaths[static_cast<size_t>(phase.path)] << ", "
        << kSounds[static_cast<size_t>(phase.sound)] << ", " << phase.frames() << " frames";
    return out;
}

inline std::ostream& operator<<(std::ostream& out, const Configuration& c) {
    out << "rate " << c.sample_rate;
    print(out, "delays", c.delays);
    print(out, "rings", c.sizes);
    out << " block " << c.block_size << " T60 " << c.t60 << " flush to zero "
        << (c.flush_to_zero ? "on" : "off");
    print(out, "in", c.in_gain);
    print(out, "out", c.out_gain);
    out << " direct " << c.direct_gain;
    for (size_t p = 0; p < c.phases.size(); ++p) out << "; phase " << p + 1 << ':' << c.phases[p];
    return out;
}

} // namespace differential

#endif
