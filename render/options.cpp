#include "render/options.h"

#include "render/errors.h"
#include "render/renderer.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <fmt/format.h>
#include <map>

namespace brisel::render {

namespace {

constexpr std::string_view kReverbGroup = "Reverb";
constexpr uint32_t kLongestBlock = 1 << 20;
constexpr double kLongestTail = 3600.0; // seconds

// What a parameter does to the sound; one that is not listed has its range only.
const std::map<std::string_view, std::string_view> descriptions{
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

// Two columns, wrapped at 80 characters, in place of lines of any length.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string,
                          CLI::AppFormatMode mode) const override {
        return "usage: brisel-render IN OUT [OPTION...]\n"
               "       brisel-render IN... -o FOLDER [OPTION...]\n\n" +
               app->get_description() + "\n\n" + make_groups(app, mode) + app->get_footer();
    }

    std::string make_group(std::string group, bool is_positional,
                           std::vector<const CLI::Option*> options) const override {
        std::string text = group + ":\n";
        for (const CLI::Option* option : options) text += make_option(option, is_positional);
        return text;
    }

    std::string make_option_name(const CLI::Option* option, bool) const override {
        std::string names;
        for (const std::string& name : option->get_snames()) names += "-" + name + ", ";
        return names + "--" + option->get_lnames().front();
    }

    std::string make_option(const CLI::Option* option, bool is_positional) const override {
        constexpr size_t column = 30, width = 80;
        std::string text =
            "  " + make_option_name(option, is_positional) + make_option_opts(option);
        text += text.size() + 1 < column ? std::string(column - text.size(), ' ')
                                         : "\n" + std::string(column, ' ');
        size_t at = column;
        std::istringstream words(option->get_description());
        for (std::string word; words >> word;) {
            if (at > column && at + 1 + word.size() > width) {
                text += "\n" + std::string(column, ' ');
                at = column;
            }
            if (at > column) text += ' ';
            text += word;
            at += word.size() + 1;
        }
        return text + "\n";
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        const std::string type = option->get_type_name();
        return type.empty() || type.starts_with('[') ? type : " " + type;
    }
};

constexpr const char* footer = R"(
Values:
Times are written 40ms or 0.04s, a number alone is in seconds; shares 0.35 or
35%; gains -2dB, a number alone is in dB. Settings count in this order: --state,
--preset, then the options above.

Sound files:
Whatever libsndfile reads, mono or stereo, above 9000 Hz. Results are stereo at
the same rate: .wav .aiff .au .w64 .rf64 .caf (32-bit float unless --bits says
otherwise), .flac (24 bits), .ogg, .opus. A result appears under its name when it
is complete. The same input and options give the same bytes, apart from the
random stream number in .ogg and .opus files.

Text files:
An automation file has lines `time name value`, such as `2.5s decay 8s`, a preset
lines `name = value`, such as `size = 40 ms`. A # starts a comment in both.

Exit codes:
  0  success
  1  a file or the plug-in failed
  2  wrong usage

Examples:
  brisel-render dry.wav wet.wav --decay 4 --size 60ms --mix 40%
  brisel-render drums/*.wav -o wet/ --preset hall --json
  brisel-render in.flac out.flac --normalize --tail 5s
)";

// The raw texts, before they are looked at together.
struct Texts {
    std::vector<std::string> files;
    std::string output, plugin, bits, block, tail, dry_gain, normalize;
};

void add_reverb_options(CLI::App& app, std::span<const Parameter> parameters,
                        std::vector<Setting>& settings) {
    for (const Parameter& p : parameters) {
        const auto known = descriptions.find(p.option);
        const std::string description =
            fmt::format("{}: {}, default {}", known == descriptions.end() ? p.name : known->second,
                        p.range(), show_value(p.default_value, p.unit));
        app.add_option_function<std::string>(
               "--" + p.option,
               [&settings, option = p.option](const std::string& text) {
                   settings.push_back({option, text});
               },
               description)
            ->type_name(std::string(type_of(p.unit)))
            ->group(std::string(kReverbGroup));
    }
}

void add_other_options(CLI::App& app, Options& o, Texts& t) {
    const auto text = [&](const char* group, const char* name, auto& target, const char* type,
                          std::string description) {
        app.add_option(name, target, std::move(description))->type_name(type)->group(group);
    };
    const auto flag = [&](const char* group, const char* name, bool& target,
                          const char* description) {
        app.add_flag(name, target, description)->group(group);
    };

    constexpr const char* presets = "Settings from files";
    text(presets, "--preset", o.preset, "FILE|NAME",
         "Start from a preset file or a shipped preset");
    text(presets, "--save-preset", o.save_preset, "FILE", "Write the settings as a preset");
    text(presets, "--state", o.state, "FILE", "Start from a state saved by the plug-in");
    text(presets, "--save-state", o.save_state, "FILE",
         "Write the settings as the plug-in's state");
    text(presets, "--automation", o.automation, "FILE",
         "Change settings on the way, each at the first block that starts at or after its time; "
         "every change restarts the reverb's tail");

    constexpr const char* rendering = "Rendering";
    text(rendering, "--tail", t.tail, "auto|TIME",
         "What follows the input: as long as the plug-in reports, less silence below -120 dBFS at "
         "the end, or exactly this long, up to 1 h; default auto");
    text(rendering, "--block", t.block, "FRAMES",
         fmt::format("Length of the blocks handed to the plug-in, a multiple of 8; default {}, or "
                     "less where a short --size needs it",
                     kDefaultBlock));
    flag(rendering, "--wet-only", o.wet_only, "Reverb without the dry signal: --mix 1");
    text(rendering, "--dry-gain", t.dry_gain, "GAIN",
         "Gain of the dry signal, in place of 1 - Mix: -96 dB to +24 dB");
    app.add_flag(
           "--normalize{-1dB}", t.normalize,
           "Scale the result to a peak of -1 dBFS, or of LEVEL: -96 dB to 0 dB; renders twice")
        ->type_name("[=LEVEL]")
        ->group(rendering);

    constexpr const char* files = "Files";
    text(
        files, "-o,--output", t.output, "FOLDER",
        "Where the results go, under the names of the inputs; made if missing. With one input also "
        "a file");
    text(files, "--format", o.format, "ENDING",
         "Format of the results, in place of the one that the ending names");
    text(files, "--bits", t.bits, "16|24|32f",
         "Sample format; default what suits the file's format");
    text(files, "--plugin", t.plugin, "FILE",
         "The plug-in; default brisel.clap beside this program or in ../lib/clap");

    constexpr const char* information = "Information";
    flag(information, "--list-parameters", o.list_parameters, "Show parameters and settings");
    flag(information, "--list-presets", o.list_presets, "Show the shipped presets");
    flag(information, "--json", o.json, "Print one JSON object a file in place of a sentence");
    flag(information, "-q,--quiet", o.quiet, "Print nothing but errors and warnings");
    app.set_help_flag("-h,--help", "Print this help")->group(information);
    app.set_version_flag("--version", "brisel-render " BRISEL_VERSION, "Print the version")
        ->group(information);
}

double value_within(const std::string& option, const std::string& text, Unit unit, double min,
                    double max) {
    const Parameter limits{.id = 0,
                           .cookie = nullptr,
                           .name = option,
                           .option = option,
                           .min = min,
                           .max = max,
                           .default_value = min,
                           .unit = unit};
    try {
        return limits.parse(text);
    } catch (const ValueError& e) {
        throw UsageError(fmt::format("{}: {}", option, e.what()));
    }
}

double linear(double decibels) {
    return std::pow(10.0, decibels / 20.0);
}

void read_values(const Texts& t, Options& o) {
    if (!t.tail.empty() && t.tail != "auto")
        o.tail_seconds = value_within("--tail", t.tail, Unit::seconds, 0.0, kLongestTail);
    if (!t.block.empty()) {
        o.block =
            static_cast<uint32_t>(value_within("--block", t.block, Unit::count, 8, kLongestBlock));
        if (*o.block % 8 != 0)
            throw UsageError(fmt::format("--block: {} is no multiple of 8", *o.block));
    }
    if (!t.dry_gain.empty())
        o.dry_gain = linear(value_within("--dry-gain", t.dry_gain, Unit::decibels, -96.0, 24.0));
    if (!t.normalize.empty())
        o.normalize_peak =
            linear(value_within("--normalize", t.normalize, Unit::decibels, -96.0, 0.0));
    if (t.bits == "16")
        o.bits = Bits::int16;
    else if (t.bits == "24")
        o.bits = Bits::int24;
    else if (t.bits == "32f")
        o.bits = Bits::float32;
    else if (!t.bits.empty())
        throw UsageError(fmt::format("--bits: '{}' is none of 16, 24 and 32f", t.bits));
}

void check_combinations(const Options& o) {
    if (!o.wet_only) return;
    if (o.dry_gain) throw UsageError("--wet-only and --dry-gain contradict each other");
    for (const Setting& s : o.settings)
        if (s.option == "mix") throw UsageError("--wet-only and --mix contradict each other");
}

// Tells apart `IN OUT`, `IN... -o FOLDER` and `IN -o FILE`.
void assign_files(const Texts& t, Options& o) {
    namespace fs = std::filesystem;
    const bool other_work =
        o.list_parameters || o.list_presets || !o.save_state.empty() || !o.save_preset.empty();
    o.inputs.assign(t.files.begin(), t.files.end());
    if (!t.output.empty()) {
        if (o.inputs.empty()) throw UsageError("there is no input");
        o.output = t.output;
        const bool names_a_file =
            !fs::is_directory(o.output) && o.output.has_filename() &&
            (is_device(o.output) || is_sound_ending(o.output.extension().string()));
        if (names_a_file && o.inputs.size() > 1)
            throw UsageError(
                fmt::format("'{}' is one file, and there are {} inputs: -o needs a folder",
                            t.output, o.inputs.size()));
        o.output_is_folder = !names_a_file;
    } else if (o.inputs.size() == 2) {
        o.output = o.inputs.back();
        o.inputs.pop_back();
    } else if (!o.inputs.empty() || !other_work) {
        throw UsageError(o.inputs.empty() ? "there is no input and no output"
                         : o.inputs.size() == 1
                             ? "there is no output"
                             : "there are several inputs: name a folder for the results with -o");
    }
}

} // namespace

EarlyOptions parse_early_options(int argc, char** argv) {
    EarlyOptions early;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--plugin" && i + 1 < argc)
            early.plugin = argv[++i];
        else if (argument.starts_with("--plugin="))
            early.plugin = argument.substr(9);
        else if (argument == "-h" || argument == "--help" || argument == "--version")
            early.help_or_version = true;
    }
    return early;
}

std::optional<Options> parse_options(int argc, char** argv, std::span<const Parameter> parameters) {
    Options options;
    Texts texts;
    CLI::App app("Puts sound files through the Brisel reverb.", "brisel-render");
    app.formatter(std::make_shared<HelpFormatter>());
    app.get_formatter()->label("OPTIONS", "Options");
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_option("files", texts.files, "")
        ->group("")
        ->multi_option_policy(CLI::MultiOptionPolicy::Throw);
    add_reverb_options(app, parameters, options.settings);
    add_other_options(app, options, texts);
    app.footer(footer);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {
        app.exit(request);
        return std::nullopt;
    } catch (const CLI::ParseError& e) {
        throw UsageError(e.what());
    }
    read_values(texts, options);
    check_combinations(options);
    assign_files(texts, options);
    return options;
}

} // namespace brisel::render
