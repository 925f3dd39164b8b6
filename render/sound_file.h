// Sound files, read and written block by block. Owns the choice of formats by a file's ending and
// every fault of a sound file; samples are interleaved floats, nominal +/-1.0.
#pragma once

#include "render/output_file.h"

#include <sndfile.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brisel::render {

enum class Bits { usual, int16, int24, float32 }; // usual: what suits the format best

struct SoundFormat {
    int code;              // libsndfile's, container and coding
    std::string ending;    // "wav"
    bool holds_over_scale; // samples beyond +/-1.0 survive
    uint64_t most_frames;  // of stereo that the container's length fields can count
};

// The format for a file of this ending (with or without the dot, any case).
// Throws UsageError when the ending is unknown or the format cannot hold such samples.
SoundFormat sound_format(std::string_view ending, Bits bits);

bool is_sound_ending(std::string_view ending);

struct CloseSound {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundHandle = std::unique_ptr<SNDFILE, CloseSound>;

class SoundReader {
public:
    // Throws Failure when there is no readable sound file, or one that the reverb cannot take:
    // more than two channels, or a rate of 9000 Hz or less.
    explicit SoundReader(const std::filesystem::path& file);

    int sample_rate() const { return info_.samplerate; }
    int channels() const { return info_.channels; }
    uint64_t frames() const { return static_cast<uint64_t>(info_.frames); }

    // Reads up to `frames` frames; fewer only at the end. Throws Failure when the file is damaged.
    size_t read(float* interleaved, size_t frames);
    void rewind();

private:
    std::string name_;
    SF_INFO info_{};
    SoundHandle sound_;
    uint64_t position_ = 0;
};

// A stereo sound file that appears under its name at commit() and not before.
class SoundWriter {
public:
    // `least_frames` are certain to come; throws Failure when the format cannot hold them.
    SoundWriter(const std::filesystem::path& file, const SoundFormat& format, int sample_rate,
                uint64_t least_frames);

    void write(const float* interleaved, size_t frames);
    void commit();

private:
    [[noreturn]] void fail(const std::string& why) const;
    void check_complete() const;

    void check_room(uint64_t frames) const;

    std::string name_;
    SoundFormat format_;
    OutputFile file_;
    SoundHandle sound_;
    uint64_t frames_ = 0;
};

} // namespace brisel::render
