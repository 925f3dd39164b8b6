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
            std::fill(side.begin() + silent_from, side.begin() + (silent_from + frames) / 2, 0.0f);
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
        for (int32_t t = 0; t < kFrames; t += kBlock)
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
