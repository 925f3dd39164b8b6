// Presets as text. The presets themselves are files, from which the build makes
// factory_presets.cpp.
#include "live/engine/presets.h"

#include <algorithm>

#include "live/engine/preset_title.h"

namespace brisel::live {

namespace {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool is_text(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 0x20 && byte != 0x7f) || c == '\n' || c == '\r' || c == '\t';
}

// A caller's buffer that fills up; what does not fit is left out.
class TextBuffer {
public:
    explicit TextBuffer(std::span<char> buffer) : buffer_(buffer) {}

    TextBuffer& add(std::string_view text) {
        const size_t count = std::min(text.size(), buffer_.size() - length_);
        std::copy_n(text.data(), count, buffer_.data() + length_);
        length_ += count;
        return *this;
    }
    std::string_view text() const { return {buffer_.data(), length_}; }

private:
    std::span<char> buffer_;
    size_t length_ = 0;
};

} // namespace

bool read_preset(std::string_view text, Preset& preset) {
    if (text.size() > kLongestPreset || !std::ranges::all_of(text, is_text)) return false;
    Preset read = {default_settings(), 0};
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = trimmed(text.substr(0, std::min(end, text.find('#'))));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty()) continue;
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos || equals == 0) return false;
        const Id id = find_key(trimmed(line.substr(0, equals)));
        if (id == kParameters) continue;
        const auto value = from_text(parameters()[id], line.substr(equals + 1), BareNumber::kBase);
        if (!value) continue;
        read.settings[id] = *value;
        read.given |= bit_of(id);
    }
    if (read.given == 0) return false;
    preset = read;
    return true;
}

std::string_view write_preset(const Settings& settings, ParameterMask left_out,
                              std::string_view comment, std::span<char, kLongestPreset> buffer) {
    TextBuffer page(buffer);
    if (!comment.empty()) page.add("# ").add(comment.substr(0, kLongestPreset / 2)).add("\n");
    for (uint32_t id = 0; id < kParameters; ++id) {
        if (left_out >> id & 1) continue;
        const Parameter& parameter = parameters()[id];
        char value[kLongestText];
        page.add(parameter.key).add(" = ").add(to_exact_text(parameter, settings[id], value));
        page.add("\n");
    }
    return page.text();
}

const FactoryPreset* find_factory_preset(std::string_view key) {
    const auto presets = factory_presets();
    const auto found = std::ranges::find(presets, key, &FactoryPreset::key);
    return found == presets.end() ? nullptr : &*found;
}

std::string_view preset_name(std::string_view stem, std::span<char> buffer) {
    return {buffer.data(), write_title(stem, buffer)};
}

} // namespace brisel::live
