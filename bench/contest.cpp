#include "bench/contest.h"

#include <array>
#include <cstring>
#include <random>

namespace bench {

std::vector<Entry> all_entries(const std::string& plugin_file) {
    std::vector<Entry> all;
    for (auto entries : {kernel_entries(), engine_entries(), reverb_entries(), settings_entries(),
                         plugin_entries(plugin_file)}) {
        all.insert(all.end(), entries.begin(), entries.end());
    }
    return all;
}

bool render_alike(Contest& contest, uint32_t from, uint32_t blocks) {
    for (uint32_t block = from; block < from + blocks; ++block) {
        for (Side side : kSides) {
            contest.prepare(side, block);
            contest.render(side, block);
        }
        const std::span<const float> ours = contest.output(kOurs), plain = contest.output(kPlain);
        if (std::memcmp(ours.data(), plain.data(), ours.size_bytes()) != 0) return false;
    }
    return true;
}

std::span<const float> noise(uint32_t channel) {
    static const auto tables = [] {
        std::array<std::array<float, kNoiseFrames>, 2> made;
        std::mt19937 random(1);
        std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
        for (auto& table : made) {
            for (float& x : table) x = uniform(random);
        }
        return made;
    }();
    return tables[channel];
}

} // namespace bench
