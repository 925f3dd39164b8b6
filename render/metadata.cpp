#include "render/metadata.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <string_view>

namespace brisel::render {

namespace {

constexpr std::array<std::pair<int, std::string_view>, 9> kTags{{{SF_STR_TITLE, "title"},
                                                                 {SF_STR_COPYRIGHT, "copyright"},
                                                                 {SF_STR_ARTIST, "artist"},
                                                                 {SF_STR_COMMENT, "comment"},
                                                                 {SF_STR_DATE, "date"},
                                                                 {SF_STR_ALBUM, "album"},
                                                                 {SF_STR_LICENSE, "licence"},
                                                                 {SF_STR_TRACKNUMBER, "track"},
                                                                 {SF_STR_GENRE, "genre"}}};

// Chunks that libsndfile writes itself, from the samples and from the rest of Metadata.
constexpr std::string_view kOwnChunks[] = {
    "RIFF", "RF64", "ds64", "fmt ", "fact", "data", "LIST", "bext", "cart", "cue ",
    "smpl", "inst", "PEAK", "JUNK", "PAD ", "FLLR", "FORM", "FVER", "COMM", "SSND",
    "NAME", "AUTH", "ANNO", "(c) ", "COMT", "APPL", "MARK", "INST", "AESD", "basc"};

constexpr std::string_view kList = "LIST";
constexpr unsigned kLongestChunk = 1 << 20; // bytes; what is longer holds samples

using Broadcast = SF_BROADCAST_INFO_VAR(15 << 10);
using Cart = SF_CART_INFO_VAR(15 << 10);
using Cues = SF_CUES_VAR(1 << 10);

int container_of(int code) {
    const int container = code & SF_FORMAT_TYPEMASK;
    return container == SF_FORMAT_WAVEX || container == SF_FORMAT_RF64 ? SF_FORMAT_WAV : container;
}

template <class Record>
std::string read_record(SNDFILE* sound, int command) {
    const auto record = std::make_unique<Record>();
    if (sf_command(sound, command, record.get(), sizeof(Record)) != SF_TRUE) return {};
    return {reinterpret_cast<const char*>(record.get()), sizeof(Record)};
}

template <class Record>
void write_record(SNDFILE* sound, int command, const std::string& bytes) {
    if (bytes.size() != sizeof(Record)) return;
    const auto record = std::make_unique<Record>();
    std::memcpy(record.get(), bytes.data(), bytes.size());
    sf_command(sound, command, record.get(), sizeof(Record));
}

std::vector<Metadata::Chunk> read_chunks(SNDFILE* sound) {
    std::vector<Metadata::Chunk> chunks;
    SF_CHUNK_ITERATOR* at = sf_get_chunk_iterator(sound, nullptr);
    for (; at; at = sf_next_chunk_iterator(at)) {
        SF_CHUNK_INFO info{};
        if (sf_get_chunk_size(at, &info) != SF_ERR_NO_ERROR || info.datalen > kLongestChunk)
            continue;
        std::string data(info.datalen, '\0');
        info.data = data.data();
        if (sf_get_chunk_data(at, &info) != SF_ERR_NO_ERROR || info.id_size != 4) continue;
        std::string id(info.id, 4);
        // Names of cue points, which libsndfile reads and does not write, are such a list, too.
        if (std::ranges::find(kOwnChunks, id) == std::end(kOwnChunks) ||
            (id == kList && data.starts_with("adtl")))
            chunks.push_back({std::move(id), std::move(data)});
    }
    return chunks;
}

// libsndfile writes chunks in whole words of four bytes, and reads what lies between the last entry
// of a list and its end as another entry: the last text is made longer by zeros instead.
std::string whole_words(std::string list) {
    const size_t pad = (4 - list.size() % 4) % 4;
    size_t last = 4, size = 0; // entries have a name and a size, of four bytes each
    for (size_t next = 4; next + 8 <= list.size(); next += 8 + size + size % 2) {
        uint32_t bytes = 0;
        std::memcpy(&bytes, &list[next + 4], sizeof bytes);
        last = next;
        size = bytes;
    }
    if (pad == 0 || size > list.size() || last + 8 + size > list.size()) return list;
    const auto longer = static_cast<uint32_t>(list.size() - last - 8 + pad);
    std::memcpy(&list[last + 4], &longer, sizeof longer);
    return list + std::string(pad, '\0');
}

uint32_t moved(uint32_t frames, double ratio) {
    return static_cast<uint32_t>(std::llround(frames * ratio));
}

} // namespace

void Metadata::change_rate(double ratio) {
    for (SF_CUE_POINT& cue : cues) {
        cue.position = moved(cue.position, ratio);
        cue.sample_offset = moved(cue.sample_offset, ratio);
    }
    if (instrument)
        for (auto& loop : instrument->loops) {
            loop.start = moved(loop.start, ratio);
            loop.end = moved(loop.end, ratio);
        }
    if (broadcast.size() == sizeof(Broadcast)) {
        Broadcast record;
        std::memcpy(&record, broadcast.data(), sizeof record);
        const uint64_t since_midnight =
            (uint64_t{record.time_reference_high} << 32) | record.time_reference_low;
        const auto there =
            static_cast<uint64_t>(std::llround(static_cast<double>(since_midnight) * ratio));
        record.time_reference_low = static_cast<uint32_t>(there);
        record.time_reference_high = static_cast<uint32_t>(there >> 32);
        std::memcpy(broadcast.data(), &record, sizeof record);
    }
}

Metadata read_metadata(SNDFILE* sound, bool seekable) {
    Metadata metadata;
    for (const auto& [number, name] : kTags)
        if (const char* text = sf_get_string(sound, number); text && *text)
            metadata.tags[number] = text;
    metadata.broadcast = read_record<Broadcast>(sound, SFC_GET_BROADCAST_INFO);
    metadata.cart = read_record<Cart>(sound, SFC_GET_CART_INFO);
    const auto cues = std::make_unique<Cues>();
    if (sf_command(sound, SFC_GET_CUE, cues.get(), sizeof(Cues)) == SF_TRUE)
        metadata.cues.assign(cues->cue_points,
                             cues->cue_points +
                                 std::min<size_t>(cues->cue_count, std::size(cues->cue_points)));
    SF_INSTRUMENT instrument{};
    if (sf_command(sound, SFC_GET_INSTRUMENT, &instrument, sizeof instrument) == SF_TRUE)
        metadata.instrument = instrument;
    if (seekable) metadata.chunks = read_chunks(sound);
    return metadata;
}

void write_metadata(SNDFILE* sound, const Metadata& metadata, int code, int from) {
    for (const auto& [number, text] : metadata.tags) sf_set_string(sound, number, text.c_str());
    write_record<Broadcast>(sound, SFC_SET_BROADCAST_INFO, metadata.broadcast);
    write_record<Cart>(sound, SFC_SET_CART_INFO, metadata.cart);
    if (!metadata.cues.empty()) {
        const auto cues = std::make_unique<Cues>();
        cues->cue_count = static_cast<uint32_t>(metadata.cues.size());
        std::copy(metadata.cues.begin(), metadata.cues.end(), cues->cue_points);
        sf_command(sound, SFC_SET_CUE, cues.get(), sizeof(Cues));
    }
    if (metadata.instrument) {
        SF_INSTRUMENT instrument = *metadata.instrument;
        sf_command(sound, SFC_SET_INSTRUMENT, &instrument, sizeof instrument);
    }
    if (container_of(code) != container_of(from)) return;
    for (const Metadata::Chunk& chunk : metadata.chunks) {
        std::string data = chunk.id == kList ? whole_words(chunk.data) : chunk.data;
        SF_CHUNK_INFO info{};
        std::memcpy(info.id, chunk.id.data(), 4);
        info.id_size = 4;
        info.datalen = static_cast<unsigned>(data.size());
        info.data = data.data();
        sf_set_chunk(sound, &info);
    }
}

std::string missing_metadata(const Metadata& wanted, const Metadata& found) {
    std::string list;
    const auto miss = [&](bool missing, std::string_view what) {
        if (missing) list += fmt::format("{}{}", list.empty() ? "" : ", ", what);
    };
    for (const auto& [number, name] : kTags) {
        const auto text = wanted.tags.find(number), there = found.tags.find(number);
        miss(text != wanted.tags.end() &&
                 (there == found.tags.end() || there->second != text->second),
             name);
    }
    miss(!wanted.broadcast.empty() && found.broadcast.empty(), "broadcast information");
    miss(!wanted.cart.empty() && found.cart.empty(), "cart information");
    const auto same_cue = [](const SF_CUE_POINT& a, const SF_CUE_POINT& b) {
        return a.sample_offset == b.sample_offset;
    };
    miss(!std::ranges::equal(wanted.cues, found.cues, same_cue), "cue points");
    miss(std::ranges::equal(wanted.cues, found.cues, same_cue) &&
             !std::ranges::equal(wanted.cues, found.cues,
                                 [](const SF_CUE_POINT& a, const SF_CUE_POINT& b) {
                                     return a.name[0] == '\0' ||
                                            std::strncmp(a.name, b.name, sizeof a.name) == 0;
                                 }),
         "names of cue points");
    const auto loops = [](const Metadata& m) {
        return m.instrument ? m.instrument->loop_count : -1;
    };
    miss(wanted.instrument && loops(wanted) != loops(found), "instrument and loops");
    for (const Metadata::Chunk& chunk : wanted.chunks) {
        const bool there =
            std::ranges::find(found.chunks, chunk.id, &Metadata::Chunk::id) != found.chunks.end();
        miss(!there && chunk.id != kList, fmt::format("chunk '{}'", chunk.id));
    }
    return list;
}

} // namespace brisel::render
