// All jobs of a run, one after the other or several side by side. Owns the instances that render
// and the order of what is printed; leaves each sound to the renderer.
#pragma once

#include "render/clap_host.h"
#include "render/jobs.h"
#include "render/options.h"
#include "render/renderer.h"

#include <string>
#include <vector>

namespace brisel::render {

// Prints a warning or an error.
void complain(const std::string& message);

// Renders all jobs and prints a line for each, in their order whoever is done first. A job that
// fails is reported and does not keep the others from being rendered. Returns whether none failed.
// Throws Interrupted at a signal.
bool render_all(const PluginLibrary& library, const std::vector<Job>& jobs,
                const RenderSettings& settings, const Options& options);

// Where summaries and lists go: standard output, or standard error where that takes a result.
std::FILE* message_stream(const std::vector<Job>& jobs, const Options& options);

} // namespace brisel::render
