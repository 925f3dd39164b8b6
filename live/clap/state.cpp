// Extensions "clap.state" and "clap.state-context": a saved state is a preset of all parameters.
// States of the exact plug-in are read, too.
#include "live/clap/plugin.h"

namespace brisel::live::clap {

namespace {

// A preset belongs to a sound: how much of it is mixed in, and the switches of the moment, are the
// session's.
constexpr ParameterMask kNotInHostPresets = kNotInPresets | bit_of(kMix);

// Writes all of `text`, however few bytes the stream takes at a time.
bool write_all(const clap_ostream_t* stream, std::string_view text) {
    while (!text.empty()) {
        const int64_t taken = stream->write(stream, text.data(), text.size());
        if (taken < 1 || static_cast<uint64_t>(taken) > text.size()) return false;
        text.remove_prefix(static_cast<size_t>(taken));
    }
    return true;
}

// Reads to the stream's end, however few bytes it gives at a time; nothing when it fails, or when
// there is more than the buffer holds.
std::optional<std::string_view> read_all(const clap_istream_t* stream, std::span<char> buffer) {
    size_t length = 0;
    while (length < buffer.size()) {
        const uint64_t room = buffer.size() - length;
        const int64_t given = stream->read(stream, buffer.data() + length, room);
        if (given == 0) return std::string_view(buffer.data(), length);
        if (given < 0 || static_cast<uint64_t>(given) > room) return std::nullopt;
        length += static_cast<size_t>(given);
    }
    return std::nullopt;
}

// The exact plug-in's state: "QVB1", version 1 in 32 bits, and the first twelve values as doubles,
// all little-endian.
bool read_exact_state(std::string_view bytes, Preset& preset) {
    constexpr std::string_view kHeader("QVB1\1\0\0\0", 8);
    constexpr size_t kValues = 12;
    if (bytes.size() != kHeader.size() + kValues * sizeof(double) || !bytes.starts_with(kHeader))
        return false;
    preset = {default_settings(), 0};
    for (uint32_t id = 0; id < kValues; ++id) {
        double value;
        std::memcpy(&value, bytes.data() + kHeader.size() + id * sizeof value, sizeof value);
        preset.settings[id] = brisel::live::clamp(parameters()[id], value);
        preset.given |= bit_of(static_cast<Id>(id));
    }
    return true;
}

bool save_without(const clap_plugin_t* plugin, const clap_ostream_t* stream,
                  ParameterMask left_out) {
    if (!stream || !stream->write) return false;
    char buffer[kLongestPreset];
    const Settings settings = self(plugin).reverb.values().plain();
    return write_all(stream, write_preset(settings, left_out, kDescriptor.name, buffer));
}

// All or nothing.
bool load_keeping(const clap_plugin_t* plugin, const clap_istream_t* stream, ParameterMask kept) {
    if (!stream || !stream->read) return false;
    char buffer[kLongestPreset + 1]; // a full one shows that there is too much
    const auto text = read_all(stream, buffer);
    Preset preset;
    if (!text || !(read_exact_state(*text, preset) || read_preset(*text, preset))) return false;
    take_over(self(plugin), preset, kept);
    return true;
}

bool save(const clap_plugin_t* plugin, const clap_ostream_t* stream) {
    return save_without(plugin, stream, 0);
}

bool load(const clap_plugin_t* plugin, const clap_istream_t* stream) {
    return load_keeping(plugin, stream, 0);
}

ParameterMask not_in_context(uint32_t context) {
    return context == CLAP_STATE_CONTEXT_FOR_PRESET ? kNotInHostPresets : 0;
}

bool save_for(const clap_plugin_t* plugin, const clap_ostream_t* stream, uint32_t context) {
    return save_without(plugin, stream, not_in_context(context));
}

bool load_for(const clap_plugin_t* plugin, const clap_istream_t* stream, uint32_t context) {
    return load_keeping(plugin, stream, not_in_context(context));
}

} // namespace

constexpr clap_plugin_state_t kState = {save, load};
constexpr clap_plugin_state_context_t kStateContext = {save_for, load_for};

} // namespace brisel::live::clap
