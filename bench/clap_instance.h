// brisel.clap in a benchmark: the library as a host finds it, and instances of the plug-in in it
// with stereo in, stereo out and blocks of one length. What goes wrong ends the program with a
// message.
#ifndef BRISEL_BENCH_CLAP_INSTANCE_H
#define BRISEL_BENCH_CLAP_INSTANCE_H

#include <clap/clap.h>
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "tests/clap_host.h"

namespace bench {

[[noreturn]] inline void fail(const std::string& what) {
    std::fprintf(stderr, "bench: %s\n", what.c_str());
    std::exit(1);
}

// Loads, starts and unloads the library, and nothing else: what a scan takes is measured with it.
class ClapLibrary {
public:
    explicit ClapLibrary(const std::string& file)
        : handle_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (!handle_) fail(dlerror());
        entry_ = static_cast<const clap_plugin_entry_t*>(dlsym(handle_, "clap_entry"));
        if (!entry_ || !entry_->init(file.c_str())) fail(file + " is no plug-in");
        const clap_plugin_factory_t* factory = host::factory(*entry_);
        if (!factory || !factory->get_plugin_descriptor(factory, 0))
            fail(file + " offers no plug-in");
    }
    ~ClapLibrary() {
        entry_->deinit();
        dlclose(handle_);
    }
    ClapLibrary(const ClapLibrary&) = delete;
    ClapLibrary& operator=(const ClapLibrary&) = delete;

    const clap_plugin_entry_t& entry() const { return *entry_; }

    // A function of the engine API, which the plug-in's file exports, too.
    template <typename Function>
    Function* function(const char* name) const {
        void* address = dlsym(handle_, name);
        if (!address) fail(dlerror());
        return reinterpret_cast<Function*>(address);
    }

private:
    void* handle_;
    const clap_plugin_entry_t* entry_ = nullptr;
};

class ClapInstance {
public:
    explicit ClapInstance(const ClapLibrary& library) : plugin_(library.entry()) {
        if (!plugin_.usable) fail("no instance");
    }
    ~ClapInstance() {
        if (frames_ > 0) plugin_.deactivate();
    }
    ClapInstance(const ClapInstance&) = delete;
    ClapInstance& operator=(const ClapInstance&) = delete;

    void start(double sample_rate, uint32_t frames) {
        if (!plugin_.activate(sample_rate, frames)) fail("an instance does not start");
        frames_ = frames;
    }

    // Goes along with the next block.
    void set_parameter(clap_id id, double value) { event_.emplace(id, value); }

    void process(const float* in_l, const float* in_r, float* out_l, float* out_r) {
        float* const in[2] = {const_cast<float*>(in_l), const_cast<float*>(in_r)};
        float* const out[2] = {out_l, out_r};
        const auto status = plugin_.process(frames_, in, 2, out, 2, event_ ? &*event_ : nullptr);
        if (status == CLAP_PROCESS_ERROR) fail("process refuses a block");
        event_.reset();
    }

private:
    host::Plugin plugin_;
    uint32_t frames_ = 0; // of a block; 0 before start()
    std::optional<host::Events> event_;
};

} // namespace bench

#endif
