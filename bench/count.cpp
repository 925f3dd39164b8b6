// bench_count: the work whose instructions are counted, for callgrind. Every configuration runs on
// both sides; the counters are cleared before and written out, with a label, behind the counted
// blocks. bench/count starts it and prints the table.
#include <fmt/format.h>
#include <valgrind/callgrind.h>

#include "bench/contest.h"

int main() {
    using namespace bench;
    if (RUNNING_ON_VALGRIND == 0) {
        fmt::print(stderr, "bench_count: counts under callgrind only: run bench/count\n");
        return 2;
    }
    // Counted: 2.7 s, the modulation's turn. Before that, every line is filled.
    constexpr uint32_t kFrames = 131072;
    constexpr uint32_t kFill = 4096;
    for (const Entry& entry : reverb_entries()) {
        const bool wanted = entry.frames == 64 || entry.frames == 512;
        if (!wanted) continue;
        const std::unique_ptr<Contest> contest = entry.make();
        const uint32_t blocks = kFrames / static_cast<uint32_t>(entry.frames);
        const uint32_t fill = kFill / static_cast<uint32_t>(entry.frames);
        if (!render_alike(*contest, 0, fill)) {
            fmt::print(stderr, "bench_count: outputs of ours and plain DIFFER: {}\n", entry.name);
            return 1;
        }
        for (Side side : kSides) {
            CALLGRIND_ZERO_STATS;
            for (uint32_t k = 0; k < blocks; ++k) contest->render(side, fill + k);
            const std::string label = fmt::format("{} {} {} {}", entry.name, entry.frames,
                                                  side == kOurs ? "ours" : "plain", kFrames);
            CALLGRIND_DUMP_STATS_AT(label.c_str());
        }
    }
}
