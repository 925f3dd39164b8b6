// What a hostile host hands to a plug-in: events of any content, ports of any kind.
#ifndef BRISEL_FUZZ_HOSTILE_HOST_H
#define BRISEL_FUZZ_HOSTILE_HOST_H

#include <clap/clap.h>

#include <memory>
#include <vector>

#include "fuzz/input.h"

namespace fuzz {

// Events of all kinds. Some plug-ins look at an event's kind alone: for them a parameter event is
// as long as one, whatever its header claims, and any other a bare header. For those that look at
// the size too, all are as long as they claim, and no longer.
class Events {
public:
    Events(Input& input, uint32_t ids, bool size_counts) : claimed_(input.below(20)) {
        for (uint32_t k = 0; k < claimed_; ++k) {
            if (input.below(8) == 0) {
                events_.push_back(nullptr);
                continue;
            }
            clap_event_param_value_t event = {};
            event.header.size = input.bits<uint32_t>();
            event.header.time = input.bits<uint32_t>();
            event.header.space_id = input.below(4) == 0 ? input.bits<uint16_t>() : 0;
            event.header.type = input.below(4) == 0 ? input.bits<uint16_t>() : 5;
            event.param_id = input.below(8) == 0 ? input.bits<uint32_t>() : input.below(ids + 1);
            event.value = input.below(4) == 0 ? input.bits<double>()
                                              : static_cast<double>(input.real(-30.0f, 30.0f));
            const bool parameter = event.header.space_id == 0 && event.header.type == 5;
            size_t size = parameter ? sizeof event : sizeof event.header;
            if (size_counts) {
                if (input.flag()) event.header.type = input.flag() ? 6 : 9; // modulation, transport
                size = event.header.size = input.flag() ? 104 : 16 + input.below(100);
            }
            events_.emplace_back(new unsigned char[size]());
            std::memcpy(events_.back().get(), &event, std::min(size, sizeof event));
        }
    }
    const clap_input_events_t* list() const { return &list_; }

private:
    static uint32_t size(const clap_input_events_t* list) {
        return static_cast<const Events*>(list->ctx)->claimed_;
    }
    static const clap_event_header_t* get(const clap_input_events_t* list, uint32_t index) {
        return reinterpret_cast<const clap_event_header_t*>(
            static_cast<const Events*>(list->ctx)->events_.at(index).get());
    }
    uint32_t claimed_;
    std::vector<std::unique_ptr<unsigned char[]>> events_;
    clap_input_events_t list_ = {this, size, get};
};

// Ports with 0 to 3 channels, any of which may be missing.
struct Port {
    std::vector<std::vector<float>> samples;
    std::vector<float*> channels;
    clap_audio_buffer_t buffer = {};

    Port(Input& input, size_t frames) {
        const uint32_t count = input.below(4);
        const uint32_t missing = input.bits<uint8_t>();
        samples.resize(count);
        for (uint32_t c = 0; c < count; ++c) {
            samples[c].resize(frames);
            fuzz::fill(samples[c].data(), frames, input);
            channels.push_back((missing >> c) & 0x10 && missing & 1 ? nullptr : samples[c].data());
        }
        buffer.data32 = missing & 2 && missing & 4 && missing & 8 ? nullptr : channels.data();
        buffer.channel_count = count;
        buffer.constant_mask = input.bits<uint8_t>();
    }
};

} // namespace fuzz

#endif
