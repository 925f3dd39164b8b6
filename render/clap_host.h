// The plug-in, driven the way a host drives it. Owns the library, its entry and an instance's life
// cycle, event lists and state streams; leaves what is rendered to others. Both sides of the
// interface run on the calling thread, which plays the main and the audio thread in turn.
#pragma once

#include "render/parameter.h"

#include <clap/clap.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brisel::render {

struct ParameterChange {
    size_t index; // into Plugin::parameters()
    double value;
    uint32_t frame = 0; // within the block
};

// One instance. Made inactive; activate() and deactivate() may alternate as often as needed.
// Values are in the order of parameters().
class Plugin {
public:
    Plugin(const clap_plugin_factory_t& factory, const char* id);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const std::vector<Parameter>& parameters() const { return parameters_; }
    std::vector<double> values() const;
    std::string text(size_t index, double value) const; // as the plug-in shows it

    // Whether it is Brisel Live: it takes blocks of any length, changes at their exact time, and
    // sleeps once its sound is over.
    bool is_live() const;

    // Hands over all values through a parameter flush. Only while inactive.
    void set_values(std::span<const double> values);

    // The state as the plug-in saves it. load_state returns false when the plug-in refuses it.
    std::string save_state() const;
    bool load_state(std::string_view state);

    // False when the plug-in refuses the rate, the block length or the values set.
    bool activate(double sample_rate, uint32_t max_frames);
    void deactivate();
    bool active() const { return active_; }

    uint32_t tail_frames() const; // 0 when the plug-in reports none

    // Renders one block: channels of `frames` samples each. The changes are in the order of their
    // frames. Returns whether the plug-in sleeps. Throws Failure when it reports an error.
    bool process(std::array<float*, 2> in, std::array<float*, 2> out, uint32_t frames,
                 std::span<const ParameterChange> changes);

private:
    void read_parameters();
    void describe(size_t index, bool stepped);
    void check_ports() const;
    void fill_events(std::span<const ParameterChange> changes);

    clap_host_t host_;
    const clap_plugin_t* plugin_ = nullptr;
    const clap_plugin_params_t* params_ = nullptr;
    const clap_plugin_state_t* state_ = nullptr;
    const clap_plugin_tail_t* tail_ = nullptr;
    std::vector<Parameter> parameters_;
    std::vector<clap_event_param_value_t> events_;
    clap_input_events_t in_events_;
    clap_output_events_t out_events_;
    int64_t steady_time_ = 0;
    bool active_ = false;
};

// The loaded library. Outlives the instances that it makes.
class PluginLibrary {
public:
    explicit PluginLibrary(const std::filesystem::path& file);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    std::unique_ptr<Plugin> create() const; // of the first plug-in that the library offers

private:
    void* handle_ = nullptr;
    const clap_plugin_entry_t* entry_ = nullptr;
    const clap_plugin_factory_t* factory_ = nullptr;
    std::string file_;
};

// Where the plug-in, or Brisel Live, lies when no --plugin is given: beside this program, or
// in ../lib/clap of it. Throws Failure that names both places when it lies in neither.
std::filesystem::path default_plugin_file(bool live);

// The folder of the running program.
std::filesystem::path program_folder();

} // namespace brisel::render
