#include "text_lines.h"

#include "output_file.h"
#include "units.h"

#include <fmt/format.h>
#include <sstream>

std::vector<TextLine> read_lines(const std::filesystem::path& file) {
    std::vector<TextLine> lines;
    std::istringstream contents(read_file(file));
    std::string line;
    for (int number = 1; std::getline(contents, line); ++number) {
        const std::string_view text = trimmed(std::string_view(line).substr(0, line.find('#')));
        if (!text.empty())
            lines.push_back({std::string(text), fmt::format("{}:{}", file.string(), number)});
    }
    return lines;
}
