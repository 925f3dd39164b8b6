// bench_instances: what an instance costs besides its sound: scanning the library, creating,
// activating and destroying an instance, its memory, a change of settings after some sound, which
// has to silence what the sound has left, and the time of a frame by Size. The program is not
// linked to the library: it loads it as a host.
#include <fmt/format.h>
#include <malloc.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <optional>
#include <vector>

#include "bench/clap_instance.h"
#include "bench/program.h"
#include "bench/statistics.h"
#include "brisel/reverb.h"

namespace {

using namespace bench;

constexpr int32_t kRates[] = {44100, 48000, 96000, 192000};
constexpr uint32_t kFrames = 512; // of a block
constexpr int kRepetitions = 31;

// Pages in memory, in MiB, without what the allocator keeps of freed ones.
double resident() {
    malloc_trim(0);
    std::ifstream statm("/proc/self/statm");
    double total = 0.0, pages = 0.0;
    statm >> total >> pages;
    return pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / 0x1p20;
}

// A block of a low square wave, the same for everybody.
struct Block {
    float in[2][kFrames], out[2][kFrames];
    Block() {
        for (uint32_t t = 0; t < kFrames; ++t) in[0][t] = in[1][t] = t / 64 % 2 == 0 ? 0.1f : -0.1f;
    }
};

void print_life(const Clock& clock) {
    std::vector<double> scan(kRepetitions);
    for (double& ns : scan) ns = clock.time([] { const ClapLibrary library(BRISEL_CLAP_FILE); });
    fmt::print("Scanning the library (load, start, read the descriptor, unload): {:.0f} us.\n\n",
               median(scan) * 1e-3);

    fmt::print("| sample rate | create, us | activate, us | destroy, us | MiB an instance |\n");
    fmt::print("|---|---|---|---|---|\n");
    const ClapLibrary library(BRISEL_CLAP_FILE);
    for (int32_t rate : kRates) {
        std::vector<double> created, activated, destroyed;
        std::vector<std::optional<ClapInstance>> instances(kRepetitions);
        const double before = resident();
        for (auto& instance : instances) {
            created.push_back(clock.time([&] { instance.emplace(library); }));
            activated.push_back(clock.time([&] { instance->start(rate, kFrames); }));
        }
        const double each = (resident() - before) / kRepetitions;
        for (auto& instance : instances) destroyed.push_back(clock.time([&] { instance.reset(); }));
        fmt::print("| {} Hz | {:.1f} | {:.0f} | {:.0f} | {:.2f} |\n", rate, median(created) * 1e-3,
                   median(activated) * 1e-3, median(destroyed) * 1e-3, each);
    }
}

// One reverb of a size, through the library's C API.
class OneReverb {
public:
    OneReverb(const ClapLibrary& library, int32_t rate, float size)
        : set_(library.function<decltype(qv_reverb_set)>("qv_reverb_set")),
          process_(library.function<decltype(qv_reverb_process)>("qv_reverb_process")),
          destroy_(library.function<decltype(qv_reverb_destroy)>("qv_reverb_destroy")),
          rev_(library.function<decltype(qv_reverb_create)>("qv_reverb_create")(rate, kFrames)) {
        if (!rev_) fail("no reverb");
        params = rev_->params;
        params.size = size;
    }
    ~OneReverb() { destroy_(rev_); }
    OneReverb(const OneReverb&) = delete;
    OneReverb& operator=(const OneReverb&) = delete;

    void set() {
        if (set_(rev_, &params) != 0) fail("settings are refused");
    }
    void render(uint32_t frames) {
        for (uint32_t t = 0; t < frames; t += kFrames) {
            const uint32_t n = std::min(kFrames, frames - t);
            process_(rev_, sound_.in[0], sound_.in[1], sound_.out[0], sound_.out[1],
                     static_cast<int32_t>(n));
        }
    }

    qv_reverb_params params; // in force after set()

private:
    decltype(qv_reverb_set)* set_;
    decltype(qv_reverb_process)* process_;
    decltype(qv_reverb_destroy)* destroy_;
    qv_reverb* rev_;
    Block sound_;
};

// Median time of one change of settings that follows `frames` frames of sound.
double change_after(const ClapLibrary& library, int32_t rate, float size, uint32_t frames,
                    const Clock& clock) {
    OneReverb reverb(library, rate, size);
    std::vector<double> times;
    for (int k = 0; k <= kRepetitions; ++k) {
        reverb.params.t60 = 1.0f + 0.1f * static_cast<float>(k);
        const double ns = clock.time([&] { reverb.set(); });
        if (k > 0) times.push_back(ns); // the first one follows no sound
        reverb.render(frames);
    }
    return median(times);
}

void print_changes(const Clock& clock) {
    const ClapLibrary library(BRISEL_CLAP_FILE);
    fmt::print("\n| qv_reverb_set, us, after | 64 frames | 512 frames | 0.1 s | 2 s of sound |\n");
    fmt::print("|---|---|---|---|---|\n");
    for (int32_t rate : {48000, 192000}) {
        for (float size : {0.04f, 0.5f}) {
            fmt::print("| {} Hz, size {} s |", rate, size);
            const auto second = static_cast<uint32_t>(rate);
            for (uint32_t frames : {64u, 512u, second / 10 / 8 * 8, 2 * second})
                fmt::print(" {:.2f} |", change_after(library, rate, size, frames, clock) * 1e-3);
            fmt::print("\n");
        }
    }
}

// Nanoseconds a frame of one reverb that has the caches to itself.
double render_alone(const ClapLibrary& library, int32_t rate, float size, const Clock& clock) {
    OneReverb reverb(library, rate, size);
    reverb.set();
    const auto second = static_cast<uint32_t>(rate);
    reverb.render(2 * second); // every line has been through its ring
    const uint32_t frames = second / 5 / kFrames * kFrames;
    std::vector<double> times(kRepetitions);
    for (double& ns : times) ns = clock.time([&] { reverb.render(frames); }) / frames;
    return median(times);
}

void print_sizes(const Clock& clock) {
    const ClapLibrary library(BRISEL_CLAP_FILE);
    fmt::print("\n| one reverb alone, ns/frame, size | 0.02 s | 0.04 s | 0.1 s | 0.5 s |\n");
    fmt::print("|---|---|---|---|---|\n");
    for (int32_t rate : {48000, 192000}) {
        fmt::print("| {} Hz |", rate);
        for (float size : {0.02f, 0.04f, 0.1f, 0.5f})
            fmt::print(" {:.2f} |", render_alone(library, rate, size, clock));
        fmt::print("\n");
    }
}

void print_many(int count, const Clock& clock) {
    const ClapLibrary library(BRISEL_CLAP_FILE);
    std::vector<std::optional<ClapInstance>> instances(static_cast<size_t>(count));
    const double before = resident();
    const double start = clock.time([&] {
        for (auto& instance : instances) {
            instance.emplace(library);
            instance->start(48000, kFrames);
        }
    });
    const double after = resident();
    Block sound;
    std::vector<double> rounds(5);
    for (double& ns : rounds) {
        ns = clock.time([&] {
            for (auto& instance : instances)
                instance->process(sound.in[0], sound.in[1], sound.out[0], sound.out[1]);
        });
    }
    fmt::print(
        "\n{} instances at 48000 Hz: {:.0f} MiB, created and activated in {:.0f} ms; a round "
        "of one {}-frame block each takes {:.2f} ms.\n",
        count, after - before, start * 1e-6, kFrames, median(rounds) * 1e-6);
}

} // namespace

int main(int argc, char** argv) {
    int count = 100;
    CLI::App app(
        "What instances cost: library scan, life, memory, changes of settings, time by size.",
        "bench_instances");
    app.add_option("--count", count, "instances alive at the same time")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    parse_or_exit(app, argc, argv);
    flush_to_zero();
    const Clock clock;
    fmt::print("{}, blocks of {} frames, medians of {}\n\n", processor_name(), kFrames,
               kRepetitions);
    print_life(clock);
    print_changes(clock);
    print_sizes(clock);
    print_many(count, clock);
}
