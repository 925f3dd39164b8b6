// The CLAP shell of Brisel: entry, factory, descriptor, the plug-in instance with its twelve
// parameter values, and the extensions params, state, tail and audio-ports. It cuts host blocks to
// what the engine takes and leaves everything that sounds to qv_reverb.
//
// Threads. The shell has no lock and no mutable global data; CLAP's rules keep the calls on one
// instance apart. The tags in the comments are those of brisel/export.h; a callback without a tag
// does nothing or only reads constants. "Flush" may come on the audio thread while active and on
// the main thread otherwise.
//
// Numbers as text follow LC_NUMERIC, as snprintf and strtod do: a host that sets a locale with a
// decimal comma sees and types "2,50 s". A typed text counts as its leading number, in the
// parameter's own unit, or as 0: the displayed texts of Decay, the ratios and the EQ parse back to
// what they show, but "40.0 ms" of a size gives 40 seconds, and "K = 2" and "On" give 0.

#include <clap/clap.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "brisel/reverb.h"
#include "core/network_math.h"
#include "plugin/clap_layout.h"

namespace {

// ---- Parameters --------------------------------------------------------------------------------

// The ids are also the order in the saved state: append, never renumber.
enum ParamId : uint32_t {
    kSize,     // seconds
    kDecay,    // seconds
    kBrisel,   // cascade stages K
    kDamp,     // 0 .. 1
    kMix,      // 0 .. 1
    kWidth,    // 0 .. 1
    kModulate, // on from 0.5
    kErOn,     // on from 0.5
    kErSize,   // seconds
    kErLevel,  // linear gain
    kEqLow,    // dB
    kEqHigh,   // dB
    kParamCount
};

// What a value is displayed as.
enum class Unit { kMilliseconds, kSeconds, kStages, kRatio, kSwitch, kDecibels };

struct Param {
    const char* label;
    double min;
    double max;
    double def;
    uint32_t flags;
    Unit display;
};

constexpr uint32_t kContinuous = CLAP_PARAM_IS_AUTOMATABLE;
constexpr uint32_t kStepped = CLAP_PARAM_IS_AUTOMATABLE | CLAP_PARAM_IS_STEPPED;
static_assert(kContinuous == 0x20 && kStepped == 0x21);

constexpr Param kParams[] = {
    {"Size", 0.005, 0.5, 0.04, kContinuous, Unit::kMilliseconds},
    {"Decay", 0.1, 10.0, 2.0, kContinuous, Unit::kSeconds},
    {"Brisel", 0.0, 3.0, 2.0, kStepped, Unit::kStages},
    {"Damp", 0.0, 1.0, 0.3, kContinuous, Unit::kRatio},
    {"Mix", 0.0, 1.0, 0.3, kContinuous, Unit::kRatio},
    {"Width", 0.0, 1.0, 0.8, kContinuous, Unit::kRatio},
    {"Modulate", 0.0, 1.0, 1.0, kStepped, Unit::kSwitch},
    {"Early Reflections", 0.0, 1.0, 0.0, kStepped, Unit::kSwitch},
    {"ER Size", 0.001, 0.5, 0.06, kContinuous, Unit::kMilliseconds},
    {"ER Level", 0.0, 1.0, 0.5, kContinuous, Unit::kRatio},
    {"EQ Low (dB)", -24.0, 24.0, 0.0, kContinuous, Unit::kDecibels},
    {"EQ High (dB)", -24.0, 24.0, 0.0, kContinuous, Unit::kDecibels},
};
static_assert(sizeof kParams / sizeof kParams[0] == kParamCount);

// Lower bound first; a NaN passes as it is, for the engine to refuse.
double clamp_param(uint32_t id, double value) {
    if (value < kParams[id].min) value = kParams[id].min;
    if (value > kParams[id].max) value = kParams[id].max;
    return value;
}

int32_t stage_count(double value) {
    return brisel::truncate_to_int32(value + 0.5);
}

uint32_t is_on(double value) {
    return value >= 0.5 ? 1 : 0;
}

// ---- Instance ----------------------------------------------------------------------------------

struct Plugin {
    clap_plugin_t plugin;       // what the host holds; plugin_data points back here
    qv_reverb* reverb;          // owned; null until an activation has made one
    int32_t sample_rate;        // Hz, of the latest activation, failed or not; 0 before
    int32_t max_frames;         // block capacity asked of the engine, likewise
    double values[kParamCount]; // what the host set, by id
    uint32_t params_dirty;      // nonzero: `values` has not been handed to the engine yet
};

Plugin* self(const clap_plugin_t* plugin) {
    return static_cast<Plugin*>(plugin->plugin_data);
}

// Hands all values to the engine, which rebuilds its network. Returns 0, also without an engine, or
// -1 when the engine refuses them and goes on with the settings it had.
int32_t apply_params(Plugin* b) {
    if (!b->reverb) return 0;
    const double* v = b->values;
    qv_reverb_params params;
    params.size = static_cast<float>(v[kSize]);
    params.t60 = static_cast<float>(v[kDecay]);
    params.cascade_stages = stage_count(v[kBrisel]);
    params.t60_high = 0.0f; // Damp sets the decay of the highs
    params.damp = static_cast<float>(v[kDamp]);
    params.mix = static_cast<float>(v[kMix]);
    params.width = static_cast<float>(v[kWidth]);
    params.modulate = is_on(v[kModulate]);
    params.er_enable = is_on(v[kErOn]);
    params.er_size = static_cast<float>(v[kErSize]);
    params.er_level = static_cast<float>(v[kErLevel]);
    params.eq_low_db = static_cast<float>(v[kEqLow]);
    params.eq_high_db = static_cast<float>(v[kEqHigh]);
    return qv_reverb_set(b->reverb, &params);
}

// Takes over the parameter values of a host's list and hands pending ones to the engine. Only the
// kind of an event decides, not the size it claims; its time does not count either.
void read_events(Plugin* b, const clap_input_events_t* events) {
    if (events) {
        const uint32_t count = events->size(events);
        for (uint32_t i = 0; i < count; ++i) {
            const clap_event_header_t* header = events->get(events, i);
            if (!header || header->space_id != CLAP_CORE_EVENT_SPACE_ID ||
                header->type != CLAP_EVENT_PARAM_VALUE)
                continue;
            const auto* event = reinterpret_cast<const clap_event_param_value_t*>(header);
            if (event->param_id >= kParamCount) continue;
            b->values[event->param_id] = clamp_param(event->param_id, event->value);
            b->params_dirty = 1;
        }
    }
    if (b->params_dirty) {
        apply_params(b); // refused values stay the host's; the engine keeps what it had
        b->params_dirty = 0;
    }
}

// [main-thread]
bool plugin_init(const clap_plugin_t* plugin) {
    Plugin* b = self(plugin);
    for (uint32_t id = 0; id < kParamCount; ++id) b->values[id] = kParams[id].def;
    return true;
}

// [main-thread]
void plugin_destroy(const clap_plugin_t* plugin) {
    Plugin* b = self(plugin);
    qv_reverb_destroy(b->reverb);
    free(b);
}

// Replaces the engine. When the engine refuses the values, activation fails, but the new engine
// stays with its own defaults. [main-thread]
bool plugin_activate(const clap_plugin_t* plugin, double sample_rate, uint32_t /*min_frames*/,
                     uint32_t max_frames) {
    Plugin* b = self(plugin);
    qv_reverb_destroy(b->reverb);
    b->sample_rate = brisel::truncate_to_int32(sample_rate);
    const uint64_t capacity = (uint64_t{max_frames} + 7) & ~uint64_t{7};
    // Beyond int32 this turns negative or 0, which the engine refuses.
    b->max_frames = static_cast<int32_t>(capacity < 64 ? 64 : capacity);
    b->reverb = qv_reverb_create(b->sample_rate, b->max_frames);
    return b->reverb && apply_params(b) == 0;
}

// The engine outlives deactivation, and with it the tail.
void plugin_deactivate(const clap_plugin_t*) {}

bool plugin_start_processing(const clap_plugin_t*) {
    return true;
}

void plugin_stop_processing(const clap_plugin_t*) {}

void plugin_reset(const clap_plugin_t*) {}

float* channel(const clap_audio_buffer_t& port, uint32_t index) {
    return port.data32 && index < port.channel_count ? port.data32[index] : nullptr;
}

// Runs whole groups of eight frames through the engine and passes the last one to seven dry.
// Allocates nothing, also when parameters have changed. [audio-thread]
clap_process_status plugin_process(const clap_plugin_t* plugin, const clap_process_t* process) {
    Plugin* b = self(plugin);
    if (!b->reverb || process->audio_inputs_count == 0 || process->audio_outputs_count == 0)
        return CLAP_PROCESS_ERROR;
    read_events(b, process->in_events);

    const float* in_l = channel(process->audio_inputs[0], 0);
    const float* in_r = channel(process->audio_inputs[0], 1);
    float* out_l = channel(process->audio_outputs[0], 0);
    float* out_r = channel(process->audio_outputs[0], 1);
    const uint32_t frames = process->frames_count;
    const uint32_t whole_frames = frames & ~7u;
    // A count beyond int32 turns negative, which the engine refuses.
    if (whole_frames > 0 && qv_reverb_process(b->reverb, in_l, in_r, out_l, out_r,
                                              static_cast<int32_t>(whole_frames)) != 0)
        return CLAP_PROCESS_ERROR;
    for (uint32_t t = whole_frames; t < frames; ++t) {
        const float left = in_l ? in_l[t] : 0.0f;
        if (out_l) out_l[t] = left;
        if (out_r) out_r[t] = in_r ? in_r[t] : left;
    }
    return CLAP_PROCESS_CONTINUE;
}

void plugin_on_main_thread(const clap_plugin_t*) {}

// ---- Extension "clap.params" -------------------------------------------------------------------

uint32_t params_count(const clap_plugin_t*) {
    return kParamCount;
}

bool params_get_info(const clap_plugin_t*, uint32_t index, clap_param_info_t* info) {
    if (index >= kParamCount || !info) return false;
    const Param& row = kParams[index];
    memset(info, 0, sizeof *info);
    info->id = index;
    info->flags = row.flags;
    snprintf(info->name, sizeof info->name, "%s", row.label);
    info->min_value = row.min;
    info->max_value = row.max;
    info->default_value = row.def;
    return true;
}

// [main-thread]
bool params_get_value(const clap_plugin_t* plugin, clap_id id, double* out) {
    if (id >= kParamCount || !out) return false;
    *out = self(plugin)->values[id];
    return true;
}

// [main-thread]
bool params_value_to_text(const clap_plugin_t*, clap_id id, double value, char* buffer,
                          uint32_t capacity) {
    if (id >= kParamCount || (!buffer && capacity > 0)) return false;
    switch (kParams[id].display) {
    case Unit::kMilliseconds:
        snprintf(buffer, capacity, "%.1f ms", value * 1000.0);
        break;
    case Unit::kSeconds:
        snprintf(buffer, capacity, "%.2f s", value);
        break;
    case Unit::kStages:
        snprintf(buffer, capacity, "K = %d", stage_count(value));
        break;
    case Unit::kRatio:
        snprintf(buffer, capacity, "%.3f", value);
        break;
    case Unit::kSwitch:
        snprintf(buffer, capacity, "%s", is_on(value) ? "On" : "Off");
        break;
    case Unit::kDecibels:
        snprintf(buffer, capacity, "%+.1f dB", value);
        break;
    }
    return true;
}

// The leading number, in the parameter's own unit whatever unit is displayed: "40 ms" for Size is
// 40, not 0.04. [main-thread]
bool params_text_to_value(const clap_plugin_t*, clap_id id, const char* text, double* out) {
    if (!text || !out || id >= kParamCount) return false;
    *out = strtod(text, nullptr);
    return true;
}

// Without a list even pending values wait. [audio-thread] while active, else [main-thread]
void params_flush(const clap_plugin_t* plugin, const clap_input_events_t* in_events,
                  const clap_output_events_t*) {
    if (in_events) read_events(self(plugin), in_events);
}

constexpr clap_plugin_params_t kParamsExtension = {
    params_count,         params_get_info,      params_get_value,
    params_value_to_text, params_text_to_value, params_flush,
};

// ---- Extension "clap.state" --------------------------------------------------------------------

// The saved state: this header, then the values as doubles in id order, all little-endian.
struct StateHeader {
    char magic[4];
    uint32_t version;
};
constexpr StateHeader kStateHeader = {{'Q', 'V', 'B', '1'}, 1};
static_assert(sizeof(StateHeader) == 8 && sizeof(Plugin::values) == 96);

// Writes all bytes, however few the stream takes at a time.
bool write_all(const clap_ostream_t* stream, const void* data, uint64_t size) {
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const int64_t taken = stream->write(stream, bytes, size);
        if (taken < 1 || static_cast<uint64_t>(taken) > size) return false;
        bytes += taken;
        size -= static_cast<uint64_t>(taken);
    }
    return true;
}

// Reads exactly `size` bytes, however few the stream gives at a time.
bool read_all(const clap_istream_t* stream, void* data, uint64_t size) {
    char* bytes = static_cast<char*>(data);
    while (size > 0) {
        const int64_t given = stream->read(stream, bytes, size);
        if (given < 1 || static_cast<uint64_t>(given) > size) return false;
        bytes += given;
        size -= static_cast<uint64_t>(given);
    }
    return true;
}

// [main-thread]
bool state_save(const clap_plugin_t* plugin, const clap_ostream_t* stream) {
    const Plugin* b = self(plugin);
    return write_all(stream, &kStateHeader, sizeof kStateHeader) &&
           write_all(stream, b->values, sizeof b->values);
}

// All or nothing. The values reach the engine with the next block, flush or activation.
// [main-thread]
bool state_load(const clap_plugin_t* plugin, const clap_istream_t* stream) {
    Plugin* b = self(plugin);
    StateHeader header = {};
    if (!read_all(stream, &header, sizeof header) ||
        memcmp(&header, &kStateHeader, sizeof header) != 0)
        return false;
    double values[kParamCount] = {};
    if (!read_all(stream, values, sizeof values)) return false;
    for (uint32_t id = 0; id < kParamCount; ++id) b->values[id] = clamp_param(id, values[id]);
    b->params_dirty = 1;
    return true;
}

constexpr clap_plugin_state_t kStateExtension = {state_save, state_load};

// ---- Extension "clap.tail" ---------------------------------------------------------------------

// 1.5 decay times (90 dB), in frames. A Decay that is NaN reports 2^31: to a host, no end.
uint32_t tail_get(const clap_plugin_t* plugin) {
    const Plugin* b = self(plugin);
    const double tail = 1.5 * b->values[kDecay] * b->sample_rate;
    if (tail < 0.0) return 0;
    if (tail > 2147483647.0) return 2147483647;
    return static_cast<uint32_t>(brisel::truncate_to_int32(tail));
}

constexpr clap_plugin_tail_t kTailExtension = {tail_get};

// ---- Extension "clap.audio-ports" --------------------------------------------------------------

uint32_t audio_ports_count(const clap_plugin_t*, bool) {
    return 1;
}

bool audio_ports_get(const clap_plugin_t*, uint32_t index, bool is_input,
                     clap_audio_port_info_t* info) {
    if (index != 0 || !info) return false;
    memset(info, 0, sizeof *info);
    info->id = is_input ? 0 : 1;
    snprintf(info->name, sizeof info->name, "%s", is_input ? "Input" : "Output");
    info->flags = CLAP_AUDIO_PORT_IS_MAIN;
    info->channel_count = 2;
    info->port_type = CLAP_PORT_STEREO;
    info->in_place_pair = CLAP_INVALID_ID;
    return true;
}

constexpr clap_plugin_audio_ports_t kAudioPortsExtension = {audio_ports_count, audio_ports_get};

const void* plugin_get_extension(const clap_plugin_t*, const char* id) {
    if (!id) return nullptr;
    if (strcmp(id, CLAP_EXT_PARAMS) == 0) return &kParamsExtension;
    if (strcmp(id, CLAP_EXT_STATE) == 0) return &kStateExtension;
    if (strcmp(id, CLAP_EXT_AUDIO_PORTS) == 0) return &kAudioPortsExtension;
    if (strcmp(id, CLAP_EXT_TAIL) == 0) return &kTailExtension;
    return nullptr;
}

// ---- Factory and entry -------------------------------------------------------------------------

// The interface version this code is written to, not that of the headers it meets.
constexpr clap_version_t kInterfaceVersion = {1, 2, 8};

constexpr const char* kFeatures[] = {"audio-effect", "reverb", "stereo", nullptr};

constexpr clap_plugin_descriptor_t kDescriptor = {
    .clap_version = kInterfaceVersion,
    .id = "com.tamrockaudio.brisel",
    .name = "Brisel",
    .vendor = "Tamrock Audio",
    .url = "https://tamrockaudio.com",
    .manual_url = "",
    .support_url = "",
    .version = BRISEL_VERSION,
    .description = "Research-backed FFDN reverb (Schlecht & Habets 2020)",
    .features = kFeatures,
};

uint32_t factory_count(const clap_plugin_factory_t*) {
    return 1;
}

const clap_plugin_descriptor_t* factory_desc(const clap_plugin_factory_t*, uint32_t index) {
    return index == 0 ? &kDescriptor : nullptr;
}

// The instance asks nothing of its host, so the host is not kept. [main-thread]
const clap_plugin_t* factory_create(const clap_plugin_factory_t*, const clap_host_t*,
                                    const char* plugin_id) {
    if (!plugin_id || strcmp(plugin_id, kDescriptor.id) != 0) return nullptr;
    auto* b = static_cast<Plugin*>(calloc(1, sizeof(Plugin)));
    if (!b) return nullptr;
    b->plugin = {
        .desc = &kDescriptor,
        .plugin_data = b,
        .init = plugin_init,
        .destroy = plugin_destroy,
        .activate = plugin_activate,
        .deactivate = plugin_deactivate,
        .start_processing = plugin_start_processing,
        .stop_processing = plugin_stop_processing,
        .reset = plugin_reset,
        .process = plugin_process,
        .get_extension = plugin_get_extension,
        .on_main_thread = plugin_on_main_thread,
    };
    return &b->plugin;
}

constexpr clap_plugin_factory_t kFactory = {factory_count, factory_desc, factory_create};

bool entry_init(const char*) {
    return true;
}

void entry_deinit() {}

const void* entry_get_factory(const char* factory_id) {
    return factory_id && strcmp(factory_id, CLAP_PLUGIN_FACTORY_ID) == 0 ? &kFactory : nullptr;
}

} // namespace

// The one symbol that a host looks up.
extern "C" CLAP_EXPORT const clap_plugin_entry_t clap_entry = {
    .clap_version = kInterfaceVersion,
    .init = entry_init,
    .deinit = entry_deinit,
    .get_factory = entry_get_factory,
};
