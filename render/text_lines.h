// Text files of one entry a line, with comments: what presets and automation share.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace brisel::render {

struct TextLine {
    std::string text;  // without comment and blanks around it, never empty
    std::string place; // "FILE:LINE"
};

// The lines that hold something. A # starts a comment. Throws Failure when the file cannot be read.
std::vector<TextLine> read_lines(const std::filesystem::path& file);

} // namespace brisel::render
