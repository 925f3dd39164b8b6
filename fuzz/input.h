// A fuzzer's bytes, read as the values that calls take. When the bytes run out everything is 0, so
// that every prefix of an input means something.
#ifndef BRISEL_FUZZ_INPUT_H
#define BRISEL_FUZZ_INPUT_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

// A broken promise of the code under test; the fuzzer keeps the input that led here.
#define FUZZ_REQUIRE(condition)                                                                    \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);           \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)

namespace fuzz {

class Input {
public:
    Input(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

    bool empty() const { return next_ == end_; }

    template <typename T>
    T bits() {
        unsigned char bytes[sizeof(T)] = {};
        const size_t n = std::min(sizeof bytes, static_cast<size_t>(end_ - next_));
        if (n > 0) std::memcpy(bytes, next_, n);
        next_ += n;
        return std::bit_cast<T>(bytes);
    }
    uint32_t below(uint32_t count) { return bits<uint8_t>() % count; }
    bool flag() { return bits<uint8_t>() & 1; }

    // A usable value three times out of four, otherwise any bits.
    float real(float low, float high) {
        const uint8_t how = bits<uint8_t>();
        if (how % 4 == 3) return bits<float>();
        return low + (high - low) * static_cast<float>(bits<uint16_t>()) / 65535.0f;
    }
    int32_t integer(int32_t low, int32_t high) {
        const uint8_t how = bits<uint8_t>();
        if (how % 4 == 3) return bits<int32_t>();
        return low + static_cast<int32_t>(bits<uint16_t>()) % (high - low + 1);
    }

private:
    const uint8_t* next_;
    const uint8_t* end_;
};

// Samples: silence, noise, the largest numbers, NaN and infinities, any bits.
inline void fill(float* samples, size_t count, Input& input) {
    using Limits = std::numeric_limits<float>;
    const uint32_t kind = input.below(5);
    uint32_t random = input.bits<uint32_t>() | 1;
    for (size_t t = 0; t < count; ++t) {
        random ^= random << 13;
        random ^= random >> 17;
        random ^= random << 5;
        const bool odd = random & 1;
        samples[t] = kind == 0   ? 0.0f
                     : kind == 1 ? static_cast<float>(random) * 0x1p-31f - 1.0f
                     : kind == 2 ? (odd ? Limits::max() : Limits::lowest())
                     : kind == 3 ? (odd ? Limits::quiet_NaN() : Limits::infinity())
                                 : std::bit_cast<float>(random);
    }
}

} // namespace fuzz

#endif
