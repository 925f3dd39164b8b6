#include "live/engine/late.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <memory>

#include "brisel/reverb.h"
#include "tests/live/late_host.h"

using brisel::live::kTile;
using brisel::live::Late;
using brisel::live::LateSettings;

namespace {

// The first frame at which two signals differ, or -1.
int64_t first_difference(const Stereo& a, const Stereo& b) {
    for (size_t t = 0; t < a[0].size(); ++t)
        for (size_t c = 0; c < 2; ++c)
            if (std::bit_cast<uint32_t>(a[c][t]) != std::bit_cast<uint32_t>(b[c][t]))
                return static_cast<int64_t>(t);
    return -1;
}

class Random {
public:
    explicit Random(uint32_t seed) : generator_(seed) {}
    double between(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(generator_);
    }
    double log_between(double low, double high) {
        return std::exp(between(std::log(low), std::log(high)));
    }
    uint32_t below(uint32_t n) { return static_cast<uint32_t>(generator_() % n); }
    // One time in n.
    bool one_in(uint32_t n) { return below(n) == 0; }

private:
    std::mt19937 generator_;
};

// Some of the settings take other values, extremes among them.
LateSettings vary(LateSettings s, Random& random) {
    if (random.one_in(3)) s.size = random.one_in(4) ? 0.005 : random.log_between(0.005, 0.5);
    if (random.one_in(3)) s.decay = random.one_in(4) ? 60.0 : random.log_between(0.1, 60.0);
    if (random.one_in(3)) s.damp = random.one_in(2) ? random.below(2) : random.between(0.0, 1.0);
    if (random.one_in(4)) s.stages = static_cast<int>(random.below(4));
    if (random.one_in(4)) s.modulate = !s.modulate;
    if (random.one_in(4)) s.mod_depth = random.between(0.0, 0.33e-3);
    if (random.one_in(4)) s.mod_rate = random.log_between(0.1, 4.0);
    if (random.one_in(3)) s.diffusion = random.one_in(2) ? random.below(2) : random.between(0, 1);
    if (random.one_in(6)) s.freeze = !s.freeze;
    return s;
}

std::vector<Change> automation(uint32_t frames, Random& random) {
    std::vector<Change> changes = {{0, vary(kLateDefaults, random)}};
    for (uint32_t t = 0;;) {
        t += kTile * (1 + random.below(random.one_in(3) ? 20 : 600));
        if (t >= frames) return changes;
        changes.push_back({t, vary(changes.back().settings, random)});
    }
}

} // namespace

TEST(Late, GivesTheSameBitsHoweverItsBlocksAreCut) {
    constexpr double kRates[] = {8000, 22050, 44100, 48000, 96000, 192000};
    for (uint32_t run = 0; run < 60; ++run) {
        Random random(run);
        const double rate = kRates[random.below(6)];
        const uint32_t frames = 4000 + random.below(30000);
        Stereo in = noise(frames, run);
        const uint32_t silent_from = random.below(frames);
        for (auto& side : in)
            std::fill(side.data() + silent_from, side.data() + (silent_from + frames) / 2, 0.0f);
        const auto changes = automation(frames, random);
        Stereo out[2];
        for (uint32_t cut = 0; cut < 2; ++cut) {
            Late late;
            ASSERT_TRUE(late.prepare(rate));
            const uint32_t longest = random.one_in(2) ? 700 : 1 + random.below(40);
            out[cut] = LateHost(late).render(in, changes, longest, 2 * run + cut);
        }
        ASSERT_EQ(first_difference(out[0], out[1]), -1) << "run " << run << ", rate " << rate;
    }
}

TEST(Late, IsTheExactNetworkBitForBitWhereNothingMoves) {
    constexpr int32_t kFrames = 24000;
    Random random(1);
    for (uint32_t run = 0; run < 48; ++run) {
        LateSettings s = kLateDefaults;
        s.modulate = false;
        s.stages = static_cast<int>(run % 4);
        s.size = run < 4 ? 0.005 : run < 8 ? 0.5 : random.log_between(0.005, 0.5);
        s.damp = run < 16 ? run / 4 % 2 : random.between(0.0, 1.0);
        s.decay = random.log_between(0.1, 60.0);
        const int32_t rate = run % 3 == 0 ? 48000 : run % 3 == 1 ? 44100 : 96000;

        constexpr int32_t kBlock = 64;
        const std::unique_ptr<qv_reverb, void (*)(qv_reverb*)> exact(qv_reverb_create(rate, kBlock),
                                                                     qv_reverb_destroy);
        qv_reverb_params p = exact->params;
        p.size = static_cast<float>(s.size);
        p.t60 = static_cast<float>(s.decay);
        p.damp = static_cast<float>(s.damp);
        p.cascade_stages = s.stages;
        p.mix = p.width = 1.0f;
        p.modulate = 0;
        ASSERT_EQ(qv_reverb_set(exact.get(), &p), 0);

        const Stereo in = noise(kFrames, run);
        Stereo expected = {std::vector<float>(kFrames), std::vector<float>(kFrames)};
        for (size_t t = 0; t < kFrames; t += kBlock)
            qv_reverb_process(exact.get(), &in[0][t], &in[1][t], &expected[0][t], &expected[1][t],
                              kBlock);
        Late late;
        ASSERT_TRUE(late.prepare(rate));
        late.set(s);
        late.reset();
        const Stereo out = LateHost(late).render(in, {}, 700, run);
        for (size_t c = 0; c < 2; ++c)
            for (size_t t = 0; t < kFrames; ++t)
                ASSERT_EQ(out[c][t], expected[c][t])
                    << "K " << s.stages << ", size " << s.size << ", decay " << s.decay << ", damp "
                    << s.damp << ", side " << c << ", frame " << t;
    }
}

namespace {

// Mean power of both sides in windows of 20 ms at 48 kHz.
std::vector<double> levels(const Stereo& x) {
    constexpr size_t kWindow = 960;
    std::vector<double> levels(x[0].size() / kWindow);
    for (size_t w = 0; w < levels.size(); ++w)
        for (const auto& side : x)
            for (size_t t = w * kWindow; t < (w + 1) * kWindow; ++t)
                levels[w] += double{side[t]} * double{side[t]} / kWindow;
    return levels;
}

Stereo render(const Stereo& in, const std::vector<Change>& changes, uint32_t seed = 0) {
    Late late;
    EXPECT_TRUE(late.prepare(48000.0));
    late.set(changes[0].settings);
    late.reset();
    return LateHost(late).render(in, changes, 512, seed);
}

LateSettings with_size(LateSettings s, double seconds) {
    s.size = seconds;
    return s;
}

} // namespace

TEST(Late, AfterAResetIsAFreshOne) {
    for (uint32_t run = 0; run < 20; ++run) {
        Random random(run);
        constexpr uint32_t kFrames = 40000;
        const Stereo in = noise(kFrames, run);
        const auto changes = automation(kFrames, random);
        Late late;
        ASSERT_TRUE(late.prepare(48000.0));
        LateHost(late).render(in, changes, 300, run);
        const LateSettings settings = vary(kLateDefaults, random);
        late.set(settings);
        late.reset();
        const Stereo again = LateHost(late).render(in, {}, 700, run + 1);
        EXPECT_EQ(first_difference(again, render(in, {{0, settings}})), -1) << "run " << run;
    }
}

TEST(Late, StaysBelowItsProgrammeUnderRandomAutomation) {
    constexpr uint32_t kSeconds = 40;
    constexpr double kSixDecibels = 4.0;
    LateSettings longest = kLateDefaults;
    longest.decay = 60.0;
    longest.damp = 0.0;
    const Stereo in = noise(kSeconds * 48000, 3);
    const auto programme = levels(render(in, {{0, longest}}));
    for (uint32_t run = 0; run < 4; ++run) {
        Random random(run);
        auto changes = automation(kSeconds * 48000, random);
        for (Change& change : changes) {
            change.settings.decay = 60.0;
            if (run % 2 == 0) change.settings.freeze = random.one_in(2);
        }
        const auto automated = levels(render(in, changes, run));
        EXPECT_LT(*std::max_element(automated.begin(), automated.end()),
                  kSixDecibels * *std::max_element(programme.begin(), programme.end()))
            << "run " << run;
    }
}

TEST(Late, KeepsAFrozenLevelWhileItsSizeSweeps) {
    constexpr uint32_t kRate = 48000;
    for (int stages = 0; stages <= 3; ++stages) {
        LateSettings s = kLateDefaults;
        s.stages = stages;
        std::vector<Change> changes = {{0, s}};
        s.freeze = true;
        changes.push_back({2 * kRate, s});
        for (uint32_t t = 3 * kRate; t < 7 * kRate; t += 512) {
            const double way = 1.0 - std::fabs(1.0 - (t - 3.0 * kRate) / (2.0 * kRate));
            changes.push_back({t, with_size(s, 0.04 * std::pow(4.0, way))});
        }
        const auto level = levels(render(noise(60 * kRate, 5), changes));
        const auto mean = [&](size_t second) {
            double sum = 0.0;
            for (size_t w = 50 * second; w < 50 * (second + 1); ++w) sum += level[w];
            return sum;
        };
        // Without stages the outputs lose a correlation of the lines with each other at first.
        EXPECT_NEAR(10.0 * std::log10(mean(8) / mean(2)), 0.0, stages == 0 ? 2.0 : 1.0)
            << "K " << stages;
        EXPECT_NEAR(10.0 * std::log10(mean(59) / mean(8)), 0.0, 0.1) << "K " << stages;
    }
}

TEST(Late, GoesOnWhileItsSizeChanges) {
    constexpr uint32_t kChange = 52800; // 0.1 s behind the end of the noise
    struct Case {
        double from, to, allowed_db;
    };
    for (const Case& c : {Case{0.04, 0.2, 6.0}, Case{0.005, 0.5, 6.0}, Case{0.04, 0.005, 6.0 + 1.6},
                          Case{0.2, 0.005, 6.0 + 8.8}}) {
        const LateSettings from = with_size(kLateDefaults, c.from);
        const LateSettings to = with_size(kLateDefaults, c.to);
        std::vector<double> sums[3] = {std::vector<double>(100), std::vector<double>(100),
                                       std::vector<double>(100)};
        for (uint32_t seed = 0; seed < 8; ++seed) {
            Stereo in = noise(96000, seed);
            for (auto& side : in) std::fill(side.begin() + 48000, side.end(), 0.0f);
            const std::vector<Change> courses[] = {
                {{0, from}}, {{0, to}}, {{0, from}, {kChange, to}}};
            for (size_t k = 0; k < 3; ++k) {
                const auto level = levels(render(in, courses[k]));
                for (size_t w = 0; w < 100; ++w) sums[k][w] += level[w];
            }
        }
        for (size_t w = kChange / 960; w < 100; ++w)
            EXPECT_GT(10.0 * std::log10(sums[2][w] / std::min(sums[0][w], sums[1][w])),
                      -c.allowed_db)
                << c.from << " to " << c.to << " s, window " << w;
    }
}
