#include "render/jobs.h"

#include "render/errors.h"

#include <fmt/format.h>
#include <map>

namespace brisel::render {

namespace fs = std::filesystem;

namespace {

// The ending that chooses the format of `out`.
std::string chosen_ending(const fs::path& out, const Options& options) {
    if (fs::is_directory(out))
        throw UsageError(fmt::format("'{}' is a folder: put -o in front of it", out.string()));
    if (!options.format.empty()) return options.format;
    std::string ending = out.extension().string();
    // A device such as /dev/null has no ending to go by.
    if (ending.empty() && is_device(out)) return "wav";
    if (ending.empty())
        throw UsageError(fmt::format("'{}' has no ending that names a sound format; use --format",
                                     out.string()));
    return ending;
}

Job job_into_folder(const fs::path& in, const Options& options) {
    // Formats that can be read but not written become WAV.
    std::string ending = in.extension().string();
    if (!options.format.empty())
        ending = options.format;
    else if (!is_sound_ending(ending))
        ending = ".wav";
    const SoundFormat format = sound_format(ending, options.bits);
    return {in, options.output / in.filename().replace_extension(format.ending), format};
}

} // namespace

std::vector<Job> plan_jobs(const Options& options) {
    std::vector<Job> jobs;
    for (const fs::path& in : options.inputs) {
        if (options.output_is_folder) {
            jobs.push_back(job_into_folder(in, options));
        } else {
            const std::string ending = chosen_ending(options.output, options);
            jobs.push_back({in, options.output, sound_format(ending, options.bits)});
        }
    }

    std::map<fs::path, fs::path> in_of_out;
    for (const Job& job : jobs) {
        const auto [other, fresh] = in_of_out.emplace(fs::weakly_canonical(job.out), job.in);
        if (!fresh)
            throw UsageError(fmt::format("'{}' and '{}' would both become '{}'",
                                         other->second.string(), job.in.string(),
                                         job.out.string()));
        std::error_code missing;
        for (const fs::path& in : options.inputs)
            if (fs::equivalent(in, job.out, missing))
                throw UsageError(
                    fmt::format("'{}' is an input and would be overwritten", in.string()));
    }
    return jobs;
}

} // namespace brisel::render
