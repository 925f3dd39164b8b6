// What the user sees of a run: tables, the progress bar, the summary of a file as a sentence or as
// JSON, warnings.
#pragma once

#include "render/clap_host.h"
#include "render/jobs.h"
#include "render/preset.h"
#include "render/renderer.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace brisel::render {

// A bar on standard error while it is a terminal; nothing elsewhere. Removed when it goes out of
// scope.
class ProgressBar {
public:
    ProgressBar(std::string label, bool wanted);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void show(uint64_t done, uint64_t total);

private:
    std::string label_;
    bool enabled_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point next_{};
};

// Name, option, range, default, unit, value in force (as the plug-in shows it); as an array with
// values in seconds, dB or the unit itself.
std::string parameter_table(const Plugin& plugin, std::span<const double> values, bool as_json);

std::string preset_table(std::span<const ShippedPreset> presets, bool as_json);

// A job that is done.
struct Rendered {
    Job job;
    SoundFormat format;
    bool dithered;
    Summary summary;
    std::string lost; // metadata of the input that the result lacks, in words
};

// "wet.wav: 12.31 s, tail 3.00 s, peak -4.2 dBFS, 16 bit, 380 times real time"
std::string sentence(const Rendered& result);

// One object on one line, units in the keys; levels of silence are null. Valid UTF-8 whatever the
// names of files hold.
std::string json(const Rendered& result);

// Clipping, when the format cuts off what is beyond full scale, and metadata that is lost.
std::vector<std::string> warnings(const Rendered& result);

} // namespace brisel::render
