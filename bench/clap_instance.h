// brisel.clap, loaded and driven as a host does: the library, and instances of the plug-in in it with
// stereo in, stereo out, blocks of one length, parameter events when asked for. What goes wrong ends the
// program with a message.
#ifndef BRISEL_BENCH_CLAP_INSTANCE_H
#define BRISEL_BENCH_CLAP_INSTANCE_H

#include <clap/clap.h>
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace bench {

// A host that offers no extensions.
inline const clap_host_t kHost = {{1, 2, 0},
                                  nullptr,
                                  "Brisel benchmarks",
                                  "Tamrock Audio",
                                  "",
                                  "0",
                                  [](auto*, auto*) -> const void* { return nullptr; },
                                  [](auto*) {},
                                  [](auto*) {},
                                  [](auto*) {}};

[[noreturn]] inline void fail(const std::string& what) {
    std::fprintf(stderr, "bench: %s\n", what.c_str());
    std::exit(1);
}

class ClapLibrary {
public:
    explicit ClapLibrary(const std::string& file)
        : handle_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (!handle_) fail(dlerror());
        entry_ = static_cast<const clap_plugin_entry_t*>(dlsym(handle_, "clap_entry"));
        if (!entry_ || !entry_->init(file.c_str())) fail(file + " is no plug-in");
        factory_ =
            static_cast<const clap_plugin_factory_t*>(entry_->get_factory(CLAP_PLUGIN_FACTORY_ID));
        descriptor_ = factory_ ? factory_->get_plugin_descriptor(factory_, 0) : nullptr;
        if (!descriptor_) fail(file + " offers no plug-in");
    }
    ~ClapLibrary() {
        entry_->deinit();
        dlclose(handle_);
    }
    ClapLibrary(const ClapLibrary&) = delete;
    ClapLibrary& operator=(const ClapLibrary&) = delete;

    const clap_plugin_t* create() const {
        const clap_plugin_t* plugin = factory_->create_plugin(factory_, &kHost, descriptor_->id);
        if (!plugin || !plugin->init(plugin)) fail("no instance");
        return plugin;
    }

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
    const clap_plugin_factory_t* factory_ = nullptr;
    const clap_plugin_descriptor_t* descriptor_ = nullptr;
};

class ClapInstance {
public:
    explicit ClapInstance(const ClapLibrary& library) : plugin_(library.create()) {}
    ~ClapInstance() {
        if (frames_ > 0) {
            plugin_->stop_processing(plugin_);
            plugin_->deactivate(plugin_);
        }
        plugin_->destroy(plugin_);
    }
    ClapInstance(const ClapInstance&) = delete;
    ClapInstance& operator=(const ClapInstance&) = delete;

    void start(double sample_rate, uint32_t frames) {
        if (!plugin_->activate(plugin_, sample_rate, 1, frames) ||
            !plugin_->start_processing(plugin_))
            fail("an instance does not start");
        frames_ = frames;
    }

    // Goes along with the next block.
    void set_parameter(clap_id id, double value) {
        event_ = {};
        event_.header = {sizeof event_, 0, CLAP_CORE_EVENT_SPACE_ID, CLAP_EVENT_PARAM_VALUE, 0};
        event_.param_id = id;
        event_.note_id = -1;
        event_.value = value;
        events_waiting_ = 1;
    }

    void process(const float* in_l, const float* in_r, float* out_l, float* out_r) {
        float* inputs[] = {const_cast<float*>(in_l), const_cast<float*>(in_r)};
        float* outputs[] = {out_l, out_r};
        const clap_audio_buffer_t in = {inputs, nullptr, 2, 0, 0};
        clap_audio_buffer_t out = {outputs, nullptr, 2, 0, 0};
        const clap_input_events_t events = {this, event_count, event_at};
        const clap_output_events_t no_events = {nullptr, [](auto*, auto*) { return false; }};
        clap_process_t block = {};
        block.steady_time = -1;
        block.frames_count = frames_;
        block.audio_inputs = &in;
        block.audio_outputs = &out;
        block.audio_inputs_count = block.audio_outputs_count = 1;
        block.in_events = &events;
        block.out_events = &no_events;
        if (plugin_->process(plugin_, &block) == CLAP_PROCESS_ERROR)
            fail("process refuses a block");
        events_waiting_ = 0;
    }

private:
    static uint32_t event_count(const clap_input_events_t* list) {
        return static_cast<const ClapInstance*>(list->ctx)->events_waiting_;
    }
    static const clap_event_header_t* event_at(const clap_input_events_t* list, uint32_t) {
        return &static_cast<const ClapInstance*>(list->ctx)->event_.header;
    }

    const clap_plugin_t* plugin_;
    uint32_t frames_ = 0; // of a block; 0 before start()
    uint32_t events_waiting_ = 0;
    clap_event_param_value_t event_ = {};
};

} // namespace bench

#endif
