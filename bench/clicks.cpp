// bench_clicks: how much each parameter clicks when it steps between two values and back while the
// reverb sounds: Brisel Live's, the exact plug-in's, and those of the LV2 reverbs that are
// installed. The meter is click_meter.h. With --record, what a sweep of Size sounds like, for
// pictures.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bench/clap_instance.h"
#include "bench/click_meter.h"
#include "bench/lv2_peer.h"
#include "core/flush_to_zero.h"
#include "live/engine/reverb.h"

namespace {

using namespace bench;
using namespace brisel::live;

constexpr double kRate = 48000.0;
constexpr uint32_t kBlock = 64;       // frames, between which controls move
constexpr double kApart = 3.0;        // seconds between one change and the next
constexpr uint32_t kStaircase = 1024; // frames, of a host that sends few values

// A reverb whose one parameter is in question.
struct Subject {
    std::function<void(double position)> turn; // 0 .. 1 between the two values
    std::function<void(const float* const in[2], float* const out[2])> process;
};

// What the parameter does: its position at a number of seconds, and when and how long it moves.
struct Course {
    std::function<double(double)> position;
    std::vector<double> changes;
    double duration = 0.0;
    double length;
};

const Course kSteps = {[](double s) { return s >= kApart && s < 2 * kApart ? 1.0 : 0.0; },
                       {kApart, 2 * kApart},
                       0.0,
                       3 * kApart};
const Course kNothing = {[](double) { return 0.0; }, {kApart}, 0.0, 2 * kApart};

// From the one value to the other and back in two seconds, on a logarithmic course where the
// subject has one.
Course sweep(bool staircase) {
    return {[staircase](double s) {
                if (staircase) s = std::floor(s * kRate / kStaircase) * kStaircase / kRate;
                return std::max(0.0, 1.0 - std::fabs(s - kApart - 1.0));
            },
            {kApart},
            2.0,
            2 * kApart + 2.0};
}

using Sound = std::array<std::vector<float>, 2>;

Sound render(const Subject& subject, const Course& course) {
    const auto frames = static_cast<size_t>(course.length * kRate) / kBlock * kBlock;
    const std::vector<float> left = click_programme(kRate, frames, 1);
    const std::vector<float> right = click_programme(kRate, frames, 2);
    Sound out = {std::vector<float>(frames), std::vector<float>(frames)};
    double position = -1.0;
    for (size_t t = 0; t < frames; t += kBlock) {
        const double now = course.position(static_cast<double>(t) / kRate);
        if (now != position) subject.turn(position = now);
        const float* const in[2] = {left.data() + t, right.data() + t};
        float* const to[2] = {out[0].data() + t, out[1].data() + t};
        subject.process(in, to);
    }
    return out;
}

double measure(const Subject& subject, const Course& course) {
    double worst = -300.0;
    for (const auto& channel : render(subject, course)) {
        for (double change : course.changes) {
            // Without what follows the next change.
            const auto end = static_cast<size_t>((change + kApart + course.duration) * kRate);
            const auto heard = std::span(channel).first(std::min(end, channel.size()));
            const auto at = static_cast<size_t>(change * kRate) / kBlock * kBlock;
            worst = std::max(worst, click_db(heard, at, kRate, course.duration));
        }
    }
    return worst;
}

// The left side as 32-bit floats, in FOLDER/NAME.f32.
void record(const std::string& folder, const std::string& name, const Sound& sound) {
    const std::string file = folder + "/" + name + ".f32";
    std::ofstream stream(file, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(sound[0].data()),
                 static_cast<std::streamsize>(sound[0].size() * sizeof(float)));
    if (!stream.flush()) {
        fmt::print(stderr, "bench_clicks: cannot write {}\n", file);
        std::exit(1);
    }
    fmt::print("{}\n", file);
}

// ---- Brisel Live --------------------------------------------------------------------------------

struct LiveRow {
    const char* name;
    Id id;
    double from, to;
    std::vector<std::pair<Id, double>> with = {}; // settings besides Mix 1
};

// Settings of all rows, from the command line.
std::vector<std::pair<Id, double>> everywhere;

void read_setting(const std::string& text) {
    const size_t equals = text.find('=');
    const Id id = find_key(text.substr(0, equals));
    const auto value = id == kParameters || equals == std::string::npos
                           ? std::nullopt
                           : from_text(parameters()[id], text.substr(equals + 1));
    if (!value) throw CLI::ValidationError("--set", "'" + text + "' is no key=value");
    everywhere.emplace_back(id, *value);
}

class LiveSubject {
public:
    explicit LiveSubject(const LiveRow& row) : row_(row) {
        reverb_.values().set_plain(kMix, 1.0);
        for (const auto& [id, value] : everywhere) reverb_.values().set_plain(id, value);
        for (const auto& [id, value] : row.with) reverb_.values().set_plain(id, value);
        if (!reverb_.prepare(kRate, kBlock)) std::abort();
    }
    Subject subject() {
        return {[this](double position) { turn(position); },
                [this](const float* const in[2], float* const out[2]) {
                    reverb_.process(in, out, kBlock, {events_, count_}, nullptr);
                    count_ = 0;
                }};
    }

private:
    void turn(double position) {
        const Parameter& p = parameters()[row_.id];
        const double a = to_position(p, row_.from), b = to_position(p, row_.to);
        events_[0] = {0, row_.id, false, from_position(p, a + (b - a) * position)};
        count_ = 1;
    }

    LiveRow row_;
    Reverb reverb_;
    Event events_[1];
    size_t count_ = 0;
};

const LiveRow kLiveRows[] = {
    {"Mix", kMix, 0.0, 1.0},
    {"Width", kWidth, 0.0, 1.0},
    {"Wet Gain", kWetGain, -24.0, 12.0},
    {"Bypass", kBypass, 0.0, 1.0},
    {"Auto Level", kAutoLevel, 0.0, 1.0, {{kDecay, 8.0}}},
    {"Duck", kDuck, 0.0, 24.0},
    {"Duck Release, ducking 24 dB", kDuckRelease, 0.05, 2.0, {{kDuck, 24.0}}},
    {"Scattering 0, 3", kScattering, 0.0, 3.0},
    {"Scattering 1, 2", kScattering, 1.0, 2.0},
    {"EQ Low", kEqLow, -24.0, 24.0},
    {"EQ High", kEqHigh, -24.0, 24.0},
    {"Low Cut", kLowCut, 20.0, 2000.0},
    {"High Cut", kHighCut, 500.0, 20000.0},
    {"Decay", kDecay, 0.1, 60.0},
    {"Decay 0.5, 4 s", kDecay, 0.5, 4.0},
    {"Damp", kDamp, 0.0, 1.0},
    {"Size", kSize, 0.005, 0.5},
    {"Size 40, 160 ms", kSize, 0.04, 0.16},
    {"Predelay", kPredelay, 0.0, 0.5},
    {"Early Reflections", kEarlyReflections, 0.0, 1.0, {{kErLevel, 1.0}}},
    {"ER Size", kErSize, 0.006, 0.5, {{kEarlyReflections, 1.0}, {kErLevel, 1.0}}},
    {"ER Level", kErLevel, 0.0, 1.0, {{kEarlyReflections, 1.0}}},
    {"Diffusion", kDiffusion, 0.0, 1.0},
    {"Freeze", kFreeze, 0.0, 1.0},
    {"Clear", kClear, 0.0, 1.0},
    {"Modulation", kModulation, 0.0, 1.0},
    {"Mod Depth", kModDepth, 0.0, 0.33e-3},
    {"Mod Rate", kModRate, 0.1, 4.0},
};
const LiveRow kLiveSweeps[] = {
    {"Size 20..200..20 ms", kSize, 0.02, 0.2},
    {"Decay 0.1..60..0.1 s", kDecay, 0.1, 60.0},
    {"Damp", kDamp, 0.0, 1.0},
    {"Predelay", kPredelay, 0.0, 0.5},
    {"Low Cut", kLowCut, 20.0, 2000.0},
    {"High Cut", kHighCut, 500.0, 20000.0},
};

void print(const std::string& reverb, const std::string& what, const std::string& how, double db) {
    fmt::print("| {} | {} | {} | {:.1f} |\n", reverb, what, how, db);
    std::fflush(stdout);
}

double live_click(const LiveRow& row, const Course& course) {
    LiveSubject subject(row);
    return measure(subject.subject(), course);
}

// ---- The exact plug-in, which starts anew with every change -------------------------------------

struct ExactRow {
    const char* name;
    clap_id id;
    double from, to;
};
constexpr clap_id kExactMix = 4;
constexpr ExactRow kExactRows[] = {{"Mix", kExactMix, 0.0, 1.0},
                                   {"Width", 5, 0.0, 1.0},
                                   {"Decay 0.5, 4 s", 1, 0.5, 4.0},
                                   {"Damp", 3, 0.0, 1.0},
                                   {"Size 40, 160 ms", 0, 0.04, 0.16}};

double exact_click(const ExactRow& row, const Course& course) {
    const ClapLibrary library(BRISEL_CLAP_FILE);
    ClapInstance exact(library);
    exact.start(kRate, kBlock);
    float silence[kBlock] = {}, unheard[2][kBlock];
    exact.set_parameter(kExactMix, 1.0);
    exact.process(silence, silence, unheard[0], unheard[1]);
    return measure({[&](double position) {
                        exact.set_parameter(row.id, row.from + (row.to - row.from) * position);
                    },
                    [&](const float* const in[2], float* const out[2]) {
                        exact.process(in[0], in[1], out[0], out[1]);
                    }},
                   course);
}

// ---- The others ---------------------------------------------------------------------------------

bool worth_turning(const std::string& name) {
    std::string lower = name;
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return std::tolower(c); });
    constexpr const char* kWords[] = {"size", "decay", "time", "mix",
                                      "wet",  "delay", "damp", "width"};
    return std::ranges::any_of(
        kWords, [&](const char* word) { return lower.find(word) != std::string::npos; });
}

// Null where the plug-in cannot run here.
std::unique_ptr<Lv2Peer> start(Lv2World& world, const LilvPlugin* plugin) {
    std::string why_not;
    auto peer = Lv2Peer::start(world, plugin, kRate, kBlock, why_not);
    if (!peer)
        fmt::print(stderr, "left out: {}: {}\n", lilv_node_as_uri(lilv_plugin_get_uri(plugin)),
                   why_not);
    return peer;
}

// With one of its controls in question, or none.
Subject subject(Lv2Peer& peer, std::optional<size_t> control) {
    return {[&peer, control](double position) {
                if (!control) return;
                const Lv2Peer::Control& c = peer.controls()[*control];
                *c.value = c.least + (c.most - c.least) * static_cast<float>(position);
            },
            [&peer](const float* const in[2], float* const out[2]) {
                peer.process(in[0], in[1], out[0], out[1]);
            }};
}

// A new instance for each control, so that each starts from the defaults.
void print_peer(Lv2World& world, const LilvPlugin* plugin) {
    const auto first = start(world, plugin);
    if (!first) return;
    const double at_rest = measure(subject(*first, std::nullopt), kNothing);
    if (at_rest < -200.0) {
        fmt::print(stderr, "left out: {}: silent at its default settings\n", first->name());
        return;
    }
    print(first->name(), "nothing", "at rest", at_rest);
    for (size_t k = 0; k < first->controls().size(); ++k) {
        const Lv2Peer::Control& c = first->controls()[k];
        if (!worth_turning(c.name)) continue;
        const auto peer = start(world, plugin);
        print(first->name(), c.name, "step and back", measure(subject(*peer, k), kSteps));
    }
}

// Of those that have a control of that name.
void record_peer(Lv2World& world, const LilvPlugin* plugin, const std::string& folder) {
    const auto peer = start(world, plugin);
    if (!peer) return;
    for (size_t k = 0; k < peer->controls().size(); ++k) {
        if (peer->controls()[k].name != "Size") continue;
        record(folder, peer->name(), render(subject(*peer, k), sweep(false)));
    }
}

} // namespace

int main(int argc, char** argv) {
    bool no_peers = false;
    std::string only, folder;
    CLI::App app("Prints how much each parameter clicks, dB below the programme.");
    app.add_flag("--no-peers", no_peers, "Brisel Live only");
    app.add_option("--only", only, "parameters of Brisel Live whose name begins so");
    app.add_option_function<std::vector<std::string>>(
        "--set",
        [](const std::vector<std::string>& settings) {
            for (const std::string& setting : settings) read_setting(setting);
        },
        "key=value, as in a preset but with numbers as shown: a setting of Brisel Live in every "
        "row");
    app.add_option("--record", folder, "write what a sweep of Size sounds like into this folder");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    const brisel::FlushToZeroScope flush_to_zero; // as hosts have it
    if (!folder.empty()) {
        LiveSubject live(kLiveSweeps[0]);
        record(folder, "Brisel Live", render(live.subject(), sweep(false)));
        Lv2World world;
        for (const LilvPlugin* plugin : world.reverbs()) record_peer(world, plugin, folder);
        return 0;
    }
    fmt::print("| reverb | parameter | how | click, dB |\n|---|---|---|---:|\n");
    if (only.empty())
        print("Brisel Live", "nothing", "at rest", live_click(kLiveRows[0], kNothing));
    for (const LiveRow& row : kLiveRows) {
        if (!std::string_view(row.name).starts_with(only)) continue;
        print("Brisel Live", row.name, "step and back", live_click(row, kSteps));
    }
    for (const LiveRow& row : kLiveSweeps) {
        if (!std::string_view(row.name).starts_with(only)) continue;
        print("Brisel Live", row.name, "swept in 2 s", live_click(row, sweep(false)));
        print("Brisel Live", row.name, "the same, every 1024 frames", live_click(row, sweep(true)));
    }
    if (no_peers) return 0;
    print("Brisel", "nothing", "at rest", exact_click(kExactRows[0], kNothing));
    for (const ExactRow& row : kExactRows)
        print("Brisel", row.name, "step and back", exact_click(row, kSteps));
    Lv2World world;
    for (const LilvPlugin* plugin : world.reverbs()) print_peer(world, plugin);
}
