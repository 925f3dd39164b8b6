// bench_count: the work whose instructions are counted. Every configuration runs on both sides
// under callgrind; the counters are cleared before, and written out with a label behind the counted
// blocks. Callgrind knows no AVX-512: with --steps the library's side runs by itself, in single
// steps that are counted. bench/count starts it and prints the table.
#include <fmt/format.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

#include "bench/contest.h"

namespace {

using namespace bench;

constexpr uint32_t kFill = 4096; // frames before the counted ones: every line is filled

uint32_t blocks_of(const Entry& entry, uint32_t frames) {
    return frames / static_cast<uint32_t>(entry.frames);
}

void fill(Contest& contest, const Entry& entry) {
    if (render_alike(contest, 0, blocks_of(entry, kFill))) return;
    fmt::print(stderr, "bench_count: outputs of ours and plain DIFFER: {}\n", entry.name);
    std::exit(1);
}

void count_under_callgrind(const Entry& entry) {
    constexpr uint32_t kFrames = 131072; // 2.7 s, the modulation's turn
    const std::unique_ptr<Contest> contest = entry.make();
    fill(*contest, entry);
    for (Side side : kSides) {
        CALLGRIND_ZERO_STATS;
        for (uint32_t k = 0; k < blocks_of(entry, kFrames); ++k)
            contest->render(side, blocks_of(entry, kFill) + k);
        const std::string label = fmt::format("{} {} {} {}", entry.name, entry.frames,
                                              side == kOurs ? "ours" : "plain", kFrames);
        CALLGRIND_DUMP_STATS_AT(label.c_str());
    }
}

// Two signals of its own tell where a child's counted blocks begin and end.
void count_steps(const Entry& entry) {
    constexpr uint32_t kFrames = 2048; // a step takes some 20 us
    const pid_t child = fork();
    if (child == 0) {
        const std::unique_ptr<Contest> contest = entry.make();
        fill(*contest, entry);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        for (uint32_t k = 0; k < blocks_of(entry, kFrames); ++k)
            contest->render(kOurs, blocks_of(entry, kFill) + k);
        raise(SIGUSR1);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    uint64_t steps = 0;
    while (WIFSTOPPED(status) && WSTOPSIG(status) != SIGUSR1) {
        if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) != 0) break;
        waitpid(child, &status, 0);
        ++steps;
    }
    if (!WIFSTOPPED(status) || WSTOPSIG(status) != SIGUSR1) {
        fmt::print(stderr, "bench_count: {} did not run to its end\n", entry.name);
        std::exit(1);
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    fmt::print("{} {} {:.1f}\n", entry.name, entry.frames, static_cast<double>(steps) / kFrames);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    const bool steps = argc == 2 && std::string_view(argv[1]) == "--steps";
    if (!steps && RUNNING_ON_VALGRIND == 0) {
        fmt::print(stderr, "bench_count: counts under callgrind only: run bench/count\n");
        return 2;
    }
    for (const Entry& entry : reverb_entries()) {
        if (entry.frames != 64 && entry.frames != 512) continue;
        if (steps)
            count_steps(entry);
        else
            count_under_callgrind(entry);
    }
}
