#include "render/sound_writer.h"

#include "render/errors.h"
#include "render/stream_header.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace brisel::render {

namespace {

int bits_of_integers(const SoundFormat& format) {
    return format.bits == Bits::int16 ? 16 : 24;
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

} // namespace

SoundWriter::SoundWriter(const fs::path& file, const SoundFormat& format, bool dither,
                         const SoundReader& in, uint64_t least_frames)
    : name_(output_name(file)), format_(format), sample_rate_(in.sample_rate()),
      wanted_(in.metadata()), file_(file) {
    if (file_.in_place() && isatty(file_.descriptor()) == 1)
        fail("it is a terminal, which a sound is of no use to");
    check_room(least_frames);
    format_.check_rate(sample_rate_, name_);
    if (format_.holds_integers()) quantizer_.emplace(bits_of_integers(format_), dither);
    if (file_.in_place() && format_.streams) {
        send(stream_header(format_, sample_rate_, std::nullopt));
        return;
    }
    if (file_.in_place()) spool_ = anonymous_file();
    SF_INFO info{};
    info.samplerate = sample_rate_;
    info.channels = 2;
    info.format = format_.code;
    std::string why;
    sound_ = open_sound(spool_ ? spool_.get() : file_.descriptor(), SFM_WRITE, info, why);
    if (!sound_) fail(why);
    // Samples beyond full scale stay at full scale rather than wrap round.
    sf_command(sound_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    // The chunk carries the time of day, and the same run shall give the same bytes.
    sf_command(sound_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    write_metadata(sound_.get(), wanted_, format_.code, in.format());
}

void SoundWriter::write(const float* stereo, size_t frames) {
    check_room(frames_ + frames);
    sound_ ? write_to_library(stereo, frames) : write_to_stream(stereo, frames);
    frames_ += frames;
}

void SoundWriter::write_to_library(const float* stereo, size_t frames) {
    const sf_count_t count = static_cast<sf_count_t>(frames);
    sf_count_t written = 0;
    if (quantizer_) {
        // The library takes integers of 32 bits, of which it keeps the upper ones.
        const int unused = 32 - bits_of_integers(format_);
        integers_.resize(2 * frames);
        for (size_t i = 0; i < 2 * frames; ++i)
            integers_[i] =
                static_cast<int>(static_cast<uint32_t>((*quantizer_)(stereo[i])) << unused);
        written = sf_writef_int(sound_.get(), integers_.data(), count);
    } else {
        written = sf_writef_float(sound_.get(), stereo, count);
    }
    if (written != count) fail(sound_error(sound_.get()));
}

void SoundWriter::write_to_stream(const float* stereo, size_t frames) {
    const bool big_endian = is_big_endian(format_);
    const int size = quantizer_ ? bits_of_integers(format_) / 8 : 4;
    bytes_.clear();
    for (size_t i = 0; i < 2 * frames; ++i) {
        const uint32_t sample = quantizer_ ? static_cast<uint32_t>((*quantizer_)(stereo[i]))
                                           : std::bit_cast<uint32_t>(stereo[i]);
        for (int byte = 0; byte < size; ++byte)
            bytes_ += static_cast<char>(sample >> (8 * (big_endian ? size - 1 - byte : byte)));
    }
    send(bytes_);
}

void SoundWriter::send(std::string_view bytes) const {
    try {
        write_all(file_.descriptor(), bytes);
    } catch (const std::system_error& e) {
        fail(e.code().message());
    }
}

void SoundWriter::check_room(uint64_t frames) const {
    if (frames > format_.most_frames && !(file_.in_place() && format_.streams))
        throw Failure(fmt::format("{} would exceed 4 GiB, the most that .{} files can hold: use "
                                  ".w64, .rf64 or .caf",
                                  name_, format_.ending));
}

std::string SoundWriter::commit() {
    std::string lost;
    if (sound_) {
        sf_write_sync(sound_.get());
        if (sf_error(sound_.get()) != SF_ERR_NO_ERROR) fail(sound_error(sound_.get()));
        sound_.reset();
        const int written = spool_ ? spool_.get() : file_.descriptor();
        lost = check_complete();
        if ((format_.code & SF_FORMAT_TYPEMASK) == SF_FORMAT_RF64) clear_peak_time(written);
    } else {
        lost = missing_metadata(wanted_, {});
        // A stream that has turned out to be a file can have its length told after all.
        const std::string header = stream_header(format_, sample_rate_, frames_);
        if (file_.is_rewritable() && frames_ <= format_.most_frames &&
            pwrite(file_.descriptor(), header.data(), header.size(), 0) < 0)
            fail(std::strerror(errno));
    }
    if (spool_) {
        lseek(spool_.get(), 0, SEEK_SET);
        try {
            copy_all(spool_.get(), file_.descriptor());
        } catch (const std::system_error& e) {
            fail(e.code().message());
        }
    }
    file_.commit();
    return lost;
}

// Closing a sound file writes its last part and tells nobody when that fails: look at the result,
// at its end and at its metadata.
std::string SoundWriter::check_complete() const {
    if (format_.ending == "raw") {
        const off_t size = lseek(file_.descriptor(), 0, SEEK_END);
        const off_t frame = quantizer_ ? bits_of_integers(format_) / 4 : 8;
        if (size != static_cast<off_t>(frames_) * frame)
            fail("the end of the file is missing; is the disk full?");
        return missing_metadata(wanted_, {});
    }
    const int descriptor = spool_ ? spool_.get() : file_.descriptor();
    lseek(descriptor, 0, SEEK_SET);
    SF_INFO info{};
    std::string why;
    const SoundHandle written = open_sound(descriptor, SFM_READ, info, why);
    const sf_count_t last = static_cast<sf_count_t>(frames_) - 1;
    float frame[2];
    if (frames_ > 0 &&
        (!written || info.frames != last + 1 || sf_seek(written.get(), last, SEEK_SET) != last ||
         sf_readf_float(written.get(), frame, 1) != 1))
        fail("the end of the file is missing; is the disk full?");
    return missing_metadata(wanted_, written ? read_metadata(written.get()) : Metadata{});
}

void SoundWriter::fail(const std::string& why) const {
    throw Failure(fmt::format("cannot write {}: {}", name_, why));
}

} // namespace brisel::render
