// The audio ports: one input and one output in one of three layouts, chosen from a list or asked
// for port by port. What a block is rendered into follows from the buffers that the host hands
// over.
#include <span>

#include "live/clap/plugin.h"

namespace brisel::live::clap {

namespace {

struct Layout {
    const char* name;
    uint32_t inputs, outputs; // channels

    uint32_t channels(bool is_input) const { return is_input ? inputs : outputs; }
};

// Layout ids are the rows' numbers.
constexpr Layout kLayouts[] = {{"Stereo", 2, 2}, {"Mono to Stereo", 1, 2}, {"Mono", 1, 1}};
constexpr uint32_t kLayoutCount = std::size(kLayouts);

constexpr clap_id kInputId = 0, kOutputId = 1;

const char* port_type(uint32_t channels) {
    return channels == 1 ? CLAP_PORT_MONO : CLAP_PORT_STEREO;
}

bool describe_port(const Layout& layout, uint32_t index, bool is_input,
                   clap_audio_port_info_t* info) {
    if (index != 0 || !info) return false;
    *info = {};
    info->id = is_input ? kInputId : kOutputId;
    copy_text(info->name, is_input ? "Input" : "Output");
    info->flags = CLAP_AUDIO_PORT_IS_MAIN;
    info->channel_count = layout.channels(is_input);
    info->port_type = port_type(info->channel_count);
    info->in_place_pair = layout.inputs != layout.outputs ? CLAP_INVALID_ID
                          : is_input                      ? kOutputId
                                                          : kInputId;
    return true;
}

// ---- clap.audio-ports ----

uint32_t port_count(const clap_plugin_t*, bool) {
    return 1;
}

bool get_port(const clap_plugin_t* plugin, uint32_t index, bool is_input,
              clap_audio_port_info_t* info) {
    return describe_port(kLayouts[self(plugin).layout], index, is_input, info);
}

// ---- clap.audio-ports-config and -info ----

uint32_t config_count(const clap_plugin_t*) {
    return kLayoutCount;
}

bool get_config(const clap_plugin_t*, uint32_t index, clap_audio_ports_config_t* config) {
    if (index >= kLayoutCount || !config) return false;
    const Layout& layout = kLayouts[index];
    *config = {};
    config->id = index;
    copy_text(config->name, layout.name);
    config->input_port_count = 1;
    config->output_port_count = 1;
    config->has_main_input = true;
    config->main_input_channel_count = layout.inputs;
    config->main_input_port_type = port_type(layout.inputs);
    config->has_main_output = true;
    config->main_output_channel_count = layout.outputs;
    config->main_output_port_type = port_type(layout.outputs);
    return true;
}

// While inactive.
bool select_config(const clap_plugin_t* plugin, clap_id id) {
    Plugin& p = self(plugin);
    if (p.active || id >= kLayoutCount) return false;
    p.layout = id;
    return true;
}

clap_id current_config(const clap_plugin_t* plugin) {
    return self(plugin).layout;
}

bool get_config_port(const clap_plugin_t*, clap_id id, uint32_t index, bool is_input,
                     clap_audio_port_info_t* info) {
    return id < kLayoutCount && describe_port(kLayouts[id], index, is_input, info);
}

// ---- clap.configurable-audio-ports ----

// Whether a port of so many channels may be said to be of the type; none leaves it open.
bool fits(const char* type, uint32_t channels) {
    return !type || !*type || same_text(type, port_type(channels));
}

// The layout that all requests together ask for; ports without a request stay as they are. None
// when there is no such layout, or while active.
std::optional<uint32_t> requested_layout(const Plugin& p,
                                         const clap_audio_port_configuration_request_t* requests,
                                         uint32_t count) {
    if (p.active || (!requests && count > 0)) return std::nullopt;
    uint32_t asked[2] = {0, 0}; // channels of output and input; 0: not asked for
    for (const auto& request : std::span(requests, count)) {
        uint32_t& channels = asked[request.is_input];
        const bool contradicts = channels != 0 && channels != request.channel_count;
        if (request.port_index != 0 || request.channel_count == 0 || contradicts ||
            !fits(request.port_type, request.channel_count))
            return std::nullopt;
        channels = request.channel_count;
    }
    const Layout& now = kLayouts[p.layout];
    const uint32_t outputs = asked[false] ? asked[false] : now.outputs;
    const uint32_t inputs = asked[true] ? asked[true] : now.inputs;
    for (uint32_t row = 0; row < kLayoutCount; ++row)
        if (kLayouts[row].inputs == inputs && kLayouts[row].outputs == outputs) return row;
    return std::nullopt;
}

bool can_apply(const clap_plugin_t* plugin, const clap_audio_port_configuration_request_t* requests,
               uint32_t count) {
    return requested_layout(self(plugin), requests, count).has_value();
}

bool apply(const clap_plugin_t* plugin, const clap_audio_port_configuration_request_t* requests,
           uint32_t count) {
    Plugin& p = self(plugin);
    const std::optional<uint32_t> layout = requested_layout(p, requests, count);
    if (layout) p.layout = *layout;
    return layout.has_value();
}

} // namespace

constexpr clap_plugin_audio_ports_t kAudioPorts = {port_count, get_port};
constexpr clap_plugin_audio_ports_config_t kAudioPortsConfig = {config_count, get_config,
                                                                select_config};
constexpr clap_plugin_audio_ports_config_info_t kAudioPortsConfigInfo = {current_config,
                                                                         get_config_port};
constexpr clap_plugin_configurable_audio_ports_t kConfigurableAudioPorts = {can_apply, apply};

} // namespace brisel::live::clap
