// Brisel Live as a whole beside the exact reverb, and what its parameters do to the sound.
#include "live/engine/reverb.h"

#include <cmath>
#include <numbers>

#include "bench/click_meter.h"
#include "brisel/ffdn_eq.h"
#include "live/engine/tone.h"
#include "tests/compare.h"

namespace {

using namespace brisel::live;
using compare::Random;
using Channels = std::array<std::vector<float>, 2>;
using Setting = std::pair<Id, double>;

constexpr double kRate = 48000.0;

// A reverb, wet only, at full width, and what it is told while it runs.
class Host {
public:
    explicit Host(const std::vector<Setting>& settings, double rate = kRate) {
        reverb.values().set_plain(kMix, 1.0);
        reverb.values().set_plain(kWidth, 1.0);
        for (const auto& [id, value] : settings) reverb.values().set_plain(id, value);
        EXPECT_TRUE(reverb.prepare(rate, 512));
    }
    Channels run(const Channels& input, std::vector<Event> events = {},
                 const Tempo* tempo = nullptr) {
        Channels output = input;
        const float* const in[2] = {input[0].data(), input[1].data()};
        float* const out[2] = {output[0].data(), output[1].data()};
        status = reverb.process(in, out, static_cast<uint32_t>(input[0].size()), events, tempo);
        return output;
    }

    Reverb reverb;
    Status status = Status::kAsleep;
};

Channels noise(size_t frames, float level, uint64_t stream = 1) {
    Channels channels = {compare::noise(frames, stream), compare::noise(frames, stream + 1)};
    for (auto& channel : channels)
        for (float& x : channel) x *= level;
    return channels;
}
Channels silence(size_t frames) {
    return {std::vector<float>(frames), std::vector<float>(frames)};
}
double power_db(std::span<const float> signal) {
    return 20.0 * std::log10(bench::rms_of(signal) + 1e-30);
}
double peak(const Channels& channels) {
    double most = 0.0;
    for (const auto& channel : channels)
        for (const float x : channel) most = std::fmax(most, std::fabs(static_cast<double>(x)));
    return most;
}

// Settings at which nothing is left that the exact reverb does not have.
std::vector<Setting> exact_settings(const qv_reverb_params& p) {
    return {{kSize, p.size},         {kDecay, p.t60},        {kScattering, p.cascade_stages},
            {kDamp, p.damp},         {kModulation, 0},       {kEarlyReflections, p.er_enable},
            {kErSize, p.er_size},    {kErLevel, p.er_level}, {kEqLow, p.eq_low_db},
            {kEqHigh, p.eq_high_db}, {kAutoLevel, 0}};
}

// The exact reverb's shelves round to -94 dB of their output at the worst settings.
constexpr double kExactShelvesNoise = -90.0;

TEST(LiveReverb, AtRestEqualsTheExactOne) {
    Random random(1);
    for (int k = 0; k < 24; ++k) {
        const auto exact = compare::create(48000, 240);
        qv_reverb_params p = exact->params;
        p.mix = p.width = 1.0f;
        p.modulate = 0;
        p.size = random.pick({0.005f, 0.0123f, 0.04f, 0.1f, 0.5f});
        p.t60 = random.real(0.1f, 10.0f);
        p.cascade_stages = k % 4;
        p.damp = random.pick({0.0f, 0.3f, 1.0f});
        if (k >= 12) {
            p.er_enable = 1;
            p.er_size = random.real(0.006f, 0.5f);
            p.er_level = random.real(0.0f, 1.0f);
        }
        const bool shelves = k >= 20;
        if (shelves) {
            p.eq_low_db = random.real(-24.0f, 24.0f);
            p.eq_high_db = random.real(-24.0f, 24.0f);
        }
        ASSERT_EQ(qv_reverb_set(exact.get(), &p), 0);
        Host live(exact_settings(p));
        const Channels input = noise(48000, 0.3f, static_cast<uint64_t>(k));
        Channels expected = input;
        for (size_t t = 0; t < 48000; t += 240)
            qv_reverb_process(exact.get(), input[0].data() + t, input[1].data() + t,
                              expected[0].data() + t, expected[1].data() + t, 240);
        Channels got = live.run(input);
        SCOPED_TRACE(testing::Message() << "K " << p.cascade_stages << " size " << p.size);
        for (size_t c : {0u, 1u}) {
            for (auto* signal : {&got[c], &expected[c]})
                for (float& x : *signal) x += 0.0f; // the sign of a zero may differ
            if (!shelves) {
                EXPECT_TRUE(compare::same(got[c], expected[c]));
                continue;
            }
            std::vector<float> rest(got[c].size());
            for (size_t t = 0; t < rest.size(); ++t) rest[t] = got[c][t] - expected[c][t];
            EXPECT_LT(power_db(rest) - power_db(expected[c]), kExactShelvesNoise);
        }
    }
}

// The exact reverb's shelves in double precision: without their rounding, with their coefficients.
std::vector<double> unrounded_shelves(const ffdn_eq& eq, std::span<const float> input) {
    std::vector<double> output(input.begin(), input.end());
    for (const float* c : {eq.low, eq.high}) {
        double s1 = 0.0, s2 = 0.0;
        for (double& x : output) {
            const double y = c[0] * x + s1;
            s1 = c[1] * x - c[3] * y + s2;
            s2 = c[2] * x - c[4] * y;
            x = y;
        }
    }
    return output;
}

TEST(LiveTone, ShelvesAreTheExactOnesAndCutsHaveTwelveDecibelsAnOctave) {
    for (double low : {-24.0, -3.0, 0.0, 24.0}) {
        for (double high : {-24.0, 0.0, 5.0, 24.0}) {
            ffdn_eq eq;
            ASSERT_EQ(ffdn_eq_init(&eq, 48000, 250.0f, 4500.0f), 0);
            ffdn_eq_set_gains(&eq, static_cast<float>(low), static_cast<float>(high));
            Tone tone;
            tone.prepare(kRate);
            tone.set({20.0, low, high, 20000.0});
            tone.reset();
            Channels live = noise(8192, 0.1f);
            const std::vector<double> exact[2] = {unrounded_shelves(eq, live[0]),
                                                  unrounded_shelves(eq, live[1])};
            float* const wet[2] = {live[0].data(), live[1].data()};
            tone.run(wet, 8192);
            for (size_t c : {0u, 1u}) {
                const double most = std::ranges::max(exact[c]);
                for (size_t t = 0; t < 8192; ++t)
                    ASSERT_NEAR(live[c][t], exact[c][t], 1e-6 * most) << low << " " << high;
            }
        }
    }
    // Gain of a sine through the cuts, dB.
    const auto gain = [](double hz, double low_cut, double high_cut) {
        Tone tone;
        tone.prepare(kRate);
        tone.set({low_cut, 0.0, 0.0, high_cut});
        tone.reset();
        Channels sine = silence(48000);
        for (size_t t = 0; t < 48000; ++t)
            sine[0][t] = sine[1][t] = static_cast<float>(
                std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(t) / kRate));
        float* const wet[2] = {sine[0].data(), sine[1].data()};
        tone.run(wet, 48000);
        return power_db(std::span(sine[1]).last(24000)) + 3.0103;
    };
    EXPECT_NEAR(gain(500.0, 500.0, 20000.0), -3.01, 0.02);
    EXPECT_NEAR(gain(62.5, 500.0, 20000.0), -36.1, 0.3);
    EXPECT_NEAR(gain(1000.0, 20.0, 1000.0), -3.01, 0.02);
    EXPECT_NEAR(gain(4000.0, 20.0, 1000.0), -24.6, 0.6); // the bilinear transform bends it down
    EXPECT_NEAR(gain(1000.0, 20.0, 20000.0), 0.0, 1e-6);
}

// One step between two values and back, and how far the click has to stay below the programme, dB.
struct ClickRow {
    Setting from, to;
    double limit;
    std::vector<Setting> with = {};
};

TEST(LiveReverb, StepsOfParametersDoNotClick) {
    const ClickRow rows[] = {
        {{kMix, 0.0}, {kMix, 1.0}, -75.0},
        {{kWidth, 0.0}, {kWidth, 1.0}, -75.0},
        {{kWetGain, -24.0}, {kWetGain, 12.0}, -75.0},
        {{kAutoLevel, 0.0}, {kAutoLevel, 1.0}, -75.0, {{kDecay, 8.0}}},
        {{kBypass, 0.0}, {kBypass, 1.0}, -75.0},
        {{kDuck, 0.0}, {kDuck, 24.0}, -75.0},
        {{kScattering, 0.0}, {kScattering, 3.0}, -75.0},
        {{kEqLow, -24.0}, {kEqLow, 24.0}, -75.0},
        {{kEqHigh, -24.0}, {kEqHigh, 24.0}, -75.0},
        {{kLowCut, 20.0}, {kLowCut, 2000.0}, -75.0},
        {{kHighCut, 500.0}, {kHighCut, 20000.0}, -75.0},
        {{kPredelay, 0.0}, {kPredelay, 0.5}, -60.0},
        {{kEarlyReflections, 0.0}, {kEarlyReflections, 1.0}, -60.0, {{kErLevel, 1.0}}},
        {{kErSize, 0.006}, {kErSize, 0.5}, -60.0, {{kEarlyReflections, 1.0}, {kErLevel, 1.0}}},
        {{kClear, 0.0}, {kClear, 1.0}, -60.0},
    };
    constexpr size_t kApart = 96000;
    const Channels input = {bench::click_programme(kRate, 3 * kApart, 1),
                            bench::click_programme(kRate, 3 * kApart, 2)};
    for (const ClickRow& row : rows) {
        std::vector<Setting> settings = row.with;
        settings.push_back(row.from);
        Host host(settings);
        const auto event = [](size_t frame, Setting setting) {
            return Event{static_cast<uint32_t>(frame), setting.first, false, setting.second};
        };
        const Channels out = host.run(input, {event(kApart, row.to), event(2 * kApart, row.from)});
        for (const auto& channel : out) {
            const auto first = std::span(channel).first(2 * kApart);
            EXPECT_LT(bench::click_db(first, kApart, kRate), row.limit) << row.to.first;
            EXPECT_LT(bench::click_db(channel, 2 * kApart, kRate), row.limit) << row.to.first;
        }
    }
    // Predelay on its way through both of its histories and back.
    std::vector<Event> events;
    for (size_t t = 0; t < kApart; t += 1024) {
        const double way = 1.0 - std::fabs(2.0 * static_cast<double>(t) / kApart - 1.0);
        events.push_back({static_cast<uint32_t>(kApart + t), kPredelay, false, 0.5 * way});
    }
    for (const auto& channel : Host({}).run(input, events))
        EXPECT_LT(bench::click_db(channel, kApart, kRate, 1.0), -60.0);
}

TEST(LiveReverb, AutoLevelKeepsSteadyNoise) {
    const auto level = [](double decay, double size, double damp, double stages) {
        Host host({{kDecay, decay}, {kSize, size}, {kDamp, damp}, {kScattering, stages}});
        host.run(noise(static_cast<size_t>((0.8 * decay + 1.0) * kRate), 0.1f));
        const Channels out = host.run(noise(96000, 0.1f, 3));
        return 0.5 * (power_db(out[0]) + power_db(out[1]));
    };
    const double expected = level(2.0, 0.04, 0.3, 2.0);
    for (double decay : {0.3, 10.0})
        for (double size : {0.01, 0.06, 0.3})
            for (double damp : {0.0, 0.7})
                for (double stages : {0.0, 1.0, 3.0})
                    EXPECT_NEAR(level(decay, size, damp, stages), expected, 1.5)
                        << decay << " s, " << size << " s, " << damp << ", K " << stages;
}

TEST(LiveReverb, DucksByTheLawOfItsPage) {
    // A steady input whose peaks are at these levels lowers what rings by so much.
    const auto ducked = [](double dbfs) {
        const auto tone = [&](size_t frames, double level) {
            Channels sine = silence(frames);
            for (size_t t = 0; t < frames; ++t)
                sine[0][t] = static_cast<float>(level * std::sin(0.7 * static_cast<double>(t)));
            return sine;
        };
        const auto run = [&](double duck) {
            Host host({{kDuck, duck}, {kDecay, 1.0}, {kModulation, 0}});
            return power_db(
                std::span(host.run(tone(96000, std::pow(10.0, dbfs / 20)))[0]).last(48000));
        };
        return run(0.0) - run(18.0);
    };
    EXPECT_NEAR(ducked(0.0), 18.0, 0.05);
    EXPECT_NEAR(ducked(-12.0), 18.0, 0.3);
    EXPECT_NEAR(ducked(-30.0), 9.0, 0.3);
    EXPECT_NEAR(ducked(-50.0), 0.0, 0.01);
}

TEST(LiveReverb, PredelayShiftsEverythingWetAndFollowsTheTempo) {
    const std::vector<Setting> settings = {{kEarlyReflections, 1}, {kModulation, 0}};
    Channels click = silence(48000);
    click[0][100] = 1.0f;
    const Channels now = Host(settings).run(click);
    const auto expect_shifted = [&](const Channels& later, size_t shift) {
        for (size_t t = 0; t + shift < 48000; ++t) ASSERT_EQ(later[0][t + shift], now[0][t]) << t;
    };
    for (double predelay : {3.0 / kRate, 0.1}) {
        std::vector<Setting> late = settings;
        late.push_back({kPredelay, predelay});
        expect_shifted(Host(late).run(click), static_cast<size_t>(std::lround(predelay * kRate)));
    }
    std::vector<Setting> synced = settings;
    synced.push_back({kPredelaySync, 4}); // 1/16
    Host host(synced);
    const Tempo tempo = {120.0};
    host.run(silence(8), {}, &tempo);
    host.run(silence(4096), {}, nullptr); // the fade from no predelay
    expect_shifted(host.run(click), 6000);
}

TEST(LiveReverb, SleepsWakesClearsAndBypasses) {
    const std::vector<Setting> settings = {{kDecay, 0.3}, {kModulation, 0}, {kMix, 0.4}};
    Host host(settings);
    const Channels burst = noise(4801, 0.5f);
    host.run(burst);
    EXPECT_EQ(host.status, Status::kRunning);
    host.run(silence(8)); // in whose first tile the burst ends
    host.run(silence(992));
    EXPECT_EQ(host.status, Status::kTail);
    const uint64_t tail = host.reverb.tail_frames();
    host.run(silence(static_cast<size_t>(tail) - 1000));
    EXPECT_LT(peak(host.run(silence(2000))), 1e-4);
    host.run(silence(48000));
    EXPECT_EQ(peak(host.run(silence(4804))), 0.0);
    EXPECT_EQ(host.status, Status::kAsleep);
    // Woken it is a new one.
    const Channels woken = host.run(burst), fresh = Host(settings).run(burst);
    for (size_t c : {0u, 1u}) EXPECT_TRUE(compare::same(woken[c], fresh[c]));

    host.run(silence(3));
    host.run(silence(480), {{0, kClear, false, 1.0}});
    EXPECT_EQ(peak(host.run(silence(2000))), 0.0);

    host.run(burst, {{0, kBypass, false, 1.0}});
    const Channels through = host.run(burst);
    for (size_t c : {0u, 1u}) EXPECT_TRUE(compare::same(through[c], burst[c]));
    host.reverb.reset();
    EXPECT_EQ(peak(host.run(silence(2000))), 0.0);
}

TEST(LiveReverb, BadInputChangesNothingOrIsClamped) {
    Host host({}), same({});
    Channels input = noise(4096, 0.5f), cleaned = input;
    for (size_t t : {5u, 77u, 3001u}) {
        input[0][t] = t == 5 ? NAN : t == 77 ? INFINITY : -INFINITY;
        cleaned[0][t] = 0.0f;
    }
    const uint32_t far = std::numeric_limits<uint32_t>::max();
    const std::vector<Event> bad = {{7, kSize, false, NAN},    {9, kParameters, false, 1.0},
                                    {3, 65535, true, 2.0},     {8, kMix, true, INFINITY},
                                    {8, kDecay, true, NAN},    {1000, kWetGain, false, 1e300},
                                    {10, kWidth, false, -5.0}, {far, kDamp, false, 7.0}};
    const std::vector<Event> meant = {
        {1000, kWetGain, false, 12.0}, {1000, kWidth, false, 0.0}, {4095, kDamp, false, 1.0}};
    for (int block = 0; block < 3; ++block) {
        const Channels got = host.run(input, block == 0 ? bad : std::vector<Event>{});
        const Channels expected = same.run(cleaned, block == 0 ? meant : std::vector<Event>{});
        for (size_t c : {0u, 1u}) EXPECT_TRUE(compare::same(got[c], expected[c]));
    }
    EXPECT_EQ(host.reverb.values().plain(), same.reverb.values().plain());

    Reverb unprepared;
    float x[3] = {1.0f, 1.0f, 1.0f};
    const float* const in[2] = {x, nullptr};
    float* const out[2] = {x, nullptr};
    unprepared.reset();
    EXPECT_EQ(unprepared.process(in, out, 3, {}, nullptr), Status::kAsleep);
    EXPECT_EQ(x[2], 0.0f);
    for (double rate : {double{NAN}, 0.0, 999.0, 1e9}) EXPECT_FALSE(unprepared.prepare(rate, 64));
    for (uint32_t longest : {0u, 65537u}) EXPECT_FALSE(unprepared.prepare(kRate, longest));
    for (double rate : {1000.0, 1234.5678, 768000.0}) {
        Host odd({{kEarlyReflections, 1}, {kHighCut, 900.0}, {kErLevel, 1}}, rate);
        const Channels wet = odd.run(noise(20000, 0.5f));
        EXPECT_TRUE(peak(wet) > 0.01 && peak(wet) < 10.0) << rate;
    }
}

} // namespace
