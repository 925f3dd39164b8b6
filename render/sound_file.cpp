#include "render/sound_file.h"

#include "render/errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <unistd.h>

namespace brisel::render {

namespace fs = std::filesystem;

namespace {

// At and below this the equaliser's upper corner would reach half the sample rate.
constexpr int kLowestRate = 9000;

struct Container {
    std::string_view ending;
    int code;
    int coding;          // of a container that holds but one, else 0
    bool holds_float;    // PCM containers only
    bool limited_to_4gb; // lengths are 32-bit numbers in the file
    Bits usual;
};

constexpr std::array containers{
    Container{"wav", SF_FORMAT_WAV, 0, true, true, Bits::float32},
    Container{"aiff", SF_FORMAT_AIFF, 0, true, true, Bits::float32},
    Container{"aif", SF_FORMAT_AIFF, 0, true, true, Bits::float32},
    Container{"au", SF_FORMAT_AU, 0, true, true, Bits::float32},
    Container{"w64", SF_FORMAT_W64, 0, true, false, Bits::float32},
    Container{"rf64", SF_FORMAT_RF64, 0, true, false, Bits::float32},
    Container{"caf", SF_FORMAT_CAF, 0, true, false, Bits::float32},
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
    const auto* const found = std::ranges::find_if(containers, [&](const Container& c) {
        return std::ranges::equal(c.ending, ending, same_letter);
    });
    return found == std::end(containers) ? nullptr : found;
}

// What libsndfile has to say, in the words of the other messages.
std::string reason(SNDFILE* sound) {
    std::string_view text = sf_strerror(sound);
    for (const std::string_view prefix : {"System error : ", "Error : "})
        if (text.starts_with(prefix)) text.remove_prefix(prefix.size());
    if (text.ends_with('.')) text.remove_suffix(1);
    return std::string(text);
}

// RF64 files keep their PEAK chunk whatever libsndfile is told; this clears the time of day in it,
// which stands 12 bytes behind the chunk's name.
void clear_peak_time(int descriptor) {
    std::array<char, 4096> header{};
    const ssize_t size = pread(descriptor, header.data(), header.size(), 0);
    std::string_view text(header.data(), static_cast<size_t>(std::max<ssize_t>(size, 0)));
    text = text.substr(0, text.find("data"));
    const size_t chunk = text.find("PEAK");
    if (chunk == std::string_view::npos) return;
    const uint32_t zero = 0;
    if (pwrite(descriptor, &zero, sizeof zero, static_cast<off_t>(chunk + 12)) != sizeof zero)
        throw Failure(fmt::format("cannot write: {}", std::strerror(errno)));
}

std::string all_endings() {
    std::string list;
    for (const Container& c : containers)
        list += fmt::format("{}.{}", list.empty() ? "" : ", ", c.ending);
    return list;
}

} // namespace

bool is_sound_ending(std::string_view ending) {
    return find_container(ending) != nullptr;
}

SoundFormat sound_format(std::string_view ending, Bits bits) {
    const Container* c = find_container(ending);
    if (!c)
        throw UsageError(fmt::format("no sound format is known by the ending '{}'; known are {}",
                                     ending, all_endings()));
    SoundFormat format{c->code | c->coding, std::string(c->ending), false,
                       std::numeric_limits<uint64_t>::max()};
    if (c->coding != 0) {
        if (bits != Bits::usual)
            throw UsageError(fmt::format(
                ".{} files are compressed with loss: --bits does not apply", c->ending));
        return format;
    }
    uint64_t bytes_per_sample = 0;
    switch (bits == Bits::usual ? c->usual : bits) {
    case Bits::int16:
        format.code |= SF_FORMAT_PCM_16;
        bytes_per_sample = 2;
        break;
    case Bits::int24:
        format.code |= SF_FORMAT_PCM_24;
        bytes_per_sample = 3;
        break;
    case Bits::float32:
    case Bits::usual:
        if (!c->holds_float)
            throw UsageError(fmt::format(
                ".{} files hold no floating-point samples: use --bits 24 or another ending",
                c->ending));
        format.code |= SF_FORMAT_FLOAT;
        bytes_per_sample = 4;
        format.holds_over_scale = true;
        break;
    }
    constexpr uint64_t kMostBytes = (uint64_t{1} << 32) - 4096; // some room for the header
    if (c->limited_to_4gb) format.most_frames = kMostBytes / (2 * bytes_per_sample);
    return format;
}

SoundReader::SoundReader(const fs::path& file) : name_(file.string()) {
    sound_.reset(sf_open(file.c_str(), SFM_READ, &info_));
    if (!sound_) throw Failure(fmt::format("cannot read '{}': {}", name_, reason(nullptr)));
    if (info_.channels > 2)
        throw Failure(fmt::format("'{}' has {} channels; the reverb takes one or two", name_,
                                  info_.channels));
    if (info_.samplerate <= kLowestRate)
        throw Failure(
            fmt::format("'{}' has a sample rate of {} Hz; the reverb needs more than {} Hz", name_,
                        info_.samplerate, kLowestRate));
}

size_t SoundReader::read(float* interleaved, size_t frames) {
    const sf_count_t got =
        sf_readf_float(sound_.get(), interleaved, static_cast<sf_count_t>(frames));
    const size_t count = static_cast<size_t>(std::max<sf_count_t>(got, 0));
    position_ += count;
    if (count < frames && (sf_error(sound_.get()) != SF_ERR_NO_ERROR || position_ < this->frames()))
        throw Failure(fmt::format("'{}' is damaged: it ends after {} of {} frames", name_,
                                  position_, this->frames()));
    return count;
}

void SoundReader::rewind() {
    if (position_ == 0) return;
    if (sf_seek(sound_.get(), 0, SEEK_SET) != 0)
        throw Failure(fmt::format("'{}' cannot be read twice", name_));
    position_ = 0;
}

SoundWriter::SoundWriter(const fs::path& file, const SoundFormat& format, int sample_rate,
                         uint64_t least_frames)
    : name_(file.string()), format_(format), file_(file) {
    check_room(least_frames);
    SF_INFO info{};
    info.samplerate = sample_rate;
    info.channels = 2;
    info.format = format.code;
    sound_.reset(sf_open_fd(file_.descriptor(), SFM_WRITE, &info, SF_FALSE));
    if (!sound_) fail(reason(nullptr));
    // Samples beyond full scale stay at full scale rather than wrap round.
    sf_command(sound_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    // The chunk carries the time of day, and the same run shall give the same bytes.
    sf_command(sound_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

void SoundWriter::write(const float* interleaved, size_t frames) {
    check_room(frames_ + frames);
    const sf_count_t count = static_cast<sf_count_t>(frames);
    if (sf_writef_float(sound_.get(), interleaved, count) != count) fail(reason(sound_.get()));
    frames_ += frames;
}

void SoundWriter::check_room(uint64_t frames) const {
    if (frames > format_.most_frames)
        throw Failure(fmt::format("'{}' would exceed 4 GiB, the most that .{} files can hold: use "
                                  ".w64, .rf64 or .caf",
                                  name_, format_.ending));
}

void SoundWriter::commit() {
    sf_write_sync(sound_.get());
    if (sf_error(sound_.get()) != SF_ERR_NO_ERROR) fail(reason(sound_.get()));
    sound_.reset();
    if (!file_.temporary().empty()) {
        check_complete();
        if ((format_.code & SF_FORMAT_TYPEMASK) == SF_FORMAT_RF64)
            clear_peak_time(file_.descriptor());
    }
    file_.commit();
}

// Closing a sound file writes its last part and tells nobody when that fails: look at the result.
void SoundWriter::check_complete() const {
    if (frames_ == 0) return;
    SF_INFO info{};
    const SoundHandle written(sf_open(file_.temporary().c_str(), SFM_READ, &info));
    const sf_count_t last = static_cast<sf_count_t>(frames_) - 1;
    float frame[2];
    if (!written || info.frames != last + 1 || sf_seek(written.get(), last, SEEK_SET) != last ||
        sf_readf_float(written.get(), frame, 1) != 1)
        fail("the end of the file is missing; is the disk full?");
}

void SoundWriter::fail(const std::string& why) const {
    throw Failure(fmt::format("cannot write '{}': {}", name_, why));
}

} // namespace brisel::render
