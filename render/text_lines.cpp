#include "render/text_lines.h"

#include "render/output_file.h"
#include "render/units.h"

#include <fmt/format.h>
#include <sstream>

namespace brisel::render {

std::vector<TextLine> read_lines(const std::filesystem::path& file) {
    std::vector<TextLine> lines;
    std::istringstream contents(read_file(file));
    const std::string place = file == kStandardStream ? "standard input" : file.string();
    std::string line;
    for (int number = 1; std::getline(contents, line); ++number) {
        const std::string_view text = trimmed(std::string_view(line).substr(0, line.find('#')));
        if (!text.empty())
            lines.push_back({std::string(text), fmt::format("{}:{}", place, number)});
    }
    return lines;
}

} // namespace brisel::render
