// The block engine and its kernels against the scalar reference, on random configurations.
//
//   ffdn_differential_test [--configurations N] [--seed S]
//
// Configuration i is drawn from seed S + i (S is 1 by default); --seed alone runs that single one. Both
// engines run under the same floating-point mode, with flush-to-zero in half of the configurations.
//
// Everything is demanded bit for bit. Two paths differ between the engines by design, and there the
// block engine's result is predicted from the reference's state, just as exactly:
//   - Mono input under the broadband decay: the reference rounds x * in and fuses the decay onto it,
//     the block engine rounds decay * s and fuses the input onto it.
//   - The direct terms of stereo input: the block engine takes both from the left input. And the mono
//     output, whose products the reference rounds and the block engine fuses.
#include <brisel/fdn_delay_stage_ref.h>
#include <brisel/ffdn_block.h>
#include <brisel/ffdn_ref_n16.h>
#include <brisel/fwht_ref.h>
#include <brisel/kernels_avx2.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <gtest/gtest.h>

#include "core/flush_to_zero.h"
#include "tests/ffdn_differential.h"

namespace differential {
namespace {

constexpr uint64_t kEverydayConfigurations = 500;

struct Options {
    uint64_t configurations = kEverydayConfigurations;
    uint64_t first_seed = 1;
} options;

// Where two results part; empty while they agree.
using Difference = std::string;

Difference differs(const char* what, size_t index, float got, float expected) {
    if (std::bit_cast<uint32_t>(got) == std::bit_cast<uint32_t>(expected)) return {};
    std::ostringstream text;
    text << what << ' ' << index << ": got " << std::hexfloat << got << " expected " << expected
         << std::defaultfloat << " (" << got << ", " << expected << ')';
    return text.str();
}

template <typename T>
Difference unequal(const char* what, T got, T expected) {
    if (got == expected) return {};
    std::ostringstream text;
    text.precision(17);
    text << what << ": got " << got << " expected " << expected;
    return text.str();
}

Difference differ(const char* what, const float* got, const float* expected, size_t count) {
    if (std::memcmp(got, expected, count * sizeof(float)) == 0) return {};
    for (size_t i = 0; i < count; ++i) {
        Difference difference = differs(what, i, got[i], expected[i]);
        if (!difference.empty()) return difference;
    }
    return {};
}

// ---- The two engines ----------------------------------------------------------------------------

const float* data(const std::optional<Frame>& gains) {
    return gains ? gains->data() : nullptr;
}

class Pair {
public:
    explicit Pair(const Configuration& c) : c_(c) {
        uint32_t sizes[BRISEL_LINES];
        std::ranges::copy(c.sizes, sizes);
        EXPECT_EQ(ffdn_n16_init(&ref_, c.delays.data(), c.sizes.data(), c.sample_rate, c.t60), 0);
        EXPECT_EQ(ffdn_block_n16_init(&block_, c.delays.data(), sizes, c.block_size,
                                      static_cast<uint32_t>(c.sample_rate), c.t60),
                  0);
        EXPECT_EQ(compare_state(), "") << "after init";
        EXPECT_EQ(differ("in_gain", block_.in_gain, ref_.in_gain, BRISEL_LINES), "");
        EXPECT_EQ(differ("out_gain", block_.out_gain, ref_.out_gain, BRISEL_LINES), "");
        EXPECT_EQ(block_.direct_gain, ref_.direct_gain);
        std::ranges::copy(c.in_gain, ref_.in_gain);
        std::ranges::copy(c.in_gain, block_.in_gain);
        std::ranges::copy(c.out_gain, ref_.out_gain);
        std::ranges::copy(c.out_gain, block_.out_gain);
        ref_.direct_gain = block_.direct_gain = c.direct_gain;
    }
    ~Pair() {
        ffdn_n16_free(&ref_);
        ffdn_block_n16_free(&block_);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    Difference configure(const Phase& phase) {
        Difference difference = set_matrix(phase);
        if (phase.two_band) {
            const auto [low, high] = *phase.two_band;
            EXPECT_EQ(ffdn_n16_set_two_band_t60(&ref_, c_.sample_rate, low, high), 0);
            EXPECT_EQ(ffdn_block_n16_set_two_band_t60(&block_, c_.sample_rate, low, high), 0);
        }
        if (const auto& g = phase.outputs) {
            const float *left = data(g->left), *right = data(g->right);
            ffdn_n16_set_stereo_outputs(&ref_, left, right, g->direct_left, g->direct_right);
            ffdn_block_n16_set_stereo_outputs(&block_, left, right, g->direct_left,
                                              g->direct_right);
        }
        if (const auto& g = phase.inputs) {
            ffdn_n16_set_stereo_inputs(&ref_, data(g->left), data(g->right));
            ffdn_block_n16_set_stereo_inputs(&block_, data(g->left), data(g->right));
        }
        return difference;
    }

    // One block through both engines; frame numbers in the result count from `start`.
    Difference process(Path path, size_t start, const float* x_l, const float* x_r, float* y_l,
                       float* y_r, int32_t n) {
        int32_t status = 0;
        switch (path) {
        case Path::kMono:
            status = ffdn_block_n16_process(&block_, x_l, y_l, n);
            break;
        case Path::kStereo:
            status = ffdn_block_n16_process_stereo(&block_, x_l, y_l, y_r, n);
            break;
        case Path::kStereoIn:
            status = ffdn_block_n16_process_stereo_in(&block_, x_l, x_r, y_l, y_r, n);
            break;
        }
        if (status != 0) return "block refused";
        for (size_t t = 0; t < static_cast<size_t>(n); ++t) {
            Difference difference = path == Path::kMono ? step_mono(start + t, x_l[t], y_l[t])
                                    : path == Path::kStereo
                                        ? step_stereo(start + t, x_l[t], y_l[t], y_r[t])
                                        : step_stereo_in(start + t, x_l[t], x_r[t], y_l[t], y_r[t]);
            if (!difference.empty()) return difference;
        }
        return {};
    }

    // Coefficients, rings, filter memories, positions, stored energy.
    Difference compare_state() const {
        Difference d;
        const auto note = [&d](Difference next) {
            if (d.empty()) d = std::move(next);
        };
        note(differ("decay_gain", block_.decay_gain, ref_.decay_gain, BRISEL_LINES));
        note(differ("shelf_b0", block_.shelf_b0, ref_.shelf_b0, BRISEL_LINES));
        note(differ("shelf_a1", block_.shelf_a1, ref_.shelf_a1, BRISEL_LINES));
        note(differ("shelf_state", block_.shelf_state, ref_.shelf_state, BRISEL_LINES));
        note(unequal("two_band", block_.two_band != 0, ref_.two_band != 0));
        for (size_t i = 0; i < BRISEL_LINES; ++i) {
            const std::string line = "line " + std::to_string(i);
            note(unequal((line + " wpos").c_str(), static_cast<int32_t>(block_.line_wpos[i]),
                         ref_.line_wpos[i]));
            note(differ((line + " ring").c_str(), block_.ring + block_.line_offset[i],
                        ref_.line_buf[i], static_cast<size_t>(ref_.line_size[i])));
        }
        note(unequal("stage_count", block_.stage_count, ref_.stage_count));
        for (int32_t k = 0; d.empty() && k < ref_.stage_count; ++k) {
            const std::string stage = "stage " + std::to_string(k);
            note(unequal((stage + " size").c_str(), static_cast<int32_t>(block_.stages[k].size),
                         ref_.stages[k].size));
            note(unequal((stage + " wpos").c_str(), static_cast<int32_t>(block_.stages[k].wpos),
                         ref_.stages[k].wpos));
            if (!d.empty()) break;
            note(differ((stage + " ring").c_str(), block_.stages[k].ring, ref_.stages[k].ring,
                        16 * static_cast<size_t>(ref_.stages[k].size)));
        }
        note(unequal("state energy", ffdn_block_n16_state_energy(&block_),
                     ffdn_n16_state_energy(&ref_)));
        return d;
    }

private:
    Difference set_matrix(const Phase& phase) {
        std::vector<uint32_t> delays(phase.stage_delays.begin(), phase.stage_delays.end());
        const auto rate = static_cast<uint32_t>(c_.sample_rate);
        int32_t got = 0, expected = 0;
        ffdn_n16_post_params post;
        switch (phase.matrix) {
        case Matrix::kKeep:
            break;
        case Matrix::kNone:
            expected = ffdn_n16_set_cascade(&ref_, 0, nullptr, c_.sample_rate, phase.t60);
            got = ffdn_block_n16_set_cascade(&block_, 0, nullptr, rate, phase.t60);
            break;
        case Matrix::kDefault:
            expected = ffdn_n16_set_cascade(&ref_, static_cast<int32_t>(phase.stages), nullptr,
                                            c_.sample_rate, phase.t60);
            got = ffdn_block_n16_set_cascade(&block_, phase.stages, nullptr, rate, phase.t60);
            break;
        case Matrix::kVelvet:
            expected = ffdn_n16_set_vfm(&ref_, phase.stages, phase.velvet_seed, c_.sample_rate,
                                        phase.velvet_density, phase.t60);
            got = ffdn_block_n16_set_vfm(&block_, phase.stages, phase.velvet_seed, rate,
                                         phase.velvet_density, phase.t60);
            break;
        case Matrix::kGiven:
            expected = ffdn_n16_set_cascade(&ref_, static_cast<int32_t>(phase.stages),
                                            phase.stage_delays.data(), c_.sample_rate, phase.t60);
            got = ffdn_block_n16_set_cascade(&block_, phase.stages, delays.data(), rate, phase.t60);
            break;
        case Matrix::kPostDefault:
            ffdn_n16_default_post_params(post.post_delays);
            delays.assign(post.post_delays, post.post_delays + BRISEL_LINES);
            expected = ffdn_n16_set_post_delays(&ref_, post.post_delays, c_.sample_rate, phase.t60);
            got = ffdn_block_n16_set_post_delays(&block_, delays.data(), c_.sample_rate, phase.t60);
            break;
        case Matrix::kPostGiven:
            expected = ffdn_n16_set_post_delays(&ref_, phase.stage_delays.data(), c_.sample_rate,
                                                phase.t60);
            got = ffdn_block_n16_set_post_delays(&block_, delays.data(), c_.sample_rate, phase.t60);
            break;
        case Matrix::kPostNull:
            expected = ffdn_n16_set_post_delays(&ref_, nullptr, c_.sample_rate, phase.t60);
            got = ffdn_block_n16_set_post_delays(&block_, nullptr, c_.sample_rate, phase.t60);
            break;
        }
        return unequal("status of the matrix setter", got, expected);
    }

    Frame taps() const {
        Frame s;
        for (size_t i = 0; i < BRISEL_LINES; ++i) {
            s[i] = ref_.line_buf[i][(ref_.line_wpos[i] - ref_.line_delay[i]) & ref_.line_mask[i]];
        }
        return s;
    }

    // What the feedback matrix will make of the lines' outputs, read off a step of a copy that shares
    // the rings: without decay and input, a step writes just that into the lines. The engine's own
    // step then writes over all that the copy wrote.
    Frame scattered() const {
        ffdn_n16 probe = ref_;
        probe.two_band = 0;
        std::fill_n(probe.decay_gain, BRISEL_LINES, 1.0f);
        std::fill_n(probe.in_gain, BRISEL_LINES, -0.0f); // adding -0 keeps the sign of a zero
        ffdn_n16_process(&probe, 0.0f);
        Frame s;
        for (size_t i = 0; i < BRISEL_LINES; ++i) s[i] = ref_.line_buf[i][ref_.line_wpos[i]];
        return s;
    }

    // After a step of mono input x: what went into the lines is what the reference must write, and is
    // replaced by what the block engine must write, so that both go on from the same state.
    Difference settle_mono_injection(size_t frame, const Frame& s, float x) {
        if (ref_.two_band != 0) return {};
        for (size_t i = 0; i < BRISEL_LINES; ++i) {
            float& v = ref_.line_buf[i][(ref_.line_wpos[i] - 1) & ref_.line_mask[i]];
            const float in = ref_.in_gain[i], decay = ref_.decay_gain[i];
            Difference difference =
                differs("reference's line input, frame", frame, v, std::fma(decay, s[i], x * in));
            if (!difference.empty()) return difference;
            v = std::fma(in, x, decay * s[i]);
        }
        return {};
    }

    static float fused_sum(const Frame& s, const float* gains, float direct) {
        float y = direct;
        for (size_t i = 0; i < BRISEL_LINES; ++i) y = std::fma(gains[i], s[i], y);
        return y;
    }

    Difference step_mono(size_t frame, float x, float y) {
        const Frame s = taps();
        const Frame fed_back = scattered();
        const float y_ref = ffdn_n16_process(&ref_, x);
        float rounded_sum = std::fma(x, ref_.direct_gain, ref_.out_gain[0] * s[0]);
        for (size_t i = 1; i < BRISEL_LINES; ++i) rounded_sum += ref_.out_gain[i] * s[i];
        Difference d = differs("reference's mono output, frame", frame, y_ref, rounded_sum);
        if (d.empty()) {
            d = differs("mono output, frame", frame, y,
                        fused_sum(s, ref_.out_gain, ref_.direct_gain * x));
        }
        return d.empty() ? settle_mono_injection(frame, fed_back, x) : d;
    }

    Difference step_stereo(size_t frame, float x, float y_l, float y_r) {
        const Frame fed_back = scattered();
        float left, right;
        ffdn_n16_process_stereo(&ref_, &left, &right, x);
        Difference d = differs("left output, frame", frame, y_l, left);
        if (d.empty()) d = differs("right output, frame", frame, y_r, right);
        return d.empty() ? settle_mono_injection(frame, fed_back, x) : d;
    }

    Difference step_stereo_in(size_t frame, float x_l, float x_r, float y_l, float y_r) {
        const Frame s = taps();
        float left, right;
        ffdn_n16_process_stereo_in(&ref_, &left, &right, x_l, x_r);
        Difference d = differs("left output, frame", frame, y_l, left);
        if (!d.empty()) return d;
        // Without a direct term the outputs are equal; a zero's sign still comes from the input.
        if (ref_.direct_right == 0.0f) d = unequal("right output", y_r, right);
        if (!d.empty()) return d + ", frame " + std::to_string(frame);
        d = differs("reference's right output, frame", frame, right,
                    fused_sum(s, ref_.out_right, ref_.direct_right * x_r));
        if (!d.empty()) return d;
        return differs("right output, frame", frame, y_r,
                       fused_sum(s, ref_.out_right, ref_.direct_right * x_l));
    }

    const Configuration& c_;
    ffdn_n16 ref_;
    ffdn_block_n16 block_;
};

struct Outcome {
    Difference difference;
    bool sounded = false; // anything but zeros came out
};

Outcome run(const Configuration& c) {
    Random random(~c.seed); // for the signals
    Outcome outcome;
    Pair pair(c);
    for (size_t p = 0; p < c.phases.size(); ++p) {
        const Phase& phase = c.phases[p];
        const auto found = [&](const Difference& difference) {
            outcome.difference = "phase " + std::to_string(p + 1) + ": " + difference;
            return outcome;
        };
        const size_t frames = phase.frames();
        compare::Guarded x_l(frames, phase.offset), x_r(frames, phase.offset);
        compare::Guarded y_l(frames, phase.offset), y_r(frames, phase.offset);
        fill(x_l.span(), phase.sound, random);
        fill(x_r.span(), phase.sound, random);

        std::optional<brisel::FlushToZeroScope> flush;
        if (c.flush_to_zero) flush.emplace();
        Difference d = pair.configure(phase);
        if (d.empty()) d = pair.compare_state();
        size_t t = 0;
        for (const int32_t n : phase.blocks) {
            if (!d.empty()) break;
            d = pair.process(phase.path, t, x_l.data() + t, x_r.data() + t, y_l.data() + t,
                             y_r.data() + t, n);
            t += static_cast<size_t>(n);
        }
        if (d.empty()) d = pair.compare_state();
        if (!d.empty()) return found(d);
        if (!y_l.intact() || !y_r.intact()) return found("written outside the output buffers");
        outcome.sounded |= std::ranges::any_of(y_l.span(), [](float y) { return y != 0.0f; });
    }
    return outcome;
}

// Runs `one` for every seed asked for and reports the first few that fail.
template <typename Run>
void for_each_seed(Run one) {
    int reports = 3;
    for (uint64_t i = 0; i < options.configurations && reports > 0; ++i) {
        const uint64_t seed = options.first_seed + i;
        const std::string failure = one(seed);
        if (failure.empty()) continue;
        --reports;
        ADD_FAILURE() << failure << "\n  repeat with --seed " << seed;
    }
}

TEST(Differential, RandomNetworksAgreeBitForBit) {
    uint64_t sounded = 0;
    for_each_seed([&sounded](uint64_t seed) -> std::string {
        const Configuration c = draw(seed);
        const Outcome outcome = run(c);
        sounded += outcome.sounded;
        if (outcome.difference.empty()) return {};
        std::ostringstream text;
        text << outcome.difference << "\n  " << c;
        return text.str();
    });
    // Otherwise the agreement would be that of silence.
    if (options.configurations >= 100 && !HasFailure()) {
        EXPECT_GT(sounded, options.configurations / 2);
    }
}

// ---- The delay kernels --------------------------------------------------------------------------

// Several blocks of any length up to the shortest delay, from any write position, so that reads and
// writes wrap at every place of a ring.
std::string run_delay_kernels(uint64_t seed) {
    Random random(seed);
    const uint32_t n = random.integer(1, random.pick({8u, 40u, 200u}));
    uint32_t sizes[BRISEL_LINES], delays[BRISEL_LINES], lines[64], ref_lines[64];
    for (size_t i = 0; i < BRISEL_LINES; ++i) {
        delays[i] = random.chance(0.3f) ? n : random.integer(n, 3 * n);
        sizes[i] = 1;
        while (sizes[i] <= delays[i]) sizes[i] *= 2;
        if (random.chance(0.3f)) sizes[i] *= 4;
    }
    const uint64_t total = delay_lines_init(lines, sizes, delays);
    for (size_t i = 0; i < BRISEL_LINES; ++i) lines[48 + i] = random.integer(0, sizes[i] - 1);
    std::copy_n(lines, 64, ref_lines);
    compare::Guarded ring(total, random.integer(0, 7));
    fill(ring.span(), Sound::kNoise, random);
    std::vector<float> ref_ring(ring.span().begin(), ring.span().end());

    for (int call = 0; call < 6; ++call) {
        compare::Guarded in(BRISEL_LINES * n, random.integer(0, 7));
        compare::Guarded out(BRISEL_LINES * n, random.integer(0, 7));
        fill(in.span(), Sound::kNoise, random);
        fdn_delay_block_read_n16_avx2(ring.data(), lines, out.data(), n);
        fdn_delay_block_write_n16_avx2(ring.data(), lines, in.data(), n);

        std::vector<float> expected(BRISEL_LINES * n);
        for (uint32_t t = 0; t < n; ++t) {
            Frame frame;
            for (size_t i = 0; i < BRISEL_LINES; ++i) frame[i] = in.data()[i * n + t];
            fdn_delay_stage_ref_n16(ref_ring.data(), ref_lines, frame.data(), frame.data());
            for (size_t i = 0; i < BRISEL_LINES; ++i) expected[i * n + t] = frame[i];
        }
        Difference d = differ("delayed sample", out.data(), expected.data(), expected.size());
        if (d.empty()) d = differ("ring sample", ring.data(), ref_ring.data(), ref_ring.size());
        if (!std::equal(lines, lines + 64, ref_lines)) d = "line fields differ";
        if (!ring.intact() || !out.intact()) d = "written outside a buffer";
        if (!d.empty()) return d + ", call " + std::to_string(call) + " of " + std::to_string(n);
    }
    return {};
}

TEST(Differential, DelayKernelsEqualTheReferenceDelayStage) {
    for_each_seed(run_delay_kernels);
}

// ---- The stage delay kernel ---------------------------------------------------------------------

// The reference's stage loop runs inside a whole step of the network. With main delays of one sample,
// no decay and no input, a step turns what the lines hold into stage(H * lines) and nothing else; the
// kernel gets H * lines. Stage delays are shorter than, equal to and longer than the block.
std::string run_stage_kernel(uint64_t seed) {
    Random random(seed);
    const uint32_t n = random.integer(1, random.pick({8u, 40u, 200u}));
    Delays delays, one, two;
    one.fill(1);
    two.fill(2);
    for (int32_t& d : delays) {
        const auto block = static_cast<int32_t>(n);
        d = random.pick(
            {0, 1, block, integer(random, 0, block), integer(random, block, 3 * block)});
    }
    delays[random.integer(0, BRISEL_LINES - 1)] = static_cast<int32_t>(n); // never all 0
    ffdn_n16 f;
    EXPECT_EQ(ffdn_n16_init(&f, one.data(), two.data(), 48000, 0.0f), 0);
    EXPECT_EQ(ffdn_n16_set_post_delays(&f, delays.data(), 48000, 0.0f), 0);
    std::fill_n(f.in_gain, BRISEL_LINES, -0.0f); // adding -0 keeps the sign of a zero

    const auto size = static_cast<uint32_t>(f.stages[0].size);
    compare::Guarded ring(size_t{BRISEL_LINES} * size, random.integer(0, 7));
    uint32_t wpos = random.integer(0, size - 1);
    f.stages[0].wpos = static_cast<int32_t>(wpos);
    uint32_t kernel_delays[BRISEL_LINES];
    std::ranges::copy(delays, kernel_delays);

    Difference d;
    for (int call = 0; d.empty() && call < 6; ++call) {
        compare::Guarded block(BRISEL_LINES * n, random.integer(0, 7));
        std::vector<float> expected(BRISEL_LINES * n);
        std::vector<float> noise(BRISEL_LINES);
        for (uint32_t t = 0; t < n; ++t) {
            fill(noise, Sound::kNoise, random);
            for (size_t i = 0; i < BRISEL_LINES; ++i) {
                f.line_buf[i][(f.line_wpos[i] - 1) & 1] = noise[i];
            }
            ffdn_n16_process(&f, 0.0f);
            fwht_ref_n16(noise.data());
            for (size_t i = 0; i < BRISEL_LINES; ++i) {
                block.data()[i * n + t] = noise[i];
                expected[i * n + t] = f.line_buf[i][(f.line_wpos[i] - 1) & 1];
            }
        }
        ffdn_postdelay_n16_avx2(block.data(), ring.data(), &wpos, size, kernel_delays, n);
        d = differ("stage output", block.data(), expected.data(), expected.size());
        if (d.empty()) d = differ("ring sample", ring.data(), f.stages[0].ring, ring.size());
        if (d.empty()) d = unequal("wpos", static_cast<int32_t>(wpos), f.stages[0].wpos);
        if (!ring.intact() || !block.intact()) d = "written outside a buffer";
        if (!d.empty()) d += ", call " + std::to_string(call) + " of " + std::to_string(n);
    }
    ffdn_n16_free(&f);
    return d;
}

TEST(Differential, StageKernelEqualsTheReferencesStageLoop) {
    for_each_seed(run_stage_kernel);
}

// ---- Command line -------------------------------------------------------------------------------

bool parse(int argc, char** argv) {
    bool count_given = false, seed_given = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view name = argv[i];
        const bool count = name == "--configurations";
        if ((!count && name != "--seed") || i + 1 == argc) return false;
        const std::string_view value = argv[++i];
        uint64_t& to = count ? options.configurations : options.first_seed;
        const auto [end, error] = std::from_chars(value.begin(), value.end(), to);
        if (error != std::errc() || end != value.end()) return false;
        (count ? count_given : seed_given) = true;
    }
    if (seed_given && !count_given) options.configurations = 1;
    return options.configurations > 0;
}

} // namespace
} // namespace differential

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!differential::parse(argc, argv)) {
        std::fprintf(stderr, "usage: %s [--configurations N >= 1] [--seed S]\n", argv[0]);
        return 2;
    }
    return RUN_ALL_TESTS();
}
