// A contest: one piece of work, done by the library and by the plain loops from the same state on
// the same input, block after block, so that their times can be set side by side and their outputs
// compared bit for bit. The list of all contests is shared by every benchmark program.
#ifndef BRISEL_BENCH_CONTEST_H
#define BRISEL_BENCH_CONTEST_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace bench {

enum Side : size_t { kOurs, kPlain };
inline constexpr Side kSides[] = {kOurs, kPlain};

class Contest {
public:
    Contest() = default;
    virtual ~Contest() = default;
    Contest(const Contest&) = delete;
    Contest& operator=(const Contest&) = delete;

    // Work that belongs to a block but is not measured.
    virtual void prepare(Side, uint32_t /*block*/) {}
    // The measured work of one block. Both sides must see the same sequence of block numbers.
    virtual void render(Side side, uint32_t block) = 0;
    // What the last block gave, for comparison.
    virtual std::span<const float> output(Side side) const = 0;
};

enum class Kind {
    kKernel,   // one kernel
    kEngine,   // the block engine
    kReverb,   // qv_reverb_process
    kPlugin,   // the plug-in's process
    kSettings, // one change of settings; each is timed by itself, `frames` are processed in between
};

struct Entry {
    Kind kind;
    std::string name; // the exact name of what is measured, with its configuration behind a slash
    int32_t frames;   // per block
    std::function<std::unique_ptr<Contest>()> make;
    uint32_t turn = 3072; // frames until the work has been through all its memory once
};

std::vector<Entry> kernel_entries();
std::vector<Entry> engine_entries();
std::vector<Entry> reverb_entries();
std::vector<Entry> settings_entries();
std::vector<Entry> plugin_entries(const std::string& plugin_file);
std::vector<Entry> all_entries(const std::string& plugin_file);

// Whether `blocks` blocks give the same bits on both sides; `from` is the first block's number.
bool render_alike(Contest& contest, uint32_t from, uint32_t blocks);

// The same noise for everybody, uniform in +/-1: steady, so that nothing decays to denormals.
inline constexpr uint32_t kNoiseFrames = 1024;
std::span<const float> noise(uint32_t channel);

} // namespace bench

#endif
