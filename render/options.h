// The command line as a plain record. Owns the values of options and which options go together;
// leaves files and values of parameters to others.
#pragma once

#include "render/parameter.h"
#include "render/sound_format.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace brisel::render {

struct Setting {
    std::string option; // of a parameter, without dashes: "size"
    std::string text;   // as given: "40ms"
};

struct Options {
    std::vector<std::string> files; // in order, the output among them where -o is not given
    std::string output;             // of -o, or empty
    bool recursive = false;
    uint32_t jobs = 1;  // files side by side
    std::string format; // an ending in place of the output's own, or empty
    Bits bits = Bits::usual;
    bool dither = false;

    std::vector<Setting> settings; // of the reverb's parameters, no option twice
    std::string preset;            // a file or a name, or empty
    std::filesystem::path state, save_state, save_preset, automation; // empty: none

    std::optional<uint32_t> block;        // frames
    std::vector<int> channels;            // from 1; empty: all of a mono or stereo file
    std::optional<int> rate;              // Hz; none: the input's
    std::optional<double> tail_seconds;   // none: auto
    std::optional<double> dry_gain;       // linear
    std::optional<double> normalize_peak; // linear
    bool wet_only = false;
    bool live = false; // Brisel Live in place of the exact plug-in

    bool list_parameters = false;
    bool list_presets = false;
    bool quiet = false;
    bool json = false;

    // Whether there is something to do without any file to render.
    bool has_other_work() const {
        return list_parameters || list_presets || !save_state.empty() || !save_preset.empty();
    }
};

// What has to be known before the plug-in, whose parameters become options, is loaded.
struct EarlyOptions {
    std::filesystem::path plugin; // empty: the default place
    bool live = false;            // Brisel Live in place of the exact plug-in
    bool help_or_version = false;
};

EarlyOptions parse_early_options(int argc, char** argv);

// Each parameter becomes an option. Returns none after printing what --help or --version ask for.
// Throws UsageError.
std::optional<Options> parse_options(int argc, char** argv, std::span<const Parameter> parameters);

} // namespace brisel::render
