// A sound file, or a pipe that brings one, as stereo blocks. Owns every fault of an input and its
// metadata, the choice of channels, and the way to another sample rate; samples are interleaved
// floats, nominal +/-1.0.
#pragma once

#include "render/metadata.h"
#include "render/resampler.h"
#include "render/sound_format.h"
#include "render/streams.h"

#include <sndfile.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brisel::render {

struct CloseSound {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundHandle = std::unique_ptr<SNDFILE, CloseSound>;

// Opens a descriptor, which stays the caller's. Null with the reason in `why` when that fails. May
// be called on several threads.
SoundHandle open_sound(int descriptor, int mode, SF_INFO& info, std::string& why);

// What libsndfile has to say about a file, in the words of the other messages.
std::string sound_error(SNDFILE* sound);

struct ReadSettings {
    std::vector<int> channels; // from 1, one or two; empty: all of a mono or stereo file
    std::optional<int> rate;   // Hz; none: the file's own
    bool twice = false;        // rewind() will be called
};

class SoundReader {
public:
    // "-" is standard input. WAV, W64, AU and AIFF are read from a pipe as they come, anything else
    // when it has come as a whole. Throws Failure when there is no readable and complete sound
    // file, or none that the reverb can take.
    SoundReader(const std::filesystem::path& file, const ReadSettings& settings);

    const std::string& name() const { return name_; } // for messages
    int sample_rate() const;                          // Hz, of what read() gives
    int file_rate() const { return info_.samplerate; }
    int channels() const { return info_.channels; }        // in the file
    int format() const { return info_.format; }            // libsndfile's
    std::optional<uint64_t> frames() const;                // that read() will give; none: not known
    const Metadata& metadata() const { return metadata_; } // at sample_rate()

    // Reads up to `frames` frames; fewer only at the end. A mono file gives the same on both sides.
    // Throws Failure when the file is damaged.
    size_t read(float* stereo, size_t frames);
    void rewind();

private:
    void open(const std::filesystem::path& file, bool twice);
    void find_length();
    void choose_channels(const std::vector<int>& channels);
    void choose_rate(std::optional<int> rate);
    size_t read_file(float* stereo, size_t frames);
    [[noreturn]] void fail_damaged(uint64_t present, std::optional<uint64_t> declared) const;

    std::string name_;
    SF_INFO info_{};
    Descriptor file_;
    SoundHandle sound_;
    Metadata metadata_;
    bool streamed_ = false;
    std::optional<uint64_t> length_; // in frames of the file, as it declares
    size_t left_ = 0, right_ = 0;    // channels in use
    std::vector<float> interleaved_;
    uint64_t position_ = 0; // in frames of the file
    std::optional<Resampler> resampler_;
};

} // namespace brisel::render
