// One instance of brisel.clap, loaded and driven as a host does: stereo in, stereo out, blocks of one
// length, parameter events when asked for.
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

class ClapInstance {
public:
    // Ends the program with a message when the file holds no usable plug-in.
    ClapInstance(const std::string& file, double sample_rate, uint32_t frames) : frames_(frames) {
        library_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!library_) fail(dlerror());
        entry_ = static_cast<const clap_plugin_entry_t*>(dlsym(library_, "clap_entry"));
        if (!entry_ || !entry_->init(file.c_str())) fail(file + " is no plug-in");
        const auto* factory =
            static_cast<const clap_plugin_factory_t*>(entry_->get_factory(CLAP_PLUGIN_FACTORY_ID));
        const auto* descriptor = factory ? factory->get_plugin_descriptor(factory, 0) : nullptr;
        if (!descriptor) fail(file + " offers no plug-in");
        plugin_ = factory->create_plugin(factory, &kHost, descriptor->id);
        if (!plugin_ || !plugin_->init(plugin_) ||
            !plugin_->activate(plugin_, sample_rate, frames, frames) ||
            !plugin_->start_processing(plugin_)) {
            fail(file + " does not start");
        }
    }
    ~ClapInstance() {
        plugin_->stop_processing(plugin_);
        plugin_->deactivate(plugin_);
        plugin_->destroy(plugin_);
        entry_->deinit();
        dlclose(library_);
    }
    ClapInstance(const ClapInstance&) = delete;
    ClapInstance& operator=(const ClapInstance&) = delete;

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
    [[noreturn]] static void fail(const std::string& what) {
        std::fprintf(stderr, "bench: %s\n", what.c_str());
        std::exit(1);
    }
    static uint32_t event_count(const clap_input_events_t* list) {
        return static_cast<const ClapInstance*>(list->ctx)->events_waiting_;
    }
    static const clap_event_header_t* event_at(const clap_input_events_t* list, uint32_t) {
        return &static_cast<const ClapInstance*>(list->ctx)->event_.header;
    }

    uint32_t frames_, events_waiting_ = 0;
    void* library_ = nullptr;
    const clap_plugin_entry_t* entry_ = nullptr;
    const clap_plugin_t* plugin_ = nullptr;
    clap_event_param_value_t event_ = {};
};

} // namespace bench

#endif
