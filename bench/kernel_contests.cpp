// Contests of single kernels: in place, from equal buffers, on work that neither grows nor decays.
#include <array>

#include "bench/contest.h"
#include "bench/kernels.h"

namespace bench {

namespace {

using kernels::Buffers;
using kernels::Kernel;

constexpr uint32_t kRing = 4096;

class KernelContest : public Contest {
public:
    // Stage delays of 0, `step`, 2 * `step` .. 15 * `step`.
    KernelContest(const Kernel& kernel, uint32_t n, uint32_t step)
        : kernel_(kernel), ours_(n, 16 * kRing, 16 * step), plain_(n, 16 * kRing, 16 * step) {
        size_t k = 0;
        for (float& x : ours_.all()) x = noise(0)[k++ % kNoiseFrames];
        for (uint32_t i = 0; i < BRISEL_LINES; ++i) {
            ours_.lines[i] = i * kRing;
            ours_.lines[16 + i] = kRing - 1;
            ours_.lines[32 + i] = 1920 + 60 * i;
            ours_.stage_delays[i] = i * step;
            ours_.gains[i] = 0.7f;
            ours_.gains[16 + i] = i % 2 == 0 ? 0.25f : 0.0f;
            ours_.shelf[i] = 0.4f;
            ours_.shelf[16 + i] = 0.5f;
            ours_.shelf[32 + i] = 0.0f;
        }
        plain_.copy(ours_);
    }

    void render(Side side, uint32_t) override {
        side == kOurs ? kernel_.ours(ours_) : kernel_.plain(plain_);
    }
    std::span<const float> output(Side side) const override {
        return (side == kOurs ? ours_ : plain_).all();
    }

private:
    const Kernel& kernel_;
    Buffers ours_, plain_;
};

} // namespace

std::vector<Entry> kernel_entries() {
    std::vector<Entry> entries;
    const auto add = [&](const Kernel& kernel, const std::string& name, uint32_t step) {
        for (const int32_t n : {64, 256, 1024})
            entries.push_back({Kind::kKernel, name, n, [&kernel, n, step] {
                                   return std::make_unique<KernelContest>(
                                       kernel, static_cast<uint32_t>(n), step);
                               }});
    };
    for (const Kernel& kernel : kernels::kKernels) {
        if (kernel.ours != kernels::stage<true>) {
            add(kernel, kernel.name, 1);
            continue;
        }
        for (const uint32_t step : {1u, 16u, 256u})
            add(kernel, kernel.name + ("/delays:0.." + std::to_string(15 * step)), step);
    }
    return entries;
}

} // namespace bench
