// Which file is rendered to which. Owns the choice of names and formats and the refusal of results
// that would replace an input or each other.
#pragma once

#include "render/options.h"

#include <filesystem>
#include <vector>

namespace brisel::render {

struct Job {
    std::filesystem::path in;
    std::filesystem::path out;
    SoundFormat format;
};

// Throws UsageError when inputs and outputs do not go together.
std::vector<Job> plan_jobs(const Options& options);

} // namespace brisel::render
