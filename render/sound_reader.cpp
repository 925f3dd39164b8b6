#include "render/sound_reader.h"

#include "render/errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <mutex>
#include <sstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace brisel::render {

namespace {

// At and below this the equaliser's upper corner would reach half the sample rate.
constexpr int kLowestRate = 9000;
constexpr int kUsualRate = 48000;

// Whether a pipe brings a format that libsndfile reads without seeking. Looks without taking.
bool can_stream(int pipe_end) {
    std::array<int, 2> copy{};
    if (pipe2(copy.data(), O_CLOEXEC) != 0) return false;
    const Descriptor read_end(copy[0]), write_end(copy[1]);
    std::array<char, 4> magic{};
    constexpr ssize_t kSize = sizeof magic;
    if (tee(pipe_end, write_end.get(), magic.size(), 0) != kSize ||
        ::read(read_end.get(), magic.data(), magic.size()) != kSize)
        return false;
    const std::string_view begin(magic.data(), magic.size());
    return begin == "RIFF" || begin == "riff" || begin == ".snd" || begin == "FORM";
}

// Lengths that programs write who do not know them: nothing, or as much as the field can hold, with
// or without room for the header (0x7ffff000, 0x7f000008).
bool is_placeholder(double bytes) {
    return bytes == 0 || bytes >= 0xffff0000 || (bytes >= 0x7fff0000 && bytes <= 0x8000ffff) ||
           (bytes >= 0x7f000000 && bytes <= 0x7f00ffff);
}

// 0.5 of the compressed ones, more or less.
double bytes_per_sample(int code) {
    switch (code & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
        return 1;
    case SF_FORMAT_PCM_16:
        return 2;
    case SF_FORMAT_PCM_24:
        return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
        return 4;
    case SF_FORMAT_DOUBLE:
        return 8;
    default:
        return 0.5;
    }
}

// The bytes that a file lacks to what its header says: 0 for none. libsndfile tells only by lines
// in its log, such as "data : 192000 (should be 95961)".
double missing_bytes(SNDFILE* sound) {
    std::array<char, 1 << 14> buffer{};
    sf_command(sound, SFC_GET_LOG_INFO, buffer.data(), buffer.size());
    std::istringstream log(buffer.data());
    for (std::string line; std::getline(log, line);) {
        const size_t begin = line.find_first_not_of(' ');
        if (begin == std::string::npos || line.find("(should be ") == std::string::npos) continue;
        const std::string_view name = std::string_view(line).substr(begin);
        long long declared = 0, present = 0;
        if ((name.starts_with("data") || name.starts_with("Data Size") ||
             name.starts_with("SSND") || name.starts_with("riff") ||
             name.starts_with("Riff size")) &&
            std::sscanf(line.c_str() + line.find(':') + 1, " %lld (should be %lld)", &declared,
                        &present) == 2 &&
            declared > present && !is_placeholder(static_cast<double>(declared)))
            return static_cast<double>(declared - present);
    }
    return 0;
}

} // namespace

std::string sound_error(SNDFILE* sound) {
    std::string_view text = sf_strerror(sound);
    for (const std::string_view prefix : {"System error : ", "Error : "})
        if (text.starts_with(prefix)) text.remove_prefix(prefix.size());
    while (text.ends_with('.') || text.ends_with(' ')) text.remove_suffix(1);
    return std::string(text);
}

SoundHandle open_sound(int descriptor, int mode, SF_INFO& info, std::string& why) {
    // The library keeps the reason of a failure in one place for all threads.
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    SoundHandle sound(sf_open_fd(descriptor, mode, &info, SF_FALSE));
    if (!sound) why = sound_error(nullptr);
    return sound;
}

SoundReader::SoundReader(const fs::path& file, const ReadSettings& settings)
    : name_(input_name(file)) {
    open(file, settings.twice);
    find_length();
    metadata_ = read_metadata(sound_.get(), !streamed_);
    choose_channels(settings.channels);
    choose_rate(settings.rate);
}

void SoundReader::open(const fs::path& file, bool twice) {
    file_ = open_input(file);
    struct stat status {};
    fstat(file_.get(), &status);
    if (S_ISDIR(status.st_mode))
        throw Failure(fmt::format("cannot read {}: it is a folder", name_));
    const bool is_file = S_ISREG(status.st_mode), is_pipe = S_ISFIFO(status.st_mode);
    if (isatty(file_.get()) == 1)
        throw Failure(fmt::format("{} is a terminal: a sound file is needed", name_));
    if (!is_file && !is_pipe && !S_ISSOCK(status.st_mode))
        throw Failure(fmt::format("cannot read {}: it is a device", name_));
    if (!is_file || lseek(file_.get(), 0, SEEK_CUR) != 0) {
        streamed_ = !twice && is_pipe && can_stream(file_.get());
        if (!streamed_) {
            Descriptor copy = anonymous_file();
            try {
                copy_all(file_.get(), copy.get());
            } catch (const std::system_error& e) {
                throw Failure(fmt::format("cannot read {}: {}", name_, e.code().message()));
            }
            file_ = std::move(copy);
            lseek(file_.get(), 0, SEEK_SET);
        }
    }
    fstat(file_.get(), &status);
    if (!streamed_ && status.st_size == 0)
        throw Failure(fmt::format("cannot read {}: it is empty", name_));
    std::string why;
    sound_ = open_sound(file_.get(), SFM_READ, info_, why);
    if (why.find("malformed") != std::string::npos) why = "it is cut off or damaged";
    if (!sound_) throw Failure(fmt::format("cannot read {}: {}", name_, why));
}

void SoundReader::find_length() {
    if (info_.frames == SF_COUNT_MAX) {
        // The length of an OGG file stands in its last page.
        if (!streamed_ && (info_.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG)
            fail_damaged(0, std::nullopt);
        return;
    }
    length_ = static_cast<uint64_t>(std::max<sf_count_t>(info_.frames, 0));
    const double width = info_.channels * bytes_per_sample(info_.format);
    if (streamed_) {
        // What the header says, but for what does not fill a frame.
        const double bytes = static_cast<double>(*length_) * width;
        if (is_placeholder(bytes) || is_placeholder(bytes + width)) length_.reset();
    } else if (const double missing = missing_bytes(sound_.get()); missing > 0) {
        fail_damaged(*length_, *length_ + static_cast<uint64_t>(std::llround(missing / width)));
    }
}

void SoundReader::fail_damaged(uint64_t present, std::optional<uint64_t> declared) const {
    if (!declared) throw Failure(fmt::format("{} is damaged: its end is missing", name_));
    throw Failure(
        fmt::format("{} is damaged: it ends after {} of {} frames", name_, present, *declared));
}

void SoundReader::choose_channels(const std::vector<int>& channels) {
    if (channels.empty() && info_.channels > 2)
        throw Failure(fmt::format("{} has {} channels; the reverb takes one or two: choose them "
                                  "with --channels 1,2, for example",
                                  name_, info_.channels));
    for (const int channel : channels)
        if (channel > info_.channels)
            throw Failure(fmt::format("{} has {} channel{}; --channels asks for number {}", name_,
                                      info_.channels, info_.channels == 1 ? "" : "s", channel));
    left_ = channels.empty() ? 0 : static_cast<size_t>(channels.front() - 1);
    right_ = channels.empty() ? static_cast<size_t>(info_.channels - 1)
                              : static_cast<size_t>(channels.back() - 1);
}

void SoundReader::choose_rate(std::optional<int> rate) {
    if (!rate && info_.samplerate <= kLowestRate)
        throw Failure(fmt::format("{} has a sample rate of {} Hz; the reverb needs more than {} "
                                  "Hz: use --rate {}",
                                  name_, info_.samplerate, kLowestRate, kUsualRate));
    if (!rate || *rate == info_.samplerate) return;
    const double ratio = static_cast<double>(*rate) / info_.samplerate;
    metadata_.change_rate(ratio);
    resampler_.emplace(ratio,
                       [this](float* stereo, size_t frames) { return read_file(stereo, frames); });
}

int SoundReader::sample_rate() const {
    return resampler_ ? static_cast<int>(std::lround(info_.samplerate * resampler_->ratio()))
                      : info_.samplerate;
}

std::optional<uint64_t> SoundReader::frames() const {
    if (!length_ || !resampler_) return length_;
    return static_cast<uint64_t>(std::llround(static_cast<double>(*length_) * resampler_->ratio()));
}

size_t SoundReader::read(float* stereo, size_t frames) {
    return resampler_ ? resampler_->read(stereo, frames) : read_file(stereo, frames);
}

size_t SoundReader::read_file(float* stereo, size_t frames) {
    const size_t width = static_cast<size_t>(info_.channels);
    interleaved_.resize(frames * width);
    const sf_count_t got =
        sf_readf_float(sound_.get(), interleaved_.data(), static_cast<sf_count_t>(frames));
    const size_t count = static_cast<size_t>(std::max<sf_count_t>(got, 0));
    for (size_t i = 0; i < count; ++i) {
        stereo[2 * i] = interleaved_[i * width + left_];
        stereo[2 * i + 1] = interleaved_[i * width + right_];
    }
    position_ += count;
    if (count < frames) {
        // Of an MP3 without a table of contents the length is an estimate.
        const bool estimated = (info_.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
        const uint64_t least = length_.value_or(0) - (estimated ? *length_ / 50 : 0);
        if (position_ < least) fail_damaged(position_, length_);
        if (sf_error(sound_.get()) != SF_ERR_NO_ERROR) fail_damaged(position_, length_);
    }
    return count;
}

void SoundReader::rewind() {
    if (position_ == 0) return;
    if (sf_seek(sound_.get(), 0, SEEK_SET) != 0)
        throw Failure(fmt::format("{} cannot be read twice", name_));
    position_ = 0;
    if (resampler_) resampler_->restart();
}

} // namespace brisel::render
