// Whatever the settings and the samples, the output is finite and below a bound that follows from the
// network's coefficients; and silence comes back after the tail.
//
// The bound. Per frame, with v the line inputs, s[i](t) = v[i](t - D[i]) the line outputs, A the cascade,
// F the decay filters, b and c the gains:  v = F A s + b x,  y = c . s.
// For rho in (0, 1), weight a signal's samples by rho^(t - tau), tau <= t, and take the 2-norm over lines
// and time. In this norm
//   a delay of d samples           gains  rho^-d
//   the Walsh-Hadamard transform   gains  1
//   b0 / (1 - a1 z^-1)             gains  |b0| / (1 - |a1| / rho), where |a1| < rho
// so that the loop gains at most g = max F * rho^-(longest line + longest delay of every stage). Where
// g < 1,  |v(t)| <= |b x| / (1 - g), and |b x| <= |b| X / sqrt(1 - rho^2) for samples up to X. Any rho will
// do; the least bound of a few dozen counts. Each rounding of a float is a relative error of at most u =
// 2^-24, which enters as a gain of 1 + u: four passes and a scaling a transform, two operations and the
// feedback of a filter.
// With modulation a line may repeat a sample now and then, which this does not cover: there the bound is
// an observation.
#include "tests/compare.h"
#include "tests/reverb_object.h"

namespace {

using compare::Random;

constexpr double kUnit = 0x1p-24;
constexpr double kEqSlack = 1.05; // rounding in the biquads, at up to 96 kHz

double norm(const float* gains) {
    double sum = 0.0;
    for (int i = 0; i < BRISEL_LINES; ++i) sum += double{gains[i]} * gains[i];
    return std::sqrt(sum);
}

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kSmallest = std::numeric_limits<float>::min(); // results below are flushed to zero

struct LoopBound {
    double gain = kInfinity; // largest output per largest input
    double tail = kInfinity; // samples until an output of `gain` has fallen below kSmallest
};

LoopBound loop_bound(const ffdn_block_n16& e, double rho) {
    double filters = 0.0;
    for (int i = 0; i < BRISEL_LINES; ++i) {
        const double pole = std::fabs(double{e.shelf_a1[i]}) * (1 + kUnit) / rho;
        if (e.two_band && pole >= 1.0) return {};
        const double gain =
            e.two_band ? std::fabs(double{e.shelf_b0[i]}) / (1.0 - pole) : double{e.decay_gain[i]};
        filters = std::max(filters, gain * (1 + 3 * kUnit));
    }
    double stages = 0.0;
    for (int32_t s = 0; s < e.stage_count; ++s)
        stages += *std::max_element(e.stages[s].delays, e.stages[s].delays + BRISEL_LINES);
    double line = 0.0;
    for (int i = 0; i < BRISEL_LINES; ++i)
        line = std::max<double>(line, e.mod_enabled ? e.mod_base_delay[i] + 2 : e.line_delay[i]);
    const double transforms = std::pow(1 + 5 * kUnit, std::max(e.stage_count, 1));
    const double g = filters * transforms * std::pow(rho, -(line + stages));
    if (g >= 1.0) return {};
    const double in = norm(e.in_left) + norm(e.in_right);
    const double out = std::max(norm(e.out_left), norm(e.out_right)) * std::pow(rho, -line);
    const double gain = out * in / (1.0 - g) / std::sqrt(1.0 - rho * rho);
    return {gain, std::log(gain / kSmallest) / -std::log(rho)};
}

// The least of each.
LoopBound network_bound(const ffdn_block_n16& e) {
    LoopBound best;
    for (double k = 1.0; k < 9.0; k += 0.05) {
        const LoopBound b = loop_bound(e, 1.0 - std::pow(10.0, -k));
        best = {std::min(best.gain, b.gain), std::min(best.tail, b.tail)};
    }
    return best;
}

// Sum of the magnitudes of a biquad's impulse response, in series behind `behind`.
std::vector<double> response(const float* c, bool poles_only, std::vector<double> x) {
    double s1 = 0.0, s2 = 0.0;
    for (double& v : x) {
        const double in = v;
        v = (poles_only ? 1.0 : c[0]) * in + s1;
        s1 = (poles_only ? 0.0 : c[1]) * in - c[3] * v + s2;
        s2 = (poles_only ? 0.0 : c[2]) * in - c[4] * v;
    }
    return x;
}

double sum_of_magnitudes(const std::vector<double>& x) {
    double sum = 0.0;
    for (const double v : x) sum += std::fabs(v);
    return sum;
}

std::vector<double> impulse() {
    std::vector<double> x(20000);
    x[0] = 1.0;
    return x;
}

double eq_gain(const ffdn_eq& eq) {
    return kEqSlack *
           sum_of_magnitudes(response(eq.high, false, response(eq.low, false, impulse())));
}

// Bound of the whole output for samples up to 1.
double output_bound(const qv_reverb& rev) {
    double wet = network_bound(rev.engine).gain;
    if (rev.er_active) {
        double left = 0.0, right = 0.0;
        for (int32_t k = 0; k < rev.er.n_taps; ++k) {
            left += std::fabs(rev.er.gains_l[k]);
            right += std::fabs(rev.er.gains_r[k]);
        }
        wet += rev.params.er_level * std::max(left, right);
    }
    return (1.0 - rev.params.mix + rev.params.mix * wet * eq_gain(rev.eq)) * (1 + 16 * kUnit);
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

// Samples up to `most`, by kind: random bits, constant, alternating, a sign that changes with the lines.
void fill(std::span<float> block, int kind, float most, Random& random) {
    for (size_t t = 0; t < block.size(); ++t) {
        const float sign = random.chance(0.5f) ? 1.0f : -1.0f;
        switch (kind) {
        case 0: {
            const float any = std::bit_cast<float>(random.integer(0, 0xFFFFFFFFu));
            // NaN and infinities stay: they count as 0.
            block[t] = std::fabs(any) > most && std::isfinite(any) ? sign * most : any;
            break;
        }
        case 1:
            block[t] = most;
            break;
        case 2:
            block[t] = t % 2 ? most : -most;
            break;
        default:
            block[t] = sign * most;
        }
    }
}

float largest(std::span<const float> samples) {
    float most = 0.0f;
    for (const float y : samples) {
        if (!std::isfinite(y)) return std::numeric_limits<float>::infinity();
        most = std::max(most, std::fabs(y));
    }
    return most;
}

} // namespace

TEST(HostileNumbers, OutputStaysBelowTheDerivedBound) {
    Random random(1);
    std::vector<float> in(1024), out_l(512), out_r(512);
    int bounded = 0, near = 0;
    for (int32_t k = 0; k < 120 && !HasFailure(); ++k) {
        const auto rev =
            reverb_object::create(random.pick({44100, 48000, 96000}), random.pick({64, 256}));
        const qv_reverb_params params = any_settings(random);
        if (qv_reverb_set(rev.get(), &params) != 0) continue;
        const double bound = output_bound(*rev);
        if (!std::isfinite(bound)) continue; // poles at 1: see the test of the offset
        ++bounded;
        for (const float most : {1.0f, 1e24f}) {
            SCOPED_TRACE(testing::Message() << "settings " << k << ", samples up to " << most
                                            << ", bound " << bound << ", seed " << compare::seed());
            const int kind = static_cast<int>(random.integer(0, 3));
            float loudest = 0.0f;
            const auto n = static_cast<size_t>(rev->max_frames);
            // Every eighth network goes on for ten seconds or so, over and over the same block: a loop
            // that gained a little would get there.
            const int blocks = k % 8 == 0 ? 500000 / rev->max_frames : 100;
            for (int block = 0; block < blocks; ++block) {
                if (block < 100) fill({in.data(), 2 * n}, kind, most, random);
                ASSERT_EQ(qv_reverb_process(rev.get(), in.data(), in.data() + n, out_l.data(),
                                            out_r.data(), rev->max_frames),
                          0);
                loudest =
                    std::max({loudest, largest({out_l.data(), n}), largest({out_r.data(), n})});
            }
            ASSERT_LE(double{loudest}, bound * most);
            near += loudest > 1e-3 * bound * most;
        }
    }
    EXPECT_GT(bounded, 50);
    EXPECT_GT(near, 10); // it is a bound that means something
}

// With flush-to-zero every tail ends, at the latest after ln(gain / smallest) / -ln(rho) samples. The EQ's
// recursions may go on at the smallest normal number times their own gain, -640 dB and less.
TEST(HostileNumbers, SilenceReturnsToExactSilenceAfterTheTail) {
    constexpr double kLongestRun = 400000; // samples, for the sake of time
    Random random(2);
    std::vector<float> in(512), out_l(256), out_r(256);
    int flat = 0, shelved = 0;
    for (int k = 0; k < 100 && !HasFailure(); ++k) {
        const auto rev = reverb_object::create(random.pick({44100, 48000}), 256);
        qv_reverb_params params = any_settings(random);
        params.size = random.real(0.006f, 0.02f);
        params.t60 = random.real(0.1f, 0.3f);
        params.t60_high = 0.0f;
        if (params.damp > 0.4f) params.damp = 0.4f; // the filters forget sooner than the lines
        params.mix = 1.0f;
        if (k % 2) params.eq_low_db = params.eq_high_db = 0.0f;
        if (qv_reverb_set(rev.get(), &params) != 0) continue;
        const double tail = network_bound(rev->engine).tail + rev->sample_rate;
        if (tail > kLongestRun) continue;
        ++(rev->eq.active ? shelved : flat);
        SCOPED_TRACE(testing::Message() << "settings " << k << ", seed " << compare::seed());

        const auto run = [&] {
            ASSERT_EQ(qv_reverb_process(rev.get(), in.data(), in.data() + 256, out_l.data(),
                                        out_r.data(), 256),
                      0);
        };
        for (int block = 0; block < 60; ++block) {
            fill(in, 3, 1.0f, random);
            run();
        }
        std::fill(in.begin(), in.end(), 0.0f);
        for (double t = 0.0; t < tail; t += 256) run();
        double noise = 0.0;
        if (rev->eq.active) {
            // Each of three operations a biquad drops less than kSmallest.
            noise = 3 * kSmallest *
                    (sum_of_magnitudes(
                         response(rev->eq.high, false, response(rev->eq.low, true, impulse()))) +
                     sum_of_magnitudes(response(rev->eq.high, true, impulse())));
        }
        for (int block = 0; block < 40; ++block) {
            run();
            ASSERT_LE(double{std::max(largest(out_l), largest(out_r))}, noise);
        }
        EXPECT_EQ(ffdn_block_n16_state_energy(&rev->engine), 0.0);
    }
    EXPECT_GT(flat, 10);
    EXPECT_GT(shelved, 10);
}

// Where the low band outlasts the high band by more than 2^26 in one turn, a1 = (r - 1) / (r + 1) rounds
// to 1: the filter sums up what comes in, times b0, and keeps the sum until the next change of settings.
// A sum stops growing once b0 * x is less than half its last place, at g_low * x at most, and g_low is
// small there.
TEST(HostileNumbers, OffsetStaysInLinesWhoseFilterHasItsPoleAtOne) {
    const auto rev = reverb_object::create(48000, 256);
    qv_reverb_params params = rev->params;
    params.t60 = 0.2f;
    params.damp = 1.0f;
    params.mix = 1.0f;
    ASSERT_EQ(qv_reverb_set(rev.get(), &params), 0);
    double low = 0.0;
    int stuck = 0;
    for (int i = 0; i < BRISEL_LINES; ++i) {
        double loop = rev->engine.line_delay[i];
        for (int32_t s = 0; s < 2; ++s) loop += rev->engine.stages[s].delays[i];
        const double turns = loop / 48000 / 0.2;
        EXPECT_EQ(rev->engine.shelf_a1[i] == 1.0f, 3 * turns * 9 > std::log10(0x1p26)) << i;
        stuck += rev->engine.shelf_a1[i] == 1.0f;
        low = std::max(low, std::pow(10.0, -3 * turns));
    }
    EXPECT_EQ(stuck, 5);

    std::vector<float> in(256, 1.0f), out_l(256), out_r(256);
    const auto run = [&](double seconds) {
        for (double t = 0; t < 48000 * seconds; t += 256) {
            ASSERT_EQ(
                qv_reverb_process(rev.get(), in.data(), in.data(), out_l.data(), out_r.data(), 256),
                0);
        }
    };
    run(10.0);
    in.assign(256, 0.0f);
    run(2.0);
    const float after_tail = largest(out_l);
    EXPECT_GT(after_tail, 0.0f); // as documented; a constant input is needed to hear of it
    EXPECT_LT(after_tail, 4 * low);
    run(10.0);
    EXPECT_LE(largest(out_l), after_tail); // it does not grow by itself
    ASSERT_EQ(qv_reverb_set(rev.get(), &params), 0);
    run(0.1);
    EXPECT_EQ(largest(out_l), 0.0f);
}

// Deep modulation takes a delay beyond its ring. A block that fits into the delay but not into the ring
// is refused: it would overrun the storage of all lines.
TEST(HostileNumbers, BlockLongerThanARingIsRefusedHoweverLongTheDelay) {
    int32_t delays[BRISEL_LINES];
    uint32_t sizes[BRISEL_LINES];
    std::fill_n(delays, BRISEL_LINES, 1000);
    std::fill_n(sizes, BRISEL_LINES, 4096u);
    delays[15] = 60;
    sizes[15] = 64;
    ffdn_block_n16 e;
    ASSERT_EQ(ffdn_block_n16_init(&e, delays, sizes, 128, 48000, 1.0f), 0);
    ASSERT_EQ(ffdn_block_n16_set_modulation(&e, 28, 48000, 1, 100.0f, 3000.0f), 0);
    const std::vector<float> x(128, 1.0f);
    std::vector<float> y(128);
    int beyond = 0, fitting = 0;
    for (int block = 0; block < 2000; ++block) {
        EXPECT_EQ(ffdn_block_n16_process(&e, x.data(), y.data(), 72), -1);
        beyond += e.line_delay[15] >= 72;
        fitting += ffdn_block_n16_process(&e, x.data(), y.data(), 32) == 0;
    }
    EXPECT_GT(beyond, 100);
    EXPECT_EQ(fitting, 2000);
    ffdn_block_n16_free(&e);
}
