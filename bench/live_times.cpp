// bench_live_times: how long Brisel Live takes beside the exact reverb, on the same noise in the
// same run. Both render short segments in turn; a row is the median of the ratios of neighbouring
// segments. A ratio stands beside what it has to stay below.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/statistics.h"
#include "brisel/reverb.h"
#include "live/engine/reverb.h"

namespace {

using namespace bench;
using namespace brisel::live;

constexpr int kRate = 48000;
constexpr uint32_t kSegment = 4096; // frames, rounded to blocks
using Setting = std::pair<Id, double>;

struct Destroy {
    void operator()(qv_reverb* rev) const { qv_reverb_destroy(rev); }
};

struct Row {
    const char* name;
    double limit;
    std::vector<Setting> settings = {};
    std::vector<Id> moving = {}; // parameters that move all the time, with every block
    std::function<void(qv_reverb_params&)> exact = [](qv_reverb_params&) {};
    uint32_t frames = 512, exact_frames = 512; // of a block
};

const std::vector<Setting> kFourBands = {
    {kLowCut, 80.0}, {kEqLow, 3.0}, {kEqHigh, -3.0}, {kHighCut, 9000.0}};

void with_eq(qv_reverb_params& p) {
    p.eq_low_db = 3.0f;
    p.eq_high_db = -3.0f;
}

const Row kRows[] = {
    {"at rest", 1.25},
    {"at rest, K = 3", 1.25, {{kScattering, 3}}, {}, [](auto& p) { p.cascade_stages = 3; }},
    {"early reflections", 1.25, {{kEarlyReflections, 1}}, {}, [](auto& p) { p.er_enable = 1; }},
    {"predelay", 1.5, {{kPredelay, 0.02}}},
    {"diffusion", 1.9, {{kDiffusion, 1}}},
    {"duck", 2.0, {{kDuck, 12}}},
    {"four tone bands, against EQ", 1.5, kFourBands, {}, with_eq},
    {"four tone bands moving, against EQ",
     2.0,
     kFourBands,
     {kLowCut, kEqLow, kEqHigh, kHighCut},
     with_eq},
    {"Mix moving", 1.5, {}, {kMix}},
    {"Decay moving", 1.5, {}, {kDecay}},
    {"Size moving", 2.0, {}, {kSize}},
    {"everything moving, against EQ",
     2.5,
     kFourBands,
     {kSize, kDecay, kDamp, kMix, kWidth, kLowCut, kEqLow, kEqHigh, kHighCut, kWetGain},
     with_eq},
    {"blocks of 441, against 440", 1.3, {}, {}, [](auto&) {}, 441, 440},
    {"blocks of 64", 1.2, {}, {}, [](auto&) {}, 64, 64},
    {"blocks of 31, against 32", 4.0, {}, {}, [](auto&) {}, 31, 32},
};

class Runner {
public:
    explicit Runner(const Row& row)
        : row_(row), exact_(qv_reverb_create(kRate, static_cast<int32_t>(row.exact_frames))) {
        for (const auto& [id, value] : row.settings) live_.values().set_plain(id, value);
        qv_reverb_params p = exact_->params;
        row.exact(p);
        if (!live_.prepare(kRate, row.frames) || qv_reverb_set(exact_.get(), &p) != 0) std::abort();
        std::mt19937 random(1);
        std::uniform_real_distribution<float> uniform(-0.1f, 0.1f);
        for (auto& channel : in_)
            for (float& x : channel) x = uniform(random);
    }

    // Nanoseconds a frame, of one segment.
    double live(const Clock& clock) {
        return in_blocks(row_.frames, clock, [this](const float* const in[2], float* const out[2]) {
            std::vector<Event>& events = events_;
            events.clear();
            ++block_;
            for (Id id : row_.moving) {
                const double position =
                    0.5 + 0.4 * std::sin(0.05 * block_ + static_cast<double>(id));
                events.push_back({0, id, false, from_position(parameters()[id], position)});
            }
            live_.process(in, out, row_.frames, events, nullptr);
        });
    }
    double exact(const Clock& clock) {
        return in_blocks(row_.exact_frames, clock,
                         [this](const float* const in[2], float* const out[2]) {
                             qv_reverb_process(exact_.get(), in[0], in[1], out[0], out[1],
                                               static_cast<int32_t>(row_.exact_frames));
                         });
    }

private:
    template <typename Render>
    double in_blocks(uint32_t frames, const Clock& clock, Render render) {
        const uint32_t blocks = kSegment / frames;
        const double ns = clock.time([&] {
            for (uint32_t k = 0; k < blocks; ++k) {
                const float* const in[2] = {in_[0] + k * frames, in_[1] + k * frames};
                float* const out[2] = {out_[0] + k * frames, out_[1] + k * frames};
                render(in, out);
            }
        });
        return ns / (blocks * frames);
    }

    const Row& row_;
    Reverb live_;
    std::unique_ptr<qv_reverb, Destroy> exact_;
    std::vector<Event> events_;
    double block_ = 0.0;
    alignas(32) float in_[2][kSegment], out_[2][kSegment] = {};
};

void print_row(const Row& row, uint32_t pairs, const Clock& clock) {
    Runner runner(row);
    std::vector<double> ratios, live, exact;
    for (uint32_t k = 0; k < pairs + 50; ++k) {
        const double ours = runner.live(clock), theirs = runner.exact(clock);
        if (k < 50) continue; // until both have been through their memory
        live.push_back(ours);
        exact.push_back(theirs);
        ratios.push_back(ours / theirs);
    }
    fmt::print("| {} | {:.2f} | {:.2f} | {:.1f} | {:.1f} |\n", row.name, median(ratios), row.limit,
               median(live), median(exact));
}

// Nanoseconds a frame of a reverb that is asleep.
double asleep(const Clock& clock) {
    Reverb reverb;
    reverb.values().set_plain(kDecay, 0.1);
    std::vector<float> zeros(512), out_l(512), out_r(512);
    const float* const in[2] = {zeros.data(), zeros.data()};
    float* const out[2] = {out_l.data(), out_r.data()};
    if (!reverb.prepare(kRate, 512)) std::abort();
    Status status = Status::kRunning;
    for (int k = 0; k < 2000; ++k) status = reverb.process(in, out, 512, {}, nullptr);
    if (status != Status::kAsleep) std::abort();
    std::vector<double> ns;
    ns.reserve(2000);
    for (int k = 0; k < 2000; ++k)
        ns.push_back(clock.time([&] { reverb.process(in, out, 512, {}, nullptr); }) / 512.0);
    return median(ns);
}

// Microseconds of resets of a reverb that has filled its memory.
std::vector<double> resets(const Clock& clock) {
    Reverb reverb;
    reverb.values().set_plain(kSize, 0.5);
    reverb.values().set_plain(kScattering, 3);
    reverb.values().set_plain(kDiffusion, 1);
    reverb.values().set_plain(kEarlyReflections, 1);
    std::vector<float> left(4800, 0.25f), right(4800, -0.25f);
    const float* const in[2] = {left.data(), right.data()};
    std::vector<float> out_l(4800), out_r(4800);
    float* const out[2] = {out_l.data(), out_r.data()};
    if (!reverb.prepare(kRate, 4800)) std::abort();
    std::vector<double> us;
    for (int k = 0; k < 200; ++k) {
        for (int block = 0; block < 12; ++block) reverb.process(in, out, 4800, {}, nullptr);
        us.push_back(clock.time([&] { reverb.reset(); }) * 1e-3);
    }
    return us;
}

} // namespace

int main(int argc, char** argv) {
    uint32_t pairs = 400;
    std::string only;
    CLI::App app("Times Brisel Live beside the exact reverb.");
    app.add_option("--pairs", pairs, "of segments, a row")->capture_default_str();
    app.add_option("--only", only, "rows whose name begins so");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    const Clock clock;
    fmt::print("48 kHz, blocks of 512 where not said otherwise, ns a frame\n\n"
               "| | ratio | to stay below | Live | exact |\n|---|---:|---:|---:|---:|\n");
    for (const Row& row : kRows)
        if (std::string_view(row.name).starts_with(only)) print_row(row, pairs, clock);
    if (!only.empty()) return 0;
    fmt::print("\nasleep: {:.2f} ns a frame, to stay below 0.5\n", asleep(clock));
    const std::vector<double> us = resets(clock);
    fmt::print("reset at the longest Size: {:.1f} us, 95 % within {:.1f}, to stay below 50\n",
               median(us), quantile(us, 0.95));
}
