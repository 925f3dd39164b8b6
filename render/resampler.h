// A stereo signal at another sample rate, by libsamplerate's best sinc converter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <samplerate.h>
#include <vector>

namespace brisel::render {

class Resampler {
public:
    // Fills a buffer with up to so many interleaved stereo frames; fewer only at the end.
    using Source = std::function<size_t(float* stereo, size_t frames)>;

    // `ratio`: frames out for each frame in. Throws Failure when the converter cannot do that.
    Resampler(double ratio, Source source);

    // As Source. The whole has the length of the source times the ratio, rounded.
    size_t read(float* stereo, size_t frames);
    double ratio() const { return ratio_; }
    void restart(); // the source, too, starts again

private:
    static long pull(void* self, float** stereo);

    struct Delete {
        void operator()(SRC_STATE* state) const { src_delete(state); }
    };
    double ratio_;
    Source source_;
    std::unique_ptr<SRC_STATE, Delete> state_;
    std::vector<float> chunk_;
    std::exception_ptr fault_; // of the source, which must not pass through the library
    uint64_t taken_ = 0, given_ = 0;
    bool ended_ = false;
};

} // namespace brisel::render
