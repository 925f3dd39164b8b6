/* The part of the CLAP 1.2.8 plug-in interface that the plug-ins and the renderer use, under the
 * official names, for machines without the official headers. Declarations only; C11 and C++20.
 *
 * Every record carries the official `_t` name and its plain struct tag. Their layout follows from
 * the platform's C rules; the plug-ins pin it, so that it holds for the official headers too.
 *
 * Order of a plug-in's life: entry.init, entry.get_factory, factory.create_plugin, plugin.init,
 * then activate, start_processing, process ..., stop_processing, deactivate as often as the host
 * likes, then plugin.destroy, entry.deinit.
 */
#ifndef CLAP_CLAP_H
#define CLAP_CLAP_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CLAP_ABI
#define CLAP_EXPORT __attribute__((visibility("default")))

/* Version of the interface. */

#define CLAP_VERSION_MAJOR 1
#define CLAP_VERSION_MINOR 2
#define CLAP_VERSION_REVISION 8

typedef struct clap_version {
    uint32_t major;
    uint32_t minor;
    uint32_t revision;
} clap_version_t;

static inline bool clap_version_is_compatible(const clap_version_t v) {
    return v.major >= 1;
}

/* Identifiers and fixed string sizes. */

typedef uint32_t clap_id;

#define CLAP_INVALID_ID UINT32_MAX

enum { CLAP_NAME_SIZE = 256, CLAP_PATH_SIZE = 1024 };

static const char CLAP_PLUGIN_FACTORY_ID[] = "clap.plugin-factory";
static const char CLAP_EXT_PARAMS[] = "clap.params";
static const char CLAP_EXT_STATE[] = "clap.state";
static const char CLAP_EXT_TAIL[] = "clap.tail";
static const char CLAP_EXT_AUDIO_PORTS[] = "clap.audio-ports";
static const char CLAP_PORT_MONO[] = "mono";
static const char CLAP_PORT_STEREO[] = "stereo";

#define CLAP_PLUGIN_FEATURE_AUDIO_EFFECT "audio-effect"
#define CLAP_PLUGIN_FEATURE_REVERB "reverb"
#define CLAP_PLUGIN_FEATURE_STEREO "stereo"

/* Host. */

typedef struct clap_host {
    clap_version_t clap_version;
    void* host_data;
    const char* name;
    const char* vendor;
    const char* url;
    const char* version;
    const void*(CLAP_ABI* get_extension)(const struct clap_host* host, const char* extension_id);
    void(CLAP_ABI* request_restart)(const struct clap_host* host);
    void(CLAP_ABI* request_process)(const struct clap_host* host);
    void(CLAP_ABI* request_callback)(const struct clap_host* host);
} clap_host_t;

/* Events. Every event starts with a header, whose `size` covers the whole event. */

typedef struct clap_event_header {
    uint32_t size;     /* bytes */
    uint32_t time;     /* frames from the start of the block */
    uint16_t space_id; /* CLAP_CORE_EVENT_SPACE_ID for the types below */
    uint16_t type;
    uint32_t flags;
} clap_event_header_t;

static const uint16_t CLAP_CORE_EVENT_SPACE_ID = 0;

enum {
    CLAP_EVENT_PARAM_VALUE = 5,
    CLAP_EVENT_PARAM_MOD = 6,
    CLAP_EVENT_PARAM_GESTURE_BEGIN = 7,
    CLAP_EVENT_PARAM_GESTURE_END = 8,
    CLAP_EVENT_TRANSPORT = 9,
};

typedef struct clap_event_param_value {
    clap_event_header_t header;
    clap_id param_id;
    void* cookie;    /* as reported in clap_param_info, or null */
    int32_t note_id; /* -1 in these four: not bound to a note, port, channel or key */
    int16_t port_index;
    int16_t channel;
    int16_t key;
    double value;
} clap_event_param_value_t;

struct clap_event_transport;
typedef struct clap_event_transport clap_event_transport_t;

typedef struct clap_input_events {
    void* ctx;
    uint32_t(CLAP_ABI* size)(const struct clap_input_events* list);
    const clap_event_header_t*(CLAP_ABI* get)(const struct clap_input_events* list, uint32_t index);
} clap_input_events_t;

typedef struct clap_output_events {
    void* ctx;
    bool(CLAP_ABI* try_push)(const struct clap_output_events* list,
                             const clap_event_header_t* event);
} clap_output_events_t;

/* Processing. */

typedef struct clap_audio_buffer {
    float** data32; /* one pointer a channel; exactly one of data32 and data64 is in use */
    double** data64;
    uint32_t channel_count;
    uint32_t latency; /* frames */
    uint64_t constant_mask;
} clap_audio_buffer_t;

typedef int32_t clap_process_status;
enum {
    CLAP_PROCESS_ERROR = 0,
    CLAP_PROCESS_CONTINUE = 1,
    CLAP_PROCESS_TAIL = 3,
    CLAP_PROCESS_SLEEP = 4,
};

typedef struct clap_process {
    int64_t steady_time; /* frames, -1 if unknown */
    uint32_t frames_count;
    const clap_event_transport_t* transport; /* null: free running */
    const clap_audio_buffer_t* audio_inputs;
    clap_audio_buffer_t* audio_outputs;
    uint32_t audio_inputs_count;
    uint32_t audio_outputs_count;
    const clap_input_events_t* in_events;
    const clap_output_events_t* out_events;
} clap_process_t;

/* Plug-in. */

typedef struct clap_plugin_descriptor {
    clap_version_t clap_version;
    const char* id;
    const char* name;
    const char* vendor;
    const char* url;
    const char* manual_url;
    const char* support_url;
    const char* version;
    const char* description;
    const char* const* features; /* null-terminated */
} clap_plugin_descriptor_t;

typedef struct clap_plugin {
    const clap_plugin_descriptor_t* desc;
    void* plugin_data;
    bool(CLAP_ABI* init)(const struct clap_plugin* plugin);
    void(CLAP_ABI* destroy)(const struct clap_plugin* plugin);
    bool(CLAP_ABI* activate)(const struct clap_plugin* plugin, double sample_rate,
                             uint32_t min_frames_count, uint32_t max_frames_count);
    void(CLAP_ABI* deactivate)(const struct clap_plugin* plugin);
    bool(CLAP_ABI* start_processing)(const struct clap_plugin* plugin);
    void(CLAP_ABI* stop_processing)(const struct clap_plugin* plugin);
    void(CLAP_ABI* reset)(const struct clap_plugin* plugin);
    clap_process_status(CLAP_ABI* process)(const struct clap_plugin* plugin,
                                           const clap_process_t* process);
    const void*(CLAP_ABI* get_extension)(const struct clap_plugin* plugin, const char* id);
    void(CLAP_ABI* on_main_thread)(const struct clap_plugin* plugin);
} clap_plugin_t;

typedef struct clap_plugin_factory {
    uint32_t(CLAP_ABI* get_plugin_count)(const struct clap_plugin_factory* factory);
    const clap_plugin_descriptor_t*(CLAP_ABI* get_plugin_descriptor)(
        const struct clap_plugin_factory* factory, uint32_t index);
    const clap_plugin_t*(CLAP_ABI* create_plugin)(const struct clap_plugin_factory* factory,
                                                  const clap_host_t* host, const char* plugin_id);
} clap_plugin_factory_t;

typedef struct clap_plugin_entry {
    clap_version_t clap_version;
    bool(CLAP_ABI* init)(const char* plugin_path);
    void(CLAP_ABI* deinit)(void);
    const void*(CLAP_ABI* get_factory)(const char* factory_id);
} clap_plugin_entry_t;

/* What a plug-in library exports. */
extern const CLAP_EXPORT clap_plugin_entry_t clap_entry;

/* Extension "clap.params". */

typedef uint32_t clap_param_info_flags;
enum {
    CLAP_PARAM_IS_STEPPED = 1 << 0,
    CLAP_PARAM_IS_BYPASS = 1 << 4,
    CLAP_PARAM_IS_AUTOMATABLE = 1 << 5,
};

typedef struct clap_param_info {
    clap_id id;
    clap_param_info_flags flags;
    void* cookie;
    char name[CLAP_NAME_SIZE];
    char module[CLAP_PATH_SIZE];
    double min_value;
    double max_value;
    double default_value;
} clap_param_info_t;

typedef struct clap_plugin_params {
    uint32_t(CLAP_ABI* count)(const clap_plugin_t* plugin);
    bool(CLAP_ABI* get_info)(const clap_plugin_t* plugin, uint32_t param_index,
                             clap_param_info_t* param_info);
    bool(CLAP_ABI* get_value)(const clap_plugin_t* plugin, clap_id param_id, double* out_value);
    bool(CLAP_ABI* value_to_text)(const clap_plugin_t* plugin, clap_id param_id, double value,
                                  char* out_buffer, uint32_t out_buffer_capacity);
    bool(CLAP_ABI* text_to_value)(const clap_plugin_t* plugin, clap_id param_id,
                                  const char* param_value_text, double* out_value);
    void(CLAP_ABI* flush)(const clap_plugin_t* plugin, const clap_input_events_t* in,
                          const clap_output_events_t* out);
} clap_plugin_params_t;

/* Extension "clap.state" and its streams, which may take or give less than they are asked for. */

typedef struct clap_istream {
    void* ctx;
    /* Returns the bytes read, 0 at the end, -1 on error. */
    int64_t(CLAP_ABI* read)(const struct clap_istream* stream, void* buffer, uint64_t size);
} clap_istream_t;

typedef struct clap_ostream {
    void* ctx;
    /* Returns the bytes written, -1 on error. */
    int64_t(CLAP_ABI* write)(const struct clap_ostream* stream, const void* buffer, uint64_t size);
} clap_ostream_t;

typedef struct clap_plugin_state {
    bool(CLAP_ABI* save)(const clap_plugin_t* plugin, const clap_ostream_t* stream);
    bool(CLAP_ABI* load)(const clap_plugin_t* plugin, const clap_istream_t* stream);
} clap_plugin_state_t;

/* Extension "clap.tail". */

typedef struct clap_plugin_tail {
    uint32_t(CLAP_ABI* get)(const clap_plugin_t* plugin); /* frames */
} clap_plugin_tail_t;

/* Extension "clap.audio-ports". */

enum { CLAP_AUDIO_PORT_IS_MAIN = 1 << 0 };

typedef struct clap_audio_port_info {
    clap_id id;
    char name[CLAP_NAME_SIZE];
    uint32_t flags;
    uint32_t channel_count;
    const char* port_type;
    clap_id in_place_pair;
} clap_audio_port_info_t;

typedef struct clap_plugin_audio_ports {
    uint32_t(CLAP_ABI* count)(const clap_plugin_t* plugin, bool is_input);
    bool(CLAP_ABI* get)(const clap_plugin_t* plugin, uint32_t index, bool is_input,
                        clap_audio_port_info_t* info);
} clap_plugin_audio_ports_t;

/* ---- What Brisel Live uses besides ----------------------------------------------------------- */

/* Modulation, gestures and transport. */

typedef struct clap_event_param_mod {
    clap_event_header_t header;
    clap_id param_id;
    void* cookie;
    int32_t note_id;
    int16_t port_index;
    int16_t channel;
    int16_t key;
    double amount; /* an offset on the value, in the parameter's unit */
} clap_event_param_mod_t;

typedef struct clap_event_param_gesture {
    clap_event_header_t header;
    clap_id param_id;
} clap_event_param_gesture_t;

typedef int64_t clap_beattime; /* beats times 2^31 */
typedef int64_t clap_sectime;  /* seconds times 2^31 */

enum clap_transport_flags { CLAP_TRANSPORT_HAS_TEMPO = 1 << 0 };

struct clap_event_transport {
    clap_event_header_t header;
    uint32_t flags; /* a field is valid with its flag only */
    clap_beattime song_pos_beats;
    clap_sectime song_pos_seconds;
    double tempo;     /* beats per minute */
    double tempo_inc; /* per frame, until the next transport event */
    clap_beattime loop_start_beats;
    clap_beattime loop_end_beats;
    clap_sectime loop_start_seconds;
    clap_sectime loop_end_seconds;
    clap_beattime bar_start;
    int32_t bar_number;
    uint16_t tsig_num;
    uint16_t tsig_denom;
};

/* Extension "clap.params": more flags, the host's side. */

enum { CLAP_PARAM_IS_MODULATABLE = 1 << 10, CLAP_PARAM_IS_ENUM = 1 << 16 };

typedef uint32_t clap_param_rescan_flags;
enum { CLAP_PARAM_RESCAN_VALUES = 1 << 0 };

typedef uint32_t clap_param_clear_flags;

typedef struct clap_host_params {
    void(CLAP_ABI* rescan)(const clap_host_t* host, clap_param_rescan_flags flags);
    void(CLAP_ABI* clear)(const clap_host_t* host, clap_id param_id, clap_param_clear_flags flags);
    void(CLAP_ABI* request_flush)(const clap_host_t* host);
} clap_host_params_t;

/* Extension "clap.state-context/2". */

static const char CLAP_EXT_STATE_CONTEXT[] = "clap.state-context/2";

enum clap_plugin_state_context_type {
    CLAP_STATE_CONTEXT_FOR_PRESET = 1,
    CLAP_STATE_CONTEXT_FOR_DUPLICATE = 2,
    CLAP_STATE_CONTEXT_FOR_PROJECT = 3,
};

typedef struct clap_plugin_state_context {
    bool(CLAP_ABI* save)(const clap_plugin_t* plugin, const clap_ostream_t* stream,
                         uint32_t context_type);
    bool(CLAP_ABI* load)(const clap_plugin_t* plugin, const clap_istream_t* stream,
                         uint32_t context_type);
} clap_plugin_state_context_t;

/* Extension "clap.preset-load/2". */

static const char CLAP_EXT_PRESET_LOAD[] = "clap.preset-load/2";
static const char CLAP_EXT_PRESET_LOAD_COMPAT[] = "clap.preset-load.draft/2";

typedef struct clap_plugin_preset_load {
    bool(CLAP_ABI* from_location)(const clap_plugin_t* plugin, uint32_t location_kind,
                                  const char* location, const char* load_key);
} clap_plugin_preset_load_t;

typedef struct clap_host_preset_load {
    void(CLAP_ABI* on_error)(const clap_host_t* host, uint32_t location_kind, const char* location,
                             const char* load_key, int32_t os_error, const char* msg);
    void(CLAP_ABI* loaded)(const clap_host_t* host, uint32_t location_kind, const char* location,
                           const char* load_key);
} clap_host_preset_load_t;

/* Factory "clap.preset-discovery-factory/2". */

static const char CLAP_PRESET_DISCOVERY_FACTORY_ID[] = "clap.preset-discovery-factory/2";
static const char CLAP_PRESET_DISCOVERY_FACTORY_ID_COMPAT[] =
    "clap.preset-discovery-factory/draft-2";

enum clap_preset_discovery_location_kind {
    CLAP_PRESET_DISCOVERY_LOCATION_FILE = 0,   /* the path of a file or folder */
    CLAP_PRESET_DISCOVERY_LOCATION_PLUGIN = 1, /* inside the library; no path */
};

enum clap_preset_discovery_flags {
    CLAP_PRESET_DISCOVERY_IS_FACTORY_CONTENT = 1 << 0,
    CLAP_PRESET_DISCOVERY_IS_USER_CONTENT = 1 << 1,
};

typedef uint64_t clap_timestamp; /* seconds since 1970, 0 for unknown */

typedef struct clap_universal_plugin_id {
    const char* abi; /* "clap" */
    const char* id;
} clap_universal_plugin_id_t;

typedef struct clap_preset_discovery_metadata_receiver {
    void* receiver_data;
    void(CLAP_ABI* on_error)(const struct clap_preset_discovery_metadata_receiver* receiver,
                             int32_t os_error, const char* error_message);
    bool(CLAP_ABI* begin_preset)(const struct clap_preset_discovery_metadata_receiver* receiver,
                                 const char* name, const char* load_key);
    void(CLAP_ABI* add_plugin_id)(const struct clap_preset_discovery_metadata_receiver* receiver,
                                  const clap_universal_plugin_id_t* plugin_id);
    void(CLAP_ABI* set_soundpack_id)(const struct clap_preset_discovery_metadata_receiver* receiver,
                                     const char* soundpack_id);
    void(CLAP_ABI* set_flags)(const struct clap_preset_discovery_metadata_receiver* receiver,
                              uint32_t flags);
    void(CLAP_ABI* add_creator)(const struct clap_preset_discovery_metadata_receiver* receiver,
                                const char* creator);
    void(CLAP_ABI* set_description)(const struct clap_preset_discovery_metadata_receiver* receiver,
                                    const char* description);
    void(CLAP_ABI* set_timestamps)(const struct clap_preset_discovery_metadata_receiver* receiver,
                                   clap_timestamp creation_time, clap_timestamp modification_time);
    void(CLAP_ABI* add_feature)(const struct clap_preset_discovery_metadata_receiver* receiver,
                                const char* feature);
    void(CLAP_ABI* add_extra_info)(const struct clap_preset_discovery_metadata_receiver* receiver,
                                   const char* key, const char* value);
} clap_preset_discovery_metadata_receiver_t;

typedef struct clap_preset_discovery_filetype {
    const char* name;
    const char* description;
    const char* file_extension; /* without the dot */
} clap_preset_discovery_filetype_t;

typedef struct clap_preset_discovery_location {
    uint32_t flags;
    const char* name;
    uint32_t kind;
    const char* location;
} clap_preset_discovery_location_t;

struct clap_preset_discovery_soundpack;

typedef struct clap_preset_discovery_provider_descriptor {
    clap_version_t clap_version;
    const char* id;
    const char* name;
    const char* vendor;
} clap_preset_discovery_provider_descriptor_t;

typedef struct clap_preset_discovery_provider {
    const clap_preset_discovery_provider_descriptor_t* desc;
    void* provider_data;
    bool(CLAP_ABI* init)(const struct clap_preset_discovery_provider* provider);
    void(CLAP_ABI* destroy)(const struct clap_preset_discovery_provider* provider);
    bool(CLAP_ABI* get_metadata)(
        const struct clap_preset_discovery_provider* provider, uint32_t location_kind,
        const char* location, const clap_preset_discovery_metadata_receiver_t* metadata_receiver);
    const void*(CLAP_ABI* get_extension)(const struct clap_preset_discovery_provider* provider,
                                         const char* extension_id);
} clap_preset_discovery_provider_t;

typedef struct clap_preset_discovery_indexer {
    clap_version_t clap_version;
    const char* name;
    const char* vendor;
    const char* url;
    const char* version;
    void* indexer_data;
    bool(CLAP_ABI* declare_filetype)(const struct clap_preset_discovery_indexer* indexer,
                                     const clap_preset_discovery_filetype_t* filetype);
    bool(CLAP_ABI* declare_location)(const struct clap_preset_discovery_indexer* indexer,
                                     const clap_preset_discovery_location_t* location);
    bool(CLAP_ABI* declare_soundpack)(const struct clap_preset_discovery_indexer* indexer,
                                      const struct clap_preset_discovery_soundpack* soundpack);
    const void*(CLAP_ABI* get_extension)(const struct clap_preset_discovery_indexer* indexer,
                                         const char* extension_id);
} clap_preset_discovery_indexer_t;

typedef struct clap_preset_discovery_factory {
    uint32_t(CLAP_ABI* count)(const struct clap_preset_discovery_factory* factory);
    const clap_preset_discovery_provider_descriptor_t*(CLAP_ABI* get_descriptor)(
        const struct clap_preset_discovery_factory* factory, uint32_t index);
    const clap_preset_discovery_provider_t*(CLAP_ABI* create)(
        const struct clap_preset_discovery_factory* factory,
        const clap_preset_discovery_indexer_t* indexer, const char* provider_id);
} clap_preset_discovery_factory_t;

/* Extensions "clap.audio-ports-config" and "clap.audio-ports-config-info/1". */

static const char CLAP_EXT_AUDIO_PORTS_CONFIG[] = "clap.audio-ports-config";
static const char CLAP_EXT_AUDIO_PORTS_CONFIG_INFO[] = "clap.audio-ports-config-info/1";
static const char CLAP_EXT_AUDIO_PORTS_CONFIG_INFO_COMPAT[] =
    "clap.audio-ports-config-info/draft-0";

typedef struct clap_audio_ports_config {
    clap_id id;
    char name[CLAP_NAME_SIZE];
    uint32_t input_port_count;
    uint32_t output_port_count;
    bool has_main_input;
    uint32_t main_input_channel_count;
    const char* main_input_port_type;
    bool has_main_output;
    uint32_t main_output_channel_count;
    const char* main_output_port_type;
} clap_audio_ports_config_t;

typedef struct clap_plugin_audio_ports_config {
    uint32_t(CLAP_ABI* count)(const clap_plugin_t* plugin);
    bool(CLAP_ABI* get)(const clap_plugin_t* plugin, uint32_t index,
                        clap_audio_ports_config_t* config);
    bool(CLAP_ABI* select)(const clap_plugin_t* plugin, clap_id config_id);
} clap_plugin_audio_ports_config_t;

typedef struct clap_plugin_audio_ports_config_info {
    clap_id(CLAP_ABI* current_config)(const clap_plugin_t* plugin);
    bool(CLAP_ABI* get)(const clap_plugin_t* plugin, clap_id config_id, uint32_t port_index,
                        bool is_input, clap_audio_port_info_t* info);
} clap_plugin_audio_ports_config_info_t;

/* Extension "clap.configurable-audio-ports/1". */

static const char CLAP_EXT_CONFIGURABLE_AUDIO_PORTS[] = "clap.configurable-audio-ports/1";
static const char CLAP_EXT_CONFIGURABLE_AUDIO_PORTS_COMPAT[] =
    "clap.configurable-audio-ports.draft1";

typedef struct clap_audio_port_configuration_request {
    bool is_input;
    uint32_t port_index;
    uint32_t channel_count;
    const char* port_type;
    const void* port_details;
} clap_audio_port_configuration_request_t;

typedef struct clap_plugin_configurable_audio_ports {
    bool(CLAP_ABI* can_apply_configuration)(const clap_plugin_t* plugin,
                                            const clap_audio_port_configuration_request_t* requests,
                                            uint32_t request_count);
    bool(CLAP_ABI* apply_configuration)(const clap_plugin_t* plugin,
                                        const clap_audio_port_configuration_request_t* requests,
                                        uint32_t request_count);
} clap_plugin_configurable_audio_ports_t;

/* Extension "clap.tail", the host's side. */

typedef struct clap_host_tail {
    void(CLAP_ABI* changed)(const clap_host_t* host);
} clap_host_tail_t;

/* Extension "clap.remote-controls/2". */

static const char CLAP_EXT_REMOTE_CONTROLS[] = "clap.remote-controls/2";
static const char CLAP_EXT_REMOTE_CONTROLS_COMPAT[] = "clap.remote-controls.draft/2";

enum { CLAP_REMOTE_CONTROLS_COUNT = 8 };

typedef struct clap_remote_controls_page {
    char section_name[CLAP_NAME_SIZE];
    clap_id page_id;
    char page_name[CLAP_NAME_SIZE];
    clap_id param_ids[CLAP_REMOTE_CONTROLS_COUNT];
    bool is_for_preset;
} clap_remote_controls_page_t;

typedef struct clap_plugin_remote_controls {
    uint32_t(CLAP_ABI* count)(const clap_plugin_t* plugin);
    bool(CLAP_ABI* get)(const clap_plugin_t* plugin, uint32_t page_index,
                        clap_remote_controls_page_t* page);
} clap_plugin_remote_controls_t;

/* Extension "clap.gui". */

static const char CLAP_EXT_GUI[] = "clap.gui";
static const char CLAP_WINDOW_API_X11[] = "x11";

typedef unsigned long clap_xwnd;

typedef struct clap_window {
    const char* api;
    union {
        void* cocoa;
        void* uikit;
        clap_xwnd x11;
        void* win32;
        void* ptr;
    };
} clap_window_t;

typedef struct clap_gui_resize_hints {
    bool can_resize_horizontally;
    bool can_resize_vertically;
    bool preserve_aspect_ratio;
    uint32_t aspect_ratio_width;
    uint32_t aspect_ratio_height;
} clap_gui_resize_hints_t;

typedef struct clap_plugin_gui {
    bool(CLAP_ABI* is_api_supported)(const clap_plugin_t* plugin, const char* api,
                                     bool is_floating);
    bool(CLAP_ABI* get_preferred_api)(const clap_plugin_t* plugin, const char** api,
                                      bool* is_floating);
    bool(CLAP_ABI* create)(const clap_plugin_t* plugin, const char* api, bool is_floating);
    void(CLAP_ABI* destroy)(const clap_plugin_t* plugin);
    bool(CLAP_ABI* set_scale)(const clap_plugin_t* plugin, double scale);
    bool(CLAP_ABI* get_size)(const clap_plugin_t* plugin, uint32_t* width, uint32_t* height);
    bool(CLAP_ABI* can_resize)(const clap_plugin_t* plugin);
    bool(CLAP_ABI* get_resize_hints)(const clap_plugin_t* plugin, clap_gui_resize_hints_t* hints);
    bool(CLAP_ABI* adjust_size)(const clap_plugin_t* plugin, uint32_t* width, uint32_t* height);
    bool(CLAP_ABI* set_size)(const clap_plugin_t* plugin, uint32_t width, uint32_t height);
    bool(CLAP_ABI* set_parent)(const clap_plugin_t* plugin, const clap_window_t* window);
    bool(CLAP_ABI* set_transient)(const clap_plugin_t* plugin, const clap_window_t* window);
    void(CLAP_ABI* suggest_title)(const clap_plugin_t* plugin, const char* title);
    bool(CLAP_ABI* show)(const clap_plugin_t* plugin);
    bool(CLAP_ABI* hide)(const clap_plugin_t* plugin);
} clap_plugin_gui_t;

typedef struct clap_host_gui {
    void(CLAP_ABI* resize_hints_changed)(const clap_host_t* host);
    bool(CLAP_ABI* request_resize)(const clap_host_t* host, uint32_t width, uint32_t height);
    bool(CLAP_ABI* request_show)(const clap_host_t* host);
    bool(CLAP_ABI* request_hide)(const clap_host_t* host);
    void(CLAP_ABI* closed)(const clap_host_t* host, bool was_destroyed);
} clap_host_gui_t;

/* Extension "clap.timer-support". */

static const char CLAP_EXT_TIMER_SUPPORT[] = "clap.timer-support";

typedef struct clap_plugin_timer_support {
    void(CLAP_ABI* on_timer)(const clap_plugin_t* plugin, clap_id timer_id);
} clap_plugin_timer_support_t;

typedef struct clap_host_timer_support {
    bool(CLAP_ABI* register_timer)(const clap_host_t* host, uint32_t period_ms, clap_id* timer_id);
    bool(CLAP_ABI* unregister_timer)(const clap_host_t* host, clap_id timer_id);
} clap_host_timer_support_t;

/* Extension "clap.posix-fd-support". */

static const char CLAP_EXT_POSIX_FD_SUPPORT[] = "clap.posix-fd-support";

enum {
    CLAP_POSIX_FD_READ = 1 << 0,
    CLAP_POSIX_FD_WRITE = 1 << 1,
    CLAP_POSIX_FD_ERROR = 1 << 2,
};
typedef uint32_t clap_posix_fd_flags_t;

typedef struct clap_plugin_posix_fd_support {
    void(CLAP_ABI* on_fd)(const clap_plugin_t* plugin, int fd, clap_posix_fd_flags_t flags);
} clap_plugin_posix_fd_support_t;

typedef struct clap_host_posix_fd_support {
    bool(CLAP_ABI* register_fd)(const clap_host_t* host, int fd, clap_posix_fd_flags_t flags);
    bool(CLAP_ABI* modify_fd)(const clap_host_t* host, int fd, clap_posix_fd_flags_t flags);
    bool(CLAP_ABI* unregister_fd)(const clap_host_t* host, int fd);
} clap_host_posix_fd_support_t;

#ifdef __cplusplus
}
#endif

#endif
