#include "render/sound_format.h"

#include "render/errors.h"
#include "render/suggest.h"

#include <sndfile.h>

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <limits>
#include <span>

namespace brisel::render {

namespace {

struct Container {
    std::string_view ending;
    int code;
    int coding;          // of a container that holds but one, else 0
    bool limited_to_4gb; // lengths are 32-bit numbers in the file
    bool streams;
    Bits usual;
};

constexpr std::array kContainers{
    Container{"wav", SF_FORMAT_WAV, 0, true, true, Bits::float32},
    Container{"aiff", SF_FORMAT_AIFF, 0, true, false, Bits::float32},
    Container{"aif", SF_FORMAT_AIFF, 0, true, false, Bits::float32},
    Container{"au", SF_FORMAT_AU, 0, true, true, Bits::float32},
    Container{"w64", SF_FORMAT_W64, 0, false, false, Bits::float32},
    Container{"rf64", SF_FORMAT_RF64, 0, false, false, Bits::float32},
    Container{"caf", SF_FORMAT_CAF, 0, false, false, Bits::float32},
    Container{"raw", SF_FORMAT_RAW, 0, false, true, Bits::float32},
    Container{"flac", SF_FORMAT_FLAC, 0, false, false, Bits::int24},
    Container{"ogg", SF_FORMAT_OGG, SF_FORMAT_VORBIS, false, false, Bits::usual},
    Container{"oga", SF_FORMAT_OGG, SF_FORMAT_VORBIS, false, false, Bits::usual},
    Container{"opus", SF_FORMAT_OGG, SF_FORMAT_OPUS, false, false, Bits::usual},
};

const Container* find_container(std::string_view ending) {
    if (ending.starts_with('.')) ending.remove_prefix(1);
    const auto same_letter = [](char a, char b) {
        return a == (b >= 'A' && b <= 'Z' ? b + 32 : b);
    };
    const auto* const found = std::ranges::find_if(kContainers, [&](const Container& c) {
        return std::ranges::equal(c.ending, ending, same_letter);
    });
    return found == std::end(kContainers) ? nullptr : found;
}

std::string unknown_ending(std::string_view ending) {
    std::vector<std::string> known;
    known.reserve(kContainers.size());
    for (const Container& c : kContainers) known.push_back(fmt::format(".{}", c.ending));
    const std::string dotted = fmt::format("{}{}", ending.starts_with('.') ? "" : ".", ending);
    return fmt::format("no sound format is known by the ending '{}'{}{} known are {}", ending,
                       did_you_mean(dotted, known), did_you_mean(dotted, known).empty() ? ";" : "",
                       fmt::join(known, ", "));
}

} // namespace

std::string SoundFormat::samples() const {
    switch (bits) {
    case Bits::int16:
        return "16 bit";
    case Bits::int24:
        return "24 bit";
    case Bits::float32:
        return "32-bit float";
    case Bits::usual:
        break;
    }
    return (code & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS ? "Opus" : "Vorbis";
}

void SoundFormat::check_rate(int sample_rate, const std::string& file) const {
    constexpr std::array kOpusRates{48000, 24000, 16000, 12000, 8000};
    constexpr int kHighestFlac = 655350, kHighestVorbis = 200000;
    std::string rates;
    int instead = 48000;
    if ((code & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS) {
        if (std::ranges::find(kOpusRates, sample_rate) == kOpusRates.end())
            rates = fmt::format("{} Hz", fmt::join(kOpusRates, ", "));
    } else if ((code & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC && sample_rate > kHighestFlac) {
        rates = fmt::format("at most {} Hz", kHighestFlac);
        instead = 192000;
    } else if ((code & SF_FORMAT_SUBMASK) == SF_FORMAT_VORBIS && sample_rate > kHighestVorbis) {
        rates = fmt::format("at most {} Hz", kHighestVorbis);
        instead = 96000;
    }
    if (!rates.empty())
        throw Failure(fmt::format("{}: .{} files have a sample rate of {}, not {} Hz: use "
                                  "--rate {} or another format",
                                  file, ending, rates, sample_rate, instead));
}

bool is_sound_ending(std::string_view ending) {
    return find_container(ending) != nullptr;
}

Bits bits_of(int code) {
    switch (code & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
    case SF_FORMAT_IMA_ADPCM:
    case SF_FORMAT_MS_ADPCM:
    case SF_FORMAT_GSM610:
    case SF_FORMAT_ALAC_16:
        return Bits::int16;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
        return Bits::int24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
    case SF_FORMAT_ALAC_32:
        return Bits::float32;
    default:
        return Bits::usual;
    }
}

SoundFormat sound_format(std::string_view ending, Bits asked, Bits of_input) {
    const Container* c = find_container(ending);
    if (!c) throw UsageError(unknown_ending(ending));
    SoundFormat format{.code = c->code | c->coding,
                       .ending = std::string(c->ending),
                       .bits = Bits::usual,
                       .streams = c->streams,
                       .most_frames = std::numeric_limits<uint64_t>::max()};
    if (c->coding != 0) {
        if (asked != Bits::usual)
            throw UsageError(fmt::format(
                ".{} files are compressed with loss: --bits does not apply", c->ending));
        return format;
    }
    const bool holds_float = c->usual == Bits::float32;
    if (asked == Bits::float32 && !holds_float)
        throw UsageError(
            fmt::format(".{} files hold no floating-point samples: use --bits 24 or another ending",
                        c->ending));
    if (asked == Bits::usual) asked = of_input;
    if (asked == Bits::usual || (asked == Bits::float32 && !holds_float)) asked = c->usual;

    format.bits = asked;
    uint64_t bytes_per_sample = 4;
    if (asked == Bits::int16) {
        format.code |= SF_FORMAT_PCM_16;
        bytes_per_sample = 2;
    } else if (asked == Bits::int24) {
        format.code |= SF_FORMAT_PCM_24;
        bytes_per_sample = 3;
    } else {
        format.code |= SF_FORMAT_FLOAT;
    }
    constexpr uint64_t kMostBytes = (uint64_t{1} << 32) - 4096; // some room for the header
    if (c->limited_to_4gb) format.most_frames = kMostBytes / (2 * bytes_per_sample);
    return format;
}

} // namespace brisel::render
