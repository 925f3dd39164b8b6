// Which file is rendered to which. Owns telling inputs from outputs, walking folders, the choice of
// names and formats, and the refusal of results that would replace an input or each other.
#pragma once

#include "render/options.h"

#include <filesystem>
#include <string>
#include <vector>

namespace brisel::render {

struct Job {
    std::filesystem::path in;
    std::filesystem::path out;
    std::string ending; // that chooses the format of `out`
};

// None when nothing is to be rendered. Throws UsageError when inputs and outputs do not go
// together, Failure when a folder cannot be read.
std::vector<Job> plan_jobs(const Options& options);

} // namespace brisel::render
