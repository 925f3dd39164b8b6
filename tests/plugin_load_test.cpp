// The library as a file: next to a second copy of itself in one process, and as a scanning host
// meets it. This program is not linked to the library.

#include <clap/clap.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

// A copy of the library under a name of its own, for the dynamic linker a library of its own.
class Copy {
public:
    explicit Copy(const std::string& name)
        : path_(fs::path(testing::TempDir()) / (name + "-" + std::to_string(getpid()) + ".clap")) {
        fs::copy_file(BRISEL_CLAP_FILE, path_, fs::copy_options::overwrite_existing);
    }
    ~Copy() {
        if (handle_) dlclose(handle_);
        fs::remove(path_);
    }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    // Null when the linker refuses; the reason is in dlerror().
    const clap_plugin_entry_t* load(int scope) {
        handle_ = dlopen(path_.c_str(), RTLD_NOW | scope);
        return handle_ ? static_cast<const clap_plugin_entry_t*>(dlsym(handle_, "clap_entry"))
                       : nullptr;
    }
    bool unload() { return dlclose(std::exchange(handle_, nullptr)) == 0; }
    bool is_loaded() const {
        void* found = dlopen(path_.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (found) dlclose(found);
        return found != nullptr;
    }
    const char* path() const { return path_.c_str(); }

private:
    fs::path path_;
    void* handle_ = nullptr;
};

const clap_plugin_factory_t* factory_of(const clap_plugin_entry_t* entry) {
    return static_cast<const clap_plugin_factory_t*>(entry->get_factory(CLAP_PLUGIN_FACTORY_ID));
}

// One instance of one loaded library, processing.
class Instance {
public:
    explicit Instance(const clap_plugin_entry_t* entry)
        : factory_(factory_of(entry)),
          plugin_(factory_->create_plugin(factory_, nullptr,
                                          factory_->get_plugin_descriptor(factory_, 0)->id)) {
        EXPECT_TRUE(plugin_->init(plugin_));
        EXPECT_TRUE(plugin_->activate(plugin_, 48000, 1, kFrames));
        EXPECT_TRUE(plugin_->start_processing(plugin_));
    }
    ~Instance() {
        plugin_->stop_processing(plugin_);
        plugin_->deactivate(plugin_);
        plugin_->destroy(plugin_);
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    // One block of an alternating signal of the given level.
    void process(float level) {
        std::array<float, kFrames> left, right;
        for (size_t t = 0; t < kFrames; ++t) left[t] = t % 2 == 0 ? level : -level;
        right = left;
        float* channels[] = {left.data(), right.data()};
        const clap_audio_buffer_t in = {channels, nullptr, 2, 0, 0};
        clap_audio_buffer_t out = in;
        const clap_process_t block = {-1, kFrames, nullptr, &in, &out, 1, 1, nullptr, nullptr};
        EXPECT_EQ(plugin_->process(plugin_, &block), CLAP_PROCESS_CONTINUE);
        sound_.insert(sound_.end(), left.begin(), left.end());
        sound_.insert(sound_.end(), right.begin(), right.end());
    }
    // All blocks so far, left before right.
    const std::vector<float>& sound() const { return sound_; }

private:
    static constexpr uint32_t kFrames = 512;
    const clap_plugin_factory_t* factory_;
    const clap_plugin_t* plugin_;
    std::vector<float> sound_;
};

constexpr int kBlocks = 20; // 10240 frames: the echoes of the first blocks are in the last ones

std::vector<float> sound_of_one_alone(const clap_plugin_entry_t* entry, float level) {
    Instance instance(entry);
    for (int block = 0; block < kBlocks; ++block) instance.process(level);
    return instance.sound();
}

// The first copy offers its symbols to everybody, as a host may make it do. The second one has to
// call its own functions all the same: it sounds as if it were alone, also once the first is gone.
TEST(PluginLoad, KeepsTwoCopiesInOneProcessApart) {
    Copy first("first"), second("second");
    const clap_plugin_entry_t* first_entry = first.load(RTLD_GLOBAL);
    ASSERT_NE(first_entry, nullptr) << dlerror();
    const std::vector<float> loud_alone = sound_of_one_alone(first_entry, 0.9f);
    const std::vector<float> quiet_alone = sound_of_one_alone(first_entry, 0.1f);

    const clap_plugin_entry_t* second_entry = second.load(RTLD_LOCAL);
    ASSERT_NE(second_entry, nullptr) << dlerror();
    ASSERT_NE(first_entry, second_entry);
    Instance quiet(second_entry);
    {
        Instance loud(first_entry);
        for (int block = 0; block < kBlocks / 2; ++block) {
            loud.process(0.9f);
            quiet.process(0.1f);
        }
        for (int block = kBlocks / 2; block < kBlocks; ++block) loud.process(0.9f);
        EXPECT_EQ(loud.sound(), loud_alone);
    }
    EXPECT_TRUE(first.unload());
    EXPECT_FALSE(first.is_loaded()) << "the second copy calls functions of the first";
    for (int block = kBlocks / 2; block < kBlocks; ++block) quiet.process(0.1f);
    EXPECT_EQ(quiet.sound(), quiet_alone);
}

// What a host does with every file in its folders. Prints how long it takes.
TEST(PluginLoad, IsScannedWithoutATrace) {
    using Clock = std::chrono::steady_clock;
    Copy copy("scanned");
    std::vector<double> milliseconds;
    for (int scan = 0; scan < 25; ++scan) {
        const Clock::time_point start = Clock::now();
        const clap_plugin_entry_t* entry = copy.load(RTLD_LOCAL);
        ASSERT_NE(entry, nullptr) << dlerror();
        ASSERT_TRUE(entry->init(copy.path()));
        const clap_plugin_factory_t* factory = factory_of(entry);
        ASSERT_EQ(factory->get_plugin_count(factory), 1u);
        const clap_plugin_descriptor_t* descriptor = factory->get_plugin_descriptor(factory, 0);
        EXPECT_STREQ(descriptor->id, "com.tamrockaudio.brisel");
        entry->deinit();
        ASSERT_TRUE(copy.unload());
        milliseconds.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        ASSERT_FALSE(copy.is_loaded());
    }
    const double first = milliseconds.front();
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("scan: %.3f ms the first time, %.3f ms median, %.3f ms longest of %zu\n", first,
                milliseconds[milliseconds.size() / 2], milliseconds.back(), milliseconds.size());
#if !defined(BRISEL_SANITIZED) // a sanitizer registers all code when it is loaded
    // A hundred times what it takes, and the least of them: what else runs does not decide.
    EXPECT_LT(milliseconds.front(), 10.0);
#endif
}

} // namespace
