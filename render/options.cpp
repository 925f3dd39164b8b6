#include "render/options.h"

#include "render/errors.h"
#include "render/help.h"
#include "render/option_table.h"
#include "render/renderer.h"
#include "render/suggest.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <fmt/format.h>

namespace brisel::render {

namespace {

constexpr uint32_t kLongestBlock = 1 << 20;
constexpr double kMostJobs = 256;
constexpr double kMostChannels = 1024;

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

int whole_number(const std::string& option, const std::string& text, double min, double max) {
    return static_cast<int>(value_within(option, text, Unit::count, min, max));
}

double linear(double decibels) {
    return std::pow(10.0, decibels / 20.0);
}

std::vector<int> read_channels(const std::string& text) {
    const size_t comma = text.find(',');
    std::vector<int> channels{whole_number("--channels", text.substr(0, comma), 1, kMostChannels)};
    if (comma != std::string::npos)
        channels.push_back(whole_number("--channels", text.substr(comma + 1), 1, kMostChannels));
    return channels;
}

void read_values(const OptionTexts& t, Options& o) {
    if (!t.tail.empty() && t.tail != "auto")
        o.tail_seconds = value_within("--tail", t.tail, Unit::seconds, 0.0, kLongestTail);
    if (!t.block.empty()) {
        o.block = static_cast<uint32_t>(whole_number("--block", t.block, 8, kLongestBlock));
        if (*o.block % 8 != 0)
            throw UsageError(fmt::format("--block: {} is no multiple of 8", *o.block));
    }
    if (!t.channels.empty()) o.channels = read_channels(t.channels);
    if (!t.rate.empty()) o.rate = whole_number("--rate", t.rate, 9001, 768000);
    if (!t.jobs.empty())
        o.jobs = static_cast<uint32_t>(whole_number("--jobs", t.jobs, 1, kMostJobs));
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
    if (o.dither && o.bits == Bits::float32)
        throw UsageError("--dither and --bits 32f contradict each other: nothing is rounded");
    const auto standard_inputs = std::ranges::count(o.files, "-") + (o.preset == "-") +
                                 (o.state == "-") + (o.automation == "-");
    const bool sound_out =
        o.output == "-" || (o.output.empty() && o.files.size() > 1 && o.files.back() == "-");
    if (standard_inputs - (o.output.empty() && sound_out) > 1)
        throw UsageError("standard input is named more than once");
    if (sound_out + (o.save_preset == "-") + (o.save_state == "-") > 1)
        throw UsageError("standard output is named more than once");
    if (!o.wet_only) return;
    if (o.dry_gain) throw UsageError("--wet-only and --dry-gain contradict each other");
    for (const Setting& s : o.settings)
        if (s.option == "mix") throw UsageError("--wet-only and --mix contradict each other");
}

// A word that starts with a dash is an option, whatever it may look like.
void check_normalize(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; ++i) {
        const std::string_view level = argv[i + 1];
        if (std::string_view(argv[i]) == "--normalize" && level.size() > 1 && level[0] == '-' &&
            (std::isdigit(static_cast<unsigned char>(level[1])) || level[1] == '.'))
            throw UsageError(
                fmt::format("the level of --normalize is written behind =: --normalize={}", level));
    }
}

[[noreturn]] void refuse_unknown(const CLI::App& app, const CLI::ParseError& error) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    const std::vector<std::string> extras = app.remaining();
    if (extras.empty()) {
        // "--size: 1 required TIME missing"
        const std::string_view text = error.what();
        const size_t at = text.find(": 1 required ");
        if (at == std::string_view::npos || !text.ends_with(" missing"))
            throw UsageError(error.what());
        const std::string_view type = text.substr(at + 13, text.size() - at - 13 - 8);
        throw UsageError(fmt::format("{} needs a value: {}", text.substr(0, at), type));
    }
    const std::string option = extras.front().substr(0, extras.front().find('='));
    throw UsageError(fmt::format("there is no option '{}'{}", option, did_you_mean(option, names)));
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
        else if (argument == "--live")
            early.live = true;
        else if (argument == "-h" || argument == "--help" || argument == "--version")
            early.help_or_version = true;
    }
    return early;
}

std::optional<Options> parse_options(int argc, char** argv, std::span<const Parameter> parameters) {
    check_normalize(argc, argv);
    Options options;
    OptionTexts texts;
    CLI::App app("Puts sound files through the Brisel reverb.", "brisel-render");
    app.formatter(std::make_shared<HelpFormatter>());
    app.get_formatter()->label("OPTIONS", "Options");
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_option("files", options.files, "")
        ->group("")
        ->multi_option_policy(CLI::MultiOptionPolicy::Throw);
    add_parameter_options(app, parameters, options.settings);
    add_other_options(app, options, texts);
    app.footer(kHelpFooter);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {
        app.exit(request);
        return std::nullopt;
    } catch (const CLI::ParseError& e) {
        refuse_unknown(app, e);
    }
    read_values(texts, options);
    check_combinations(options);
    return options;
}

} // namespace brisel::render
