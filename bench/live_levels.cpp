// bench_live_levels: how loud the presets of Brisel Live are. Each one's wet signal alone, on a
// recording; its level is the rms over the length of the recording. Also how far Auto Level lets
// steady noise move.
#include <fmt/format.h>
#include <sndfile.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

#include "bench/signal_analysis.h"
#include "core/flush_to_zero.h"
#include "live/engine/presets.h"
#include "live/engine/reverb.h"

namespace {

using namespace bench;
using namespace brisel::live;

constexpr uint32_t kBlock = 512;

struct Recording {
    double rate = 0.0;
    Signal channels[2];
};

Recording read_recording(const std::string& file) {
    SF_INFO info = {};
    SNDFILE* sound = sf_open(file.c_str(), SFM_READ, &info);
    if (!sound) {
        fmt::print(stderr, "{}: {}\n", file, sf_strerror(nullptr));
        std::exit(1);
    }
    Signal interleaved(static_cast<size_t>(info.frames * info.channels));
    sf_readf_float(sound, interleaved.data(), info.frames);
    sf_close(sound);
    Recording recording;
    recording.rate = info.samplerate;
    const auto channels = static_cast<size_t>(info.channels);
    for (size_t c : {size_t{0}, size_t{1}})
        for (size_t t = 0; t < interleaved.size(); t += channels)
            recording.channels[c].push_back(interleaved[t + std::min(c, channels - 1)]);
    return recording;
}

// Of the wet signal, dB full scale, from `from` frames on.
double wet_level(Settings settings, const Recording& in, size_t from = 0) {
    settings[kMix] = 1.0;
    Reverb reverb;
    reverb.values().load(settings);
    if (!reverb.prepare(in.rate, kBlock)) std::abort();
    const Tempo tempo = {120.0};
    double sum = 0.0;
    const size_t frames = in.channels[0].size();
    for (size_t t = 0; t + kBlock <= frames; t += kBlock) {
        Signal out[2] = {Signal(kBlock), Signal(kBlock)};
        const float* const x[2] = {&in.channels[0][t], &in.channels[1][t]};
        float* const y[2] = {out[0].data(), out[1].data()};
        reverb.process(x, y, kBlock, {}, &tempo);
        if (t >= from) sum += power(out[0], 0, kBlock) + power(out[1], 0, kBlock);
    }
    const size_t blocks = (frames - from) / kBlock;
    return decibels(sum / 2.0 / static_cast<double>(blocks));
}

void presets(const std::string& file) {
    const Recording recording = read_recording(file);
    std::vector<double> levels;
    for (const FactoryPreset& preset : factory_presets()) {
        Preset read;
        if (!read_preset(preset.text, read)) std::abort();
        levels.push_back(wet_level(read.settings, recording));
    }
    const double middle = 0.5 * (std::ranges::max(levels) + std::ranges::min(levels));
    fmt::print(
        "| preset | wet level, dBFS | from the middle, dB | wet gain |\n|---|---:|---:|---:|\n");
    size_t k = 0;
    for (const FactoryPreset& preset : factory_presets()) {
        Preset read;
        read_preset(preset.text, read);
        fmt::print("| {} | {:.1f} | {:+.1f} | {:+.1f} |\n", preset.key, levels[k],
                   levels[k] - middle, read.settings[kWetGain]);
        ++k;
    }
    fmt::print("\nlargest difference: {:.1f} dB\n",
               std::ranges::max(levels) - std::ranges::min(levels));
}

void auto_level(bool modulate) {
    const auto level = [&](double decay, double size, double damp, double stages) {
        Settings settings = default_settings();
        settings[kDecay] = decay;
        settings[kSize] = size;
        settings[kDamp] = damp;
        settings[kScattering] = stages;
        settings[kModulation] = modulate ? 1.0 : 0.0;
        const auto settled = static_cast<size_t>((0.8 * decay + 1.0) * 48000.0) / kBlock * kBlock;
        Recording noise;
        noise.rate = 48000.0;
        for (uint32_t c : {0u, 1u}) noise.channels[c] = white_noise(settled + 4 * 48000, c);
        return wet_level(settings, noise, settled);
    };
    const double expected = level(2.0, 0.04, 0.3, 2.0);
    double least = 0.0, most = 0.0;
    for (double decay : {0.3, 1.0, 3.0, 10.0})
        for (double size : {0.01, 0.04, 0.1, 0.3})
            for (double damp : {0.0, 0.3, 0.7})
                for (double stages : {0.0, 1.0, 2.0, 3.0}) {
                    const double difference = level(decay, size, damp, stages) - expected;
                    least = std::min(least, difference);
                    most = std::max(most, difference);
                }
    fmt::print("steady noise, {}: {:+.2f} .. {:+.2f} dB, to stay within 1.5\n",
               modulate ? "modulated" : "not modulated", least, most);
}

} // namespace

int main(int argc, char** argv) {
    std::string file = BRISEL_DRY_EXAMPLE;
    bool only_presets = false;
    CLI::App app("Prints the levels of Brisel Live's presets and what Auto Level leaves.");
    app.add_option("recording", file, "what the presets are played on")->capture_default_str();
    app.add_flag("--presets", only_presets, "the presets only");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    const brisel::FlushToZeroScope flush_to_zero;
    presets(file);
    if (only_presets) return 0;
    for (bool modulate : {true, false}) auto_level(modulate);
}
