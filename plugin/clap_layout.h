// The binary interface of CLAP on x86-64 Linux: the layout of every record that passes between host
// and plug-in, whichever headers declare it. A header that differs does not compile.
#ifndef BRISEL_PLUGIN_CLAP_LAYOUT_H
#define BRISEL_PLUGIN_CLAP_LAYOUT_H

#include <clap/clap.h>

#include <cstddef>

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

#endif
