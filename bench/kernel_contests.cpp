// Contests of single kernels: in place, from equal buffers, on work that neither grows nor decays.
#include <array>

#include "bench/contest.h"
#include "brisel/kernels_avx2.h"
#include "tests/plain.h"

namespace bench {

namespace {

// Everything that a kernel may touch, in one allocation so that it can be compared as a whole.
struct Buffers {
    static constexpr uint32_t kRing = 4096;

    explicit Buffers(uint32_t n) : frames(n), storage(kLines * n + 4 * n + kLines * kRing + 8) {
        const auto address = reinterpret_cast<uintptr_t>(storage.data());
        block = storage.data() + (0 - address / sizeof(float)) % 8;
        x = block + kLines * n;
        y_left = x + n;
        y_right = y_left + n;
        ring = y_right + n;
        for (size_t k = 0; k < size(); ++k) block[k] = noise(0)[k % kNoiseFrames];
        for (uint32_t i = 0; i < kLines; ++i) {
            lines[i] = i * kRing;
            lines[16 + i] = kRing - 1;
            lines[32 + i] = 1920 + 60 * i;
            gain[i] = 0.7f;
            shelf[i] = 0.4f;
            shelf[16 + i] = 0.5f;
            in_gain[i] = i % 2 == 0 ? 0.25f : 0.0f;
        }
    }

    size_t size() const { return storage.size() - 8; }

    static constexpr uint32_t kLines = BRISEL_LINES;
    uint32_t frames, wpos = 0;
    std::vector<float> storage;
    float *block, *x, *y_left, *y_right, *ring;
    uint32_t lines[64] = {};
    float shelf[48] = {}, gain[16], in_gain[16];
};

using Kernel = void (*)(Buffers&);

class KernelContest : public Contest {
public:
    KernelContest(uint32_t n, Kernel ours, Kernel plain)
        : kernels_{ours, plain}, buffers_{Buffers(n), Buffers(n)} {}

    void render(Side side, uint32_t) override { kernels_[side](buffers_[side]); }
    std::span<const float> output(Side side) const override {
        return {buffers_[side].block, buffers_[side].size()};
    }

private:
    std::array<Kernel, 2> kernels_;
    std::array<Buffers, 2> buffers_;
};

constexpr std::array<uint32_t, 16> stage_delays(uint32_t step) {
    std::array<uint32_t, 16> delays{};
    for (uint32_t i = 0; i < 16; ++i) delays[i] = i * step;
    return delays;
}

template <uint32_t step, uint32_t size>
void stage_ours(Buffers& b) {
    static constexpr auto kDelays = stage_delays(step);
    ffdn_postdelay_n16_avx2(b.block, b.ring, &b.wpos, size, kDelays.data(), b.frames);
}
template <uint32_t step, uint32_t size>
void stage_plain(Buffers& b) {
    static constexpr auto kDelays = stage_delays(step);
    plain::ffdn_postdelay_n16(b.block, b.ring, &b.wpos, size, kDelays.data(), b.frames);
}

constexpr float kDirect[2] = {0.5f, 0.25f};

} // namespace

std::vector<Entry> kernel_entries() {
    struct Pair {
        const char* name;
        Kernel ours, plain;
    };
    const Pair pairs[] = {
        {"fwht_n16_block_avx2", [](Buffers& b) { fwht_n16_block_avx2(b.block, b.frames); },
         [](Buffers& b) { plain::fwht_n16_block(b.block, b.frames); }},
        {"fdn_delay_block_read_n16_avx2",
         [](Buffers& b) { fdn_delay_block_read_n16_avx2(b.ring, b.lines, b.block, b.frames); },
         [](Buffers& b) { plain::fdn_delay_block_read_n16(b.ring, b.lines, b.block, b.frames); }},
        {"fdn_delay_block_write_n16_avx2",
         [](Buffers& b) { fdn_delay_block_write_n16_avx2(b.ring, b.lines, b.block, b.frames); },
         [](Buffers& b) { plain::fdn_delay_block_write_n16(b.ring, b.lines, b.block, b.frames); }},
        {"ffdn_mix_in_n16_avx2",
         [](Buffers& b) {
             ffdn_mix_in_n16_avx2(b.block, b.block, b.gain, b.in_gain, b.x, b.frames);
         },
         [](Buffers& b) {
             plain::ffdn_mix_in_n16(b.block, b.block, b.gain, b.in_gain, b.x, b.frames);
         }},
        {"ffdn_mix_in_jot_n16_avx2",
         [](Buffers& b) {
             ffdn_mix_in_jot_n16_avx2(b.block, b.block, b.shelf, b.in_gain, b.x, b.frames);
         },
         [](Buffers& b) {
             plain::ffdn_mix_in_jot_n16(b.block, b.block, b.shelf, b.in_gain, b.x, b.frames);
         }},
        {"ffdn_mix_out_n16_avx2",
         [](Buffers& b) {
             ffdn_mix_out_n16_avx2(b.y_left, b.block, b.gain, kDirect, b.x, b.frames);
         },
         [](Buffers& b) {
             plain::ffdn_mix_out_n16(b.y_left, b.block, b.gain, kDirect, b.x, b.frames);
         }},
        {"ffdn_mix_out_stereo_n16_avx2",
         [](Buffers& b) {
             ffdn_mix_out_stereo_n16_avx2(b.y_left, b.y_right, b.block, b.gain, b.in_gain, kDirect,
                                          b.x, b.frames);
         },
         [](Buffers& b) {
             plain::ffdn_mix_out_stereo_n16(b.y_left, b.y_right, b.block, b.gain, b.in_gain,
                                            kDirect, b.x, b.frames);
         }},
        {"ffdn_postdelay_n16_avx2/delays:0..15", stage_ours<1, 16>, stage_plain<1, 16>},
        {"ffdn_postdelay_n16_avx2/delays:0..240", stage_ours<16, 256>, stage_plain<16, 256>},
        {"ffdn_postdelay_n16_avx2/delays:0..3840", stage_ours<256, 4096>, stage_plain<256, 4096>},
    };
    std::vector<Entry> entries;
    for (const Pair& pair : pairs) {
        for (int32_t n : {64, 256, 1024}) {
            entries.push_back({Kind::kKernel, pair.name, n, [=] {
                                   return std::make_unique<KernelContest>(static_cast<uint32_t>(n),
                                                                          pair.ours, pair.plain);
                               }});
        }
    }
    return entries;
}

} // namespace bench
