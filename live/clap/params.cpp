// Extension "clap.params": the engine's table, its values, and their text.
#include <cmath>

#include "live/clap/events.h"

namespace brisel::live::clap {

namespace {

clap_param_info_flags flags_of(uint32_t id) {
    const Parameter& parameter = parameters()[id];
    clap_param_info_flags flags = CLAP_PARAM_IS_AUTOMATABLE;
    if (!parameter.stepped()) return flags | CLAP_PARAM_IS_MODULATABLE;
    flags |= CLAP_PARAM_IS_STEPPED;
    if (!parameter.on_off()) flags |= CLAP_PARAM_IS_ENUM;
    if (id == kBypass) flags |= CLAP_PARAM_IS_BYPASS;
    return flags;
}

uint32_t count(const clap_plugin_t*) {
    return kParameters;
}

bool get_info(const clap_plugin_t*, uint32_t index, clap_param_info_t* info) {
    const Parameter* parameter = find_parameter(index);
    if (!parameter || !info) return false;
    *info = {};
    info->id = index;
    info->flags = flags_of(index);
    copy_text(info->name, parameter->name);
    copy_text(info->module, parameter->group);
    info->min_value = parameter->least;
    info->max_value = parameter->most;
    info->default_value = parameter->initial;
    return true;
}

bool get_value(const clap_plugin_t* plugin, clap_id id, double* value) {
    if (!find_parameter(id) || !value) return false;
    *value = self(plugin).reverb.values().plain(static_cast<Id>(id));
    return true;
}

bool value_to_text(const clap_plugin_t*, clap_id id, double value, char* text, uint32_t capacity) {
    const Parameter* parameter = find_parameter(id);
    if (!parameter || std::isnan(value) || !text || capacity == 0) return false;
    char buffer[kLongestText];
    const std::string_view whole = to_text(*parameter, value, buffer);
    text[whole.copy(text, capacity - 1)] = '\0';
    return true;
}

bool text_to_value(const clap_plugin_t*, clap_id id, const char* text, double* value) {
    const Parameter* parameter = find_parameter(id);
    if (!parameter || !text || !value) return false;
    const std::optional<double> parsed = from_text(*parameter, text);
    if (parsed) *value = *parsed;
    return parsed.has_value();
}

void flush(const clap_plugin_t* plugin, const clap_input_events_t* in,
           const clap_output_events_t* out) {
    Plugin& p = self(plugin);
    Values& values = p.reverb.values();
    const uint32_t events = event_count(in);
    for (uint32_t i = 0; i < events; ++i) {
        const clap_event_header_t* header = event_at(in, i);
        const auto event = header ? parameter_event(*header) : std::nullopt;
        if (!event) continue;
        if (event->modulation)
            values.set_modulation(event->parameter, event->value);
        else
            values.set_plain(event->parameter, event->value);
    }
    send_edits(p, out);
    if (p.active) report_tail(p);
}

} // namespace

constexpr clap_plugin_params_t kParams = {count,         get_info,      get_value,
                                          value_to_text, text_to_value, flush};

} // namespace brisel::live::clap
