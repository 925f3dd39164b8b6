#include "render/batch.h"

#include "render/errors.h"
#include "render/interrupt.h"
#include "render/report.h"
#include "render/streams.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace fs = std::filesystem;

namespace brisel::render {

namespace {

// The two instances that rendering takes.
struct Instances {
    explicit Instances(const PluginLibrary& library)
        : plugin(library.create()), probe(library.create()) {}

    std::unique_ptr<Plugin> plugin;
    std::unique_ptr<Plugin> probe;
};

// What a job has to say when it is done.
struct Messages {
    std::string summary;
    std::vector<std::string> complaints;
    bool failed = false;
};

void make_folder_of(const fs::path& file) {
    std::error_code error;
    fs::create_directories(file.parent_path(), error);
    if (error)
        throw Failure(fmt::format("cannot make the folder '{}': {}", file.parent_path().string(),
                                  error.message()));
}

void render_job(const Instances& instances, const Job& job, const RenderSettings& settings,
                const Options& options, bool with_bar, Messages& messages) {
    SoundReader in(job.in, {options.channels, options.rate, settings.normalize_peak.has_value()});
    // -o names a folder that may not be there, and folders below it; an OUT does not.
    if (!options.output.empty() && job.out != options.output) make_folder_of(job.out);
    Rendered result{.job = job,
                    .format = sound_format(job.ending, options.bits, bits_of(in.format())),
                    .dithered = options.dither,
                    .summary = {},
                    .lost = {}};
    if (options.dither && !result.format.holds_integers()) {
        result.dithered = false;
        messages.complaints.push_back(
            fmt::format("{} is not dithered: its samples are not rounded ({})",
                        output_name(job.out), result.format.samples()));
    }
    const uint64_t least_frames =
        in.frames().value_or(0) + frames_of(options.tail_seconds.value_or(0.0), in.sample_rate());
    SoundWriter out(job.out, result.format, result.dithered, in, least_frames);
    {
        ProgressBar bar(job.in.filename().string(), with_bar);
        result.summary = render(*instances.plugin, *instances.probe, in, out, settings,
                                [&](uint64_t done, uint64_t total) { bar.show(done, total); });
    }
    result.lost = out.commit();
    for (const std::string& warning : warnings(result)) messages.complaints.push_back(warning);
    if (options.json)
        messages.summary = json(result) + "\n";
    else if (!options.quiet)
        messages.summary = sentence(result);
}

// Prints messages in the order of their jobs. Any thread.
class Printer {
public:
    Printer(size_t jobs, std::FILE* stream) : messages_(jobs), stream_(stream) {}

    void done(size_t job, Messages messages) {
        const std::lock_guard lock(mutex_);
        messages_[job] = std::move(messages);
        for (; next_ < messages_.size() && messages_[next_]; ++next_) {
            const Messages& m = *messages_[next_];
            for (const std::string& complaint : m.complaints) complain(complaint);
            fmt::print(stream_, "{}", m.summary);
            std::fflush(stream_); // a pipe shall see each file when it is done
            failed_ = failed_ || m.failed;
        }
    }

    bool failed() const { return failed_; }

private:
    std::mutex mutex_;
    std::vector<std::optional<Messages>> messages_;
    std::FILE* stream_;
    size_t next_ = 0;
    bool failed_ = false;
};

} // namespace

void complain(const std::string& message) {
    fmt::print(stderr, "brisel-render: {}\n", message);
}

std::FILE* message_stream(const std::vector<Job>& jobs, const Options& options) {
    const bool taken =
        (!options.save_preset.empty() && is_standard_output(options.save_preset)) ||
        (!options.save_state.empty() && is_standard_output(options.save_state)) ||
        std::ranges::any_of(jobs, [](const Job& job) { return is_standard_output(job.out); });
    return taken ? stderr : stdout;
}

bool render_all(const PluginLibrary& library, const std::vector<Job>& jobs,
                const RenderSettings& settings, const Options& options) {
    const size_t workers = std::min<size_t>(options.jobs, jobs.size());
    std::vector<Instances> instances;
    for (size_t i = 0; i < workers; ++i) instances.emplace_back(library);

    Printer printer(jobs.size(), message_stream(jobs, options));
    std::atomic<size_t> next = 0;
    std::mutex fault_mutex;
    std::exception_ptr fault; // that ends the run: a signal
    const auto work = [&](const Instances& mine) {
        try {
            for (size_t i = next++; i < jobs.size(); i = next++) {
                Messages messages;
                try {
                    render_job(mine, jobs[i], settings, options, workers == 1 && !options.quiet,
                               messages);
                } catch (const Failure& e) {
                    check_interrupt(); // which may be what made it fail
                    messages.complaints.emplace_back(e.what());
                    messages.failed = true;
                }
                printer.done(i, std::move(messages));
            }
        } catch (...) {
            next = jobs.size();
            const std::lock_guard lock(fault_mutex);
            fault = std::current_exception();
        }
    };
    {
        std::vector<std::jthread> threads;
        for (size_t i = 1; i < workers; ++i) threads.emplace_back([&, i] { work(instances[i]); });
        if (workers > 0) work(instances[0]);
    }
    if (fault) std::rethrow_exception(fault);
    return !printer.failed();
}

} // namespace brisel::render
