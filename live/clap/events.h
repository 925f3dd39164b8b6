// Events between the host and the engine: those that come in, translated one by one, and people's
// edits in the window, which go out.
#ifndef BRISEL_LIVE_CLAP_EVENTS_H
#define BRISEL_LIVE_CLAP_EVENTS_H

#include "live/clap/plugin.h"

namespace brisel::live::clap {

// The number of events in a host's list; 0 without a list.
inline uint32_t event_count(const clap_input_events_t* list) {
    return list ? list->size(list) : 0;
}

// The event at `index`, or null for what is none of the standard's own.
const clap_event_header_t* event_at(const clap_input_events_t* list, uint32_t index);

// The event as the record of its kind; null when it is of another kind, or shorter than the record.
template <class Record>
const Record* as(const clap_event_header_t& event, uint16_t type) {
    return event.type == type && event.size >= sizeof(Record)
               ? reinterpret_cast<const Record*>(&event)
               : nullptr;
}

// A value or a modulation of a parameter, at frame 0; nothing for all other events, and for those
// that address one of several notes: no parameter has a value for each.
std::optional<Event> parameter_event(const clap_event_header_t& event);

// Reports the edits that have queued up, at the block's first frame, as far as the list takes them;
// the rest waits for the next call. `list` may be null. [audio-thread] while active, else
// [main-thread]
void send_edits(Plugin& plugin, const clap_output_events_t* list);

} // namespace brisel::live::clap

#endif
