// What the plug-in does with sound: random lives compared bit for bit with qv_reverb driven by hand,
// the dry frames at the end of odd blocks, activation, and the decay that a listener hears.

#include "clap_host.h"
#include "decay_time.h"

#include <brisel/reverb.h>

#include <cmath>
#include <memory>
#include <random>

namespace {

using namespace test_host;

constexpr float kUntouched = 777.0f;

// What the plug-in promises to do with an engine, done by hand.
struct Model {
    Values values;
    qv_reverb* reverb = nullptr;
    bool dirty = false;
    int accepted = 0, refused = 0;

    Model() {
        for (uint32_t id = 0; id < 12; ++id) values[id] = kRows[id].def;
    }
    Model(const Model&) = delete;
    ~Model() { qv_reverb_destroy(reverb); }

    bool apply() {
        if (!reverb) return true;
        const auto f = [&](size_t id) { return static_cast<float>(values[id]); };
        const double stages = values[kStages];
        const qv_reverb_params p = {
            f(0),
            f(1),
            std::isnan(stages) ? INT32_MIN : static_cast<int32_t>(std::floor(stages + 0.5)),
            0.0f,
            f(3),
            f(4),
            f(5),
            values[kModulate] >= 0.5,
            values[kEarly] >= 0.5,
            f(8),
            f(9),
            f(10),
            f(11)};
        const bool ok = qv_reverb_set(reverb, &p) == 0;
        ++(ok ? accepted : refused);
        return ok;
    }
    bool activate(int32_t rate, int32_t capacity) {
        qv_reverb_destroy(reverb);
        reverb = qv_reverb_create(rate, capacity);
        return reverb && apply();
    }
    void set(uint32_t id, double value) {
        values[id] = clamped(id, value);
        dirty = true;
    }
    void apply_pending() {
        if (dirty) apply();
        dirty = false;
    }
    int32_t process(uint32_t frames, const float* in_l, const float* in_r, float* out_l,
                    float* out_r) {
        if (!reverb) return CLAP_PROCESS_ERROR;
        apply_pending();
        const uint32_t whole = frames / 8 * 8;
        if (whole &&
            qv_reverb_process(reverb, in_l, in_r, out_l, out_r, static_cast<int32_t>(whole)) != 0)
            return CLAP_PROCESS_ERROR;
        const size_t rest = (frames - whole) * sizeof(float);
        std::memmove(out_l + whole, in_l + whole, rest);
        if (out_r) std::memmove(out_r + whole, (in_r ? in_r : in_l) + whole, rest);
        return CLAP_PROCESS_CONTINUE;
    }
};

// An instance and its model, led through the same random life one step at a time.
struct Life {
    Plugin plugin;
    Model model;
    std::mt19937 random;
    int32_t capacity = 0;
    int errors = 0, tails = 0;

    explicit Life(unsigned seed) : random(seed) { activate(); }

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random() % n); }

    double any_value(uint32_t id) {
        const Row& row = kRows[id];
        const double odd[] = {row.min, row.max, -kInf, kInf, 1e300, -0.0, kNaN};
        if (below(5) == 0) return odd[below(7)];
        // Mostly short lines, so that tails begin before the next change.
        const double top = id == kSize && below(8) ? 0.03 : row.max;
        return row.min + (top - row.min) * below(1000) / 999.0;
    }

    void any_events(Events& events) {
        for (uint32_t n = below(6); n > 0; --n) {
            const uint32_t id = below(12);
            const double value = any_value(id);
            switch (below(8)) {
            case 0:
                events.add(id, value, static_cast<uint16_t>(1 + below(65535)));
                break;
            case 1:
                events.add(id, value, 0, static_cast<uint16_t>((6 + below(12)) % 13));
                break;
            case 2:
                events.add(12 + below(2), value).add(CLAP_INVALID_ID, value);
                break;
            case 3:
                events.add_missing();
                break;
            default:
                events.add(id, value, 0, 5, below(4) ? 56 : below(100));
                model.set(id, value);
            }
        }
    }

    void activate() {
        const int32_t rates[] = {22050, 44100, 48000}, lengths[] = {1, 100, 256, 500, 1000};
        const int32_t rate = rates[below(3)], length = lengths[below(5)];
        capacity = std::max(64, (length + 7) / 8 * 8);
        plugin.plugin->stop_processing(plugin.plugin);
        plugin.plugin->deactivate(plugin.plugin);
        const bool ok = plugin.activate(rate + 0.9 * below(2), static_cast<uint32_t>(length));
        EXPECT_EQ(ok, model.activate(rate, capacity));
    }

    void process() {
        const uint32_t frames = below(3) ? below(static_cast<uint32_t>(capacity) + 8) : below(30);
        const bool stereo_in = below(4) > 0, stereo_out = below(4) > 0, in_place = below(3) == 0;
        std::vector<float> in[2], expected[2], got[2];
        const bool silent = below(2) == 0;
        for (int side = 0; side < 2; ++side) {
            in[side].assign(frames + 8, 0.0f);
            for (uint32_t t = 0; t < frames && !silent; ++t)
                in[side][t] = static_cast<float>(below(20001)) * 1e-4f - 1.0f;
            if (frames && below(8) == 0) in[side][below(frames)] = std::nanf("");
            got[side] = expected[side] = std::vector<float>(frames + 8, kUntouched);
            if (in_place) got[side] = expected[side] = in[side];
        }
        Events events;
        if (model.reverb && below(12) == 0) any_events(events); // not read without an engine
        const int32_t status =
            model.process(frames, in[0].data(), stereo_in ? in[1].data() : nullptr,
                          expected[0].data(), stereo_out ? expected[1].data() : nullptr);
        auto& from = in_place ? got : in;
        std::vector<float*> ins = {from[0].data()}, outs = {got[0].data()};
        if (stereo_in) ins.push_back(from[1].data());
        if (stereo_out) outs.push_back(got[1].data());
        EXPECT_EQ(plugin.process(frames, ins, outs, &events), status);
        errors += status == CLAP_PROCESS_ERROR;
        tails += silent && frames > 0 && std::fabs(expected[0][0]) > 1e-6f &&
                 expected[0][0] != kUntouched;
        for (int side = 0; side < 2; ++side)
            for (uint32_t t = 0; t < frames + 8; ++t)
                ASSERT_EQ(std::memcmp(&got[side][t], &expected[side][t], sizeof(float)), 0)
                    << "side " << side << ", frame " << t << " of " << frames << ", got "
                    << got[side][t] << ", expected " << expected[side][t];
    }

    void step() {
        switch (below(30)) {
        case 0:
            activate();
            break;
        case 1:
        case 2: {
            Events events;
            any_events(events);
            plugin.flush(events);
            model.apply_pending();
            break;
        }
        case 3: {
            Values values;
            for (uint32_t id = 0; id < 12; ++id) values[id] = any_value(id);
            EXPECT_TRUE(plugin.load({state_of(values), 1 + below(120)}));
            for (uint32_t id = 0; id < 12; ++id) model.set(id, values[id]);
            break;
        }
        case 4:
            plugin.plugin->reset(plugin.plugin);
            break;
        case 5:
            plugin.plugin->on_main_thread(plugin.plugin);
            break;
        default:
            process();
        }
        EXPECT_TRUE(same_bits(plugin.values(), model.values));
    }
};

TEST(PluginProcess, EqualsTheEngineDrivenByHandBitForBit) {
    const char* chosen = std::getenv("BRISEL_TEST_SEED");
    const unsigned seed = chosen ? static_cast<unsigned>(std::atoi(chosen)) : 1;
    // Interleaved, so that anything the instances shared would show.
    Life lives[] = {Life(seed), Life(seed + 1), Life(seed + 2)};
    for (int step = 0; step < 600; ++step) {
        for (Life& life : lives) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
            life.step();
            if (HasFailure()) return;
        }
    }
    int accepted = 0, refused = 0, errors = 0, tails = 0;
    for (const Life& life : lives) {
        accepted += life.model.accepted;
        refused += life.model.refused;
        errors += life.errors;
        tails += life.tails;
    }
    // The lives have met all of it, tails heard in silent blocks included.
    EXPECT_GT(accepted, 50);
    EXPECT_GT(refused, 10);
    EXPECT_GT(errors, 10);
    EXPECT_GT(tails, 100);
}

TEST(PluginProcess, PassesTheLastFramesDryAndSurvivesMissingChannels) {
    Plugin p;
    ASSERT_TRUE(p.activate(48000, 64));
    p.flush(Events(kMix, 1)); // wet only: what is dry did not go through the engine
    std::vector<float> left(16), right(16), out_l(16, kUntouched), out_r(16, kUntouched);
    for (size_t t = 0; t < 16; ++t) {
        left[t] = 1.0f + static_cast<float>(t);
        right[t] = -left[t];
    }
    const std::vector<float*> out = {out_l.data(), out_r.data()};
    const auto expect = [&](size_t from, size_t to, float sign_l, float sign_r) {
        for (size_t t = from; t < to; ++t) {
            EXPECT_EQ(out_l[t], sign_l * left[t]) << t;
            EXPECT_EQ(out_r[t], sign_r * left[t]) << t;
        }
    };
    EXPECT_EQ(p.process(7, {left.data(), right.data()}, out), CLAP_PROCESS_CONTINUE);
    expect(0, 7, 1, -1);
    EXPECT_EQ(p.process(13, {left.data()}, out), CLAP_PROCESS_CONTINUE);
    expect(0, 8, 0, 0); // shorter than the shortest line: the tail has not begun
    expect(8, 13, 1, 1);
    EXPECT_EQ(out_l[13], kUntouched);
    EXPECT_EQ(p.process(7, {right.data(), nullptr}, out), CLAP_PROCESS_CONTINUE);
    expect(0, 7, -1, -1);

    // No left input is silence for the dry frames and a refusal for the engine; likewise no channels.
    for (const std::vector<float*>& in : {std::vector<float*>{nullptr}, std::vector<float*>{}}) {
        out_l.assign(16, kUntouched);
        EXPECT_EQ(p.process(5, in, out), CLAP_PROCESS_CONTINUE);
        expect(0, 5, 0, 0);
        EXPECT_EQ(out_l[5], kUntouched);
        EXPECT_EQ(p.process(8, in, out), CLAP_PROCESS_ERROR);
        EXPECT_EQ(p.process(13, in, out), CLAP_PROCESS_ERROR);
        EXPECT_EQ(out_l[8], kUntouched);
        EXPECT_EQ(p.process(5, {left.data()}, in), CLAP_PROCESS_CONTINUE);
        EXPECT_EQ(p.process(8, {left.data()}, in), CLAP_PROCESS_ERROR);
    }
    EXPECT_EQ(p.process(0x80000000u, {left.data()}, out), CLAP_PROCESS_ERROR);
    EXPECT_EQ(p.process(0xFFFFFFFFu, {left.data()}, out), CLAP_PROCESS_ERROR);
}

TEST(PluginActivation, TakesBlocksUpToTheNextEightFramesAtLeast64) {
    std::vector<float> audio(4096);
    const std::vector<float*> stereo = {audio.data(), audio.data() + 2048};
    const struct {
        uint32_t asked, capacity;
    } cases[] = {{0, 64}, {1, 64}, {64, 64}, {65, 72}, {100, 104}, {1920, 1920}};
    Plugin p; // one instance, activated again and again
    for (const auto& c : cases) {
        ASSERT_TRUE(p.activate(48000, c.asked)) << c.asked;
        EXPECT_EQ(p.process(c.capacity, stereo, stereo), CLAP_PROCESS_CONTINUE) << c.asked;
        EXPECT_EQ(p.process(c.capacity + 8, stereo, stereo), CLAP_PROCESS_ERROR) << c.asked;
    }
    // Rates and lengths that make no engine: no processing until an activation succeeds again.
    const struct {
        double rate;
        uint32_t asked;
    } refused[] = {{8000, 64},         {9000, 64},          {0, 64},
                   {-48000, 64},       {kNaN, 64},          {kInf, 64},
                   {-kInf, 64},        {1e300, 64},         {4294967296.0 + 48000, 64},
                   {48000, 1921},      {48000, 0x7FFFFFFF}, {48000, 0x80000000},
                   {48000, 0xFFFFFFFF}};
    for (const auto& c : refused) {
        EXPECT_FALSE(p.activate(c.rate, c.asked)) << c.rate << ' ' << c.asked;
        EXPECT_EQ(p.process(5, stereo, stereo), CLAP_PROCESS_ERROR) << c.rate << ' ' << c.asked;
    }
    EXPECT_TRUE(p.activate(48000, 64));
    EXPECT_EQ(p.process(64, stereo, stereo), CLAP_PROCESS_CONTINUE);
}

TEST(PluginActivation, RefusedForASmallSizeLeavesAnEngineWithItsDefaults) {
    Plugin p;
    p.flush(Events(0, 0.005).add(kMix, 1)); // a shortest line of 240 frames at 48 kHz
    ASSERT_FALSE(p.activate(48000, 256));
    std::unique_ptr<qv_reverb, decltype(&qv_reverb_destroy)> engine(qv_reverb_create(48000, 256),
                                                                    qv_reverb_destroy);
    std::vector<float> left(256), right(256), out_l(256), out_r(256);
    left[0] = 1;
    for (int block = 0; block < 20; ++block) {
        ASSERT_EQ(p.process(256, {left.data(), right.data()}, {out_l.data(), out_r.data()}),
                  CLAP_PROCESS_CONTINUE);
        ASSERT_EQ(qv_reverb_process(engine.get(), left.data(), right.data(), left.data(),
                                    right.data(), 256),
                  0);
        ASSERT_EQ(out_l, left);
        ASSERT_EQ(out_r, right);
        left.assign(256, 0);
        right.assign(256, 0);
    }
    EXPECT_TRUE(p.activate(48000, 240));
}

TEST(PluginSound, DecaysInTheSetTimeWithinThreePercent) {
    constexpr double kRate = 48000;
    constexpr uint32_t kBlock = 256;
    for (const double decay : {0.5, 2.0, 8.0}) {
        Plugin p;
        ASSERT_TRUE(p.activate(kRate, kBlock));
        Events events;
        events.add(kDecay, decay).add(kDamp, 0).add(kMix, 1).add(kModulate, 0);
        p.flush(events);
        std::vector<float> left(kBlock), right(kBlock), out_l(kBlock), out_r(kBlock);
        left[0] = right[0] = 1;
        std::vector<double> energy;
        while (energy.size() < p.tail()) {
            ASSERT_EQ(p.process(kBlock, {left.data(), right.data()}, {out_l.data(), out_r.data()}),
                      CLAP_PROCESS_CONTINUE);
            for (size_t t = 0; t < kBlock; ++t)
                energy.push_back(double{out_l[t]} * out_l[t] + double{out_r[t]} * out_r[t]);
            left[0] = right[0] = 0;
        }
        const double seconds = schroeder_t60(energy, 1 / kRate);
        RecordProperty("decay_" + std::to_string(decay), std::to_string(seconds));
        EXPECT_NEAR(seconds, decay, 0.03 * decay);
    }
}

} // namespace
