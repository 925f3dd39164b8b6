// The values that the threads of a plug-in share, without locks: each parameter's plain value and
// its modulation, both readable by any thread, and what people do with the window's controls, on
// its way to the host.
//
// Threads. Values come from the host's events on the audio thread, and from windows, loaded states
// and presets on the main thread; the latest wins. What a call may run on is tagged; [any-thread]
// calls may run at the same time as every other.
#ifndef BRISEL_LIVE_VALUES_H
#define BRISEL_LIVE_VALUES_H

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>

#include "live/engine/parameters.h"

namespace brisel::live {

// One set bit a parameter.
using ParameterMask = uint32_t;
static_assert(kParameters <= 32);
inline constexpr ParameterMask kAllParameters = (ParameterMask{1} << kParameters) - 1;
constexpr ParameterMask bit_of(Id id) {
    return ParameterMask{1} << id;
}

// One thing that a person did with a control of the window; the host hears of it in this order.
struct Edit {
    enum class Kind : uint8_t { kBegin, kValue, kEnd }; // a gesture begins, moves, ends
    Kind kind;
    Id id;
    double value; // plain, of kValue only
};

class Values {
public:
    Values() {
        for (uint32_t id = 0; id < kParameters; ++id) plain_[id] = parameters()[id].initial;
    }

    // As the host set it, without modulation. [any-thread]
    double plain(Id id) const { return plain_[id].load(std::memory_order_relaxed); }

    // What sounds: the plain value and its modulation, clamped. [any-thread]
    double sounding(Id id) const {
        return clamp(parameters()[id], plain(id) + modulation_[id].load(std::memory_order_relaxed));
    }

    // All plain values, each by itself. [any-thread]
    Settings plain() const {
        Settings settings;
        for (uint32_t id = 0; id < kParameters; ++id) settings[id] = plain(static_cast<Id>(id));
        return settings;
    }

    // The value is clamped; NaN and a number that is no id change nothing. [any-thread]
    void set_plain(uint32_t id, double value) {
        if (id < kParameters && !std::isnan(value))
            put(plain_[id], id, clamp(parameters()[id], value));
    }

    // Offset added to the plain value until it is replaced, in the parameter's base unit; NaN,
    // infinities and a number that is no id change nothing. [any-thread]
    void set_modulation(uint32_t id, double offset) {
        if (id < kParameters && std::isfinite(offset)) put(modulation_[id], id, offset);
    }

    // No modulation of any parameter, as when a plug-in is activated. [any-thread]
    void clear_modulation() {
        for (uint32_t id = 0; id < kParameters; ++id) set_modulation(id, 0.0);
    }

    // Sets all plain values but those of `kept`: a loaded state, or a preset. [any-thread]
    void load(const Settings& settings, ParameterMask kept = 0) {
        for (uint32_t id = 0; id < kParameters; ++id)
            if (!(kept >> id & 1)) set_plain(id, settings[id]);
    }

    // A person's edit from the window: takes effect at once and queues for the host. False when the
    // queue is full: the value holds all the same, but the host does not hear of it. [main-thread]
    bool edit(const Edit& edit) {
        if (edit.id >= kParameters) return false;
        if (edit.kind == Edit::Kind::kValue) set_plain(edit.id, edit.value);
        const uint32_t head = head_.load(std::memory_order_relaxed);
        if (head - tail_.load(std::memory_order_acquire) == kEdits) return false;
        edits_[head % kEdits] = edit;
        head_.store(head + 1, std::memory_order_release);
        return true;
    }

    // The next edit to report to the host; false when there is none. For the one place where the
    // host takes events: [audio-thread] while processing, else [main-thread].
    bool next_edit(Edit& edit) {
        const uint32_t tail = tail_.load(std::memory_order_relaxed);
        if (tail == head_.load(std::memory_order_acquire)) return false;
        edit = edits_[tail % kEdits];
        tail_.store(tail + 1, std::memory_order_release);
        return true;
    }

    // The parameters whose sound may have changed since the last call. For Reverb. [audio-thread]
    ParameterMask take_changed() {
        if (changed_.load(std::memory_order_relaxed) == 0) return 0;
        return changed_.exchange(0, std::memory_order_acquire);
    }

private:
    static constexpr uint32_t kEdits = 1024;

    void put(std::atomic<double>& to, uint32_t id, double value) {
        to.store(value, std::memory_order_relaxed);
        changed_.fetch_or(ParameterMask{1} << id, std::memory_order_release);
    }

    std::array<std::atomic<double>, kParameters> plain_{};
    std::array<std::atomic<double>, kParameters> modulation_{};
    std::atomic<ParameterMask> changed_{kAllParameters};

    std::array<Edit, kEdits> edits_{};
    std::atomic<uint32_t> head_{0}; // of the next edit to be written
    std::atomic<uint32_t> tail_{0}; // of the next to be read
};

static_assert(std::atomic<double>::is_always_lock_free);

} // namespace brisel::live

#endif
