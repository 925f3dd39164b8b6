// Contests of the reverb as users meet it: qv_reverb_process in its configurations, changes of
// settings, and the plug-in itself.
#include <array>

#include "bench/clap_instance.h"
#include "bench/contest.h"
#include "bench/plain_reverb.h"
#include "brisel/reverb.h"

namespace bench {

namespace {

struct Setup {
    const char* name;
    void (*change)(qv_reverb_params&) = [](qv_reverb_params&) {}; // of the defaults
    bool mono_in = false;
    float level = 0.1f; // of the noise
    int32_t sample_rate = 48000;
};

// Stereo signals of one block on both sides.
class Signals {
public:
    Signals(int32_t n, float level) : frames_(static_cast<size_t>(n)) {
        for (uint32_t channel : {0u, 1u}) {
            const std::span<const float> source = noise(channel);
            in_[channel].assign(source.begin(), source.end());
            for (float& x : in_[channel]) x *= level;
        }
        for (auto& out : out_) out.resize(2 * frames_);
    }
    const float* in(uint32_t channel, uint32_t block) const {
        return in_[channel].data() + block % (kNoiseFrames / frames_) * frames_;
    }
    float* left(Side side) { return out_[side].data(); }
    float* right(Side side) { return out_[side].data() + frames_; }
    std::span<const float> output(Side side) const { return out_[side]; }

private:
    size_t frames_;
    std::array<std::vector<float>, 2> in_, out_;
};

struct Destroy {
    void operator()(qv_reverb* rev) const { qv_reverb_destroy(rev); }
};

class ReverbContest : public Contest {
public:
    ReverbContest(const Setup& setup, int32_t n)
        : mono_in_(setup.mono_in), frames_(n), signals_(n, setup.level),
          ours_(qv_reverb_create(setup.sample_rate, n)), plain_(setup.sample_rate, n) {
        qv_reverb_params params = ours_->params;
        setup.change(params);
        set(kOurs, params);
        set(kPlain, params);
    }

    void render(Side side, uint32_t block) override {
        const float* right = mono_in_ ? nullptr : signals_.in(1, block);
        const auto process = side == kOurs ? qv_reverb_process : plain::reverb_process;
        process(reverb(side), signals_.in(0, block), right, signals_.left(side),
                signals_.right(side), frames_);
    }
    std::span<const float> output(Side side) const override { return signals_.output(side); }

protected:
    qv_reverb* reverb(Side side) { return side == kOurs ? ours_.get() : plain_.get(); }
    void set(Side side, const qv_reverb_params& params) {
        const auto apply = side == kOurs ? qv_reverb_set : plain::reverb_set;
        if (apply(reverb(side), &params) != 0) std::abort();
    }

private:
    bool mono_in_;
    int32_t frames_;
    Signals signals_;
    std::unique_ptr<qv_reverb, Destroy> ours_;
    plain::Reverb plain_;
};

// A change of settings after every block: the block is prepared, the change is measured.
class SettingsContest : public ReverbContest {
public:
    using ReverbContest::ReverbContest;
    void prepare(Side side, uint32_t block) override { ReverbContest::render(side, block); }
    void render(Side side, uint32_t block) override {
        qv_reverb_params params = reverb(side)->params;
        params.mix = block % 2 == 0 ? 0.3f : 0.4f;
        set(side, params);
    }
};

// The plug-in through its own interface beside the plain loops with the same settings.
class PluginContest : public Contest {
public:
    PluginContest(const std::string& file, int32_t n)
        : frames_(n), signals_(n, 0.1f), library_(file), ours_(library_), plain_(48000, n) {
        ours_.start(48000, static_cast<uint32_t>(n));
    }

    void render(Side side, uint32_t block) override {
        const float *left = signals_.in(0, block), *right = signals_.in(1, block);
        if (side == kOurs) {
            ours_.process(left, right, signals_.left(side), signals_.right(side));
        } else {
            plain::reverb_process(plain_.get(), left, right, signals_.left(side),
                                  signals_.right(side), frames_);
        }
    }
    std::span<const float> output(Side side) const override { return signals_.output(side); }

private:
    int32_t frames_;
    Signals signals_;
    ClapLibrary library_;
    ClapInstance ours_;
    plain::Reverb plain_;
};

using P = qv_reverb_params;

// At every block length.
const Setup kSetups[] = {
    {"default"},
    {"K=0", [](P& p) { p.cascade_stages = 0; }},
    {"K=1", [](P& p) { p.cascade_stages = 1; }},
    {"K=3", [](P& p) { p.cascade_stages = 3; }},
    {"one_band", [](P& p) { p.damp = 0; }},
    {"early_reflections", [](P& p) { p.er_enable = 1; }},
    {"eq",
     [](P& p) {
         p.eq_low_db = 3;
         p.eq_high_db = -3;
     }},
    {"mono_in", [](P&) {}, true},
};

// Signals and sizes that must not slow it down; denormal: products with gains fall into that range.
const Setup kHardships[] = {
    {"silence", [](P&) {}, false, 0.0f},
    {"denormal_tail", [](P&) {}, false, 0x1p-122f},
    {"size=0.02s", [](P& p) { p.size = 0.02f; }},
    {"size=0.1s", [](P& p) { p.size = 0.1f; }},
    {"size=0.5s", [](P& p) { p.size = 0.5f; }},
    {"192kHz/size=0.04s", [](P&) {}, false, 0.1f, 192000},
    {"192kHz/size=0.5s", [](P& p) { p.size = 0.5f; }, false, 0.1f, 192000},
};

const Setup kSettings[] = {
    {"48kHz/size=0.04s"},
    {"48kHz/size=0.5s", [](P& p) { p.size = 0.5f; }},
    {"192kHz/size=0.5s", [](P& p) { p.size = 0.5f; }, false, 0.1f, 192000},
};

// The longest line, modulation included.
uint32_t turn_of(const Setup& setup) {
    qv_reverb_params params = {};
    params.size = 0.04f;
    setup.change(params);
    return static_cast<uint32_t>(params.size * static_cast<float>(setup.sample_rate) * 1.5f) + 8;
}

} // namespace

std::vector<Entry> reverb_entries() {
    std::vector<Entry> entries;
    const auto add = [&](const Setup& setup, int32_t n) {
        entries.push_back({Kind::kReverb, std::string("qv_reverb_process/") + setup.name, n,
                           [&setup, n] { return std::make_unique<ReverbContest>(setup, n); },
                           turn_of(setup)});
    };
    for (const Setup& setup : kSetups) {
        for (int32_t n : {64, 128, 256, 512, 1024}) add(setup, n);
    }
    for (const Setup& setup : kHardships) add(setup, 256);
    return entries;
}

std::vector<Entry> settings_entries() {
    std::vector<Entry> entries;
    for (const Setup& setup : kSettings) {
        for (int32_t n : {64, 512}) {
            entries.push_back(
                {Kind::kSettings, std::string("qv_reverb_set/") + setup.name, n,
                 [&setup, n] { return std::make_unique<SettingsContest>(setup, n); }});
        }
    }
    return entries;
}

std::vector<Entry> plugin_entries(const std::string& plugin_file) {
    std::vector<Entry> entries;
    for (int32_t n : {64, 256, 1024}) {
        entries.push_back({Kind::kPlugin, "brisel_process", n,
                           [=] { return std::make_unique<PluginContest>(plugin_file, n); }});
    }
    return entries;
}

} // namespace bench
