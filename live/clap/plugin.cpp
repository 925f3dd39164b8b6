// The life of an instance, from creation to destruction, and the table of its extensions.
#include "live/clap/plugin.h"

#include <new>

namespace brisel::live::clap {

namespace {

constexpr uint32_t kLongestPrepared = 65536; // frames; longer blocks are rendered all the same

template <class Extension>
const Extension* of_host(const clap_host_t* host, const char* id) {
    return static_cast<const Extension*>(host->get_extension(host, id));
}

bool init(const clap_plugin_t* plugin) {
    Plugin& p = self(plugin);
    if (!p.host || !p.host->get_extension) return true;
    p.host_params = of_host<clap_host_params_t>(p.host, CLAP_EXT_PARAMS);
    p.host_tail = of_host<clap_host_tail_t>(p.host, CLAP_EXT_TAIL);
    p.host_gui = of_host<clap_host_gui_t>(p.host, CLAP_EXT_GUI);
    p.host_timer = of_host<clap_host_timer_support_t>(p.host, CLAP_EXT_TIMER_SUPPORT);
    p.host_fd = of_host<clap_host_posix_fd_support_t>(p.host, CLAP_EXT_POSIX_FD_SUPPORT);
    p.host_preset_load = of_host<clap_host_preset_load_t>(p.host, CLAP_EXT_PRESET_LOAD);
    if (!p.host_preset_load)
        p.host_preset_load = of_host<clap_host_preset_load_t>(p.host, CLAP_EXT_PRESET_LOAD_COMPAT);
    return true;
}

void destroy(const clap_plugin_t* plugin) {
    kGui.destroy(plugin);
    delete &self(plugin);
}

// Silent afterwards, at the values set; modulation is the running host's, and starts anew. Refused
// for what cannot be: an active instance, no frames, a rate that the engine does not take.
bool activate(const clap_plugin_t* plugin, double rate, uint32_t, uint32_t most_frames) {
    Plugin& p = self(plugin);
    if (p.active || most_frames == 0) return false;
    p.rate = rate;
    p.reverb.values().clear_modulation();
    p.active = p.reverb.prepare(rate, std::min(most_frames, kLongestPrepared));
    p.reported_tail = kTail.get(plugin);
    return p.active;
}

void deactivate(const clap_plugin_t* plugin) {
    Plugin& p = self(plugin);
    p.active = false;
    p.processing = false;
}

// [audio-thread]
bool start_processing(const clap_plugin_t* plugin) {
    Plugin& p = self(plugin);
    p.processing = p.active;
    return p.processing;
}

// [audio-thread]
void stop_processing(const clap_plugin_t* plugin) {
    self(plugin).processing = false;
}

// [audio-thread]
void reset(const clap_plugin_t* plugin) {
    Plugin& p = self(plugin);
    if (p.active) p.reverb.reset();
}

// The settled ids, and those of the drafts before them, which older hosts ask for.
constexpr struct {
    const char* id;
    const void* extension;
} kExtensions[] = {
    {CLAP_EXT_PARAMS, &kParams},
    {CLAP_EXT_STATE, &kState},
    {CLAP_EXT_STATE_CONTEXT, &kStateContext},
    {CLAP_EXT_PRESET_LOAD, &kPresetLoad},
    {CLAP_EXT_PRESET_LOAD_COMPAT, &kPresetLoad},
    {CLAP_EXT_AUDIO_PORTS, &kAudioPorts},
    {CLAP_EXT_AUDIO_PORTS_CONFIG, &kAudioPortsConfig},
    {CLAP_EXT_AUDIO_PORTS_CONFIG_INFO, &kAudioPortsConfigInfo},
    {CLAP_EXT_AUDIO_PORTS_CONFIG_INFO_COMPAT, &kAudioPortsConfigInfo},
    {CLAP_EXT_CONFIGURABLE_AUDIO_PORTS, &kConfigurableAudioPorts},
    {CLAP_EXT_CONFIGURABLE_AUDIO_PORTS_COMPAT, &kConfigurableAudioPorts},
    {CLAP_EXT_TAIL, &kTail},
    {CLAP_EXT_REMOTE_CONTROLS, &kRemoteControls},
    {CLAP_EXT_REMOTE_CONTROLS_COMPAT, &kRemoteControls},
    {CLAP_EXT_GUI, &kGui},
    {CLAP_EXT_TIMER_SUPPORT, &kTimerSupport},
    {CLAP_EXT_POSIX_FD_SUPPORT, &kPosixFdSupport},
};

// [any-thread]
const void* get_extension(const clap_plugin_t*, const char* id) {
    const auto* row = std::ranges::find_if(
        kExtensions, [=](const auto& extension) { return same_text(id, extension.id); });
    return row != std::end(kExtensions) ? row->extension : nullptr;
}

void on_main_thread(const clap_plugin_t*) {}

constexpr clap_plugin_t kCalls = {
    .desc = &kDescriptor,
    .plugin_data = nullptr,
    .init = init,
    .destroy = destroy,
    .activate = activate,
    .deactivate = deactivate,
    .start_processing = start_processing,
    .stop_processing = stop_processing,
    .reset = reset,
    .process = process,
    .get_extension = get_extension,
    .on_main_thread = on_main_thread,
};

} // namespace

const clap_plugin_t* create(const clap_host_t* host) {
    auto* const p = new (std::nothrow) Plugin(host, kCalls);
    if (p && p->reverb.exists()) return &p->clap;
    delete p;
    return nullptr;
}

void take_over(Plugin& p, const Preset& preset, ParameterMask kept) {
    constexpr ParameterMask kOnlyWhereGiven = kNotInPresets | bit_of(kMix);
    p.reverb.values().load(preset.settings, kept | (kOnlyWhereGiven & ~preset.given));
    if (p.host_params) p.host_params->rescan(p.host, CLAP_PARAM_RESCAN_VALUES);
}

} // namespace brisel::live::clap
