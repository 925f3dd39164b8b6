#include "render/stream_header.h"

#include <sndfile.h>

#include <string_view>

namespace brisel::render {

namespace {

constexpr uint32_t kUnknown = 0xffffffff; // a length that its writer does not know

class Bytes {
public:
    explicit Bytes(bool big_endian) : big_endian_(big_endian) {}

    Bytes& text(std::string_view letters) {
        bytes_ += letters;
        return *this;
    }
    Bytes& number(uint32_t value, int size) {
        for (int i = 0; i < size; ++i) {
            const int place = big_endian_ ? size - 1 - i : i;
            bytes_ += static_cast<char>(value >> (8 * place) & 0xff);
        }
        return *this;
    }
    const std::string& str() const { return bytes_; }

private:
    bool big_endian_;
    std::string bytes_;
};

} // namespace

bool is_big_endian(const SoundFormat& format) {
    return (format.code & SF_FORMAT_TYPEMASK) == SF_FORMAT_AU;
}

std::string stream_header(const SoundFormat& format, int sample_rate,
                          std::optional<uint64_t> frames) {
    const bool is_float = format.bits == Bits::float32;
    const uint32_t bytes = is_float ? 4 : format.bits == Bits::int24 ? 3 : 2; // of a sample
    const uint32_t rate = static_cast<uint32_t>(sample_rate);
    const uint32_t data = frames ? static_cast<uint32_t>(*frames * 2 * bytes) : kUnknown;
    Bytes header(is_big_endian(format));
    switch (format.code & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV: {
        constexpr uint32_t kBehindSize = 36; // bytes between the first length and the samples
        const uint32_t tag = is_float ? 3 : 1;
        header.text("RIFF").number(frames ? data + kBehindSize : kUnknown, 4).text("WAVE");
        header.text("fmt ").number(16, 4).number(tag, 2).number(2, 2).number(rate, 4);
        header.number(rate * 2 * bytes, 4).number(2 * bytes, 2).number(8 * bytes, 2);
        header.text("data").number(data, 4);
        break;
    }
    case SF_FORMAT_AU: {
        const uint32_t coding = is_float ? 6 : bytes + 1; // 3: 16 bits, 4: 24 bits
        header.text(".snd").number(24, 4).number(data, 4).number(coding, 4);
        header.number(rate, 4).number(2, 4);
        break;
    }
    default:
        break;
    }
    return header.str();
}

} // namespace brisel::render
