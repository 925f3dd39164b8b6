// The layout of what Brisel Live uses of the plug-in interface on x86-64 Linux, whichever headers declare
// it: sizes and offsets in bytes.
#ifndef BRISEL_LIVE_CLAP_CLAP_LAYOUT_H
#define BRISEL_LIVE_CLAP_CLAP_LAYOUT_H

#include <clap/clap.h>

#include <cstddef>

static_assert(sizeof(clap_plugin_entry_t) == 40);
static_assert(sizeof(clap_plugin_factory_t) == 24);
static_assert(sizeof(clap_plugin_descriptor_t) == 88);
static_assert(sizeof(clap_plugin_t) == 96);
static_assert(sizeof(clap_host_t) == 88 && offsetof(clap_host_t, host_data) == 16 &&
              offsetof(clap_host_t, get_extension) == 56 &&
              offsetof(clap_host_t, request_restart) == 64 &&
              offsetof(clap_host_t, request_process) == 72 &&
              offsetof(clap_host_t, request_callback) == 80);
static_assert(sizeof(clap_process_t) == 64 && offsetof(clap_process_t, frames_count) == 8 &&
              offsetof(clap_process_t, transport) == 16 &&
              offsetof(clap_process_t, audio_inputs) == 24 &&
              offsetof(clap_process_t, audio_outputs) == 32 &&
              offsetof(clap_process_t, audio_inputs_count) == 40 &&
              offsetof(clap_process_t, audio_outputs_count) == 44 &&
              offsetof(clap_process_t, in_events) == 48 &&
              offsetof(clap_process_t, out_events) == 56);
static_assert(sizeof(clap_audio_buffer_t) == 32 && offsetof(clap_audio_buffer_t, data64) == 8 &&
              offsetof(clap_audio_buffer_t, channel_count) == 16 &&
              offsetof(clap_audio_buffer_t, constant_mask) == 24);
static_assert(sizeof(clap_event_header_t) == 16 && offsetof(clap_event_header_t, time) == 4 &&
              offsetof(clap_event_header_t, space_id) == 8 &&
              offsetof(clap_event_header_t, type) == 10 &&
              offsetof(clap_event_header_t, flags) == 12);
static_assert(sizeof(clap_event_param_value_t) == 56 &&
              offsetof(clap_event_param_value_t, param_id) == 16 &&
              offsetof(clap_event_param_value_t, note_id) == 32 &&
              offsetof(clap_event_param_value_t, channel) == 38 &&
              offsetof(clap_event_param_value_t, key) == 40 &&
              offsetof(clap_event_param_value_t, value) == 48);
static_assert(sizeof(clap_event_param_mod_t) == 56 &&
              offsetof(clap_event_param_mod_t, param_id) == 16 &&
              offsetof(clap_event_param_mod_t, note_id) == 32 &&
              offsetof(clap_event_param_mod_t, channel) == 38 &&
              offsetof(clap_event_param_mod_t, key) == 40 &&
              offsetof(clap_event_param_mod_t, amount) == 48);
static_assert(sizeof(clap_event_param_gesture_t) == 20 &&
              offsetof(clap_event_param_gesture_t, param_id) == 16);
static_assert(sizeof(clap_event_transport_t) == 104 &&
              offsetof(clap_event_transport_t, flags) == 16 &&
              offsetof(clap_event_transport_t, tempo) == 40);
static_assert(sizeof(clap_input_events_t) == 24 && sizeof(clap_output_events_t) == 16);
static_assert(sizeof(clap_istream_t) == 16 && sizeof(clap_ostream_t) == 16);

static_assert(sizeof(clap_param_info_t) == 1320 && offsetof(clap_param_info_t, flags) == 4 &&
              offsetof(clap_param_info_t, cookie) == 8 && offsetof(clap_param_info_t, name) == 16 &&
              offsetof(clap_param_info_t, module) == 272 &&
              offsetof(clap_param_info_t, min_value) == 1296 &&
              offsetof(clap_param_info_t, max_value) == 1304 &&
              offsetof(clap_param_info_t, default_value) == 1312);
static_assert(sizeof(clap_plugin_params_t) == 48 && sizeof(clap_host_params_t) == 24);
static_assert(sizeof(clap_plugin_state_t) == 16 && sizeof(clap_plugin_state_context_t) == 16);
static_assert(sizeof(clap_plugin_tail_t) == 8 && sizeof(clap_host_tail_t) == 8);

static_assert(sizeof(clap_plugin_preset_load_t) == 8 && sizeof(clap_host_preset_load_t) == 16);
static_assert(sizeof(clap_preset_discovery_factory_t) == 24);
static_assert(sizeof(clap_preset_discovery_provider_descriptor_t) == 40 &&
              offsetof(clap_preset_discovery_provider_descriptor_t, id) == 16);
static_assert(sizeof(clap_preset_discovery_provider_t) == 48 &&
              offsetof(clap_preset_discovery_provider_t, init) == 16 &&
              offsetof(clap_preset_discovery_provider_t, get_metadata) == 32);
static_assert(sizeof(clap_preset_discovery_indexer_t) == 88 &&
              offsetof(clap_preset_discovery_indexer_t, declare_filetype) == 56 &&
              offsetof(clap_preset_discovery_indexer_t, declare_location) == 64);
static_assert(sizeof(clap_preset_discovery_filetype_t) == 24);
static_assert(sizeof(clap_preset_discovery_location_t) == 32 &&
              offsetof(clap_preset_discovery_location_t, name) == 8 &&
              offsetof(clap_preset_discovery_location_t, kind) == 16 &&
              offsetof(clap_preset_discovery_location_t, location) == 24);
static_assert(sizeof(clap_preset_discovery_metadata_receiver_t) == 88 &&
              offsetof(clap_preset_discovery_metadata_receiver_t, begin_preset) == 16 &&
              offsetof(clap_preset_discovery_metadata_receiver_t, set_description) == 56);
static_assert(sizeof(clap_universal_plugin_id_t) == 16);

static_assert(sizeof(clap_audio_port_info_t) == 288 &&
              offsetof(clap_audio_port_info_t, name) == 4 &&
              offsetof(clap_audio_port_info_t, flags) == 260 &&
              offsetof(clap_audio_port_info_t, channel_count) == 264 &&
              offsetof(clap_audio_port_info_t, port_type) == 272 &&
              offsetof(clap_audio_port_info_t, in_place_pair) == 280);
static_assert(sizeof(clap_plugin_audio_ports_t) == 16);
static_assert(sizeof(clap_audio_ports_config_t) == 304 &&
              offsetof(clap_audio_ports_config_t, input_port_count) == 260 &&
              offsetof(clap_audio_ports_config_t, has_main_input) == 268 &&
              offsetof(clap_audio_ports_config_t, main_input_channel_count) == 272 &&
              offsetof(clap_audio_ports_config_t, main_input_port_type) == 280 &&
              offsetof(clap_audio_ports_config_t, has_main_output) == 288 &&
              offsetof(clap_audio_ports_config_t, main_output_channel_count) == 292 &&
              offsetof(clap_audio_ports_config_t, main_output_port_type) == 296);
static_assert(sizeof(clap_plugin_audio_ports_config_t) == 24 &&
              sizeof(clap_plugin_audio_ports_config_info_t) == 16);
static_assert(sizeof(clap_audio_port_configuration_request_t) == 32 &&
              offsetof(clap_audio_port_configuration_request_t, port_index) == 4 &&
              offsetof(clap_audio_port_configuration_request_t, channel_count) == 8 &&
              offsetof(clap_audio_port_configuration_request_t, port_type) == 16);
static_assert(sizeof(clap_plugin_configurable_audio_ports_t) == 16);

static_assert(sizeof(clap_remote_controls_page_t) == 552 &&
              offsetof(clap_remote_controls_page_t, page_id) == 256 &&
              offsetof(clap_remote_controls_page_t, page_name) == 260 &&
              offsetof(clap_remote_controls_page_t, param_ids) == 516 &&
              offsetof(clap_remote_controls_page_t, is_for_preset) == 548);
static_assert(sizeof(clap_plugin_remote_controls_t) == 16);

static_assert(sizeof(clap_window_t) == 16 && offsetof(clap_window_t, x11) == 8);
static_assert(sizeof(clap_gui_resize_hints_t) == 12 &&
              offsetof(clap_gui_resize_hints_t, preserve_aspect_ratio) == 2 &&
              offsetof(clap_gui_resize_hints_t, aspect_ratio_width) == 4);
static_assert(sizeof(clap_plugin_gui_t) == 120 && sizeof(clap_host_gui_t) == 40 &&
              offsetof(clap_host_gui_t, closed) == 32);
static_assert(sizeof(clap_plugin_timer_support_t) == 8 && sizeof(clap_host_timer_support_t) == 16);
static_assert(sizeof(clap_plugin_posix_fd_support_t) == 8 &&
              sizeof(clap_host_posix_fd_support_t) == 24);

#endif
