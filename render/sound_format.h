// What a result can be written as. Owns the table of formats by a file's ending, the samples that
// each holds, and its limits; reads and writes nothing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brisel::render {

enum class Bits { usual, int16, int24, float32 }; // usual: what suits the format best

struct SoundFormat {
    int code;             // libsndfile's, container and coding
    std::string ending;   // "wav"
    Bits bits;            // usual: compressed with loss
    bool streams;         // can be written to a pipe without knowing its length
    uint64_t most_frames; // of stereo that the container's length fields can count

    bool holds_integers() const { return bits == Bits::int16 || bits == Bits::int24; }
    bool holds_over_scale() const { return bits == Bits::float32; } // beyond +/-1.0
    std::string samples() const;                                    // "16 bit", "Vorbis"

    // Throws Failure that tells what to do when the format has no such sample rate.
    void check_rate(int sample_rate, const std::string& file) const;
};

// The format for a file of this ending (with or without the dot, any case), with the samples asked
// for, or else those of the input if the format can hold them, or else what suits it best.
// Throws UsageError when the ending is unknown or the format cannot hold what is asked for.
SoundFormat sound_format(std::string_view ending, Bits asked, Bits of_input = Bits::usual);

bool is_sound_ending(std::string_view ending);

// The samples of a libsndfile format, rounded up to what results hold; usual for those with loss.
Bits bits_of(int code);

} // namespace brisel::render
