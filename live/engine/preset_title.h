// The names that preset files' stems and folders stand for: "vocal-plate" is "Vocal Plate".
#ifndef BRISEL_LIVE_PRESET_TITLE_H
#define BRISEL_LIVE_PRESET_TITLE_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace brisel::live {

// Writes as much of the name as fits; returns its length.
constexpr size_t write_title(std::string_view stem, std::span<char> to) {
    const size_t length = std::min(stem.size(), to.size());
    bool start = true;
    for (size_t i = 0; i < length; ++i) {
        const char c = stem[i];
        const bool gap = c == '-' || c == '_';
        to[i] = gap ? ' ' : start && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        start = gap;
    }
    return length;
}

// A name in static storage.
struct Title {
    std::array<char, 64> characters{};
    size_t length = 0;

    constexpr explicit Title(std::string_view stem) : length(write_title(stem, characters)) {}
    constexpr std::string_view text() const { return {characters.data(), length}; }
};

} // namespace brisel::live

#endif
