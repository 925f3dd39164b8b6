// Presets: settings as small text files, one `name = value` a line, and where the shipped ones are.
#pragma once

#include "render/clap_host.h"

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace brisel::render {

// Settings that the file does not mention are not in the result. Throws Failure with file and line.
std::vector<ParameterChange> read_preset(const std::filesystem::path& file,
                                         std::span<const Parameter> parameters);

// All of `values`, in a form that read_preset turns back into exactly these. Throws Failure.
void write_preset(const std::filesystem::path& file, std::span<const Parameter> parameters,
                  std::span<const double> values);

struct ShippedPreset {
    std::string name;
    std::string description; // the file's first comment
    std::filesystem::path file;
};

// Sorted by name; none when they are not installed. With `live` those of Brisel Live.
std::vector<ShippedPreset> shipped_presets(bool live);

// The file that --preset means: an existing file, or else a shipped preset of that name.
// Throws Failure that lists the names.
std::filesystem::path find_preset(const std::string& file_or_name, bool live);

} // namespace brisel::render
