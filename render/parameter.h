// A parameter as the plug-in reports it, and how people name and write it. Owns the way from
// reported names to option names ("EQ Low (dB)" is --eq-low) and the range check.
#pragma once

#include "render/units.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brisel::render {

struct Parameter {
    uint32_t id;
    void* cookie;       // goes back to the plug-in with each event
    std::string name;   // as reported
    std::string option; // without the dashes in front
    double min;
    double max;
    double default_value;
    Unit unit;
    std::vector<std::string> words = {};      // of the steps, in order; empty: they are numbers
    std::optional<double> off = std::nullopt; // the value that "off" stands for
    std::string default_text = {};            // of default_value, for people

    // The value of `text`. Throws ValueError when it is no such value or out of range.
    double parse(std::string_view text) const;
    std::string range() const; // "5 ms to 500 ms"
};

// "EQ Low (dB)" -> "eq-low"; an option name stays as it is. Parameters that the plug-ins call
// differently have one name, that of the presets.
std::string option_name(std::string_view reported_name);

// The unit, from the text that the plug-in shows for a value: "40.0 ms" of 0.04 is milliseconds.
Unit unit_from_text(std::string_view text, double value, bool stepped, double min, double max);

// The index of the parameter called `name`, as reported or as an option.
std::optional<size_t> find_parameter(std::span<const Parameter> parameters, std::string_view name);

// The same; throws ValueError that names the nearest parameter when there is none.
size_t need_parameter(std::span<const Parameter> parameters, std::string_view name);

} // namespace brisel::render
