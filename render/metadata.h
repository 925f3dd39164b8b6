// What a sound file says beside its samples: tags, broadcast and cart chunks, cue points, loops,
// and chunks of other programs. Carried from an input to its result as far as libsndfile can.
//
// Left behind on purpose: the name of the software that wrote the file, which no longer is true.
#pragma once

#include <sndfile.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace brisel::render {

struct Metadata {
    struct Chunk {
        std::string id;
        std::string data;
    };
    std::map<int, std::string> tags; // by libsndfile's SF_STR_ numbers
    std::string broadcast, cart;     // libsndfile's records, empty: none
    std::vector<SF_CUE_POINT> cues;  // positions in frames
    std::optional<SF_INSTRUMENT> instrument;
    std::vector<Chunk> chunks; // that libsndfile does not know, for the same container only

    // Moves positions to another sample rate: frames there for each frame here.
    void change_rate(double ratio);
};

// Chunks of other programs are left out of what cannot be sought in.
Metadata read_metadata(SNDFILE* sound, bool seekable = true);

// To a file open for writing, before its first sample. `code` and `from` are libsndfile's formats
// of that file and of the one that was read. What the file cannot hold is left out.
void write_metadata(SNDFILE* sound, const Metadata& metadata, int code, int from);

// What of `wanted` is not in `found`, in words: "title, cue points"; empty when all is.
std::string missing_metadata(const Metadata& wanted, const Metadata& found);

} // namespace brisel::render
