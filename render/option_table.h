// The table of options: names, groups, types and descriptions, as they are told to the parser. What
// is parsed here are texts only; options.cpp looks at their values.
#pragma once

#include "render/options.h"

#include <CLI/CLI.hpp>

#include <span>
#include <string>
#include <vector>

namespace brisel::render {

struct OptionTexts {
    std::string plugin, bits, block, tail, dry_gain, normalize, rate, channels, jobs;
};

// An option for each parameter of the plug-in; those given are appended to `settings`.
void add_parameter_options(CLI::App& app, std::span<const Parameter> parameters,
                           std::vector<Setting>& settings);

// All others. Flags and names go right into `options`.
void add_other_options(CLI::App& app, Options& options, OptionTexts& texts);

} // namespace brisel::render
