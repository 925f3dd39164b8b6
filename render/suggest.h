// The name that was meant, for messages about one that does not exist.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace brisel::render {

// "; did you mean 'size'?" with the nearest of `names` to what was typed, empty when none is near.
std::string did_you_mean(std::string_view typed, std::span<const std::string> names);

} // namespace brisel::render
