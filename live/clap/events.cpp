#include "live/clap/events.h"

namespace brisel::live::clap {

namespace {

// An address of zeros comes from hosts that know of no notes and leave the fields as they are.
template <class Record>
bool for_all_notes(const Record& record) {
    return record.note_id <= 0 && record.key <= 0 && record.channel <= 0;
}

clap_event_header_t header(uint16_t type, size_t size) {
    return {static_cast<uint32_t>(size), 0, CLAP_CORE_EVENT_SPACE_ID, type, 0};
}

bool push(const clap_output_events_t* list, const Edit& edit) {
    if (edit.kind == Edit::Kind::kValue) {
        const clap_event_param_value_t event = {.header =
                                                    header(CLAP_EVENT_PARAM_VALUE, sizeof event),
                                                .param_id = edit.id,
                                                .cookie = nullptr,
                                                .note_id = -1,
                                                .port_index = -1,
                                                .channel = -1,
                                                .key = -1,
                                                .value = edit.value};
        return list->try_push(list, &event.header);
    }
    const uint16_t type = edit.kind == Edit::Kind::kBegin ? CLAP_EVENT_PARAM_GESTURE_BEGIN
                                                          : CLAP_EVENT_PARAM_GESTURE_END;
    const clap_event_param_gesture_t event = {header(type, sizeof event), edit.id};
    return list->try_push(list, &event.header);
}

} // namespace

const clap_event_header_t* event_at(const clap_input_events_t* list, uint32_t index) {
    const clap_event_header_t* event = list->get(list, index);
    return event && event->space_id == CLAP_CORE_EVENT_SPACE_ID ? event : nullptr;
}

std::optional<Event> parameter_event(const clap_event_header_t& event) {
    if (const auto* v = as<clap_event_param_value_t>(event, CLAP_EVENT_PARAM_VALUE);
        v && v->param_id < kParameters && for_all_notes(*v))
        return Event{0, static_cast<uint16_t>(v->param_id), false, v->value};
    if (const auto* m = as<clap_event_param_mod_t>(event, CLAP_EVENT_PARAM_MOD);
        m && m->param_id < kParameters && for_all_notes(*m))
        return Event{0, static_cast<uint16_t>(m->param_id), true, m->amount};
    return std::nullopt;
}

void send_edits(Plugin& p, const clap_output_events_t* list) {
    if (!list) return;
    for (Edit edit = {}; p.unsent || p.reverb.values().next_edit(edit);) {
        if (!p.unsent) p.unsent = edit;
        if (!push(list, *p.unsent)) return;
        p.unsent.reset();
    }
}

} // namespace brisel::live::clap
