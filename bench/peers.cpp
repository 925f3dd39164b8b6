// bench_peers: the plug-in, hosted through CLAP, beside the LV2 reverbs that are installed, on the
// same signal in the same process: noise bursts, the same while the knob moves that sets the room's
// size (or the decay, where there is none), then long silence. Everybody has default settings,
// blocks of one length and flush-to-zero. The signal is cut into short segments, and each segment
// is rendered by all plug-ins in turn, in random order, so that all meet the same conditions of the
// machine. With --traits, what else sets them apart instead: presets, and whether blocks of another
// length sound the same.
#include <fmt/format.h>

#include <lv2/presets/presets.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "bench/clap_instance.h"
#include "bench/contest.h"
#include "bench/lv2_peer.h"
#include "bench/program.h"
#include "bench/statistics.h"

namespace {

using namespace bench;

constexpr double kRate = 48000.0;
constexpr double kBurstSeconds = 8.0;    // a burst of a quarter of a second every second
constexpr double kMovingSeconds = 8.0;   // the same, a knob moving up and down in two seconds
constexpr double kSilenceSeconds = 30.0; // then
constexpr double kDeepSeconds = 15.0;    // of them, the last ones count as deep silence
constexpr uint32_t kSegmentFrames = 8192;

struct Runner {
    std::string name;
    std::function<void(const float*, const float*, float*, float*)> process;
    std::string knob;                                 // empty: none
    std::function<void(double)> turn;                 // to a position, 0 .. 1
    std::vector<double> bursts, moving, deep, blocks; // ns per frame by segments; ns by blocks
    double tail_energy = 0.0; // 50 ms behind bursts: a reverb must sound there
};

// Frames `from` .. of one channel of the test signal.
std::vector<float> signal(uint32_t channel, uint64_t from, uint32_t frames) {
    std::vector<float> x(frames);
    for (uint32_t t = 0; t < frames; ++t) {
        const double seconds = static_cast<double>(from + t) / kRate;
        const bool on =
            seconds < kBurstSeconds + kMovingSeconds && seconds - std::floor(seconds) < 0.25;
        if (on) x[t] = 0.25f * noise(channel)[(from + t) * 7 % kNoiseFrames];
    }
    return x;
}

void render_segment(Runner& runner, uint64_t from, uint32_t frames, const Clock& clock) {
    const std::vector<float> left = signal(0, from, kSegmentFrames);
    const std::vector<float> right = signal(1, from, kSegmentFrames);
    std::vector<float> out_l(frames), out_r(frames);
    const double seconds = static_cast<double>(from) / kRate;
    const bool moving = seconds >= kBurstSeconds && seconds < kBurstSeconds + kMovingSeconds;
    double total = 0.0;
    flush_to_zero(); // whatever the one before has left
    for (uint32_t t = 0; t < kSegmentFrames; t += frames) {
        if (moving && runner.turn) {
            const double now = static_cast<double>(from + t) / kRate;
            runner.turn(std::fabs(std::fmod(now, 2.0) - 1.0));
        }
        const double ns = clock.time(
            [&] { runner.process(left.data() + t, right.data() + t, out_l.data(), out_r.data()); });
        total += ns;
        runner.blocks.push_back(ns);
        const double now = static_cast<double>(from + t) / kRate, second = now - std::floor(now);
        if (now > kBurstSeconds || second < 0.30 || second > 0.35) continue;
        for (float y : out_l) runner.tail_energy += static_cast<double>(y) * static_cast<double>(y);
    }
    if (seconds < kBurstSeconds) runner.bursts.push_back(total / kSegmentFrames);
    if (moving) runner.moving.push_back(total / kSegmentFrames);
    if (seconds > kBurstSeconds + kMovingSeconds + kSilenceSeconds - kDeepSeconds) {
        runner.deep.push_back(total / kSegmentFrames);
    }
}

// The knob to move; null where there is none.
const Lv2Peer::Control* knob_of(const Lv2Peer& peer) {
    for (const char* word : {"size", "time", "decay"}) {
        for (const Lv2Peer::Control& control : peer.controls()) {
            std::string name = control.name;
            std::ranges::transform(name, name.begin(),
                                   [](unsigned char c) { return std::tolower(c); });
            if (name.find(word) != std::string::npos) return &control;
        }
    }
    return nullptr;
}

using Process = std::function<void(const float*, const float*, float*, float*)>;

// Two seconds of noise in blocks of one length, the left side.
std::vector<float> render(const Process& process, uint32_t frames) {
    std::vector<float> out(static_cast<size_t>(2.0 * kRate) / frames * frames), right(frames);
    for (size_t t = 0; t < out.size(); t += frames) {
        const std::vector<float> left = signal(0, t, frames), other = signal(1, t, frames);
        process(left.data(), other.data(), out.data() + t, right.data());
    }
    return out;
}

// How far apart two renderings are: the largest difference over the peak.
std::string apart(const std::vector<float>& a, const std::vector<float>& b) {
    float peak = 0.0f, difference = 0.0f;
    for (size_t t = 0; t < std::min(a.size(), b.size()); ++t) {
        peak = std::max(peak, std::fabs(a[t]));
        difference = std::max(difference, std::fabs(a[t] - b[t]));
    }
    if (difference == 0.0f) return "same bits";
    return fmt::format("{:.0f} dB", 20.0f * std::log10(difference / peak));
}

uint32_t count_presets(const Lv2World& world, const LilvPlugin* plugin) {
    LilvNode* type = lilv_new_uri(world.get(), LV2_PRESETS__Preset);
    LilvNodes* presets = lilv_plugin_get_related(plugin, type);
    const uint32_t count = lilv_nodes_size(presets);
    lilv_nodes_free(presets);
    lilv_node_free(type);
    return count;
}

void print_traits(const std::string& plugin) {
    constexpr uint32_t kUsual = 64, kOther = 441; // frames
    const ClapLibrary library(plugin);
    fmt::print("| reverb | presets | blocks of {} against {} |\n|---|---:|---|\n", kOther, kUsual);
    const auto row = [](const std::string& name, uint32_t presets, const auto& start) {
        std::vector<float> sounds[2];
        for (int k = 0; k < 2; ++k) {
            const auto reverb = start(k == 0 ? kUsual : kOther);
            if (!reverb) return;
            sounds[k] = render([&](auto... buffers) { reverb->process(buffers...); },
                               k == 0 ? kUsual : kOther);
        }
        fmt::print("| {} | {} | {} |\n", name, presets, apart(sounds[0], sounds[1]));
    };
    row("Brisel", 0, [&](uint32_t frames) {
        auto instance = std::make_unique<ClapInstance>(library);
        instance->start(kRate, frames);
        return instance;
    });
    Lv2World world;
    for (const LilvPlugin* installed : world.reverbs()) {
        std::string why_not;
        const auto start = [&](uint32_t frames) {
            return Lv2Peer::start(world, installed, kRate, frames, why_not);
        };
        if (const auto first = start(kUsual))
            row(first->name(), count_presets(world, installed), start);
    }
}

} // namespace

int main(int argc, char** argv) {
    uint32_t frames = 256, seed = 1;
    std::string plugin = BRISEL_CLAP_FILE;
    bool traits = false;
    CLI::App app("Times the plug-in beside the LV2 reverbs that are installed.");
    app.add_option("--frames", frames, "block length")
        ->check(CLI::IsMember({64, 128, 256, 512, 1024}))
        ->capture_default_str();
    app.add_option("--seed", seed, "of the random order")->capture_default_str();
    app.add_option("--plugin", plugin, "the plug-in")->capture_default_str();
    app.add_flag("--traits", traits, "presets and block lengths instead of times");
    parse_or_exit(app, argc, argv);

    flush_to_zero();
    if (traits) {
        print_traits(plugin);
        return 0;
    }
    const Clock clock;
    const ClapLibrary library(plugin);
    ClapInstance ours(library), everything(library);
    for (ClapInstance* instance : {&ours, &everything}) instance->start(kRate, frames);
    std::vector<float> silence(frames), unheard(frames);
    constexpr std::pair<clap_id, double> kEverything[] = {{2, 3}, {7, 1}, {10, 3}, {11, -3}};
    for (const auto& [id, value] : kEverything) {
        everything.set_parameter(id, value);
        everything.process(silence.data(), silence.data(), unheard.data(), unheard.data());
    }
    std::vector<Runner> runners(2);
    runners[0].name = "Brisel";
    runners[0].process = [&](auto... buffers) { ours.process(buffers...); };
    runners[0].knob = "Size";
    runners[0].turn = [&](double position) { ours.set_parameter(0, 0.04 + 0.12 * position); };
    runners[1].name = "Brisel, 3 stages, early reflections and EQ on";
    runners[1].process = [&](auto... buffers) { everything.process(buffers...); };

    Lv2World world;
    std::vector<std::unique_ptr<Lv2Peer>> peers;
    for (const LilvPlugin* installed : world.reverbs()) {
        std::string why_not;
        auto peer = Lv2Peer::start(world, installed, kRate, frames, why_not);
        if (!peer) {
            fmt::print(stderr, "left out: {}: {}\n",
                       lilv_node_as_uri(lilv_plugin_get_uri(installed)), why_not);
            continue;
        }
        runners.push_back({});
        runners.back().name = peer->name();
        runners.back().process = [p = peer.get()](auto... buffers) { p->process(buffers...); };
        if (const Lv2Peer::Control* knob = knob_of(*peer)) {
            runners.back().knob = knob->name;
            runners.back().turn = [knob](double position) {
                *knob->value =
                    knob->least + (knob->most - knob->least) * static_cast<float>(position);
            };
        }
        peers.push_back(std::move(peer));
    }

    std::mt19937 random(seed);
    std::vector<size_t> order(runners.size());
    for (size_t k = 0; k < order.size(); ++k) order[k] = k;
    const auto end =
        static_cast<uint64_t>((kBurstSeconds + kMovingSeconds + kSilenceSeconds) * kRate);
    for (uint64_t from = 0; from < end; from += kSegmentFrames) {
        std::ranges::shuffle(order, random);
        for (size_t index : order) render_segment(runners[index], from, frames, clock);
    }

    fmt::print("{}, 48 kHz, {} frames a block, default settings, flush-to-zero on\n\n",
               processor_name(), frames);
    fmt::print("| reverb | noise bursts, ns/frame | x Brisel | knob moving, ns/frame | knob | "
               "deep silence, ns/frame | x Brisel | 99 % of blocks, us |\n"
               "|---|---|---|---|---|---|---|---|\n");
    std::ranges::stable_sort(runners, {}, [](const Runner& r) { return median(r.bursts); });
    const auto brisel = *std::ranges::find(runners, "Brisel", &Runner::name);
    for (const Runner& runner : runners) {
        if (!(runner.tail_energy > 0.0)) {
            fmt::print(stderr, "left out: {}: {} at its default settings\n", runner.name,
                       runner.tail_energy == 0.0 ? "no tail" : "output that is no number");
            continue;
        }
        const double bursts = median(runner.bursts), deep = median(runner.deep);
        const std::string moving =
            runner.turn ? fmt::format("{:.1f} | {}", median(runner.moving), runner.knob) : "- | -";
        fmt::print("| {} | {:.1f} | {:.1f} | {} | {:.1f} | {:.1f} | {:.1f} |\n", runner.name,
                   bursts, bursts / median(brisel.bursts), moving, deep, deep / median(brisel.deep),
                   quantile(runner.blocks, 0.99) * 1e-3);
    }
    if (peers.empty()) {
        fmt::print(stderr, "bench_peers: no LV2 reverb is installed; see bench/peers --help\n");
    }
}
