// Brisel Live for C++20, over live.h, which says what each call promises: units, threads, refusals.
//
//   auto reverb = brisel::Live::make(48000.0, 512);
//   if (!reverb) return complain(reverb.reason());
//   reverb->load_preset("Grand Hall");
//   reverb->process(left, right, left, right); // vectors or spans of any one length; here in place
#ifndef BRISEL_LIVE_HPP
#define BRISEL_LIVE_HPP

#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "live.h"

namespace brisel {
// A value, or the status that says why there is none.
template <typename T>
class LiveResult {
public:
    LiveResult(T value) : value_(std::move(value)) {}
    LiveResult(brisel_live_status status) : status_(status) {}
    explicit operator bool() const { return value_.has_value(); }
    brisel_live_status status() const { return status_; }
    const char* reason() const { return brisel_live_strerror(status_); }
    T& operator*() { return *value_; } // only where there is one
    T* operator->() { return &*value_; }

private:
    std::optional<T> value_;
    brisel_live_status status_ = BRISEL_LIVE_OK;
};

class Live { // moves; what was moved from refuses every call with BRISEL_LIVE_BAD_ARGUMENT
public:      // they change the reverb: NOLINTBEGIN(readability-make-member-function-const)
    using Status = brisel_live_status;
    static LiveResult<Live> make(double rate, uint32_t longest_block) {
        brisel_live* made = nullptr;
        Status status = brisel_live_create(&made);
        Live live(made);
        if (status == BRISEL_LIVE_OK) status = live.prepare(rate, longest_block);
        if (status != BRISEL_LIVE_OK) return status;
        return live;
    }
    Status prepare(double rate, uint32_t longest) {
        return brisel_live_prepare(get(), rate, longest);
    }
    Status set(const char* key, double value) { return brisel_live_set_by_key(get(), key, value); }
    LiveResult<double> value(const char* key) const {
        double value = 0.0;
        const Status status = brisel_live_get_by_key(get(), key, &value);
        return status == BRISEL_LIVE_OK ? LiveResult(value) : status;
    }
    Status load_preset(const char* name) { return brisel_live_load_preset(get(), name); }
    Status set_tempo(double beats) { return brisel_live_set_tempo(get(), beats); }
    // Spans of one length, else BRISEL_LIVE_BAD_BLOCK; in_right and out_right may be empty (mono).
    Status process(std::span<const float> in_left, std::span<const float> in_right,
                   std::span<float> out_left, std::span<float> out_right,
                   std::span<const brisel_live_event> events = {}) {
        const size_t n = out_left.size();
        const auto fits = [n](size_t size) { return size == n || size == 0; };
        if (in_left.size() != n || !fits(in_right.size()) || !fits(out_right.size()) || n >> 32)
            return BRISEL_LIVE_BAD_BLOCK;
        const auto data = [](auto span) { return span.empty() ? nullptr : span.data(); };
        return brisel_live_process(get(), in_left.data(), data(in_right), out_left.data(),
                                   data(out_right), static_cast<uint32_t>(n), events.data(),
                                   static_cast<uint32_t>(events.size()));
    }
    void reset() { brisel_live_reset(get()); }
    uint64_t tail_frames() const { return brisel_live_tail_frames(get()); }
    brisel_live* get() const { return live_.get(); } // for all else in live.h

private: // NOLINTEND(readability-make-member-function-const)
    explicit Live(brisel_live* live) : live_(live, brisel_live_destroy) {}
    std::unique_ptr<brisel_live, void (*)(brisel_live*)> live_;
};

} // namespace brisel
#endif
