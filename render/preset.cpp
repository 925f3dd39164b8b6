#include "render/preset.h"

#include "render/errors.h"
#include "render/output_file.h"
#include "render/suggest.h"
#include "render/text_lines.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace brisel::render {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kEnding = ".preset";

ParameterChange parse_setting(std::string_view text, std::span<const Parameter> parameters) {
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        throw ValueError("a line is `name = value`, for example `size = 40 ms`");
    const std::string_view name = trimmed(text.substr(0, equals));
    const size_t index = need_parameter(parameters, name);
    try {
        return {index, parameters[index].parse(text.substr(equals + 1))};
    } catch (const ValueError& e) {
        throw ValueError(fmt::format("{}: {}", name, e.what()));
    }
}

std::string first_comment(const fs::path& file) {
    const std::string contents = read_file(file);
    const std::string_view line =
        trimmed(std::string_view(contents).substr(0, contents.find('\n')));
    return line.starts_with('#') ? std::string(trimmed(line.substr(1))) : "";
}

} // namespace

std::vector<ParameterChange> read_preset(const fs::path& file,
                                         std::span<const Parameter> parameters) {
    std::vector<ParameterChange> changes;
    for (const TextLine& line : read_lines(file)) {
        try {
            changes.push_back(parse_setting(line.text, parameters));
        } catch (const ValueError& e) {
            throw Failure(fmt::format("{}: {}", line.place, e.what()));
        }
    }
    return changes;
}

void write_preset(const fs::path& file, std::span<const Parameter> parameters,
                  std::span<const double> values) {
    std::string text =
        fmt::format("# {}\n", file == kStandardStream ? "settings" : file.stem().string());
    for (size_t i = 0; i < parameters.size(); ++i)
        text += fmt::format("{} = {}\n", parameters[i].option,
                            show_value(values[i], parameters[i].unit));
    write_file(file, text);
}

std::vector<ShippedPreset> shipped_presets(bool live) {
    std::vector<ShippedPreset> presets;
    for (const fs::path& folder :
         {program_folder() / "presets", program_folder() / "../share/brisel/presets"}) {
        const auto take = [&](const fs::path& file) {
            if (file.extension() == kEnding)
                presets.push_back({file.stem().string(), first_comment(file), file});
        };
        std::error_code error;
        if (live) { // in folders of their categories
            for (const auto& entry : fs::recursive_directory_iterator(folder / "live", error))
                take(entry.path());
        } else {
            for (const auto& entry : fs::directory_iterator(folder, error)) take(entry.path());
        }
        if (!presets.empty()) break;
    }
    std::ranges::sort(presets, {}, &ShippedPreset::name);
    return presets;
}

fs::path find_preset(const std::string& file_or_name, bool live) {
    std::error_code error;
    if (file_or_name == kStandardStream || is_device(file_or_name) ||
        fs::is_regular_file(file_or_name, error))
        return file_or_name;
    std::vector<std::string> names;
    for (const ShippedPreset& preset : shipped_presets(live)) {
        if (preset.name == file_or_name) return preset.file;
        names.push_back(preset.name);
    }
    throw Failure(fmt::format("there is no preset '{}', neither a file nor one of: {}{}",
                              file_or_name, fmt::join(names, ", "),
                              did_you_mean(file_or_name, names)));
}

} // namespace brisel::render
