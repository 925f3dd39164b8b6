// bench_live_measure: what Brisel Live's late reverberation sounds like, in figures, each beside
// what it has to reach. Everything is measured at 48 kHz on the engine itself, wet.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <functional>
#include <limits>
#include <memory>

#include "bench/signal_analysis.h"
#include "bench/statistics.h"
#include "brisel/reverb.h"
#include "core/flush_to_zero.h"
#include "live/engine/late.h"

namespace {

using namespace bench;
using brisel::live::Late;
using brisel::live::LateSettings;

constexpr double kRate = 48000.0;
constexpr size_t kBlock = 64; // frames; settings change between two

constexpr LateSettings kDefaults;

using Course = std::function<LateSettings(double seconds)>;
using Stereo = std::array<Signal, 2>;

size_t frames_of(double seconds) {
    return static_cast<size_t>(seconds * kRate) / kBlock * kBlock;
}

// Renders the input while the settings follow their course.
Stereo render(const Stereo& in, const Course& course) {
    Late late;
    late.prepare(kRate);
    LateSettings settings = course(0.0);
    late.set(settings);
    late.reset();
    const brisel::FlushToZeroScope flush_to_zero;
    const size_t frames = in[0].size() / kBlock * kBlock;
    Stereo out = {Signal(frames), Signal(frames)};
    for (size_t t = 0; t < frames; t += kBlock) {
        const LateSettings next = course(static_cast<double>(t) / kRate);
        if (!(next == settings)) late.set(settings = next);
        const float* const x[2] = {&in[0][t], &in[1][t]};
        float* const y[2] = {&out[0][t], &out[1][t]};
        late.run(x, y, kBlock);
    }
    return out;
}

Course still(const LateSettings& settings) {
    return [=](double) { return settings; };
}

Course step(const LateSettings& before, const LateSettings& after, double at) {
    return [=](double t) { return t < at ? before : after; };
}

Stereo noise(double seconds, uint32_t seed) {
    return {white_noise(frames_of(seconds), 2 * seed),
            white_noise(frames_of(seconds), 2 * seed + 1)};
}

Stereo click(double seconds, double at) {
    Stereo x = {Signal(frames_of(seconds)), Signal(frames_of(seconds))};
    x[0][frames_of(at)] = 1.0f;
    return x;
}

void row(std::string_view what, double figure, std::string_view unit, std::string_view goal) {
    fmt::print("| {} | {:.2f} {} | {} |\n", what, figure, unit, goal);
}

void heading(std::string_view title) {
    fmt::print("\n| {} | measured | to reach |\n|---|---:|---|\n", title);
}

LateSettings with(const std::function<void(LateSettings&)>& change) {
    LateSettings settings = kDefaults;
    change(settings);
    return settings;
}

// Peak beyond 1.2 kHz from `from` to `to` over the rms before, dB, the worse side; the programme
// lies below 200 Hz.
double click_level(const Course& course, double from, double to) {
    Stereo in = noise(to, 7);
    for (Signal& x : in) butterworth8(x, Pass::kLow, 200.0, kRate);
    Stereo out = render(in, course);
    double worst = -std::numeric_limits<double>::infinity();
    for (Signal& y : out) {
        const double before = power(y, frames_of(from - 1.0), frames_of(from));
        butterworth8(y, Pass::kHigh, 1200.0, kRate);
        const double highest = peak(y, frames_of(from), frames_of(to));
        worst = std::max(worst, decibels(highest * highest / before));
    }
    return worst;
}

struct Extremes {
    std::string_view name;
    LateSettings a, b;
    std::function<void(LateSettings&, double)>
        blend; // 0 .. 1 from a to b; null: there is no between
    std::string_view goal;
};

std::vector<Extremes> extremes() {
    using S = LateSettings;
    const auto pair = [](std::string_view name, const std::function<void(S&, double)>& set,
                         bool steps, std::string_view goal) {
        S a = kDefaults;
        S b = kDefaults;
        set(a, 0.0);
        set(b, 1.0);
        return Extremes{name, a, b, steps ? nullptr : set, goal};
    };
    return {
        pair(
            "Decay 0.1, 60 s", [](S& s, double x) { s.decay = 0.1 * std::pow(600.0, x); }, false,
            "-60"),
        pair(
            "Damp 0, 1", [](S& s, double x) { s.damp = x; }, false, "-60"),
        pair(
            "Size 5, 500 ms", [](S& s, double x) { s.size = 0.005 * std::pow(100.0, x); }, false,
            "-60"),
        pair(
            "Size 20, 200 ms", [](S& s, double x) { s.size = 0.02 * std::pow(10.0, x); }, false,
            "-60"),
        pair(
            "Diffusion 0, 1", [](S& s, double x) { s.diffusion = x; }, false, "-60"),
        pair(
            "Freeze", [](S& s, double x) { s.freeze = x > 0.5; }, true, "-60"),
        pair(
            "Modulation", [](S& s, double x) { s.modulate = x > 0.5; }, true, "-60"),
        pair(
            "Mod Depth 0, 0.33 ms", [](S& s, double x) { s.mod_depth = 0.33e-3 * x; }, false,
            "-60"),
        pair(
            "K 0, 3", [](S& s, double x) { s.stages = x > 0.5 ? 3 : 0; }, true, "-75"),
        pair(
            "K 2, 3", [](S& s, double x) { s.stages = x > 0.5 ? 3 : 2; }, true, "-75"),
    };
}

void clicks() {
    heading("clicks, dB");
    row("at rest", click_level(still(kDefaults), 2.0, 3.0), "dB", "");
    row("at rest, not modulated",
        click_level(still(with([](LateSettings& s) { s.modulate = false; })), 2.0, 3.0), "dB", "");
    for (const Extremes& e : extremes()) {
        row(fmt::format("{}: there", e.name), click_level(step(e.a, e.b, 2.0), 2.0, 3.0), "dB",
            e.goal);
        const Course back = [&](double t) { // what is frozen must have been heard before
            return t < 0.7 || t >= 2.0 ? e.a : e.b;
        };
        row(fmt::format("{}: back", e.name), click_level(back, 2.0, 3.0), "dB", e.goal);
        if (!e.blend) continue;
        const Course stairs = [&](double t) {
            LateSettings s = e.a;
            const double stair = std::floor((t - 2.0) * kRate / 1024.0) * 1024.0 / kRate;
            e.blend(s, std::clamp(stair, 0.0, 1.0));
            return s;
        };
        row(fmt::format("{}: in 1 s, stairs of 1024 frames", e.name), click_level(stairs, 2.0, 3.5),
            "dB", e.goal);
    }
    for (const double frames : {64.0, 1024.0}) {
        const Course sweep = [=](double t) {
            const double stair = std::floor((t - 2.0) * kRate / frames) * frames / kRate;
            const double way = 1.0 - std::fabs(1.0 - std::clamp(stair, 0.0, 2.0));
            return with([&](LateSettings& s) { s.size = 0.02 * std::pow(10.0, way); });
        };
        row(fmt::format("Size swept 20, 200, 20 ms in 2 s, stairs of {} frames", frames),
            click_level(sweep, 2.0, 4.0), "dB", "-75");
    }
}

// The deepest fall below the lower one of the courses without the change, dB.
double deepest_dip(const LateSettings& a, const LateSettings& b) {
    constexpr int kNoises = 12;
    constexpr double kStop = 1.0;
    constexpr double kChange = 1.1;
    constexpr double kEnd = 2.1;
    constexpr double kWindow = 0.02;
    std::vector<double> sums[3];
    for (int seed = 0; seed < kNoises; ++seed) {
        Stereo in = noise(kEnd, static_cast<uint32_t>(seed));
        for (Signal& x : in) std::fill(x.data() + frames_of(kStop), x.data() + x.size(), 0.0f);
        const Course courses[] = {still(a), still(b), step(a, b, kChange)};
        for (size_t c = 0; c < 3; ++c) {
            const Stereo out = render(in, courses[c]);
            sums[c].resize(static_cast<size_t>((kEnd - kChange) / kWindow));
            for (size_t w = 0; w < sums[c].size(); ++w) {
                const size_t from = frames_of(kChange) + w * static_cast<size_t>(kWindow * kRate);
                for (const Signal& y : out)
                    sums[c][w] += power(y, from, from + static_cast<size_t>(kWindow * kRate));
            }
        }
    }
    double deepest = 0.0;
    for (size_t w = 0; w < sums[0].size(); ++w) {
        const double lower = std::min(sums[0][w], sums[1][w]);
        if (lower < 1e-8 * kNoises) break; // 80 dB below the noise: nobody listens any more
        deepest = std::max(deepest, decibels(lower / sums[2][w]));
    }
    return deepest;
}

void tails() {
    heading("the tail goes on: deepest fall below the lower course, dB");
    const auto size = [](double ms, double decay) {
        return with([=](LateSettings& s) { s.size = ms / 1000.0, s.decay = decay; });
    };
    const double sizes[][2] = {{5, 40},  {40, 200}, {5, 500}, {40, 5},
                               {200, 5}, {500, 5},  {200, 40}};
    for (const double decay : {0.5, 2.0, 10.0})
        for (const auto& [from, to] : sizes) {
            const double goal = 6.0 + 90.0 * std::max(0.0, (from - to) / 1000.0) / decay;
            row(fmt::format("Size {} to {} ms, Decay {} s", from, to, decay),
                deepest_dip(size(from, decay), size(to, decay)), "dB", fmt::format("{:.1f}", goal));
        }
    for (const Extremes& e : extremes()) {
        if (e.name.starts_with("Size")) continue;
        row(fmt::format("{}: there", e.name), deepest_dip(e.a, e.b), "dB", "6");
        row(fmt::format("{}: back", e.name), deepest_dip(e.b, e.a), "dB", "6");
    }
}

void freezing() {
    heading("frozen");
    const auto level = [](const Stereo& y, double at) {
        return decibels(power(y[0], frames_of(at), frames_of(at + 1.0)) +
                        power(y[1], frames_of(at), frames_of(at + 1.0)));
    };
    for (int k = 0; k <= 3; ++k) {
        LateSettings open = kDefaults;
        open.stages = k;
        LateSettings frozen = open;
        frozen.freeze = true;
        const Stereo y = render(noise(64.0, 3), step(open, frozen, 2.0));
        row(fmt::format("level after 60 s, K = {}", k), level(y, 62.5) - level(y, 2.5), "dB",
            "+-1");
    }
    const Course sweep = [](double t) {
        LateSettings s = with([&](LateSettings& x) { x.freeze = t >= 2.0; });
        const double way = 1.0 - std::fabs(1.0 - std::clamp((t - 3.0) / 2.0, 0.0, 2.0));
        s.size = 0.04 * std::pow(4.0, way);
        return s;
    };
    const Stereo y = render(noise(9.0, 4), sweep);
    row("level after Size went 40, 160, 40 ms in 4 s", level(y, 7.5) - level(y, 2.2), "dB", "+-4");
    Stereo low = y;
    for (Signal& x : low) butterworth8(x, Pass::kLow, 100.0, kRate);
    row("the same below 100 Hz", level(low, 7.5) - level(low, 2.2), "dB", "");
}

// Ten minutes of random settings, frozen half of the time.
void stability(double minutes) {
    Late late;
    late.prepare(kRate);
    std::mt19937 random(11);
    const auto uniform = [&] { return std::uniform_real_distribution<double>(0.0, 1.0)(random); };
    const brisel::FlushToZeroScope flush_to_zero;
    const Stereo in = noise(10.0, 5);
    double loudest = 0.0;
    Signal left(kBlock), right(kBlock);
    float* const y[2] = {left.data(), right.data()};
    const size_t frames = frames_of(60.0 * minutes);
    for (size_t t = 0; t < frames; t += kBlock) {
        if (random() % 100 == 0) {
            LateSettings s = kDefaults;
            s.decay = 60.0;
            s.size = 0.005 * std::pow(100.0, uniform());
            s.damp = uniform() < 0.5 ? 0.0 : uniform();
            s.stages = static_cast<int>(random() % 4);
            s.mod_depth = 0.33e-3 * uniform();
            s.mod_rate = 4.0 * uniform() + 0.1;
            s.diffusion = uniform();
            s.freeze = random() % 2 == 0;
            late.set(s);
        }
        const size_t at = t % in[0].size();
        const float* const x[2] = {&in[0][at], &in[1][at]};
        late.run(x, y, kBlock);
        loudest = std::max(loudest, power(left, 0, kBlock) + power(right, 0, kBlock));
    }
    // A stationary network of 60 s at rest under the same noise, as the programme.
    const LateSettings longest = with([](LateSettings& s) { s.decay = 60.0, s.damp = 0.0; });
    const Stereo rest = render(noise(60.0, 5), still(longest));
    double programme = 0.0;
    for (size_t t = 0; t < rest[0].size(); t += kBlock)
        programme =
            std::max(programme, power(rest[0], t, t + kBlock) + power(rest[1], t, t + kBlock));
    heading("stability");
    row(fmt::format("loudest 64 frames in {} minutes against 60 s at rest", minutes),
        decibels(loudest / programme), "dB", "6");
}

// Decay times of both sides after four clicks, at all frequencies and from 8 to 12 kHz; means.
std::array<double, 2> mean_decay(const LateSettings& settings) {
    std::array<double, 2> sums = {0.0, 0.0};
    for (const double at : {0.1, 0.35, 0.6, 0.85})
        for (Signal& side : render(click(settings.decay + at + 0.6, at), still(settings))) {
            sums[0] += decay_time(side, kRate) / 8.0;
            butterworth8(side, Pass::kHigh, 8000.0, kRate);
            butterworth8(side, Pass::kLow, 12000.0, kRate);
            sums[1] += decay_time(side, kRate) / 8.0;
        }
    return sums;
}

void decays() {
    heading("decay time, %");
    for (const double decay : {0.5, 1.0, 2.0, 4.0, 8.0})
        for (const double size : {0.02, 0.04, 0.1}) {
            auto settings = kDefaults;
            settings.size = size;
            settings.decay = decay;
            settings.damp = 0.0;
            const auto modulated = mean_decay(settings);
            settings.modulate = false;
            const auto plain = mean_decay(settings);
            const auto name = fmt::format("{} s, Size {} ms", decay, size * 1000.0);
            row(name + ", not modulated, against the setting", 100.0 * (plain[0] / decay - 1.0),
                "%", "");
            row(name + ", against the setting", 100.0 * (modulated[0] / decay - 1.0), "%", "+-3");
            row(name + ", 8 to 12 kHz against not modulated",
                100.0 * (modulated[1] / plain[1] - 1.0), "%", "+-4");
        }
}

double sine_noise(const LateSettings& settings, double hz, double distance) {
    constexpr size_t kFrames = 1 << 18;
    const Signal x = sine(frames_of(3.0) + kFrames, hz, kRate);
    const Stereo y = render({x, x}, still(settings));
    return power_beside(y[0], frames_of(3.0) - kBlock, kFrames, hz, distance, kRate);
}

double late_flatness(const LateSettings& settings) {
    double sum = 0.0;
    for (const double at : {0.1, 0.35, 0.6, 0.85}) {
        const Stereo y = render(click(3.5, at), still(settings));
        for (const Signal& side : y)
            sum += spectral_flatness(side, frames_of(at + 0.5), 1 << 16, kRate);
    }
    return sum / 8.0;
}

void modulation() {
    heading("modulation");
    row("beside a sine of 5 kHz, beyond 200 Hz", sine_noise(kDefaults, 5000.0, 200.0), "dB", "-70");
    fmt::print(
        "\n| Size 20 ms: Mod Depth in samples, Mod Rate | flatness (0.50) | sine of 1 kHz, beyond "
        "20 Hz (-50 dB) | sine of 5 kHz, beyond 200 Hz |\n|---|---:|---:|---:|\n");
    for (const double depth : {0.0, 1.0, 2.0, 4.0, 8.0, 15.84})
        for (const double rate : {0.3, 1.0, 2.0, 4.0}) {
            if (depth == 0.0 && rate != 1.0) continue;
            const auto s = with([&](LateSettings& x) {
                x.size = 0.02, x.mod_depth = depth / kRate, x.mod_rate = rate;
            });
            fmt::print("| {}, {} | {:.3f} | {:.1f} dB | {:.1f} dB |\n", depth, rate,
                       late_flatness(s), sine_noise(s, 1000.0, 20.0), sine_noise(s, 5000.0, 200.0));
        }
}

// When the echo density has fallen below 0.8 for the last time, from 10 ms behind the onset on;
// seconds, 0 for never.
double last_gap(const Signal& y, size_t onset) {
    double last = 0.0;
    for (size_t t = frames_of(0.01); t < frames_of(0.4); t += 24)
        if (echo_density(y, onset + t, kRate) < 0.8) last = static_cast<double>(t) / kRate;
    return last;
}

void diffusion() {
    heading("diffusion");
    for (const int k : {2, 3})
        for (const double size : {0.02, 0.04, 0.08}) {
            double crest[2];
            double flatness[2];
            double level[2];
            double decay[2];
            for (int on = 0; on < 2; ++on) {
                const auto s =
                    with([&](LateSettings& x) { x.stages = k, x.size = size, x.diffusion = on; });
                const Stereo y = render(click(3.5, 0.1), still(s));
                size_t onset = 0;
                while (std::fabs(y[0][onset]) < 1e-4f) ++onset;
                const size_t end = onset + frames_of(0.02);
                const double highest = peak(y[0], onset, end);
                crest[on] = decibels(highest * highest / power(y[0], onset, end));
                flatness[on] = late_flatness(s);
                decay[on] = mean_decay(s)[0];
                const Stereo steady = render(noise(4.0, 9), still(s));
                level[on] = decibels(power(steady[0], frames_of(2.0), frames_of(4.0) - kBlock));
                if (on == 0) continue;
                row(fmt::format("K = {}, Size {} ms: density above 0.8 from", k, size * 1000.0),
                    last_gap(y[0], onset) * 1000.0, "ms", size > 0.05 ? "20" : "10");
            }
            row("peak over rms of the first 20 ms, against 0", crest[1] - crest[0], "dB", "-8");
            row("late flatness, against 0", flatness[1] - flatness[0], "", "0");
            row("T30, against 0", 100.0 * (decay[1] / decay[0] - 1.0), "%", "0");
            row("steady level, against 0", level[1] - level[0], "dB", "0");
        }
}

// Time against the exact reverb's, both in turn, blocks of 512.
void times() {
    constexpr int32_t kFrames = 512;
    constexpr int kRounds = 400;
    heading("time against the exact reverb's, blocks of 512");
    const Clock clock;
    const Stereo in = noise(0.1, 6);
    Signal left(kFrames), right(kFrames);
    const std::unique_ptr<qv_reverb, void (*)(qv_reverb*)> exact(qv_reverb_create(48000, kFrames),
                                                                 qv_reverb_destroy);
    const auto ratio = [&](std::string_view name, const Course& course, std::string_view goal) {
        Late late;
        late.prepare(kRate);
        late.set(course(0.0));
        late.reset();
        std::vector<double> ratios;
        for (int round = 0; round < kRounds; ++round) {
            double ns[2] = {0.0, 0.0};
            for (int block = 0; block < 8; ++block) {
                ns[0] += clock.time([&] {
                    qv_reverb_process(exact.get(), in[0].data(), in[1].data(), left.data(),
                                      right.data(), kFrames);
                });
                const brisel::FlushToZeroScope flush_to_zero;
                ns[1] += clock.time([&] {
                    late.set(course((round * 8 + block) * kFrames / kRate));
                    for (size_t t = 0; t < kFrames; t += brisel::live::kLongestSlice) {
                        const float* const x[2] = {&in[0][t], &in[1][t]};
                        float* const y[2] = {&left[t], &right[t]};
                        late.run(x, y, brisel::live::kLongestSlice);
                    }
                });
            }
            ratios.push_back(ns[1] / ns[0]);
        }
        row(name, median(ratios), "x", goal);
    };
    Late used;
    used.prepare(kRate);
    double slowest = 0.0;
    for (int k = 0; k < 60; ++k) { // from one network with three stages to another one
        const brisel::FlushToZeroScope flush_to_zero;
        used.set(with([&](LateSettings& s) { s.stages = 3 - k % 2, s.size = 0.5; }));
        for (size_t t = 0; t < frames_of(0.2); t += kBlock) {
            const float* const x[2] = {in[0].data(), in[1].data()};
            float* const y[2] = {left.data(), right.data()};
            used.run(x, y, kBlock);
        }
        const double ns = clock.time([&] { used.reset(); });
        if (k > 5) slowest = std::max(slowest, ns);
    }
    row("reset, slowest of 54", slowest / 1000.0, "us", "50");
    const auto swing = [](double t) { return 0.5 + 0.5 * std::sin(2.0 * std::numbers::pi * t); };
    const auto decay = [&](LateSettings& s, double t) { s.decay = 1.0 + 3.0 * swing(t); };
    const auto size = [&](LateSettings& s, double t) { s.size = 0.03 + 0.05 * swing(1.3 * t); };
    ratio("at rest", still(kDefaults), "1.25");
    ratio("not modulated", still(with([](LateSettings& s) { s.modulate = false; })), "");
    ratio("deepest and fastest modulation",
          still(with([](LateSettings& s) { s.mod_depth = 0.33e-3, s.mod_rate = 4.0; })), "");
    ratio("Diffusion 1", still(with([](LateSettings& s) { s.diffusion = 1.0; })), "1.5 x at rest");
    ratio(
        "Decay moving", [&](double t) { return with([&](LateSettings& s) { decay(s, t); }); },
        "1.5");
    ratio(
        "Size moving", [&](double t) { return with([&](LateSettings& s) { size(s, t); }); }, "2");
    ratio(
        "both moving",
        [&](double t) { return with([&](LateSettings& s) { decay(s, t), size(s, t); }); }, "");
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Measures Brisel Live's late reverberation."};
    std::vector<std::string> parts;
    double minutes = 10.0;
    app.add_option(
        "parts", parts,
        "clicks, tails, freezing, stability, decays, modulation, diffusion, times; default: all");
    app.add_option("--minutes", minutes, "of random automation")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    const auto wanted = [&](std::string_view part) {
        return parts.empty() || std::find(parts.begin(), parts.end(), part) != parts.end();
    };
    if (wanted("clicks")) clicks();
    if (wanted("tails")) tails();
    if (wanted("freezing")) freezing();
    if (wanted("stability")) stability(minutes);
    if (wanted("decays")) decays();
    if (wanted("modulation")) modulation();
    if (wanted("diffusion")) diffusion();
    if (wanted("times")) times();
}
