// Audio and events of a block on their way through the engine.
#include <array>

#include "live/clap/events.h"

namespace brisel::live::clap {

namespace {

float* channel(const clap_audio_buffer_t* ports, uint32_t count, uint32_t index) {
    if (!ports || count == 0 || !ports->data32 || index >= ports->channel_count) return nullptr;
    return ports->data32[index];
}

// The block in hand, rendered piece by piece: the engine takes one tempo a call, and as many events
// as are kept here. Its output does not depend on where the pieces end.
class Block {
public:
    Block(Plugin& plugin, const clap_process_t& process)
        : plugin_(plugin),
          frames_(process.frames_count), in_{channel(process.audio_inputs,
                                                     process.audio_inputs_count, 0),
                                             channel(process.audio_inputs,
                                                     process.audio_inputs_count, 1)},
          out_{channel(process.audio_outputs, process.audio_outputs_count, 0),
               channel(process.audio_outputs, process.audio_outputs_count, 1)} {
        if (process.transport) set_tempo(*process.transport);
    }

    bool has_output() const { return out_[0]; }

    void silence() {
        for (float* out : out_)
            if (out) std::fill_n(out, frames_, 0.0f);
    }

    Status render(const clap_input_events_t* list) {
        const uint32_t events = event_count(list);
        for (uint32_t i = 0; i < events; ++i)
            if (const clap_event_header_t* event = event_at(list, i)) take(*event);
        render_to(frames_);
        return status_;
    }

private:
    void take(const clap_event_header_t& event) {
        const uint32_t at = std::clamp(event.time, done_, frames_);
        if (const auto* transport = as<clap_event_transport_t>(event, CLAP_EVENT_TRANSPORT)) {
            render_to(at);
            set_tempo(*transport);
        } else if (auto change = parameter_event(event)) {
            if (count_ == events_.size()) render_to(at);
            change->frame = at - done_;
            events_[count_++] = *change;
        }
    }

    void set_tempo(const clap_event_transport_t& transport) {
        if (transport.flags & CLAP_TRANSPORT_HAS_TEMPO) tempo_ = {transport.tempo};
    }

    void render_to(uint32_t end) {
        const float* const in[2] = {piece(in_[0]), piece(in_[1])};
        float* const out[2] = {piece(out_[0]), piece(out_[1])};
        const Status status = plugin_.reverb.process(in, out, end - done_, {events_.data(), count_},
                                                     tempo_ ? &*tempo_ : nullptr);
        // The block has run as soon as one of its pieces has.
        status_ = std::min(status_, status);
        done_ = end;
        count_ = 0;
    }

    float* piece(float* channel) const { return channel ? channel + done_ : nullptr; }

    Plugin& plugin_;
    uint32_t frames_;
    float* in_[2];
    float* out_[2];
    std::optional<Tempo> tempo_;
    uint32_t done_ = 0; // frames rendered
    Status status_ = Status::kAsleep;
    std::array<Event, 64> events_; // those of the next piece, frames counted from done_
    size_t count_ = 0;
};

static_assert(Status::kRunning < Status::kTail && Status::kTail < Status::kAsleep);

clap_process_status status_of(Status status) {
    switch (status) {
    case Status::kRunning:
        return CLAP_PROCESS_CONTINUE;
    case Status::kTail:
        return CLAP_PROCESS_TAIL;
    case Status::kAsleep:
        return CLAP_PROCESS_SLEEP;
    }
    return CLAP_PROCESS_CONTINUE;
}

} // namespace

// An error without processing started, and without an output of 32 bits. A missing input is
// silence.
clap_process_status process(const clap_plugin_t* plugin, const clap_process_t* process) {
    if (!process || !process->audio_outputs || process->audio_outputs_count == 0)
        return CLAP_PROCESS_ERROR;
    Plugin& p = self(plugin);
    clap_audio_buffer_t& output = process->audio_outputs[0];
    output.constant_mask = 0;
    Block block(p, *process);
    if (!p.processing || !block.has_output()) {
        block.silence();
        return CLAP_PROCESS_ERROR;
    }
    send_edits(p, process->out_events);
    const Status status = block.render(process->in_events);
    report_tail(p);
    // Asleep, all of it is 0.
    if (status == Status::kAsleep) output.constant_mask = output.channel_count == 1 ? 1 : 3;
    return status_of(status);
}

} // namespace brisel::live::clap
