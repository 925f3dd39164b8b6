// Renders one sound file through the plug-in: the block loop, the tail and where it ends, levels.
// Owns nothing of files and options; what was refused is explained by block_fit.
#pragma once

#include "render/automation.h"
#include "render/clap_host.h"
#include "render/sound_reader.h"
#include "render/sound_writer.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace brisel::render {

// Frames at the end of an automatic tail in which no sample reaches this are left out: -120 dBFS.
inline constexpr float kTailThreshold = 1e-6f;

inline constexpr uint32_t kDefaultBlock = 256;
inline constexpr double kLongestTail = 3600.0; // seconds

// Whole frames in so many seconds.
uint64_t frames_of(double seconds, int sample_rate);

struct RenderSettings {
    std::vector<double> values;           // of all parameters, in the plug-in's order
    Automation automation;                // changes on the way
    std::optional<uint32_t> block;        // none: kDefaultBlock, or less where Size asks for it
    std::optional<double> tail_seconds;   // none: what the plug-in reports, without silence
    std::optional<double> dry_gain;       // linear; none: the dry signal that the plug-in mixes in
    std::optional<double> normalize_peak; // linear; none: as rendered
};

struct Summary {
    int sample_rate = 0; // Hz
    int input_channels = 0;
    uint64_t input_frames = 0;
    uint64_t frames = 0;       // written: input and tail
    uint32_t block = 0;        // frames
    double peak = 0.0;         // linear, before the format's clipping
    double rms = 0.0;          // linear, over both channels
    uint64_t samples_over = 0; // beyond full scale
    double gain = 1.0;         // linear, of normalize_peak
    double render_seconds = 0.0;
};

// Called after each block with the frames done and the frames to do; 0: not known.
using ProgressCallback = std::function<void(uint64_t done, uint64_t total)>;

// `probe` is a second instance of the plug-in, to try settings on. The writer is not committed.
// Throws Failure; Interrupted at a signal.
Summary render(Plugin& plugin, Plugin& probe, SoundReader& in, SoundWriter& out,
               const RenderSettings& settings, const ProgressCallback& progress);

} // namespace brisel::render
