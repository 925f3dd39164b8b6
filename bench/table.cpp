// bench_table: the library beside the plain loops, as a table and as JSON.
//
// On a machine that others use, two measurements one after the other meet different conditions. So
// every repetition runs a short batch of both sides, one directly behind the other in random order,
// rows in random order too; the ratio of medians over many such pairs holds where absolute times do
// not. Outputs of both sides are compared bit for bit throughout.
#include <fmt/format.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <regex>

#include "bench/contest.h"
#include "bench/program.h"
#include "bench/statistics.h"

namespace {

using namespace bench;

constexpr double kSampleRate = 48000.0;    // of the real-time factor
constexpr uint32_t kComparedFrames = 2048; // of a batch, before the timed ones
constexpr uint32_t kTimedFrames = 4096;    // of a batch
constexpr uint32_t kSettingsInBatch = 16;

struct Row {
    Entry entry;
    std::unique_ptr<Contest> contest;
    uint32_t next_block = 0;
    std::vector<double> time[2];  // medians of batches, ns per frame; of settings: each one's ns
    std::vector<double> ratio;    // plain / ours, batch by batch
    std::vector<double> block_ns; // of ours, block by block

    bool per_block() const { return entry.kind != Kind::kKernel; }
};

// Renders blocks without a clock, one turn through all memory, and collects the last outputs.
std::vector<float> warm_up(Row& row, Side side, uint32_t count, uint32_t collected) {
    std::vector<float> outputs;
    for (uint32_t k = 0; k < count; ++k) {
        row.contest->prepare(side, row.next_block + k);
        row.contest->render(side, row.next_block + k);
        const std::span<const float> out = row.contest->output(side);
        if (row.per_block() && k + collected >= count) {
            outputs.insert(outputs.end(), out.begin(), out.end());
        }
    }
    return outputs;
}

// Nanoseconds of each of `count` blocks; kernels, too short for a stamp each, get their mean.
std::vector<double> timed(Row& row, Side side, uint32_t from, uint32_t count, const Clock& clock) {
    Contest& contest = *row.contest;
    std::vector<double> times;
    if (!row.per_block()) {
        const double total = clock.time([&] {
            for (uint32_t k = 0; k < count; ++k) contest.render(side, from + k);
        });
        times.assign(1, total / count);
        return times;
    }
    times.reserve(count);
    for (uint32_t block = from; block < from + count; ++block) {
        contest.prepare(side, block);
        times.push_back(clock.time([&] { contest.render(side, block); }));
    }
    return times;
}

// How often the system has taken the processor away from this thread.
long interruptions() {
    rusage usage;
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nivcsw;
}

// One batch of both sides. False when their outputs differ.
bool repeat(Row& row, bool plain_first, const Clock& clock) {
    const auto frames = static_cast<uint32_t>(row.entry.frames);
    const bool settings = row.entry.kind == Kind::kSettings;
    const uint32_t warm = settings ? 2 : row.entry.turn / frames + 1;
    const uint32_t collected = std::max(1u, kComparedFrames / frames);
    const uint32_t count = settings ? kSettingsInBatch : std::max(4u, kTimedFrames / frames);
    std::vector<float> outputs[2];
    double batch[2] = {};
    for (size_t turn = 0; turn < 2; ++turn) {
        const Side side = (turn == 0) == plain_first ? kPlain : kOurs;
        outputs[side] = warm_up(row, side, warm, collected);
        const long before = interruptions();
        const auto times = timed(row, side, row.next_block + warm, count, clock);
        for (double t : times) batch[side] += t;
        batch[side] /= static_cast<double>(times.size() * (settings ? 1 : frames));
        if (settings) {
            row.time[side].insert(row.time[side].end(), times.begin(), times.end());
        } else {
            row.time[side].push_back(batch[side]);
        }
        // A batch that another process interrupted says nothing about our slowest block.
        if (side == kOurs && interruptions() == before) {
            row.block_ns.insert(row.block_ns.end(), times.begin(), times.end());
        }
    }
    row.ratio.push_back(batch[kPlain] / batch[kOurs]);
    row.next_block += warm + count;
    const std::span<const float> ours = row.contest->output(kOurs);
    const std::span<const float> plain = row.contest->output(kPlain);
    return std::memcmp(ours.data(), plain.data(), ours.size_bytes()) == 0 &&
           std::memcmp(outputs[0].data(), outputs[1].data(), outputs[0].size() * sizeof(float)) ==
               0;
}

struct Figures {
    double ours, ours_low, ours_high; // median and quartiles
    double plain, plain_low, plain_high;
    double ratio, ratio_low, ratio_high; // of the medians; quartiles of the pairs
    double p95[2];
    double slowest, slow; // of ours, ns a block: the very slowest, and what 1 % exceed
};

Figures figures(const Row& row) {
    const auto &ours = row.time[kOurs], &plain = row.time[kPlain];
    return {median(ours),
            quantile(ours, 0.25),
            quantile(ours, 0.75),
            median(plain),
            quantile(plain, 0.25),
            quantile(plain, 0.75),
            median(plain) / median(ours),
            quantile(row.ratio, 0.25),
            quantile(row.ratio, 0.75),
            {quantile(ours, 0.95), quantile(plain, 0.95)},
            quantile(row.block_ns, 1.0),
            quantile(row.block_ns, 0.99)};
}

double real_time_factor(double ns_per_frame) {
    return 1e9 / kSampleRate / ns_per_frame;
}

void print_processing(const std::vector<Row>& rows, Kind kind) {
    const bool blocks = kind != Kind::kKernel;
    fmt::print(
        "\n| {} | frames | ns/frame | quartiles | plain | quartiles | plain/ours | quartiles |",
        blocks ? "process call" : "kernel");
    fmt::print("{}\n", blocks ? " x real time | slowest block, us (99 %) |" : "");
    fmt::print("|---|---|---|---|---|---|---|---|{}\n", blocks ? "---|---|" : "");
    for (const Row& row : rows) {
        if (row.entry.kind != kind) continue;
        const Figures f = figures(row);
        fmt::print("| {} | {} | {:.2f} | {:.2f}..{:.2f} | {:.2f} | {:.2f}..{:.2f} | {:.2f} | "
                   "{:.2f}..{:.2f} |",
                   row.entry.name, row.entry.frames, f.ours, f.ours_low, f.ours_high, f.plain,
                   f.plain_low, f.plain_high, f.ratio, f.ratio_low, f.ratio_high);
        if (blocks) {
            fmt::print(" {:.0f} | {:.1f} ({:.1f}) |", real_time_factor(f.ours), f.slowest * 1e-3,
                       f.slow * 1e-3);
        }
        fmt::print("\n");
    }
}

void print_settings(const std::vector<Row>& rows) {
    fmt::print(
        "\n| change of settings | frames between | us | 95 % | plain us | 95 % | plain/ours |\n"
        "|---|---|---|---|---|---|---|\n");
    for (const Row& row : rows) {
        if (row.entry.kind != Kind::kSettings) continue;
        const Figures f = figures(row);
        fmt::print("| {} | {} | {:.2f} | {:.2f} | {:.1f} | {:.1f} | {:.0f} |\n", row.entry.name,
                   row.entry.frames, f.ours * 1e-3, f.p95[kOurs] * 1e-3, f.plain * 1e-3,
                   f.p95[kPlain] * 1e-3, f.ratio);
    }
}

// Ratios only, one line a configuration.
void print_ratios(const std::vector<Row>& rows) {
    constexpr int32_t kLengths[] = {64, 128, 256, 512, 1024};
    fmt::print(
        "\n| plain/ours | 64 | 128 | 256 | 512 | 1024 frames |\n|---|---|---|---|---|---|\n");
    for (size_t first = 0; first < rows.size(); ++first) {
        const Entry& entry = rows[first].entry;
        const bool listed = entry.kind == Kind::kReverb || entry.kind == Kind::kEngine;
        if (!listed || (first > 0 && rows[first - 1].entry.name == entry.name)) continue;
        fmt::print("| {} |", entry.name);
        for (int32_t n : kLengths) {
            const auto row = std::ranges::find_if(rows, [&](const Row& r) {
                return r.entry.name == entry.name && r.entry.frames == n;
            });
            fmt::print(" {} |",
                       row == rows.end() ? "" : fmt::format("{:.2f}", figures(*row).ratio));
        }
        fmt::print("\n");
    }
}

void write_json(const std::vector<Row>& rows, uint32_t repetitions, const std::string& path) {
    std::ofstream file(path);
    file << fmt::format("{{\n  \"processor\": \"{}\",\n  \"compiler\": \"{}\",\n"
                        "  \"repetitions\": {},\n  \"rows\": [",
                        processor_name(), __VERSION__, repetitions);
    const char* separator = "";
    for (const Row& row : rows) {
        const Figures f = figures(row);
        const bool settings = row.entry.kind == Kind::kSettings;
        file << fmt::format(
            "{}\n    {{\"name\": \"{}\", \"frames\": {}, \"unit\": \"{}\", \"ours\": {:.4f}, "
            "\"ours_quartiles\": [{:.4f}, {:.4f}], \"plain\": {:.4f}, "
            "\"plain_quartiles\": [{:.4f}, {:.4f}], \"ratio\": {:.4f}, "
            "\"ratio_quartiles\": [{:.4f}, {:.4f}]",
            separator, row.entry.name, row.entry.frames, settings ? "ns/call" : "ns/frame", f.ours,
            f.ours_low, f.ours_high, f.plain, f.plain_low, f.plain_high, f.ratio, f.ratio_low,
            f.ratio_high);
        if (settings) {
            file << fmt::format(", \"ours_p95\": {:.1f}, \"plain_p95\": {:.1f}}}", f.p95[kOurs],
                                f.p95[kPlain]);
        } else {
            file << fmt::format(", \"real_time_factor\": {:.1f}, \"slowest_block_ns\": {:.0f}, "
                                "\"p99_block_ns\": {:.0f}}}",
                                real_time_factor(f.ours), f.slowest, f.slow);
        }
        separator = ",";
    }
    file << "\n  ]\n}\n";
    if (!file.flush()) {
        fmt::print(stderr, "bench_table: cannot write {}\n", path);
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    uint32_t repetitions = 200, seed = 1;
    std::string filter = ".*", json, plugin = BRISEL_CLAP_FILE;
    CLI::App app("Times the library beside the plain loops, comparing every output bit for bit.");
    app.add_option("--repetitions", repetitions, "pairs of batches for every row")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app.add_option("--filter", filter, "only rows whose NAME/frames:N matches this expression");
    app.add_option("--json", json, "also write the figures to this file");
    app.add_option("--seed", seed, "of the random order")->capture_default_str();
    app.add_option("--plugin", plugin, "the plug-in of the plug-in rows")->capture_default_str();
    parse_or_exit(app, argc, argv);

    flush_to_zero();
    const Clock clock;
    std::vector<Row> rows;
    try {
        const std::regex wanted(filter);
        for (Entry& entry : all_entries(plugin)) {
            const std::string name = fmt::format("{}/frames:{}", entry.name, entry.frames);
            if (!std::regex_search(name, wanted)) continue;
            rows.push_back({});
            rows.back().contest = entry.make();
            rows.back().entry = std::move(entry);
        }
    } catch (const std::regex_error&) {
        fmt::print(stderr, "bench_table: --filter is no regular expression: {}\n", filter);
        return 2;
    }
    if (rows.empty()) {
        fmt::print(stderr, "bench_table: no row matches --filter {}\n", filter);
        return 2;
    }

    std::mt19937 random(seed);
    std::vector<size_t> order(rows.size());
    for (size_t k = 0; k < order.size(); ++k) order[k] = k;
    for (uint32_t repetition = 0; repetition < repetitions; ++repetition) {
        std::ranges::shuffle(order, random);
        for (size_t index : order) {
            Row& row = rows[index];
            if (repeat(row, random() % 2 == 0, clock)) continue;
            fmt::print(stderr,
                       "bench_table: outputs of ours and plain DIFFER: {}, {} frames, block {}\n",
                       row.entry.name, row.entry.frames, row.next_block);
            return 1;
        }
    }

    fmt::print("{}, one core, {} pairs of batches a row; all outputs equal bit for bit\n",
               processor_name(), repetitions);
    const auto any = [&](Kind kind) {
        return std::ranges::any_of(rows, [kind](const Row& r) { return r.entry.kind == kind; });
    };
    for (Kind kind : {Kind::kKernel, Kind::kEngine, Kind::kReverb, Kind::kPlugin}) {
        if (any(kind)) print_processing(rows, kind);
    }
    if (any(Kind::kSettings)) print_settings(rows);
    if (any(Kind::kReverb) || any(Kind::kEngine)) print_ratios(rows);
    if (!json.empty()) write_json(rows, repetitions, json);
}
