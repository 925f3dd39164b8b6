// The stereo result: a sound file that appears under its name at commit() and not before, or a
// stream into a pipe.
#pragma once

#include "render/metadata.h"
#include "render/output_file.h"
#include "render/quantizer.h"
#include "render/sound_format.h"
#include "render/sound_reader.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace brisel::render {

class SoundWriter {
public:
    // Into a pipe or device ("-" is standard output) WAV, AU and raw samples go as they come, any
    // other format as a whole at commit(). `least_frames` are certain to come; throws Failure when
    // the format cannot hold them. The metadata and the format are those of `in`, carried over.
    SoundWriter(const std::filesystem::path& file, const SoundFormat& format, bool dither,
                const SoundReader& in, uint64_t least_frames);

    void write(const float* stereo, size_t frames);

    // Returns what of the input's metadata the result lacks, in words; empty: nothing.
    std::string commit();

private:
    [[noreturn]] void fail(const std::string& why) const;
    void check_room(uint64_t frames) const;
    std::string check_complete() const;
    void write_to_library(const float* stereo, size_t frames);
    void write_to_stream(const float* stereo, size_t frames);
    void send(std::string_view bytes) const; // to the target

    std::string name_;
    SoundFormat format_;
    int sample_rate_;
    Metadata wanted_;
    OutputFile file_;
    Descriptor spool_;  // what is copied into the target at commit(); none: written there at once
    SoundHandle sound_; // none: a stream, whose bytes are made here
    std::optional<Quantizer> quantizer_; // of integer formats
    std::vector<int> integers_;
    std::string bytes_;
    uint64_t frames_ = 0;
};

} // namespace brisel::render
