#include "render/option_table.h"

#include "render/renderer.h"

#include <fmt/format.h>
#include <map>

namespace brisel::render {

namespace {

// What a parameter does to the sound; one that is not listed has its range only.
const std::map<std::string_view, std::string_view> kDescriptions{
    {"size", "Distance of the first echoes, the delay of the shortest line"},
    {"decay", "Time in which the sound decays by 60 dB"},
    {"brisel", "Mixing stages of the feedback matrix; more make denser echoes"},
    {"damp", "How much faster high frequencies decay; 1 is ten times as fast"},
    {"mix", "Share of the reverb in the output; the rest is the dry signal"},
    {"width", "Stereo width of the reverb; 0 is mono"},
    {"modulate", "Slow movement of the delays, against ringing"},
    {"early-reflections", "Discrete first reflections in front of the reverb"},
    {"er-size", "Time of the last early reflection"},
    {"er-level", "Gain of the early reflections"},
    {"eq-low", "Gain of the reverb below 250 Hz"},
    {"eq-high", "Gain of the reverb above 4500 Hz"},
};

std::string_view type_of(Unit unit) {
    switch (unit) {
    case Unit::milliseconds:
    case Unit::seconds:
        return "TIME";
    case Unit::decibels:
        return "GAIN";
    case Unit::hertz:
        return "HZ";
    case Unit::ratio:
        return "SHARE";
    case Unit::on_off:
        return "on|off";
    case Unit::count:
        return "COUNT";
    case Unit::number:
        break;
    }
    return "NUMBER";
}

// Rows of one group.
class Group {
public:
    Group(CLI::App& app, const char* name) : app_(app), name_(name) {}

    template <class Target>
    void text(const char* option, Target& target, const char* type, std::string description) {
        app_.add_option(option, target, std::move(description))->type_name(type)->group(name_);
    }
    void flag(const char* option, bool& target, const char* description) {
        app_.add_flag(option, target, description)->group(name_);
    }

private:
    CLI::App& app_;
    const char* name_;
};

} // namespace

void add_parameter_options(CLI::App& app, std::span<const Parameter> parameters,
                           std::vector<Setting>& settings) {
    for (const Parameter& p : parameters) {
        const auto known = kDescriptions.find(p.option);
        const std::string description =
            fmt::format("{}: {}, default {}", known == kDescriptions.end() ? p.name : known->second,
                        p.range(), p.default_text);
        app.add_option_function<std::string>(
               "--" + p.option,
               [&settings, option = p.option](const std::string& text) {
                   settings.push_back({option, text});
               },
               description)
            ->type_name(p.words.empty() ? std::string(type_of(p.unit)) : "STEP")
            ->group("Reverb");
    }
}

void add_other_options(CLI::App& app, Options& o, OptionTexts& t) {
    Group presets(app, "Settings from files");
    presets.text("--preset", o.preset, "FILE|NAME", "Start from a preset file or a shipped preset");
    presets.text("--save-preset", o.save_preset, "FILE", "Write the settings as a preset");
    presets.text("--state", o.state, "FILE", "Start from a state saved by the plug-in");
    presets.text("--save-state", o.save_state, "FILE", "Write the settings as the plug-in's state");
    presets.text(
        "--automation", o.automation, "FILE",
        "Change settings on the way, each at the first block that starts at or after its "
        "time; every change restarts the reverb's tail. With --live at its exact time, and "
        "the tail goes on");

    Group rendering(app, "Rendering");
    rendering.text(
        "--tail", t.tail, "auto|TIME",
        "What follows the input: as long as the plug-in reports, with --live until it "
        "sleeps, less silence below -120 dBFS at the end, or exactly this long, up to 1 h; "
        "default auto");
    rendering.text("--block", t.block, "FRAMES",
                   fmt::format("Length of the blocks handed to the plug-in, a multiple of 8; "
                               "default {}, or less where a short --size needs it",
                               kDefaultBlock));
    rendering.text("--channels", t.channels, "A,B",
                   "Channels of the input to render, counted from 1; one number is mono; default "
                   "all of a mono or stereo file");
    rendering.text("--rate", t.rate, "HZ",
                   "Sample rate to render at, 9001 to 768000 Hz, which the result has, too; the "
                   "input is resampled to it; default the input's");
    rendering.flag("--wet-only", o.wet_only, "Reverb without the dry signal: --mix 1");
    rendering.text("--dry-gain", t.dry_gain, "GAIN",
                   "Gain of the dry signal, in place of 1 - Mix: -96 dB to +24 dB");
    app.add_flag(
           "--normalize{-1dB}", t.normalize,
           "Scale the result to a peak of -1 dBFS, or of LEVEL: -96 dB to 0 dB; renders twice")
        ->type_name("[=LEVEL]")
        ->group("Rendering");

    Group files(app, "Files");
    files.text("-o,--output", o.output, "FOLDER",
               "Where the results go, under the names of the inputs; made if missing. With one "
               "input also a file");
    files.flag("-r,--recursive", o.recursive,
               "Render the sound files in folders and their folders, into the same folders below "
               "that of -o");
    files.text("-j,--jobs", t.jobs, "COUNT",
               "Render so many files side by side, 1 to 256; default 1");
    files.text("--format", o.format, "ENDING",
               "Format of the results, in place of the one that the ending names");
    files.text("--bits", t.bits, "16|24|32f",
               "Sample format; default the input's where the file's format can hold it");
    files.flag("--dither", o.dither,
               "Add noise of triangular distribution before samples are rounded to 16 or 24 bits");
    files.flag("--live", o.live,
               "Render through Brisel Live, with its parameters and presets: brisel-live.clap");
    files.text("--plugin", t.plugin, "FILE",
               "The plug-in; default brisel.clap, or with --live brisel-live.clap, beside this "
               "program or in ../lib/clap");

    Group information(app, "Information");
    information.flag("--list-parameters", o.list_parameters, "Show parameters and settings");
    information.flag("--list-presets", o.list_presets, "Show the shipped presets");
    information.flag("--json", o.json,
                     "Print JSON: an object a file in place of a sentence, lists as arrays");
    information.flag("-q,--quiet", o.quiet, "Print nothing but errors and warnings");
    app.set_help_flag("-h,--help", "Print this help")->group("Information");
    app.set_version_flag("--version", "brisel-render " BRISEL_VERSION, "Print the version")
        ->group("Information");
}

} // namespace brisel::render
