#include "render/suggest.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

namespace brisel::render {

namespace {

// Insertions, deletions, replacements and swaps of neighbours that turn one word into the other
// (optimal string alignment).
size_t edit_distance(std::string_view a, std::string_view b) {
    std::vector<size_t> above, row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        const std::vector<size_t> two_above = std::move(above);
        above = row;
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = above[j - 1] + (a[i - 1] != b[j - 1]);
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], two_above[j - 2] + 1);
        }
    }
    return row[b.size()];
}

} // namespace

std::string did_you_mean(std::string_view typed, std::span<const std::string> names) {
    // One fault in three letters, and a beginning of three letters, are taken for a meaning.
    size_t least = typed.size() / 3 + 1;
    std::string_view nearest;
    for (const std::string& name : names) {
        const bool begun = typed.size() >= 3 && std::string_view(name).starts_with(typed);
        const size_t distance = begun ? 1 : edit_distance(typed, name);
        if (distance >= least + nearest.empty()) continue;
        least = distance;
        nearest = name;
    }
    return nearest.empty() ? "" : fmt::format("; did you mean '{}'?", nearest);
}

} // namespace brisel::render
