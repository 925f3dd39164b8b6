/* The part of the CLAP 1.2.8 plug-in interface that the plug-in and the renderer use, under the
 * official names, for machines without the official headers. Declarations only; C11 and C++20.
 *
 * Every record carries the official `_t` name and its plain struct tag. Their layout follows from
 * the platform's C rules; plugin/clap_layout.h pins it, so that it holds for the official headers
 * too.
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
static const char CLAP_PORT_STEREO[] = "stereo";

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

enum { CLAP_EVENT_PARAM_VALUE = 5 };

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

#ifdef __cplusplus
}
#endif

#endif
