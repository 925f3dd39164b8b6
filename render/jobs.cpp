#include "render/jobs.h"

#include "render/errors.h"
#include "render/streams.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <map>

namespace fs = std::filesystem;

namespace brisel::render {

namespace {

struct Input {
    fs::path file;
    fs::path name; // below the folder of the results
};

// The files of a command line: `IN OUT`, `IN... -o FOLDER` or `IN -o FILE`.
struct Files {
    std::vector<Input> inputs;
    fs::path output;
    bool output_is_folder = false;
};

// Endings of files to look for in folders: those that can be written, and others to read.
bool may_be_sound(const fs::path& file) {
    constexpr std::array<std::string_view, 8> kReadOnly{".mp3", ".mp2", ".wave",  ".aifc",
                                                        ".snd", ".sd2", ".wavex", ".bwf"};
    std::string ending = file.extension().string();
    if (is_sound_ending(ending)) return ending != ".raw";
    for (char& c : ending)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return std::ranges::find(kReadOnly, ending) != kReadOnly.end();
}

bool is_hidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

// The sound files below a folder, by name, less hidden ones and those that lie where results go.
void walk(const fs::path& folder, const fs::path& output, std::vector<Input>& inputs) {
    std::vector<fs::path> found;
    std::error_code error;
    fs::recursive_directory_iterator at(folder, error);
    for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
        const fs::path& path = at->path();
        std::error_code missing;
        if (at->is_directory(missing) && (is_hidden(path) || fs::equivalent(path, output, missing)))
            at.disable_recursion_pending();
        else if (at->is_regular_file(missing) && !is_hidden(path) && may_be_sound(path))
            found.push_back(path);
    }
    if (error)
        throw Failure(
            fmt::format("cannot read the folder '{}': {}", folder.string(), error.message()));
    std::ranges::sort(found);
    for (const fs::path& file : found) inputs.push_back({file, file.lexically_relative(folder)});
}

std::vector<Input> find_inputs(const std::vector<std::string>& names, const fs::path& output,
                               const Options& options) {
    std::vector<Input> inputs;
    for (const std::string& name : names) {
        std::error_code error;
        if (!fs::is_directory(name, error)) {
            inputs.push_back({name, fs::path(name).filename()});
            continue;
        }
        if (!options.recursive || options.output.empty())
            throw UsageError(fmt::format("'{0}' is a folder; all sound files in it are rendered by "
                                         "`brisel-render {0} --recursive -o FOLDER`",
                                         name));
        const size_t before = inputs.size();
        walk(name, output, inputs);
        if (inputs.size() == before)
            throw Failure(fmt::format("there are no sound files in the folder '{}'", name));
    }
    return inputs;
}

Files assign_files(const Options& o) {
    Files files;
    std::vector<std::string> names = o.files;
    if (!o.output.empty()) {
        if (names.empty()) throw UsageError("there is no input");
        files.output = o.output;
        const bool names_a_file =
            !fs::is_directory(files.output) && files.output.has_filename() &&
            (is_device(files.output) || is_sound_ending(files.output.extension().string()));
        files.output_is_folder = !names_a_file;
        files.inputs = find_inputs(names, files.output, o);
        if (names_a_file && files.inputs.size() > 1)
            throw UsageError(
                fmt::format("{} is one file, and there are {} inputs: -o needs a folder",
                            output_name(files.output), files.inputs.size()));
    } else if (names.size() == 2) {
        files.output = names.back();
        names.pop_back();
        files.inputs = find_inputs(names, files.output, o);
    } else if (!names.empty() || !o.has_other_work()) {
        throw UsageError(names.empty() ? "there is no input and no output"
                         : names.size() == 1
                             ? "there is no output"
                             : "there are several inputs: name a folder for the results with -o");
    }
    return files;
}

// The ending that chooses the format of `out`.
std::string chosen_ending(const fs::path& out, const Options& options) {
    if (fs::is_directory(out))
        throw UsageError(fmt::format("'{}' is a folder: put -o in front of it", out.string()));
    if (!options.format.empty()) return options.format;
    std::string ending = out.extension().string();
    // Standard output and a device such as /dev/null have no ending to go by.
    if (ending.empty() && (is_device(out) || is_standard_output(out))) return "wav";
    if (ending.empty())
        throw UsageError(fmt::format("'{}' has no ending that names a sound format; use --format",
                                     out.string()));
    return ending;
}

Job job_into_folder(const Input& in, const fs::path& folder, const Options& options) {
    // Formats that can be read but not written become WAV.
    std::string ending = in.name.extension().string();
    if (!options.format.empty())
        ending = options.format;
    else if (!is_sound_ending(ending))
        ending = ".wav";
    if (in.file == kStandardStream)
        throw UsageError("standard input has no name for its result: name a file with -o");
    ending = sound_format(ending, options.bits).ending;
    return {in.file, folder / fs::path(in.name).replace_extension(ending), ending};
}

void refuse_overwriting(const std::vector<Job>& jobs) {
    std::map<fs::path, fs::path> in_of_out;
    std::error_code missing;
    for (const Job& job : jobs) {
        const fs::path out = fs::weakly_canonical(job.out, missing);
        const auto [other, fresh] = in_of_out.emplace(out, job.in);
        if (!fresh)
            throw UsageError(fmt::format("'{}' and '{}' would both become '{}'",
                                         other->second.string(), job.in.string(),
                                         job.out.string()));
    }
    for (const Job& job : jobs) {
        if (!fs::is_regular_file(job.in, missing)) continue;
        if (in_of_out.contains(fs::weakly_canonical(job.in, missing)))
            throw UsageError(
                fmt::format("'{}' is an input and would be overwritten", job.in.string()));
    }
}

} // namespace

std::vector<Job> plan_jobs(const Options& options) {
    const Files files = assign_files(options);
    std::vector<Job> jobs;
    for (const Input& in : files.inputs) {
        if (files.output_is_folder) {
            jobs.push_back(job_into_folder(in, files.output, options));
            continue;
        }
        const SoundFormat format = sound_format(chosen_ending(files.output, options), options.bits);
        jobs.push_back({in.file, files.output, format.ending});
    }
    refuse_overwriting(jobs);
    return jobs;
}

} // namespace brisel::render
