// brisel-render: sound files through the plug-in, loaded the way a host loads it.
// Owns the order of things and the exit codes; see the other units for what they do.
#include "render/automation.h"
#include "render/batch.h"
#include "render/clap_host.h"
#include "render/errors.h"
#include "render/interrupt.h"
#include "render/jobs.h"
#include "render/options.h"
#include "render/output_file.h"
#include "render/preset.h"
#include "render/report.h"
#include "render/streams.h"

#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <optional>

namespace fs = std::filesystem;

namespace brisel::render {

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// The plug-in's values after the state, the preset and the options, which count in this order.
std::vector<double> starting_values(Plugin& plugin, const Options& options) {
    if (!options.state.empty() && !plugin.load_state(read_file(options.state)))
        throw Failure(fmt::format("{} is no state of this plug-in", input_name(options.state)));

    const auto& parameters = plugin.parameters();
    std::vector<double> values = plugin.values();
    if (!options.preset.empty())
        for (const ParameterChange& change :
             read_preset(find_preset(options.preset, plugin.is_live()), parameters))
            values[change.index] = change.value;
    for (const Setting& setting : options.settings) {
        const size_t index = *find_parameter(parameters, setting.option);
        try {
            values[index] = parameters[index].parse(setting.text);
        } catch (const ValueError& e) {
            throw UsageError(fmt::format("--{}: {}", setting.option, e.what()));
        }
    }
    if (options.wet_only) {
        const auto mix = find_parameter(parameters, "mix");
        if (!mix) throw Failure("the plug-in has no Mix, which --wet-only needs");
        values[*mix] = 1.0;
    }
    plugin.set_values(values);
    return plugin.values();
}

int run(int argc, char** argv) {
    const EarlyOptions early = parse_early_options(argc, argv);
    std::optional<PluginLibrary> library;
    std::unique_ptr<Plugin> plugin; // knows parameters and settings; others render
    try {
        library.emplace(early.plugin.empty() ? default_plugin_file(early.live) : early.plugin);
        plugin = library->create();
    } catch (const Failure& e) {
        // The general options can be told without the plug-in, its parameters cannot.
        if (!early.help_or_version) throw;
        complain(e.what());
    }
    const auto options =
        parse_options(argc, argv, plugin ? plugin->parameters() : std::vector<Parameter>{});
    if (!options) return 0;

    const std::vector<Job> jobs = plan_jobs(*options);
    RenderSettings settings{.values = starting_values(*plugin, *options),
                            .automation = {},
                            .block = options->block,
                            .tail_seconds = options->tail_seconds,
                            .dry_gain = options->dry_gain,
                            .normalize_peak = options->normalize_peak};
    if (!options->automation.empty())
        settings.automation = read_automation(options->automation, plugin->parameters());

    std::FILE* const messages = message_stream(jobs, *options);
    if (options->list_presets)
        fmt::print(messages, "{}", preset_table(shipped_presets(plugin->is_live()), options->json));
    if (options->list_parameters)
        fmt::print(messages, "{}", parameter_table(*plugin, settings.values, options->json));
    if (!options->save_state.empty()) write_file(options->save_state, plugin->save_state());
    if (!options->save_preset.empty())
        write_preset(options->save_preset, plugin->parameters(), settings.values);
    return render_all(*library, jobs, settings, *options) ? 0 : kExitFailure;
}

} // namespace

} // namespace brisel::render

using namespace brisel::render;

int main(int argc, char** argv) {
    fill_standard_descriptors();
    catch_signals();
    try {
        const int result = run(argc, argv);
        if (std::fflush(stdout) != 0) throw Failure("cannot write to standard output");
        return result;
    } catch (const UsageError& e) {
        complain(e.what());
        fmt::print(stderr, "'brisel-render --help' shows the options.\n");
        return kExitUsage;
    } catch (const Interrupted& interrupted) {
        die_by_signal(interrupted.signal);
    } catch (const std::exception& e) {
        complain(e.what());
        return kExitFailure;
    }
}
