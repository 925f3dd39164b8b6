// An instance of brisel-live.clap, and what its files share: the engine, the host and its
// extensions, and the plug-in's own extensions, one file each. Everything that sounds is the
// engine's.
//
// Threads. Values, their text, the tail and saved states may be read on the main thread while audio
// runs: they are the engine's, without locks. The host keeps all other calls on one instance apart.
// Functions without a tag are [main-thread], or only read constants. "Flush" comes on the audio
// thread while active and on the main thread otherwise.
#ifndef BRISEL_LIVE_CLAP_PLUGIN_H
#define BRISEL_LIVE_CLAP_PLUGIN_H

#include <clap/clap.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "live/engine/presets.h"
#include "live/engine/reverb.h"
#include "live/ui/module.h"

namespace brisel::live::clap {

// The interface version that this code is written to, not that of the headers it meets.
inline constexpr clap_version_t kInterfaceVersion = {1, 2, 8};

extern const clap_plugin_descriptor_t kDescriptor;

// The window, whose module is opened when the host asks for it.
struct Gui {
    void* library = nullptr;
    const brisel_ui_module* module = nullptr; // null while there is no window
    brisel_ui* ui = nullptr;                  // null before it has a parent
    double scale = 0.0;                       // 0: the desktop's own
    uint32_t width = 0, height = 0;           // pixels
    clap_id timer = CLAP_INVALID_ID;
    int fd = -1;
    brisel_ui_host host = {};
    uint32_t memory = 0; // the window's own, from one opening to the next
};

struct Plugin {
    Plugin(const clap_host_t* its_host, const clap_plugin_t& calls) : clap(calls), host(its_host) {
        clap.plugin_data = this;
    }

    clap_plugin_t clap;      // what the host holds
    const clap_host_t* host; // may be null
    // What the host offers; null until init, and where it lacks them.
    const clap_host_params_t* host_params = nullptr;
    const clap_host_tail_t* host_tail = nullptr;
    const clap_host_preset_load_t* host_preset_load = nullptr;
    const clap_host_gui_t* host_gui = nullptr;
    const clap_host_timer_support_t* host_timer = nullptr;
    const clap_host_posix_fd_support_t* host_fd = nullptr;

    Reverb reverb;
    double rate = 0.0;   // Hz, once it was activated
    uint32_t layout = 0; // row of the table in ports.cpp
    bool active = false;
    bool processing = false;    // between start_processing and stop_processing
    uint32_t reported_tail = 0; // frames, as the host knows it; [audio-thread]
    std::optional<Edit> unsent; // the host's list was full; for the one place that sends edits
    Gui gui;
};

inline Plugin& self(const clap_plugin_t* plugin) {
    return *static_cast<Plugin*>(plugin->plugin_data);
}

// A new instance that is yet to be initialised; null when memory runs out.
const clap_plugin_t* create(const clap_host_t* host);

// Sets the values that `preset` gives, all others to their defaults, and tells the host. Left as
// they are: `kept`, and what presets leave out or leave to the mixer where the preset does not
// mention it.
void take_over(Plugin& plugin, const Preset& preset, ParameterMask kept);

// clap_plugin::process. [audio-thread]
clap_process_status process(const clap_plugin_t* plugin, const clap_process_t* process);

// Tells the host when the tail is no longer as long as it knows. [audio-thread], while active
void report_tail(Plugin& plugin);

// ---- The plug-in's extensions ----

extern const clap_plugin_params_t kParams;
extern const clap_plugin_state_t kState;
extern const clap_plugin_state_context_t kStateContext;
extern const clap_plugin_preset_load_t kPresetLoad;
extern const clap_plugin_audio_ports_t kAudioPorts;
extern const clap_plugin_audio_ports_config_t kAudioPortsConfig;
extern const clap_plugin_audio_ports_config_info_t kAudioPortsConfigInfo;
extern const clap_plugin_configurable_audio_ports_t kConfigurableAudioPorts;
extern const clap_plugin_tail_t kTail;
extern const clap_plugin_remote_controls_t kRemoteControls;
extern const clap_plugin_gui_t kGui;
extern const clap_plugin_timer_support_t kTimerSupport;
extern const clap_plugin_posix_fd_support_t kPosixFdSupport;

extern const clap_preset_discovery_factory_t kPresetDiscovery;

// ---- Text ----

// Copies as much of `text` as fits, and a null behind it.
template <size_t N>
void copy_text(char (&to)[N], std::string_view text) {
    const size_t length = std::min(text.size(), N - 1);
    std::memcpy(to, text.data(), length);
    to[length] = '\0';
}

inline bool same_text(const char* a, const char* b) {
    return a && b && std::strcmp(a, b) == 0;
}

} // namespace brisel::live::clap

#endif
