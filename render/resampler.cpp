#include "render/resampler.h"

#include "render/errors.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace brisel::render {

namespace {

constexpr size_t kChunkFrames = 4096;

} // namespace

Resampler::Resampler(double ratio, Source source)
    : ratio_(ratio), source_(std::move(source)), chunk_(2 * kChunkFrames) {
    int error = 0;
    if (src_is_valid_ratio(ratio) != 0)
        state_.reset(src_callback_new(pull, SRC_SINC_BEST_QUALITY, 2, &error, this));
    if (!state_)
        throw Failure(fmt::format("the sample rate cannot be changed by a factor of {:g}", ratio));
}

long Resampler::pull(void* self, float** stereo) {
    auto& me = *static_cast<Resampler*>(self);
    size_t got = 0;
    try {
        if (!me.ended_) got = me.source_(me.chunk_.data(), kChunkFrames);
    } catch (...) {
        me.fault_ = std::current_exception();
    }
    me.ended_ = me.ended_ || got < kChunkFrames;
    me.taken_ += got;
    *stereo = me.chunk_.data();
    return static_cast<long>(got);
}

size_t Resampler::read(float* stereo, size_t frames) {
    const long converted =
        src_callback_read(state_.get(), ratio_, static_cast<long>(frames), stereo);
    if (fault_) std::rethrow_exception(fault_);
    if (const int error = src_error(state_.get()))
        throw Failure(fmt::format("the sample rate cannot be changed: {}", src_strerror(error)));
    size_t count = static_cast<size_t>(std::max(converted, 0L));
    if (ended_) {
        // The converter may end a frame sooner or later.
        const auto whole =
            static_cast<uint64_t>(std::llround(static_cast<double>(taken_) * ratio_));
        const size_t left =
            static_cast<size_t>(std::min<uint64_t>(frames, whole - std::min(whole, given_)));
        if (count < left) std::fill(stereo + 2 * count, stereo + 2 * left, 0.0f);
        count = left;
    }
    given_ += count;
    return count;
}

void Resampler::restart() {
    src_reset(state_.get());
    taken_ = given_ = 0;
    ended_ = false;
}

} // namespace brisel::render
