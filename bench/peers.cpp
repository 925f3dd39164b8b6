// bench_peers: the plug-in, hosted through CLAP, beside the LV2 reverbs that are installed, on the
// same signal in the same process: noise bursts, then long silence. Everybody has default settings,
// blocks of one length and flush-to-zero. The signal is cut into short segments, and each segment
// is rendered by all plug-ins in turn, in random order, so that all meet the same conditions of the
// machine.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
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
constexpr double kSilenceSeconds = 30.0; // then
constexpr double kDeepSeconds = 15.0;    // of them, the last ones count as deep silence
constexpr uint32_t kSegmentFrames = 8192;

struct Runner {
    std::string name;
    std::function<void(const float*, const float*, float*, float*)> process;
    std::vector<double> bursts, deep, blocks; // ns per frame by segments; ns by blocks
    double tail_energy = 0.0;                 // 50 ms behind bursts: a reverb must sound there
};

// Frames `from` .. of one channel of the test signal.
std::vector<float> signal(uint32_t channel, uint64_t from, uint32_t frames) {
    std::vector<float> x(frames);
    for (uint32_t t = 0; t < frames; ++t) {
        const double seconds = static_cast<double>(from + t) / kRate;
        const bool on = seconds < kBurstSeconds && seconds - std::floor(seconds) < 0.25;
        if (on) x[t] = 0.25f * noise(channel)[(from + t) * 7 % kNoiseFrames];
    }
    return x;
}

void render_segment(Runner& runner, uint64_t from, uint32_t frames, const Clock& clock) {
    const std::vector<float> left = signal(0, from, kSegmentFrames);
    const std::vector<float> right = signal(1, from, kSegmentFrames);
    std::vector<float> out_l(frames), out_r(frames);
    const double seconds = static_cast<double>(from) / kRate;
    double total = 0.0;
    flush_to_zero(); // whatever the one before has left
    for (uint32_t t = 0; t < kSegmentFrames; t += frames) {
        const double ns = clock.time(
            [&] { runner.process(left.data() + t, right.data() + t, out_l.data(), out_r.data()); });
        total += ns;
        runner.blocks.push_back(ns);
        const double now = static_cast<double>(from + t) / kRate, second = now - std::floor(now);
        if (now > kBurstSeconds || second < 0.30 || second > 0.35) continue;
        for (float y : out_l) runner.tail_energy += static_cast<double>(y) * static_cast<double>(y);
    }
    if (seconds < kBurstSeconds) runner.bursts.push_back(total / kSegmentFrames);
    if (seconds > kBurstSeconds + kSilenceSeconds - kDeepSeconds) {
        runner.deep.push_back(total / kSegmentFrames);
    }
}

} // namespace

int main(int argc, char** argv) {
    uint32_t frames = 256, seed = 1;
    std::string plugin = BRISEL_CLAP_FILE;
    CLI::App app("Times the plug-in beside the LV2 reverbs that are installed.");
    app.add_option("--frames", frames, "block length")
        ->check(CLI::IsMember({64, 128, 256, 512, 1024}))
        ->capture_default_str();
    app.add_option("--seed", seed, "of the random order")->capture_default_str();
    app.add_option("--plugin", plugin, "the plug-in")->capture_default_str();
    parse_or_exit(app, argc, argv);

    flush_to_zero();
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
        peers.push_back(std::move(peer));
    }

    std::mt19937 random(seed);
    std::vector<size_t> order(runners.size());
    for (size_t k = 0; k < order.size(); ++k) order[k] = k;
    const auto end = static_cast<uint64_t>((kBurstSeconds + kSilenceSeconds) * kRate);
    for (uint64_t from = 0; from < end; from += kSegmentFrames) {
        std::ranges::shuffle(order, random);
        for (size_t index : order) render_segment(runners[index], from, frames, clock);
    }

    fmt::print("{}, 48 kHz, {} frames a block, default settings, flush-to-zero on\n\n",
               processor_name(), frames);
    fmt::print("| reverb | noise bursts, ns/frame | x Brisel | deep silence, ns/frame | x Brisel | "
               "99 % of blocks, us |\n|---|---|---|---|---|---|\n");
    std::ranges::stable_sort(runners, {}, [](const Runner& r) { return median(r.bursts); });
    const auto brisel = *std::ranges::find(runners, "Brisel", &Runner::name);
    for (const Runner& runner : runners) {
        if (!(runner.tail_energy > 0.0)) {
            fmt::print(stderr, "left out: {}: {} at its default settings\n", runner.name,
                       runner.tail_energy == 0.0 ? "no tail" : "output that is no number");
            continue;
        }
        const double bursts = median(runner.bursts), deep = median(runner.deep);
        fmt::print("| {} | {:.1f} | {:.1f} | {:.1f} | {:.1f} | {:.1f} |\n", runner.name, bursts,
                   bursts / median(brisel.bursts), deep, deep / median(brisel.deep),
                   quantile(runner.blocks, 0.99) * 1e-3);
    }
    if (peers.empty()) {
        fmt::print(stderr, "bench_peers: no LV2 reverb is installed; see bench/peers --help\n");
    }
}
