// The CLAP shell of Brisel: entry, factory, descriptor, the plug-in instance with its twelve parameter
// values, and the extensions params, state, tail and audio-ports. It cuts host blocks to what the
// engine takes and leaves everything that sounds to qv_reverb.
//
// Threads. The shell has no lock and no mutable global data; CLAP's rules keep the calls on one
// instance apart. The tags in the comments are those of brisel/export.h; a callback without a tag
// does nothing or only reads constants. "Flush" may come on the audio thread while active and on the
// main thread otherwise.
//
// Numbers as text follow LC_NUMERIC, as snprintf and strtod do: a host that sets a locale with a
// decimal comma sees and types "2,50 s". Both directions agree, so a displayed text always parses.

#include <brisel/reverb.h>
#include <clap/clap.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The binary interface of x86-64 Linux, whichever headers declare it.
static_assert(sizeof(clap_version_t) == 12);
static_assert(sizeof(clap_plugin_entry_t) == 40);
static_assert(sizeof(clap_plugin_factory_t) == 24);
static_assert(sizeof(clap_plugin_descriptor_t) == 88);
static_assert(sizeof(clap_plugin_t) == 96);
static_assert(sizeof(clap_host_t) == 88);
static_assert(sizeof(clap_process_t) == 64 && offsetof(clap_process_t, frames_count) == 8 &&
              offsetof(clap_process_t, transport) == 16 &&
              offsetof(clap_process_t, audio_inputs) == 24 &&
              offsetof(clap_process_t, audio_outputs) == 32 &&
              offsetof(clap_process_t, audio_inputs_count) == 40 &&
              offsetof(clap_process_t, audio_outputs_count) == 44 &&
              offsetof(clap_process_t, in_events) == 48 &&
              offsetof(clap_process_t, out_events) == 56);
static_assert(sizeof(clap_audio_buffer_t) == 32 && offsetof(clap_audio_buffer_t, data32) == 0 &&
              offsetof(clap_audio_buffer_t, data64) == 8 &&
              offsetof(clap_audio_buffer_t, channel_count) == 16 &&
              offsetof(clap_audio_buffer_t, latency) == 20 &&
              offsetof(clap_audio_buffer_t, constant_mask) == 24);
static_assert(sizeof(clap_event_header_t) == 16 && offsetof(clap_event_header_t, space_id) == 8 &&
              offsetof(clap_event_header_t, type) == 10 &&
              offsetof(clap_event_header_t, flags) == 12);
static_assert(sizeof(clap_event_param_value_t) == 56 &&
              offsetof(clap_event_param_value_t, param_id) == 16 &&
              offsetof(clap_event_param_value_t, cookie) == 24 &&
              offsetof(clap_event_param_value_t, note_id) == 32 &&
              offsetof(clap_event_param_value_t, port_index) == 36 &&
              offsetof(clap_event_param_value_t, channel) == 38 &&
              offsetof(clap_event_param_value_t, key) == 40 &&
              offsetof(clap_event_param_value_t, value) == 48);
static_assert(sizeof(clap_input_events_t) == 24 && sizeof(clap_output_events_t) == 16);
static_assert(sizeof(clap_istream_t) == 16 && sizeof(clap_ostream_t) == 16);
static_assert(sizeof(clap_param_info_t) == 1320 && offsetof(clap_param_info_t, flags) == 4 &&
              offsetof(clap_param_info_t, cookie) == 8 && offsetof(clap_param_info_t, name) == 16 &&
              offsetof(clap_param_info_t, module) == 272 &&
              offsetof(clap_param_info_t, min_value) == 1296 &&
              offsetof(clap_param_info_t, max_value) == 1304 &&
              offsetof(clap_param_info_t, default_value) == 1312);
static_assert(sizeof(clap_audio_port_info_t) == 288 &&
              offsetof(clap_audio_port_info_t, name) == 4 &&
              offsetof(clap_audio_port_info_t, flags) == 260 &&
              offsetof(clap_audio_port_info_t, channel_count) == 264 &&
              offsetof(clap_audio_port_info_t, port_type) == 272 &&
              offsetof(clap_audio_port_info_t, in_place_pair) == 280);
static_assert(sizeof(clap_plugin_params_t) == 48 && sizeof(clap_plugin_state_t) == 16 &&
              sizeof(clap_plugin_tail_t) == 8 && sizeof(clap_plugin_audio_ports_t) == 16);

namespace {

// ---- Parameters --------------------------------------------------------------------------------

// The ids are also the order in the saved state: append, never renumber.
enum param_id : uint32_t {
    SIZE,     // seconds
    DECAY,    // seconds
    BRISEL,   // cascade stages K
    DAMP,     // 0 .. 1
    MIX,      // 0 .. 1
    WIDTH,    // 0 .. 1
    MODULATE, // on from 0.5
    ER_ON,    // on from 0.5
    ER_SIZE,  // seconds
    ER_LEVEL, // linear gain
    EQ_LOW,   // dB
    EQ_HIGH,  // dB
    PARAM_COUNT
};

struct brisel_param {
    const char* label;
    double min;
    double max;
    double def;
    uint32_t flags;
};

constexpr uint32_t CONTINUOUS = CLAP_PARAM_IS_AUTOMATABLE;
constexpr uint32_t STEPPED = CLAP_PARAM_IS_AUTOMATABLE | CLAP_PARAM_IS_STEPPED;
static_assert(CONTINUOUS == 0x20 && STEPPED == 0x21);

constexpr brisel_param brisel_params[] = {
    {"Size", 0.005, 0.5, 0.04, CONTINUOUS},
    {"Decay", 0.1, 10.0, 2.0, CONTINUOUS},
    {"Brisel", 0.0, 3.0, 2.0, STEPPED},
    {"Damp", 0.0, 1.0, 0.3, CONTINUOUS},
    {"Mix", 0.0, 1.0, 0.3, CONTINUOUS},
    {"Width", 0.0, 1.0, 0.8, CONTINUOUS},
    {"Modulate", 0.0, 1.0, 1.0, STEPPED},
    {"Early Reflections", 0.0, 1.0, 0.0, STEPPED},
    {"ER Size", 0.001, 0.5, 0.06, CONTINUOUS},
    {"ER Level", 0.0, 1.0, 0.5, CONTINUOUS},
    {"EQ Low (dB)", -24.0, 24.0, 0.0, CONTINUOUS},
    {"EQ High (dB)", -24.0, 24.0, 0.0, CONTINUOUS},
};
static_assert(sizeof brisel_params / sizeof brisel_params[0] == PARAM_COUNT);

// Lower bound first; a NaN passes as it is, for the engine to refuse.
double clamp_param(uint32_t id, double value) {
    if (value < brisel_params[id].min) value = brisel_params[id].min;
    if (value > brisel_params[id].max) value = brisel_params[id].max;
    return value;
}

// Toward zero; out of range or NaN gives the most negative integer, as the processor's conversion
// does. A plain cast would be undefined there.
int32_t truncate_int32(double value) {
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int32_t>(value) : INT32_MIN;
}

int32_t stage_count(double value) {
    return truncate_int32(value + 0.5);
}

uint32_t is_on(double value) {
    return value >= 0.5 ? 1 : 0;
}

// ---- Instance ----------------------------------------------------------------------------------

struct brisel_plugin {
    clap_plugin_t plugin;       // what the host holds; plugin_data points back here
    qv_reverb* reverb;          // owned; null until an activation has made one
    int32_t sample_rate;        // Hz, of the latest activation, failed or not; 0 before
    int32_t max_frames;         // block capacity asked of the engine, likewise
    double values[PARAM_COUNT]; // what the host set, by id
    uint32_t params_dirty;      // nonzero: `values` has not been handed to the engine yet
};

brisel_plugin* self(const clap_plugin_t* plugin) {
    return static_cast<brisel_plugin*>(plugin->plugin_data);
}

// Hands all values to the engine, which rebuilds its network. Returns 0, also without an engine, or
// -1 when the engine refuses them and goes on with the settings it had.
int32_t brisel_apply_params(brisel_plugin* b) {
    if (!b->reverb) return 0;
    const double* v = b->values;
    qv_reverb_params params;
    params.size = static_cast<float>(v[SIZE]);
    params.t60 = static_cast<float>(v[DECAY]);
    params.cascade_stages = stage_count(v[BRISEL]);
    params.t60_high = 0.0f; // Damp sets the decay of the highs
    params.damp = static_cast<float>(v[DAMP]);
    params.mix = static_cast<float>(v[MIX]);
    params.width = static_cast<float>(v[WIDTH]);
    params.modulate = is_on(v[MODULATE]);
    params.er_enable = is_on(v[ER_ON]);
    params.er_size = static_cast<float>(v[ER_SIZE]);
    params.er_level = static_cast<float>(v[ER_LEVEL]);
    params.eq_low_db = static_cast<float>(v[EQ_LOW]);
    params.eq_high_db = static_cast<float>(v[EQ_HIGH]);
    return qv_reverb_set(b->reverb, &params);
}

// Takes over the parameter values of a host's list and hands pending ones to the engine. Only the
// kind of an event decides, not the size it claims; its time does not count either.
void brisel_read_events(brisel_plugin* b, const clap_input_events_t* events) {
    if (events) {
        const uint32_t count = events->size(events);
        for (uint32_t i = 0; i < count; ++i) {
            const clap_event_header_t* header = events->get(events, i);
            if (!header || header->space_id != CLAP_CORE_EVENT_SPACE_ID ||
                header->type != CLAP_EVENT_PARAM_VALUE)
                continue;
            const auto* event = reinterpret_cast<const clap_event_param_value_t*>(header);
            if (event->param_id >= PARAM_COUNT) continue;
            b->values[event->param_id] = clamp_param(event->param_id, event->value);
            b->params_dirty = 1;
        }
    }
    if (b->params_dirty) {
        brisel_apply_params(b); // refused values stay the host's; the engine keeps what it had
        b->params_dirty = 0;
    }
}

// [main-thread]
bool brisel_init(const clap_plugin_t* plugin) {
    brisel_plugin* b = self(plugin);
    for (uint32_t id = 0; id < PARAM_COUNT; ++id) b->values[id] = brisel_params[id].def;
    return true;
}

// [main-thread]
void brisel_destroy(const clap_plugin_t* plugin) {
    brisel_plugin* b = self(plugin);
    qv_reverb_destroy(b->reverb);
    free(b);
}

// Replaces the engine. When the engine refuses the values, activation fails, but the new engine stays
// with its own defaults. [main-thread]
bool brisel_activate(const clap_plugin_t* plugin, double sample_rate, uint32_t /*min_frames*/,
                     uint32_t max_frames) {
    brisel_plugin* b = self(plugin);
    qv_reverb_destroy(b->reverb);
    b->sample_rate = truncate_int32(sample_rate);
    const uint64_t capacity = (uint64_t{max_frames} + 7) & ~uint64_t{7};
    // Beyond int32 this turns negative or 0, which the engine refuses.
    b->max_frames = static_cast<int32_t>(capacity < 64 ? 64 : capacity);
    b->reverb = qv_reverb_create(b->sample_rate, b->max_frames);
    return b->reverb && brisel_apply_params(b) == 0;
}

// The engine outlives deactivation, and with it the tail.
void brisel_deactivate(const clap_plugin_t*) {}

bool brisel_start_processing(const clap_plugin_t*) {
    return true;
}

void brisel_stop_processing(const clap_plugin_t*) {}

void brisel_reset(const clap_plugin_t*) {}

float* channel(const clap_audio_buffer_t& port, uint32_t index) {
    return port.data32 && index < port.channel_count ? port.data32[index] : nullptr;
}

// Runs whole groups of eight frames through the engine and passes the last one to seven dry. Allocates
// nothing, also when parameters have changed. [audio-thread]
clap_process_status brisel_process(const clap_plugin_t* plugin, const clap_process_t* process) {
    brisel_plugin* b = self(plugin);
    if (!b->reverb || process->audio_inputs_count == 0 || process->audio_outputs_count == 0)
        return CLAP_PROCESS_ERROR;
    brisel_read_events(b, process->in_events);

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
    if (!out_l) return CLAP_PROCESS_CONTINUE;
    for (uint32_t t = whole_frames; t < frames; ++t) {
        const float left = in_l ? in_l[t] : 0.0f;
        out_l[t] = left;
        if (out_r) out_r[t] = in_r ? in_r[t] : left;
    }
    return CLAP_PROCESS_CONTINUE;
}

void brisel_on_main_thread(const clap_plugin_t*) {}

// ---- Extension "clap.params" -------------------------------------------------------------------

uint32_t params_count(const clap_plugin_t*) {
    return PARAM_COUNT;
}

bool params_get_info(const clap_plugin_t*, uint32_t index, clap_param_info_t* info) {
    if (index >= PARAM_COUNT || !info) return false;
    const brisel_param& row = brisel_params[index];
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
    if (id >= PARAM_COUNT || !out) return false;
    *out = self(plugin)->values[id];
    return true;
}

// [main-thread]
bool params_value_to_text(const clap_plugin_t*, clap_id id, double value, char* buffer,
                          uint32_t capacity) {
    if (!buffer && capacity > 0) return false;
    switch (id) {
    case SIZE:
    case ER_SIZE:
        snprintf(buffer, capacity, "%.1f ms", value * 1000.0);
        return true;
    case DECAY:
        snprintf(buffer, capacity, "%.2f s", value);
        return true;
    case BRISEL:
        snprintf(buffer, capacity, "K = %d", stage_count(value));
        return true;
    case DAMP:
    case MIX:
    case WIDTH:
    case ER_LEVEL:
        snprintf(buffer, capacity, "%.3f", value);
        return true;
    case MODULATE:
    case ER_ON:
        snprintf(buffer, capacity, "%s", is_on(value) ? "On" : "Off");
        return true;
    case EQ_LOW:
    case EQ_HIGH:
        snprintf(buffer, capacity, "%+.1f dB", value);
        return true;
    default:
        return false;
    }
}

// The leading number, in the parameter's own unit whatever unit is displayed: "40 ms" for Size is 40,
// not 0.04. [main-thread]
bool params_text_to_value(const clap_plugin_t*, clap_id id, const char* text, double* out) {
    if (!text || !out || id >= PARAM_COUNT) return false;
    *out = strtod(text, nullptr);
    return true;
}

// Without a list even pending values wait. [audio-thread] while active, else [main-thread]
void params_flush(const clap_plugin_t* plugin, const clap_input_events_t* in_events,
                  const clap_output_events_t*) {
    if (in_events) brisel_read_events(self(plugin), in_events);
}

constexpr clap_plugin_params_t brisel_params_ext = {
    params_count,         params_get_info,      params_get_value,
    params_value_to_text, params_text_to_value, params_flush,
};

// ---- Extension "clap.state" --------------------------------------------------------------------

// The saved state: this header, then the values as doubles in id order, all little-endian.
struct state_header {
    char magic[4];
    uint32_t version;
};
constexpr state_header STATE_HEADER = {{'Q', 'V', 'B', '1'}, 1};
static_assert(sizeof(state_header) == 8 && sizeof(brisel_plugin::values) == 96);

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
    const brisel_plugin* b = self(plugin);
    return write_all(stream, &STATE_HEADER, sizeof STATE_HEADER) &&
           write_all(stream, b->values, sizeof b->values);
}

// All or nothing. The values reach the engine with the next block, flush or activation. [main-thread]
bool state_load(const clap_plugin_t* plugin, const clap_istream_t* stream) {
    brisel_plugin* b = self(plugin);
    state_header header = {};
    if (!read_all(stream, &header, sizeof header) ||
        memcmp(&header, &STATE_HEADER, sizeof header) != 0)
        return false;
    double values[PARAM_COUNT] = {};
    if (!read_all(stream, values, sizeof values)) return false;
    for (uint32_t id = 0; id < PARAM_COUNT; ++id) b->values[id] = clamp_param(id, values[id]);
    b->params_dirty = 1;
    return true;
}

constexpr clap_plugin_state_t brisel_state_ext = {state_save, state_load};

// ---- Extension "clap.tail" ---------------------------------------------------------------------

// 1.5 decay times (90 dB), in frames. A Decay that is NaN reports 2^31: to a host, no end.
uint32_t brisel_tail_get(const clap_plugin_t* plugin) {
    const brisel_plugin* b = self(plugin);
    const double tail = 1.5 * b->values[DECAY] * b->sample_rate;
    if (tail < 0.0) return 0;
    if (tail > 2147483647.0) return 2147483647;
    return static_cast<uint32_t>(truncate_int32(tail));
}

constexpr clap_plugin_tail_t brisel_tail_ext = {brisel_tail_get};

// ---- Extension "clap.audio-ports" --------------------------------------------------------------

uint32_t qvx_aports_count(const clap_plugin_t*, bool) {
    return 1;
}

bool qvx_aports_get(const clap_plugin_t*, uint32_t index, bool is_input,
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

constexpr clap_plugin_audio_ports_t qvx_audio_ports_stereo = {qvx_aports_count, qvx_aports_get};

const void* brisel_get_extension(const clap_plugin_t*, const char* id) {
    if (!id) return nullptr;
    if (strcmp(id, CLAP_EXT_PARAMS) == 0) return &brisel_params_ext;
    if (strcmp(id, CLAP_EXT_STATE) == 0) return &brisel_state_ext;
    if (strcmp(id, CLAP_EXT_AUDIO_PORTS) == 0) return &qvx_audio_ports_stereo;
    if (strcmp(id, CLAP_EXT_TAIL) == 0) return &brisel_tail_ext;
    return nullptr;
}

// ---- Factory and entry -------------------------------------------------------------------------

// The interface version this code is written to, not that of the headers it meets.
constexpr clap_version_t BRISEL_CLAP_VERSION = {1, 2, 8};

constexpr const char* brisel_features[] = {"audio-effect", "reverb", "stereo", nullptr};

constexpr clap_plugin_descriptor_t brisel_desc = {
    .clap_version = BRISEL_CLAP_VERSION,
    .id = "com.tamrockaudio.brisel",
    .name = "Brisel",
    .vendor = "Tamrock Audio",
    .url = "https://tamrockaudio.com",
    .manual_url = "",
    .support_url = "",
    .version = BRISEL_VERSION,
    .description = "Research-backed FFDN reverb (Schlecht & Habets 2020)",
    .features = brisel_features,
};

uint32_t factory_count(const clap_plugin_factory_t*) {
    return 1;
}

const clap_plugin_descriptor_t* factory_desc(const clap_plugin_factory_t*, uint32_t index) {
    return index == 0 ? &brisel_desc : nullptr;
}

// The instance asks nothing of its host, so the host is not kept. [main-thread]
const clap_plugin_t* factory_create(const clap_plugin_factory_t*, const clap_host_t*,
                                    const char* plugin_id) {
    if (!plugin_id || strcmp(plugin_id, brisel_desc.id) != 0) return nullptr;
    auto* b = static_cast<brisel_plugin*>(calloc(1, sizeof(brisel_plugin)));
    if (!b) return nullptr;
    b->plugin = {
        .desc = &brisel_desc,
        .plugin_data = b,
        .init = brisel_init,
        .destroy = brisel_destroy,
        .activate = brisel_activate,
        .deactivate = brisel_deactivate,
        .start_processing = brisel_start_processing,
        .stop_processing = brisel_stop_processing,
        .reset = brisel_reset,
        .process = brisel_process,
        .get_extension = brisel_get_extension,
        .on_main_thread = brisel_on_main_thread,
    };
    return &b->plugin;
}

constexpr clap_plugin_factory_t brisel_factory = {factory_count, factory_desc, factory_create};

bool entry_init(const char*) {
    return true;
}

void entry_deinit() {}

const void* entry_get_factory(const char* factory_id) {
    return factory_id && strcmp(factory_id, CLAP_PLUGIN_FACTORY_ID) == 0 ? &brisel_factory
                                                                         : nullptr;
}

} // namespace

// The one symbol that a host looks up.
extern "C" CLAP_EXPORT const clap_plugin_entry_t clap_entry = {
    .clap_version = BRISEL_CLAP_VERSION,
    .init = entry_init,
    .deinit = entry_deinit,
    .get_factory = entry_get_factory,
};
