// The layout of what Brisel Live uses of the plug-in interface besides the records of every
// plug-in: sizes and offsets in bytes, x86-64 Linux.
#ifndef BRISEL_LIVE_CLAP_CLAP_LAYOUT_H
#define BRISEL_LIVE_CLAP_CLAP_LAYOUT_H

#include "plugin/clap_layout.h"

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
static_assert(sizeof(clap_host_params_t) == 24);
static_assert(sizeof(clap_plugin_state_context_t) == 16);
static_assert(sizeof(clap_host_tail_t) == 8);
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
