// Parameter changes over time, read from a text file of `time name value` lines.
#pragma once

#include "render/clap_host.h"

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace brisel::render {

struct AutomationStep {
    double seconds;
    size_t index; // of the parameter
    double value;
    std::string place; // "FILE:LINE", for messages
};

// In order of time; steps of one time in order of their lines.
using Automation = std::vector<AutomationStep>;

// Lines such as `2.5s  decay  8s`; blank ones and whatever follows a # count as nothing.
// Throws Failure with file and line.
Automation read_automation(const std::filesystem::path& file,
                           std::span<const Parameter> parameters);

} // namespace brisel::render
