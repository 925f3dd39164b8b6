// bench_instances: what an instance costs besides its sound: scanning the library, creating, activating
// and destroying an instance, its memory, a change of settings after some sound, which has to silence
// what the sound has left, and the time of a frame by Size. The program is not linked to the library: it
// loads it as a host.
#include <fmt/format.h>
#include <immintrin.h>
#include <malloc.h>
#include <unistd.h>

#include <brisel/reverb.h>
#include <clap/clap.h>
#include <dlfcn.h>

#include <CLI/CLI.hpp>
#include <fstream>

#include "bench/clap_instance.h"
#include "bench/statistics.h"

namespace {

using namespace bench;

constexpr int32_t kRates[] = {44100, 48000, 96000, 192000};
constexpr uint32_t kFrames = 512; // of a block
constexpr int kRepetitions = 31;

[[noreturn]] void fail(const std::string& what) {
    fmt::print(stderr, "bench_instances: {}\n", what);
    std::exit(1);
}

class Library {
public:
    Library() : handle_(dlopen(BRISEL_CLAP_FILE, RTLD_NOW | RTLD_LOCAL)) {
        if (!handle_) fail(dlerror());
        entry_ = static_cast<const clap_plugin_entry_t*>(dlsym(handle_, "clap_entry"));
        if (!entry_ || !entry_->init(BRISEL_CLAP_FILE)) fail("the library does not start");
        factory_ =
            static_cast<const clap_plugin_factory_t*>(entry_->get_factory(CLAP_PLUGIN_FACTORY_ID));
        if (!factory_ || !factory_->get_plugin_descriptor(factory_, 0)) fail("no plug-in in it");
    }
    ~Library() {
        entry_->deinit();
        dlclose(handle_);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // A function of the engine API, which the plug-in's file exports, too.
    template <typename Function>
    Function* function(const char* name) const {
        void* address = dlsym(handle_, name);
        if (!address) fail(dlerror());
        return reinterpret_cast<Function*>(address);
    }
    const clap_plugin_t* create() const {
        const char* id = factory_->get_plugin_descriptor(factory_, 0)->id;
        const clap_plugin_t* plugin = factory_->create_plugin(factory_, &kHost, id);
        if (!plugin || !plugin->init(plugin)) fail("no instance");
        return plugin;
    }

private:
    void* handle_;
    const clap_plugin_entry_t* entry_ = nullptr;
    const clap_plugin_factory_t* factory_ = nullptr;
};

void activate(const clap_plugin_t* plugin, int32_t rate) {
    if (!plugin->activate(plugin, rate, 1, kFrames)) fail("an instance does not start");
}

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

void process(const clap_plugin_t* plugin, Block& sound) {
    float *inputs[] = {sound.in[0], sound.in[1]}, *outputs[] = {sound.out[0], sound.out[1]};
    const clap_audio_buffer_t from = {inputs, nullptr, 2, 0, 0};
    clap_audio_buffer_t to = {outputs, nullptr, 2, 0, 0};
    clap_process_t block = {};
    block.steady_time = -1;
    block.frames_count = kFrames;
    block.audio_inputs = &from;
    block.audio_outputs = &to;
    block.audio_inputs_count = block.audio_outputs_count = 1;
    if (plugin->process(plugin, &block) == CLAP_PROCESS_ERROR) fail("a block is refused");
}

void print_life(const Clock& clock) {
    std::vector<double> scan(kRepetitions);
    for (double& ns : scan) ns = clock.time([] { const Library library; });
    fmt::print("Scanning the library (load, start, read the descriptor, unload): {:.0f} us.\n\n",
               median(scan) * 1e-3);

    fmt::print("| sample rate | create, us | activate, us | destroy, us | MiB an instance |\n");
    fmt::print("|---|---|---|---|---|\n");
    const Library library;
    for (int32_t rate : kRates) {
        std::vector<double> created, activated, destroyed;
        std::vector<const clap_plugin_t*> plugins(kRepetitions);
        const double before = resident();
        for (const clap_plugin_t*& plugin : plugins) {
            created.push_back(clock.time([&] { plugin = library.create(); }));
            activated.push_back(clock.time([&] { activate(plugin, rate); }));
        }
        const double each = (resident() - before) / kRepetitions;
        for (const clap_plugin_t* plugin : plugins)
            destroyed.push_back(clock.time([&] { plugin->destroy(plugin); }));
        fmt::print("| {} Hz | {:.1f} | {:.0f} | {:.0f} | {:.2f} |\n", rate, median(created) * 1e-3,
                   median(activated) * 1e-3, median(destroyed) * 1e-3, each);
    }
}

// One reverb of a size, through the library's C API.
class OneReverb {
public:
    OneReverb(const Library& library, int32_t rate, float size)
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
double change_after(const Library& library, int32_t rate, float size, uint32_t frames,
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
    const Library library;
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
double render_alone(const Library& library, int32_t rate, float size, const Clock& clock) {
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
    const Library library;
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
    const Library library;
    std::vector<const clap_plugin_t*> plugins(static_cast<size_t>(count));
    const double before = resident();
    const double start = clock.time([&] {
        for (const clap_plugin_t*& plugin : plugins) {
            plugin = library.create();
            activate(plugin, 48000);
            plugin->start_processing(plugin);
        }
    });
    const double after = resident();
    Block sound;
    std::vector<double> rounds(5);
    for (double& ns : rounds) {
        ns = clock.time([&] {
            for (const clap_plugin_t* plugin : plugins) process(plugin, sound);
        });
    }
    fmt::print(
        "\n{} instances at 48000 Hz: {:.0f} MiB, created and activated in {:.0f} ms; a round "
        "of one {}-frame block each takes {:.2f} ms.\n",
        count, after - before, start * 1e-6, kFrames, median(rounds) * 1e-6);
    for (const clap_plugin_t* plugin : plugins) {
        plugin->stop_processing(plugin);
        plugin->destroy(plugin);
    }
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
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    _mm_setcsr(_mm_getcsr() | 0x8040); // flush-to-zero and denormals-are-zero, as hosts set them
    const Clock clock;
    fmt::print("{}, blocks of {} frames, medians of {}\n\n", processor_name(), kFrames,
               kRepetitions);
    print_life(clock);
    print_changes(clock);
    print_sizes(clock);
    print_many(count, clock);
}
