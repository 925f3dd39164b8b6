// Values, presets and automation as people write them: every text is read or refused with one of the
// renderer's own errors, and what was read, written out, reads back to the same values.
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "fuzz/input.h"
#include "render/automation.h"
#include "render/errors.h"
#include "render/preset.h"

using namespace brisel::render;

namespace {

std::vector<Parameter> parameters() {
    std::vector<Parameter> all;
    const auto add = [&](const char* name, double min, double max, Unit unit) {
        const auto id = static_cast<uint32_t>(all.size());
        all.push_back({id, nullptr, name, option_name(name), min, max, min, unit});
    };
    add("Size", 0.005, 0.5, Unit::milliseconds);
    add("Decay", 0.1, 10, Unit::seconds);
    add("Brisel", 0, 3, Unit::count);
    add("Mix", 0, 1, Unit::ratio);
    add("Modulate", 0, 1, Unit::on_off);
    add("EQ Low (dB)", -24, 24, Unit::decibels);
    add("Other", -1e300, 1e300, Unit::number);
    return all;
}

// A file in memory, so that no disk is worn out.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("text", 0)) { FUZZ_REQUIRE(descriptor_ >= 0); }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
    void write(std::string_view text) {
        FUZZ_REQUIRE(ftruncate(descriptor_, 0) == 0);
        FUZZ_REQUIRE(pwrite(descriptor_, text.data(), text.size(), 0) ==
                     static_cast<ssize_t>(text.size()));
    }

private:
    int descriptor_;
};

void parse(std::string_view text, Unit unit) {
    try {
        const double value = parse_value(text, unit);
        FUZZ_REQUIRE(parse_value(show_value(value, unit), unit) == value);
    } catch (const ValueError& e) {
        FUZZ_REQUIRE(*e.what() != 0);
    }
}

void check(const Parameter& parameter, double value) {
    FUZZ_REQUIRE(value >= parameter.min && value <= parameter.max);
    FUZZ_REQUIRE(parameter.parse(show_value(value, parameter.unit)) == value);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<Parameter> all = parameters();
    static MemoryFile file;
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const uint32_t kind = data[0] % 9;
    try {
        if (kind < 7) {
            parse(text, all[kind].unit);
        } else if (kind == 7) {
            file.write(text);
            for (const ParameterChange& change : read_preset(file.path(), all))
                check(all.at(change.index), change.value);
        } else {
            file.write(text);
            double last = 0.0;
            for (const AutomationStep& step : read_automation(file.path(), all)) {
                FUZZ_REQUIRE(step.seconds >= last);
                last = step.seconds;
                check(all.at(step.index), step.value);
            }
        }
    } catch (const Failure& e) {
        FUZZ_REQUIRE(std::strstr(e.what(), file.path().c_str())); // the message names the place
    }
    return 0;
}
