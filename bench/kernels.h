// The vector kernels and their definitions side by side, on one set of buffers: what the tests
// compare and the benchmarks time.
#ifndef BRISEL_BENCH_KERNELS_H
#define BRISEL_BENCH_KERNELS_H

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

#include "brisel/kernels_avx2.h"
#include "tests/plain.h"

namespace kernels {

// Everything that a kernel may touch, in one allocation so that it can be copied and compared as a
// whole; a band that no kernel may touch follows each part. Parts stand `offset` floats behind a
// 32-byte boundary.
class Buffers {
    struct alignas(32) Vector {
        float x[8];
    };

public:
    // n frames, `total` floats of the main rings, stage rings of `size` floats each.
    Buffers(uint32_t n, uint32_t total, uint32_t size, size_t offset = 0)
        : frames(n), stage_size(size),
          storage_((32 * size_t{n} + 3 * size_t{n} + total + 16 * size_t{size} + 80) / 8 + 28) {
        float* next = storage_[0].x + offset;
        const auto take = [&](size_t count) {
            return std::exchange(next, next + (count + 15) / 8 * 8);
        };
        block = take(16 * n);
        apart = take(16 * n);
        x = take(n);
        y_left = take(n);
        y_right = take(n);
        ring = take(total);
        stage_ring = take(16 * size);
        gains = take(32);
        shelf = take(48);
    }
    Buffers(const Buffers&) = delete;
    Buffers& operator=(const Buffers&) = delete;

    // Takes the contents of buffers of the same sizes.
    void copy(const Buffers& from) {
        std::ranges::copy(from.all(), storage_[0].x);
        std::copy_n(from.lines, 64, lines);
        std::copy_n(from.stage_delays, 16, stage_delays);
        stage_wpos = from.stage_wpos;
    }
    std::span<float> all() { return {storage_[0].x, 8 * storage_.size()}; }
    std::span<const float> all() const { return {storage_[0].x, 8 * storage_.size()}; }

    const uint32_t frames, stage_size;
    uint32_t stage_wpos = 0, stage_delays[16] = {}, lines[64] = {};
    float *block, *apart, *x, *y_left, *y_right, *ring, *stage_ring;
    float* gains; // of 16 lines twice, the second ones for inputs and right outputs
    float* shelf; // b0, a1, memory
    const float direct[2] = {0.5f, 0.25f};

private:
    std::vector<Vector> storage_;
};

template <bool kOurs>
void transform(Buffers& b) {
    (kOurs ? fwht_n16_block_avx2 : plain::fwht_n16_block)(b.block, b.frames);
}
template <bool kOurs>
void read(Buffers& b) {
    const auto kernel = kOurs ? fdn_delay_block_read_n16_avx2 : plain::fdn_delay_block_read_n16;
    kernel(b.ring, b.lines, b.block, b.frames);
}
template <bool kOurs>
void write(Buffers& b) {
    const auto kernel = kOurs ? fdn_delay_block_write_n16_avx2 : plain::fdn_delay_block_write_n16;
    kernel(b.ring, b.lines, b.block, b.frames);
}
template <bool kOurs, bool kApart>
void mix_in(Buffers& b) {
    const auto kernel = kOurs ? ffdn_mix_in_n16_avx2 : plain::ffdn_mix_in_n16;
    kernel(kApart ? b.apart : b.block, b.block, b.gains, b.gains + 16, b.x, b.frames);
}
template <bool kOurs, bool kApart>
void mix_in_jot(Buffers& b) {
    const auto kernel = kOurs ? ffdn_mix_in_jot_n16_avx2 : plain::ffdn_mix_in_jot_n16;
    kernel(kApart ? b.apart : b.block, b.block, b.shelf, b.gains + 16, b.x, b.frames);
}
template <bool kOurs>
void mix_out(Buffers& b) {
    const auto kernel = kOurs ? ffdn_mix_out_n16_avx2 : plain::ffdn_mix_out_n16;
    kernel(b.y_left, b.block, b.gains, b.direct, b.x, b.frames);
}
template <bool kOurs>
void mix_out_stereo(Buffers& b) {
    const auto kernel = kOurs ? ffdn_mix_out_stereo_n16_avx2 : plain::ffdn_mix_out_stereo_n16;
    kernel(b.y_left, b.y_right, b.block, b.gains, b.gains + 16, b.direct, b.x, b.frames);
}
template <bool kOurs>
void stage(Buffers& b) {
    const auto kernel = kOurs ? ffdn_postdelay_n16_avx2 : plain::ffdn_postdelay_n16;
    kernel(b.block, b.stage_ring, &b.stage_wpos, b.stage_size, b.stage_delays, b.frames);
}

struct Kernel {
    const char* name;
    void (*ours)(Buffers&);
    void (*plain)(Buffers&);
    bool aligned = false;
};

inline constexpr Kernel kKernels[] = {
    {"fwht_n16_block_avx2", transform<true>, transform<false>, true},
    {"fdn_delay_block_read_n16_avx2", read<true>, read<false>},
    {"fdn_delay_block_write_n16_avx2", write<true>, write<false>},
    {"ffdn_mix_in_n16_avx2", mix_in<true, false>, mix_in<false, false>},
    {"ffdn_mix_in_jot_n16_avx2", mix_in_jot<true, false>, mix_in_jot<false, false>},
    {"ffdn_mix_out_n16_avx2", mix_out<true>, mix_out<false>},
    {"ffdn_mix_out_stereo_n16_avx2", mix_out_stereo<true>, mix_out_stereo<false>},
    {"ffdn_postdelay_n16_avx2", stage<true>, stage<false>},
};

} // namespace kernels

#endif
