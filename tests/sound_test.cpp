// What the mathematics of the network promises to the ear: a feedback matrix that loses nothing,
// bands that die in their times, an output that stays finite and bounded whatever comes in, and
// silence in the end.
#include <numbers>
#include <numeric>

#include "brisel/ffdn_defaults_n16.h"
#include "tests/compare.h"

namespace {

using compare::Random;

constexpr int32_t kRate = 48000;
constexpr double kUnit = 0x1p-24; // relative rounding error of a float

} // namespace

// Without decay the network keeps its energy, as the feedback matrix is paraunitary. What changes
// it is the rounding in the transforms, like a random walk: after M transforms of frames, of which
// N are in flight, by a standard deviation of u * sqrt(M) / N for noise. Six of them are allowed,
// with N at least 997.
TEST(Sound, StaysForeverWithoutDecay) {
    for (const uint32_t K : {0u, 1u, 2u, 3u}) {
        ffdn_n16_params lines;
        ffdn_n16_default_params(lines.delays, lines.buffer_sizes);
        const auto* sizes = reinterpret_cast<const uint32_t*>(lines.buffer_sizes);
        compare::Engine e;
        ASSERT_EQ(ffdn_block_n16_init(&e, lines.delays, sizes, 512, kRate, 0), 0);
        ASSERT_EQ(ffdn_block_n16_set_vfm(&e, K, K, kRate, 1.0f, 0), 0);
        std::vector<float> x = compare::noise(512, 1), y(512);
        for (int block = 0; block < 50; ++block)
            ASSERT_EQ(ffdn_block_n16_process(&e, x.data(), y.data(), 512), 0);
        const double start = ffdn_block_n16_state_energy(&e);
        x.assign(512, 0.0f);
        constexpr int kBlocks = 10 * kRate / 512;
        for (int block = 0; block < kBlocks; ++block)
            ASSERT_EQ(ffdn_block_n16_process(&e, x.data(), y.data(), 512), 0);
        const double deviation = kUnit * std::sqrt(512.0 * kBlocks * std::max(K, 1u)) / 997;
        EXPECT_NEAR(ffdn_block_n16_state_energy(&e) / start, 1.0, 6 * deviation) << "K " << K;
    }
}

namespace {

// The decay time after Schroeder, from -5 to -35 dB of the energy that is still to come, in the
// band of +/- 600 Hz around 0 Hz or half the sample rate. The filter is a Hann window, its signs
// alternating for the upper band.
double band_t60(const std::vector<float>& x, bool upper) {
    constexpr size_t kTaps = 160, kStep = 16;
    std::vector<double> h(kTaps), remaining;
    for (size_t n = 0; n < kTaps; ++n)
        h[n] = (1 - std::cos(2 * std::numbers::pi * double(n) / kTaps)) * (upper && n % 2 ? -1 : 1);
    for (size_t t = 0; t + kTaps <= x.size(); t += kStep)
        remaining.push_back(std::pow(std::transform_reduce(h.begin(), h.end(), &x[t], 0.0), 2));
    std::partial_sum(remaining.rbegin(), remaining.rend(), remaining.rbegin());
    const auto time_of = [&](double db) {
        const double level = remaining[0] * std::pow(10.0, db / 10);
        const auto at = std::ranges::find_if(remaining, [=](double e) { return e < level; });
        return double(at - remaining.begin()) * kStep / kRate;
    };
    return 2 * (time_of(-35) - time_of(-5));
}

} // namespace

TEST(Sound, DecaysInTheSetTimesAtLowAndHighFrequencies) {
    constexpr double kTolerance = 0.08; // what one response of noise scatters by, and a little
    for (const auto& [low, high] : {std::pair{2.0f, 0.5f}, {0.6f, 1.2f}, {1.0f, 1.0f}}) {
        for (const int32_t K : {0, 3}) {
            const auto rev = compare::create(kRate, 256);
            qv_reverb_params params = rev->params;
            params.size = 0.02f;
            params.t60 = low;
            params.t60_high = low == high ? 0.0f : high; // none: one time for all frequencies
            params.damp = 0.0f;
            params.modulate = 0;
            params.cascade_stages = K;
            ASSERT_EQ(qv_reverb_set(rev.get(), &params), 0);
            std::vector<float> left = compare::noise(256, 3), right(256),
                               response(3 * kRate / 256 * 256);
            for (size_t t = 0; t < response.size(); t += 256) {
                ASSERT_EQ(qv_reverb_process(rev.get(), left.data(), nullptr, &response[t],
                                            right.data(), 256),
                          0);
                left.assign(256, 0.0f);
            }
            response.erase(response.begin(), response.begin() + 256); // with the dry signal
            EXPECT_NEAR(band_t60(response, false), low, kTolerance * low) << "K " << K;
            EXPECT_NEAR(band_t60(response, true), high, kTolerance * high) << "K " << K;
        }
    }
}

// ---- Bounds -------------------------------------------------------------------------------------
//
// Per frame, with v the line inputs, s[i](t) = v[i](t - D[i]) the line outputs, A the cascade, F
// the decay filters, b and c the gains:  v = F A s + b x,  y = c . s.
// For rho in (0, 1), weight a signal's samples by rho^(t - tau), tau <= t, and take the 2-norm over
// lines and time. In this norm a delay of d samples gains rho^-d, the Walsh-Hadamard transform 1,
// and the filter b0 / (1 - a1 z^-1) gains |b0| / (1 - |a1| / rho) where |a1| < rho. The loop gains
// at most g = max F * rho^-(longest line + longest delay of every stage); where g < 1, |v(t)| <= |b
// x| / (1 - g), and |b x| <= |b| X / sqrt(1 - rho^2) for samples up to X. Any rho will do; the
// least bound of a few dozen counts. Each rounding enters as a gain of 1 + u: four passes and a
// scaling a transform, two operations and the feedback of a filter. With modulation a line may
// repeat a sample now and then, which this does not cover: there the bound is an observation.

namespace {

double norm(const float* gains) {
    return std::sqrt(std::inner_product(gains, gains + 16, gains, 0.0));
}

// Largest output per largest input.
double network_bound(const ffdn_block_n16& e) {
    double stages = 0.0, line = 0.0;
    for (int32_t s = 0; s < e.stage_count; ++s)
        stages += *std::max_element(e.stages[s].delays, e.stages[s].delays + 16);
    for (size_t i = 0; i < 16; ++i)
        line = std::max<double>(line, e.mod_enabled ? e.mod_base_delay[i] + 2 : e.line_delay[i]);
    double best = INFINITY;
    for (double k = 1.0; k < 9.0; k += 0.05) {
        const double rho = 1.0 - std::pow(10.0, -k);
        double filters = 0.0;
        for (size_t i = 0; i < 16; ++i) {
            const double pole = std::fabs(double{e.shelf_a1[i]}) * (1 + kUnit) / rho;
            const double gain = e.two_band == 0 ? double{e.decay_gain[i]}
                                : pole >= 1.0   ? INFINITY
                                                : std::fabs(double{e.shelf_b0[i]}) / (1.0 - pole);
            filters = std::max(filters, gain * (1 + 3 * kUnit));
        }
        const double transforms = std::pow(1 + 5 * kUnit, std::max(e.stage_count, 1));
        const double g = filters * transforms * std::pow(rho, -(line + stages));
        if (!(g < 1.0)) continue;
        const double out = std::max(norm(e.out_left), norm(e.out_right)) * std::pow(rho, -line);
        const double in = norm(e.in_left) + norm(e.in_right);
        best = std::min(best, out * in / (1.0 - g) / std::sqrt(1.0 - rho * rho));
    }
    return best;
}

// Settings from the plug-in's ranges, each value at an end of its range every other time.
qv_reverb_params any_settings(Random& random) {
    const auto in = [&](float low, float high) {
        return random.chance(0.25f) ? low : random.chance(0.33f) ? high : random.real(low, high);
    };
    return {.size = in(0.006f, 0.5f),
            .t60 = in(0.1f, 10.0f),
            .cascade_stages = static_cast<int32_t>(random.integer(0, 3)),
            .t60_high = random.chance(0.2f) ? in(0.01f, 20.0f) : 0.0f,
            .damp = random.chance(0.2f) ? 0.0f : in(0.0f, 1.0f),
            .mix = in(0.0f, 1.0f),
            .width = in(0.0f, 1.0f),
            .modulate = random.integer(0, 1),
            .er_enable = random.integer(0, 1),
            .er_size = in(0.0051f, 0.5f),
            .er_level = in(0.0f, 1.0f),
            .eq_low_db = in(-24.0f, 24.0f),
            .eq_high_db = in(-24.0f, 24.0f)};
}

// Renders a block; returns the loudest sample of both sides, infinity for one that is not finite.
float run(qv_reverb* rev, const std::vector<float>& in) {
    const auto n = static_cast<size_t>(rev->max_frames);
    std::vector<float> out(2 * n);
    const float *left = in.data(), *right = left + n;
    EXPECT_EQ(qv_reverb_process(rev, left, right, out.data(), out.data() + n, rev->max_frames), 0);
    float most = 0.0f;
    for (const float y : out) most = std::isfinite(y) ? std::max(most, std::fabs(y)) : INFINITY;
    return most;
}

} // namespace

TEST(Sound, StaysBelowTheDerivedBoundWhateverComesIn) {
    Random random(1);
    int bounded = 0, near = 0;
    for (int k = 0; k < 120 && !HasFailure(); ++k) {
        const auto rev =
            compare::create(random.pick({44100, 48000, 96000}), random.pick({64, 256}));
        qv_reverb_params params = any_settings(random);
        params.er_enable = 0;
        params.eq_low_db = params.eq_high_db = 0;
        if (qv_reverb_set(rev.get(), &params) != 0) continue;
        const double wet = double{params.mix} * network_bound(rev->engine);
        const double bound = (1.0 - params.mix + wet) * (1 + 16 * kUnit);
        if (!std::isfinite(bound)) continue; // poles at 1: see the test of the offset
        ++bounded;
        for (const float most : {1.0f, 1e24f}) {
            const uint32_t kind =
                random.integer(0, 3); // any bits, constant, alternating, random signs
            std::vector<float> in(2 * static_cast<size_t>(rev->max_frames));
            float loudest = 0.0f;
            // Every eighth network goes on for ten seconds or so: a loop that gained a little would
            // get there.
            const int blocks = k % 8 == 0 ? 500000 / rev->max_frames : 100;
            for (int block = 0; block < blocks; ++block) {
                for (size_t t = 0; t < in.size() && block < 100; ++t) {
                    const float any = std::bit_cast<float>(random.integer(0, 0xFFFFFFFFu));
                    const bool negative = kind == 2 ? t % 2 == 0 : kind != 1 && random.chance(0.5f);
                    in[t] = negative ? -most : most;
                    if (kind == 0 && !(std::fabs(any) > most && std::isfinite(any))) in[t] = any;
                }
                loudest = std::max(loudest, run(rev.get(), in));
            }
            ASSERT_LE(double{loudest}, bound * double{most})
                << "settings " << k << ", up to " << most;
            near += double{loudest} > 1e-3 * bound * double{most};
        }
    }
    EXPECT_GT(bounded, 50);
    EXPECT_GT(near, 10); // it is a bound that means something
}

// With flush-to-zero every tail ends, after 12.7 decay times; only the EQ's recursions may go on,
// at the smallest number times their own gain, -640 dB and less.
TEST(Sound, SilenceReturnsToExactSilenceAfterTheTail) {
    constexpr float kEqRest = 1e-33f;
    Random random(2);
    for (int k = 0; k < 30 && !HasFailure(); ++k) {
        const auto rev = compare::create(kRate, 256);
        qv_reverb_params params = any_settings(random);
        params.size = random.real(0.006f, 0.02f);
        params.t60 = random.real(0.1f, 0.3f);
        params.t60_high = 0.0f;
        params.damp = std::min(params.damp, 0.3f); // the filters forget sooner than the lines
        params.mix = 1.0f;
        if (k % 2) params.eq_low_db = params.eq_high_db = 0.0f;
        ASSERT_EQ(qv_reverb_set(rev.get(), &params), 0);
        for (uint64_t block = 0; block < 60; ++block) run(rev.get(), compare::noise(512, block));
        const std::vector<float> silence(512);
        for (double t = 0.0; t < kRate * (15.0 * params.t60 + 1.0); t += 256)
            run(rev.get(), silence);
        EXPECT_LE(run(rev.get(), silence), k % 2 ? 0.0f : kEqRest) << "settings " << k;
        EXPECT_EQ(ffdn_block_n16_state_energy(&rev->engine), 0.0) << "settings " << k;
    }
}

// Where the low band outlasts the high band by more than 2^26 in one turn, a1 = (r - 1) / (r + 1)
// rounds to 1: the filter sums up what comes in, times b0, and keeps the sum until the next change
// of settings. A sum stops growing once b0 * x is less than half its last place, at g_low * x at
// most, and g_low is small there.
TEST(Sound, OffsetStaysInLinesWhoseFilterHasItsPoleAtOneUntilTheNextChange) {
    const auto rev = compare::create(kRate, 256);
    qv_reverb_params params = rev->params;
    params.t60 = 0.2f;
    params.damp = params.mix = 1.0f;
    ASSERT_EQ(qv_reverb_set(rev.get(), &params), 0);
    EXPECT_EQ(std::count(rev->engine.shelf_a1, rev->engine.shelf_a1 + 16, 1.0f), 5);
    const auto run_on = [&](double seconds, float level) {
        float last = 0.0f;
        for (double t = 0; t < kRate * seconds; t += 256)
            last = run(rev.get(), std::vector<float>(512, level));
        return last;
    };
    run_on(10.0, 1.0f);
    const float after_tail = run_on(2.0, 0.0f);
    EXPECT_GT(after_tail, 0.0f); // as documented; a constant input is needed to hear of it
    EXPECT_LT(double{after_tail}, 4 * std::pow(10.0, -3 * 1920 / (0.2 * kRate)));
    EXPECT_LE(run_on(10.0, 0.0f), after_tail); // it does not grow by itself
    ASSERT_EQ(qv_reverb_set(rev.get(), &params), 0);
    EXPECT_EQ(run_on(0.1, 0.0f), 0.0f);
}
