// brisel-render: sound files through the plug-in, loaded the way a host loads it.
// Owns the order of things and the exit codes; see the other units for what they do.
#include "render/automation.h"
#include "render/clap_host.h"
#include "render/errors.h"
#include "render/interrupt.h"
#include "render/jobs.h"
#include "render/options.h"
#include "render/preset.h"
#include "render/renderer.h"
#include "render/report.h"

#include <cstdio>
#include <fmt/format.h>
#include <optional>

namespace brisel::render {

namespace fs = std::filesystem;

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

void complain(const std::string& message) {
    fmt::print(stderr, "brisel-render: {}\n", message);
}

// The plug-in with the two instances that rendering takes.
struct Host {
    explicit Host(const fs::path& file)
        : library(file), plugin(library.create()), probe(library.create()) {}

    PluginLibrary library;
    std::unique_ptr<Plugin> plugin;
    std::unique_ptr<Plugin> probe;
};

// The plug-in's values after the state, the preset and the options, which count in this order.
std::vector<double> starting_values(Plugin& plugin, const Options& options) {
    if (!options.state.empty() && !plugin.load_state(read_file(options.state)))
        throw Failure(fmt::format("'{}' is no state of this plug-in", options.state.string()));

    const auto& parameters = plugin.parameters();
    std::vector<double> values = plugin.values();
    if (!options.preset.empty())
        for (const ParameterChange& change : read_preset(find_preset(options.preset), parameters))
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

void make_folder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw Failure(
            fmt::format("cannot make the folder '{}': {}", folder.string(), error.message()));
}

void render_job(const Host& host, const Job& job, const RenderSettings& settings,
                const Options& options) {
    SoundReader in(job.in);
    if (options.output_is_folder) make_folder(options.output);
    SoundWriter out(job.out, job.format, in.sample_rate(),
                    in.frames() + frames_of(options.tail_seconds.value_or(0.0), in.sample_rate()));
    Summary summary;
    {
        ProgressBar bar(job.in.filename().string(), !options.quiet);
        summary = render(*host.plugin, *host.probe, in, out, settings,
                         [&](uint64_t done, uint64_t total) { bar.show(done, total); });
    }
    out.commit();
    if (const std::string warning = clipping_warning(job, summary); !warning.empty())
        complain(warning);
    if (options.json)
        fmt::print("{}", json(job, summary));
    else if (!options.quiet)
        fmt::print("{}", sentence(job, summary));
    std::fflush(stdout); // a pipe shall see each file when it is done
}

// With several inputs a faulty one does not keep the others from being rendered.
int render_all(const Host& host, const std::vector<Job>& jobs, const RenderSettings& settings,
               const Options& options) {
    int result = 0;
    for (const Job& job : jobs) {
        try {
            render_job(host, job, settings, options);
        } catch (const Failure& e) {
            check_interrupt(); // which may be what made it fail
            complain(e.what());
            result = kExitFailure;
        }
    }
    return result;
}

int run(int argc, char** argv) {
    const EarlyOptions early = parse_early_options(argc, argv);
    std::optional<Host> host;
    try {
        host.emplace(early.plugin.empty() ? default_plugin_file() : early.plugin);
    } catch (const Failure& e) {
        // The general options can be told without the plug-in, its parameters cannot.
        if (!early.help_or_version) throw;
        complain(e.what());
    }
    const auto options =
        parse_options(argc, argv, host ? host->plugin->parameters() : std::vector<Parameter>{});
    if (!options) return 0;

    const std::vector<Job> jobs = plan_jobs(*options);
    Plugin& plugin = *host->plugin;
    RenderSettings settings{.values = starting_values(plugin, *options),
                            .automation = {},
                            .block = options->block,
                            .tail_seconds = options->tail_seconds,
                            .dry_gain = options->dry_gain,
                            .normalize_peak = options->normalize_peak};
    if (!options->automation.empty())
        settings.automation = read_automation(options->automation, plugin.parameters());

    if (options->list_presets) fmt::print("{}", preset_table(shipped_presets()));
    if (options->list_parameters) fmt::print("{}", parameter_table(plugin, settings.values));
    if (!options->save_state.empty()) write_file(options->save_state, plugin.save_state());
    if (!options->save_preset.empty())
        write_preset(options->save_preset, plugin.parameters(), settings.values);
    return render_all(*host, jobs, settings, *options);
}

} // namespace

} // namespace brisel::render

using namespace brisel::render;

int main(int argc, char** argv) {
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
