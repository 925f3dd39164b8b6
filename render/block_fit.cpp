#include "render/block_fit.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace brisel::render {

namespace {

// Modulation moves the end of a delay line by up to so many frames.
constexpr double kModulationDepth = 2.0;

} // namespace

bool BlockFit::modulated(std::span<const double> values) const {
    const auto modulate = find_parameter(probe_.parameters(), "modulate");
    return modulate && values[*modulate] >= 0.5;
}

bool BlockFit::accepts(std::span<const double> values, uint32_t block) const {
    const auto size = find_parameter(probe_.parameters(), "size");
    if (size && modulated(values) &&
        std::round(values[*size] * sample_rate_) < block + kModulationDepth)
        return false;
    probe_.set_values(values);
    const bool accepted = probe_.activate(sample_rate_, block);
    probe_.deactivate();
    return accepted;
}

std::optional<uint32_t> BlockFit::longest(std::span<const double> values, uint32_t wanted) const {
    if (accepts(values, wanted)) return wanted;
    // In units of 8 frames: `good` is accepted, `bad` is not.
    uint32_t good = 0, bad = wanted / 8;
    while (bad - good > 1) {
        const uint32_t middle = good + (bad - good) / 2;
        (accepts(values, middle * 8) ? good : bad) = middle;
    }
    if (good == 0) return std::nullopt;
    return good * 8;
}

std::string BlockFit::least_time(std::span<const double> values, size_t index,
                                 uint32_t block) const {
    const Parameter& p = probe_.parameters()[index];
    std::vector<double> tried(values.begin(), values.end());
    const auto accepts_tenths = [&](int tenths) { // of a millisecond
        tried[index] = tenths / 10.0 / 1000.0;    // as the text will be read
        return accepts(tried, block);
    };
    int bad = static_cast<int>(std::ceil(p.min * 1e4)) - 1;
    int good = static_cast<int>(std::floor(p.max * 1e4));
    if (!accepts_tenths(good)) return {};
    while (good - bad > 1) {
        const int middle = bad + (good - bad) / 2;
        (accepts_tenths(middle) ? good : bad) = middle;
    }
    return fmt::format("--{} {} or more", p.option, show_value(good / 10.0 / 1000.0, p.unit));
}

std::string BlockFit::explain(std::span<const double> values, uint32_t block) const {
    const auto& parameters = probe_.parameters();
    for (size_t i = 0; i < values.size(); ++i)
        if (!(values[i] >= parameters[i].min && values[i] <= parameters[i].max))
            return fmt::format("the value of '{}' is not in its range, {}", parameters[i].name,
                               parameters[i].range());

    const auto reflections = find_parameter(parameters, "early-reflections");
    const auto er_size = find_parameter(parameters, "er-size");
    if (reflections && er_size && values[*reflections] >= 0.5) {
        std::vector<double> without(values.begin(), values.end());
        without[*reflections] = 0.0;
        if (accepts(without, block))
            return fmt::format("early reflections cannot be as short as {}: use {}, or "
                               "--early-reflections off",
                               show_value(values[*er_size], parameters[*er_size].unit),
                               least_time(values, *er_size, block));
    }

    const auto shorter = longest(values, block);
    std::string larger;
    std::string line;
    if (const auto size = find_parameter(parameters, "size")) {
        larger = least_time(values, *size, block);
        line =
            fmt::format("the shortest delay line ({} {}, that is {:.0f} frames at {} Hz{})",
                        parameters[*size].name, show_value(values[*size], parameters[*size].unit),
                        values[*size] * sample_rate_, sample_rate_,
                        modulated(values) ? ", two of which the modulation takes" : "");
    }
    if (shorter && !larger.empty())
        return fmt::format("blocks of {} frames do not fit into {}: use --block {} or less, or {}",
                           block, line, *shorter, larger);
    if (!larger.empty()) return fmt::format("{} is too short for any block: use {}", line, larger);
    if (shorter)
        return fmt::format("blocks of {} frames are too long at {} Hz: use --block {} or less",
                           block, sample_rate_, *shorter);
    return fmt::format("the plug-in refuses these settings at {} Hz with blocks of {} frames",
                       sample_rate_, block);
}

} // namespace brisel::render
