// bench_rows: every contest as a pair of Google Benchmark rows, NAME/frames:N beside
// plain/NAME/frames:N, for work on one kernel: filters, counters, comparison with its own tools. The
// figures that are quoted come from bench_table.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <chrono>

#include "bench/contest.h"

namespace {

using namespace bench;

void run(benchmark::State& state, const Entry& entry, Side side) {
    const std::unique_ptr<Contest> contest = entry.make();
    const bool settings = entry.kind == Kind::kSettings;
    uint32_t block = 0;
    for (auto _ : state) {
        contest->prepare(side, block);
        const auto start = std::chrono::steady_clock::now();
        contest->render(side, block++);
        if (settings) { // what lies between two changes does not count
            const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
            state.SetIterationTime(time.count());
        }
        benchmark::ClobberMemory();
    }
    if (!render_alike(*entry.make(), 0, 2 * entry.turn / static_cast<uint32_t>(entry.frames))) {
        state.SkipWithError("outputs of ours and plain DIFFER");
    }
    if (settings) return;
    state.counters["frame"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * entry.frames,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

} // namespace

int main(int argc, char** argv) {
    flush_to_zero();
    for (const Entry& entry : all_entries(BRISEL_CLAP_FILE)) {
        for (Side side : kSides) {
            const std::string name = fmt::format("{}{}/frames:{}", side == kPlain ? "plain/" : "",
                                                 entry.name, entry.frames);
            auto* row = benchmark::RegisterBenchmark(
                name.c_str(), [=](benchmark::State& state) { run(state, entry, side); });
            if (entry.kind == Kind::kSettings) row->UseManualTime();
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
