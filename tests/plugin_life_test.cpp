// The plug-in's life in a host: loaded and unloaded as a file, next to a copy of itself, activated
// at any rate and block length, given states at any moment, many instances on many threads. This
// program is not linked to the library: one that is could not unload it.
#include <unistd.h>

#include <barrier>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "tests/clap_host.h"

namespace {

namespace fs = std::filesystem;
using host::Events;
using host::Library;
using host::Plugin;

const clap_plugin_entry_t& entry() {
    static const Library library(BRISEL_CLAP_FILE);
    return *library.entry();
}

// A copy of the library under a name of its own: for the dynamic linker a library of its own.
struct Copy {
    explicit Copy(const std::string& name)
        : path(fs::path(testing::TempDir()) / (name + std::to_string(getpid()) + ".clap")) {
        fs::copy_file(BRISEL_CLAP_FILE, path, fs::copy_options::overwrite_existing);
    }
    ~Copy() { fs::remove(path); }
    const fs::path path;
};

// Blocks of a signal of the given level, and what comes of them.
struct Sound {
    std::vector<float> out;

    void play(Plugin& plugin, int blocks, float level, uint32_t frames = 240) {
        for (; blocks > 0; --blocks) {
            std::vector<float> left(frames), right(frames);
            for (uint32_t t = 0; t < frames; ++t) left[t] = t % 5 < 2 ? level : -level;
            EXPECT_EQ(plugin.process(frames, {left.data()}, {left.data(), right.data()}),
                      CLAP_PROCESS_CONTINUE);
            out.insert(out.end(), left.begin(), left.end());
            out.insert(out.end(), right.begin(), right.end());
        }
    }
};

constexpr int kBlocks = 40; // 9600 frames: the echoes of the first blocks are in the last ones

std::vector<float> sound_alone(const clap_plugin_entry_t& of, float level) {
    Plugin plugin(of);
    EXPECT_TRUE(plugin.activate(48000, 256));
    Sound sound;
    sound.play(plugin, kBlocks, level);
    return sound.out;
}

} // namespace

// What a host does with every file in its folders, and with one that it uses, however it binds
// symbols.
TEST(PluginLife, LoadsLivesAndUnloadsWithoutATrace) {
    const Copy copy("lives");
    for (int life = 0; life < 100 && !HasFailure(); ++life) {
        Library library(copy.path, (life % 2 ? RTLD_LAZY : RTLD_NOW) | RTLD_LOCAL);
        ASSERT_NE(library.entry(), nullptr) << dlerror();
        ASSERT_TRUE(library.entry()->init(copy.path.c_str()));
        if (life % 3) {
            Plugin plugin(*library.entry());
            Events events; // every parameter in every part of its range as the lives go by
            for (uint32_t id = 0; id < 12; ++id) {
                clap_param_info_t info;
                plugin.params->get_info(plugin.plugin, id, &info);
                const double part = 0.01 * ((life * (61 + 13 * static_cast<int>(id))) % 100);
                events.add(id, info.min_value + part * (info.max_value - info.min_value));
            }
            ASSERT_TRUE(plugin.activate(life % 2 ? 44100.0 : 48000.0, 200));
            Sound().play(plugin, 20, 0.5f, 200);
            plugin.flush(events);
            Sound().play(plugin, 10, 0.5f, 200);
            host::Stream stream;
            EXPECT_TRUE(plugin.save(stream) && plugin.load(stream));
            plugin.deactivate();
        }
        library.entry()->deinit();
        EXPECT_TRUE(library.close()) << "life " << life;
    }
}

// The first copy offers its symbols to everybody, as a host may make it do. The second one has to
// call its own functions all the same: it sounds as if it were alone, also once the first is gone.
TEST(PluginLife, KeepsTwoCopiesInOneProcessApart) {
    const Copy first_file("first"), second_file("second");
    Library first(first_file.path, RTLD_NOW | RTLD_GLOBAL), second(second_file.path);
    ASSERT_TRUE(first.entry() && second.entry()) << dlerror();
    ASSERT_NE(first.entry(), second.entry());
    Plugin quiet(*second.entry());
    Sound quiet_sound;
    {
        Plugin loud(*first.entry());
        Sound loud_sound;
        ASSERT_TRUE(loud.activate(48000, 256) && quiet.activate(48000, 256));
        for (int block = 0; block < kBlocks; ++block) {
            loud_sound.play(loud, 1, 0.9f);
            if (block < kBlocks / 2) quiet_sound.play(quiet, 1, 0.1f);
        }
        EXPECT_EQ(loud_sound.out, sound_alone(entry(), 0.9f));
    }
    EXPECT_TRUE(first.close()) << "the second copy calls functions of the first";
    quiet_sound.play(quiet, kBlocks / 2, 0.1f);
    EXPECT_EQ(quiet_sound.out, sound_alone(entry(), 0.1f));
}

// Instances share nothing: on sixteen threads each sounds as it does alone. Under the thread
// sanitizer the same test shows any data that two of them touch.
TEST(PluginLife, RunsOnSixteenThreadsAsAlone) {
    constexpr size_t kThreads = 16;
    const auto life = [](size_t k) {
        Plugin plugin(entry());
        Sound sound;
        for (int activation = 0; activation < 3; ++activation) {
            EXPECT_TRUE(plugin.activate(k % 2 ? 48000 : 44100, 256));
            for (uint32_t step = 0; step < 10; ++step) {
                plugin.flush(Events(1 + (static_cast<uint32_t>(k) + step) % 11, 0.1 * step));
                sound.play(plugin, 10, 0.1f * static_cast<float>(k + 1));
                host::Stream saved;
                EXPECT_TRUE(plugin.save(saved) && plugin.load(saved));
            }
        }
        return sound.out;
    };
    std::vector<std::vector<float>> expected, got(kThreads);
    for (size_t k = 0; k < kThreads; ++k) expected.push_back(life(k));
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    for (size_t k = 0; k < kThreads; ++k)
        threads.emplace_back([&, k] {
            start.arrive_and_wait();
            got[k] = life(k);
        });
    for (std::thread& thread : threads) thread.join();
    for (size_t k = 0; k < kThreads; ++k) EXPECT_EQ(got[k], expected[k]) << "instance " << k;
}
