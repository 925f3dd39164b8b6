// Headers of the formats that need no length: what stands in front of a stream of samples.
#pragma once

#include "render/sound_format.h"

#include <cstdint>
#include <optional>
#include <string>

namespace brisel::render {

// Of a stereo stream in a format that `streams`; without `frames` its length is marked unknown.
// Empty for raw samples.
std::string stream_header(const SoundFormat& format, int sample_rate,
                          std::optional<uint64_t> frames);

// Whether samples are written with the most significant byte first.
bool is_big_endian(const SoundFormat& format);

} // namespace brisel::render
