// brisel/live.h over the engine. Checks what callers hand in, and translates; holds no sound.
// Compiled for every x86-64 processor: the lists and brisel_live_create work on all of them.
#include "brisel/live.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <new>
#include <string_view>

#include "core/cpu.h"
#include "live/engine/presets.h"
#include "live/engine/reverb.h"

struct brisel_live {
    brisel::live::Reverb reverb;
    std::atomic<bool> prepared{false};
    std::atomic<double> beats_per_minute{0.0}; // 0: unknown
    std::atomic<bool> asleep{false};
};

namespace {

using namespace brisel::live;
using Record = brisel_live_parameter;

constexpr uint32_t kEventsAtOnce = 64;

constexpr const char* kReasons[] = {
    "success",
    "a null pointer where something has to be",
    "no sample rate from 1000 to 768000 Hz",
    "no longest block from 1 to 65536 frames",
    "memory has run out",
    "not prepared: brisel_live_prepare has to come first",
    "no parameter of that id or key",
    "not a finite number within the parameter's range",
    "a text that stands for no value, or is no preset",
    "no preset of that name or key",
    "the text does not fit into the buffer",
    "the processor has no AVX2 or no FMA",
};
static_assert(std::size(kReasons) == BRISEL_LIVE_UNSUPPORTED_CPU + 1);

const char* unit_text(Unit unit) {
    switch (unit) {
    case Unit::kMilliseconds:
    case Unit::kSeconds:
        return "s";
    case Unit::kDecibels:
        return "dB";
    case Unit::kHertz:
        return "Hz";
    default:
        return "";
    }
}

// Made once, when the library is loaded.
const std::array<Record, kParameters> kRecords = [] {
    std::array<Record, kParameters> records;
    for (uint32_t id = 0; id < kParameters; ++id) {
        const Parameter& p = parameters()[id];
        const uint32_t flags = (p.stepped() ? BRISEL_LIVE_STEPPED : 0u) |
                               (p.skew == Skew::kLogarithmic ? BRISEL_LIVE_LOGARITHMIC : 0u);
        records[id] = {id,
                       p.key,
                       p.name,
                       unit_text(p.unit),
                       p.least,
                       p.most,
                       p.initial,
                       flags,
                       static_cast<uint32_t>(p.words.size()),
                       p.stepped() ? p.words.data() : nullptr};
    }
    return records;
}();

brisel_live_status check(uint32_t id, double value) {
    const Parameter* parameter = find_parameter(id);
    if (!parameter) return BRISEL_LIVE_UNKNOWN_PARAMETER;
    const bool inside = value >= parameter->least && value <= parameter->most; // false of NaN
    return inside ? BRISEL_LIVE_OK : BRISEL_LIVE_BAD_VALUE;
}

// The text, with a null at its end, where it fits.
brisel_live_status copy_text(std::string_view from, char* to, size_t size) {
    if (from.size() >= size) return BRISEL_LIVE_TEXT_TOO_LONG;
    to[from.copy(to, from.size())] = '\0';
    return BRISEL_LIVE_OK;
}

bool same_name(std::string_view a, std::string_view b) {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return std::ranges::equal(a, b, {}, lower, lower);
}

// Null where there is no such preset.
const FactoryPreset* preset_at(uint32_t index) {
    return index < factory_presets().size() ? &factory_presets()[index] : nullptr;
}

brisel_live_status load(brisel_live& live, std::string_view text) {
    Preset preset;
    if (!read_preset(text, preset)) return BRISEL_LIVE_BAD_TEXT;
    live.reverb.values().load(preset.settings, kNotInPresets);
    return BRISEL_LIVE_OK;
}

// A host's block, part by part.
class Block {
public:
    Block(brisel_live& live, const float* const in[2], float* const out[2])
        : live_(live), in_{in[0], in[1]}, out_{out[0], out[1]} {
        tempo_.beats_per_minute = live.beats_per_minute.load(std::memory_order_relaxed);
    }

    uint32_t done() const { return done_; }
    bool asleep() const { return asleep_; }

    // As far as frame `to`; the events' frames count from the block's beginning.
    void render(uint32_t to, std::span<Event> events) {
        for (Event& event : events) event.frame -= done_;
        const float* const in[2] = {at(in_[0]), at(in_[1])};
        float* const out[2] = {at(out_[0]), at(out_[1])};
        const Tempo* tempo = tempo_.beats_per_minute > 0.0 ? &tempo_ : nullptr;
        const Status status = live_.reverb.process(in, out, to - done_, events, tempo);
        asleep_ = asleep_ && status == Status::kAsleep;
        done_ = to;
    }

private:
    template <typename Sample>
    Sample* at(Sample* signal) const {
        return signal ? signal + done_ : nullptr;
    }

    brisel_live& live_;
    const float* const in_[2];
    float* const out_[2];
    Tempo tempo_;
    uint32_t done_ = 0;
    bool asleep_ = true;
};

} // namespace

const char* brisel_live_strerror(brisel_live_status status) {
    const auto index = static_cast<uint32_t>(status);
    return index < std::size(kReasons) ? kReasons[index] : "unknown status";
}

brisel_live_status brisel_live_create(brisel_live** live) {
    if (!live) return BRISEL_LIVE_BAD_ARGUMENT;
    *live = nullptr;
    if (!brisel::processor_serves()) return BRISEL_LIVE_UNSUPPORTED_CPU;
    auto* made = new (std::nothrow) brisel_live;
    if (made && made->reverb.exists()) {
        *live = made;
        return BRISEL_LIVE_OK;
    }
    delete made;
    return BRISEL_LIVE_OUT_OF_MEMORY;
}

void brisel_live_destroy(brisel_live* live) {
    delete live;
}

brisel_live_status brisel_live_prepare(brisel_live* live, double rate, uint32_t longest_block) {
    if (!live) return BRISEL_LIVE_BAD_ARGUMENT;
    if (!(rate >= kLowestRate && rate <= kHighestRate)) return BRISEL_LIVE_BAD_RATE;
    if (longest_block < 1 || longest_block > kLongestBlock) return BRISEL_LIVE_BAD_BLOCK;
    live->prepared = live->reverb.prepare(rate, longest_block);
    live->asleep = false;
    return live->prepared ? BRISEL_LIVE_OK : BRISEL_LIVE_OUT_OF_MEMORY;
}

void brisel_live_reset(brisel_live* live) {
    if (live) live->reverb.reset();
}

uint32_t brisel_live_parameter_count(void) {
    return kParameters;
}

const brisel_live_parameter* brisel_live_parameter_at(uint32_t index) {
    return index < kParameters ? &kRecords[index] : nullptr;
}

const brisel_live_parameter* brisel_live_parameter_by_id(uint32_t id) {
    return brisel_live_parameter_at(id);
}

const brisel_live_parameter* brisel_live_parameter_by_key(const char* key) {
    return key ? brisel_live_parameter_at(find_key(key)) : nullptr;
}

brisel_live_status brisel_live_set(brisel_live* live, uint32_t id, double value) {
    if (!live) return BRISEL_LIVE_BAD_ARGUMENT;
    const brisel_live_status status = check(id, value);
    if (status == BRISEL_LIVE_OK) live->reverb.values().set_plain(id, value);
    return status;
}

brisel_live_status brisel_live_set_by_key(brisel_live* live, const char* key, double value) {
    return key ? brisel_live_set(live, find_key(key), value) : BRISEL_LIVE_BAD_ARGUMENT;
}

brisel_live_status brisel_live_get(const brisel_live* live, uint32_t id, double* value) {
    if (!live || !value) return BRISEL_LIVE_BAD_ARGUMENT;
    if (!find_parameter(id)) return BRISEL_LIVE_UNKNOWN_PARAMETER;
    *value = live->reverb.values().plain(static_cast<Id>(id));
    return BRISEL_LIVE_OK;
}

brisel_live_status brisel_live_get_by_key(const brisel_live* live, const char* key, double* value) {
    return key ? brisel_live_get(live, find_key(key), value) : BRISEL_LIVE_BAD_ARGUMENT;
}

brisel_live_status brisel_live_value_to_text(uint32_t id, double value, char* text, size_t size) {
    if (!text) return BRISEL_LIVE_BAD_ARGUMENT;
    const brisel_live_status status = check(id, value);
    if (status != BRISEL_LIVE_OK) return status;
    char buffer[kLongestText];
    return copy_text(to_text(*find_parameter(id), value, buffer), text, size);
}

brisel_live_status brisel_live_text_to_value(uint32_t id, const char* text, double* value) {
    if (!text || !value) return BRISEL_LIVE_BAD_ARGUMENT;
    const Parameter* parameter = find_parameter(id);
    if (!parameter) return BRISEL_LIVE_UNKNOWN_PARAMETER;
    const auto read = from_text(*parameter, text);
    if (!read) return BRISEL_LIVE_BAD_TEXT;
    *value = *read;
    return BRISEL_LIVE_OK;
}

brisel_live_status brisel_live_process(brisel_live* live, const float* in_left,
                                       const float* in_right, float* out_left, float* out_right,
                                       uint32_t frames, const brisel_live_event* events,
                                       uint32_t event_count) {
    if (!live || (!out_left && frames > 0) || (!events && event_count > 0))
        return BRISEL_LIVE_BAD_ARGUMENT;
    const float* const in[2] = {in_left, in_right};
    float nothing = 0.0f; // stands for no output of no frames
    float* const out[2] = {out_left ? out_left : &nothing, out_right};
    Block block(*live, in, out);
    brisel_live_status status = BRISEL_LIVE_OK;
    // Where there are more events than fit, the block is cut at the latest of those that do.
    Event fitting[kEventsAtOnce];
    uint32_t latest = 0, count = 0;
    for (const brisel_live_event& event : std::span(events, event_count)) {
        const brisel_live_status wrong = check(event.id, event.value);
        if (status == BRISEL_LIVE_OK) status = wrong;
        if (wrong != BRISEL_LIVE_OK) continue;
        if (count == kEventsAtOnce) {
            block.render(latest, {fitting, count});
            count = 0;
        }
        latest = std::max(latest, std::min(event.frame, frames));
        fitting[count++] = {latest, static_cast<uint16_t>(event.id), false, event.value};
    }
    block.render(frames, {fitting, count});
    if (frames > 0) live->asleep.store(block.asleep(), std::memory_order_relaxed);
    return live->prepared ? status : BRISEL_LIVE_NOT_PREPARED;
}

uint32_t brisel_live_asleep(const brisel_live* live) {
    return live && live->prepared && live->asleep.load(std::memory_order_relaxed);
}

brisel_live_status brisel_live_set_tempo(brisel_live* live, double beats_per_minute) {
    if (!live) return BRISEL_LIVE_BAD_ARGUMENT;
    if (!(beats_per_minute >= kSlowestTempo && beats_per_minute <= kFastestTempo))
        return BRISEL_LIVE_BAD_VALUE;
    live->beats_per_minute.store(beats_per_minute, std::memory_order_relaxed);
    return BRISEL_LIVE_OK;
}

uint64_t brisel_live_tail_frames(const brisel_live* live) {
    return live && live->prepared ? live->reverb.tail_frames() : 0;
}

brisel_live_status brisel_live_read_meters(brisel_live* live, brisel_live_meters* meters) {
    if (!live || !meters) return BRISEL_LIVE_BAD_ARGUMENT;
    const Meters read = live->reverb.read_meters();
    *meters = {read.input, read.wet, read.output, read.duck};
    return BRISEL_LIVE_OK;
}

uint32_t brisel_live_preset_count(void) {
    return static_cast<uint32_t>(factory_presets().size());
}

// All of these are literals, or arrays that are filled up with nulls.
const char* brisel_live_preset_name(uint32_t index) {
    const FactoryPreset* preset = preset_at(index);
    return preset ? preset->name.data() : nullptr;
}

const char* brisel_live_preset_category(uint32_t index) {
    const FactoryPreset* preset = preset_at(index);
    return preset ? preset->category.data() : nullptr;
}

const char* brisel_live_preset_key(uint32_t index) {
    const FactoryPreset* preset = preset_at(index);
    return preset ? preset->key.data() : nullptr;
}

const char* brisel_live_preset_description(uint32_t index) {
    const FactoryPreset* preset = preset_at(index);
    return preset ? preset->description.data() : nullptr;
}

brisel_live_status brisel_live_load_preset(brisel_live* live, const char* name) {
    if (!live || !name) return BRISEL_LIVE_BAD_ARGUMENT;
    for (const FactoryPreset& preset : factory_presets())
        if (same_name(preset.name, name) || same_name(preset.key, name))
            return load(*live, preset.text);
    return BRISEL_LIVE_UNKNOWN_PRESET;
}

brisel_live_status brisel_live_load_text(brisel_live* live, const char* text) {
    return live && text ? load(*live, text) : BRISEL_LIVE_BAD_ARGUMENT;
}

brisel_live_status brisel_live_save_text(const brisel_live* live, char* text, size_t size) {
    if (!live || !text) return BRISEL_LIVE_BAD_ARGUMENT;
    char buffer[kLongestPreset];
    const Settings settings = live->reverb.values().plain();
    return copy_text(write_preset(settings, kNotInPresets, {}, buffer), text, size);
}

const char* brisel_live_version(void) {
    return BRISEL_VERSION;
}
