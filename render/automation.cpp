#include "render/automation.h"

#include "render/errors.h"
#include "render/text_lines.h"

#include <algorithm>
#include <fmt/format.h>

namespace brisel::render {

namespace {

// Takes the first word off `text`.
std::string_view next_word(std::string_view& text) {
    text = trimmed(text);
    const std::string_view word = text.substr(0, text.find_first_of(" \t"));
    text.remove_prefix(word.size());
    return word;
}

AutomationStep parse_step(const TextLine& line, std::span<const Parameter> parameters) {
    std::string_view rest = line.text;
    const std::string_view time = next_word(rest);
    const std::string_view name = next_word(rest);
    const std::string_view value = trimmed(rest);
    if (value.empty()) throw ValueError("a line is `time name value`, for example `2.5s decay 8s`");

    const double seconds = parse_value(time, Unit::seconds);
    if (seconds < 0.0) throw ValueError("the time lies before the start");
    const size_t index = need_parameter(parameters, name);
    try {
        return {seconds, index, parameters[index].parse(value), line.place};
    } catch (const ValueError& e) {
        throw ValueError(fmt::format("{}: {}", name, e.what()));
    }
}

} // namespace

Automation read_automation(const std::filesystem::path& file,
                           std::span<const Parameter> parameters) {
    Automation steps;
    for (const TextLine& line : read_lines(file)) {
        try {
            steps.push_back(parse_step(line, parameters));
        } catch (const ValueError& e) {
            throw Failure(fmt::format("{}: {}", line.place, e.what()));
        }
    }
    std::ranges::stable_sort(steps, {}, &AutomationStep::seconds);
    return steps;
}

} // namespace brisel::render
