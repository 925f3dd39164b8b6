#include "render/clap_host.h"

#include "render/errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <dlfcn.h>
#include <fmt/format.h>

namespace brisel::render {

namespace fs = std::filesystem;

namespace {

using EventList = std::vector<clap_event_param_value_t>;

uint32_t event_count(const clap_input_events_t* list) {
    return static_cast<uint32_t>(static_cast<const EventList*>(list->ctx)->size());
}

const clap_event_header_t* event_at(const clap_input_events_t* list, uint32_t index) {
    return &(*static_cast<const EventList*>(list->ctx))[index].header;
}

bool drop_event(const clap_output_events_t*, const clap_event_header_t*) {
    return true;
}

const void* no_extension(const clap_host_t*, const char*) {
    return nullptr;
}
void ignore_request(const clap_host_t*) {}

template <class Extension>
const Extension* extension(const clap_plugin_t* plugin, const char* id) {
    return static_cast<const Extension*>(plugin->get_extension(plugin, id));
}

} // namespace

Plugin::Plugin(const clap_plugin_factory_t& factory, const char* id)
    : host_{.clap_version = {CLAP_VERSION_MAJOR, CLAP_VERSION_MINOR, CLAP_VERSION_REVISION},
            .host_data = this,
            .name = "brisel-render",
            .vendor = "Tamrock Audio",
            .url = "https://tamrockaudio.com",
            .version = BRISEL_VERSION,
            .get_extension = no_extension,
            .request_restart = ignore_request,
            .request_process = ignore_request,
            .request_callback = ignore_request},
      in_events_{.ctx = &events_, .size = event_count, .get = event_at},
      out_events_{.ctx = nullptr, .try_push = drop_event} {
    plugin_ = factory.create_plugin(&factory, &host_, id);
    if (!plugin_) throw Failure(fmt::format("the plug-in '{}' cannot be created", id));
    try {
        if (!plugin_->init(plugin_))
            throw Failure(fmt::format("the plug-in '{}' fails to start", id));
        params_ = extension<clap_plugin_params_t>(plugin_, CLAP_EXT_PARAMS);
        state_ = extension<clap_plugin_state_t>(plugin_, CLAP_EXT_STATE);
        tail_ = extension<clap_plugin_tail_t>(plugin_, CLAP_EXT_TAIL);
        check_ports();
        read_parameters();
    } catch (...) {
        plugin_->destroy(plugin_);
        throw;
    }
}

Plugin::~Plugin() {
    deactivate();
    plugin_->destroy(plugin_);
}

void Plugin::check_ports() const {
    const auto* ports = extension<clap_plugin_audio_ports_t>(plugin_, CLAP_EXT_AUDIO_PORTS);
    clap_audio_port_info_t in{}, out{};
    if (!ports || ports->count(plugin_, true) != 1 || ports->count(plugin_, false) != 1 ||
        !ports->get(plugin_, 0, true, &in) || !ports->get(plugin_, 0, false, &out) ||
        in.channel_count != 2 || out.channel_count != 2)
        throw Failure(fmt::format("the plug-in '{}' is no stereo effect", plugin_->desc->name));
}

void Plugin::read_parameters() {
    if (!params_) return;
    const uint32_t count = params_->count(plugin_);
    for (uint32_t index = 0; index < count; ++index) {
        clap_param_info_t info{};
        if (!params_->get_info(plugin_, index, &info)) continue;
        Parameter p{.id = info.id,
                    .cookie = info.cookie,
                    .name = std::string(info.name, strnlen(info.name, sizeof info.name)),
                    .option = {},
                    .min = info.min_value,
                    .max = info.max_value,
                    .default_value = info.default_value,
                    .unit = Unit::number};
        p.option = option_name(p.name);
        parameters_.push_back(std::move(p));
        describe(parameters_.size() - 1, (info.flags & CLAP_PARAM_IS_STEPPED) != 0);
    }
}

// The unit and the words, from the texts that the plug-in shows.
void Plugin::describe(size_t index, bool stepped) {
    Parameter& p = parameters_[index];
    double sample = p.default_value;
    if (!stepped && text(index, sample) == "Off") {
        p.off = sample;
        sample = (p.min + p.max) / 2;
    }
    p.unit = unit_from_text(text(index, sample), sample, stepped, p.min, p.max);
    p.default_text = is_live() ? text(index, p.default_value) : show_value(p.default_value, p.unit);
    if (p.unit != Unit::count || text(index, p.min).starts_with("K =")) return;
    for (double step = p.min; step <= p.max; ++step) p.words.push_back(text(index, step));
}

bool Plugin::is_live() const {
    return std::string_view(plugin_->desc->id) == "com.tamrockaudio.brisel-live";
}

std::vector<double> Plugin::values() const {
    std::vector<double> values;
    for (const Parameter& p : parameters_) {
        double value = p.default_value;
        if (!params_->get_value(plugin_, p.id, &value))
            throw Failure(fmt::format("the plug-in does not tell the value of '{}'", p.name));
        values.push_back(value);
    }
    return values;
}

std::string Plugin::text(size_t index, double value) const {
    std::array<char, 256> buffer{};
    if (!params_->value_to_text(plugin_, parameters_[index].id, value, buffer.data(),
                                buffer.size()))
        return {};
    return buffer.data();
}

void Plugin::fill_events(std::span<const ParameterChange> changes) {
    events_.clear();
    for (const ParameterChange& change : changes) {
        const Parameter& p = parameters_[change.index];
        events_.push_back({.header = {.size = sizeof(clap_event_param_value_t),
                                      .time = change.frame,
                                      .space_id = CLAP_CORE_EVENT_SPACE_ID,
                                      .type = CLAP_EVENT_PARAM_VALUE,
                                      .flags = 0},
                           .param_id = p.id,
                           .cookie = p.cookie,
                           .note_id = -1,
                           .port_index = -1,
                           .channel = -1,
                           .key = -1,
                           .value = change.value});
    }
}

void Plugin::set_values(std::span<const double> values) {
    if (!params_) return;
    std::vector<ParameterChange> changes;
    for (size_t i = 0; i < values.size(); ++i) changes.push_back({i, values[i]});
    fill_events(changes);
    params_->flush(plugin_, &in_events_, &out_events_);
}

std::string Plugin::save_state() const {
    std::string state;
    const clap_ostream_t stream{
        .ctx = &state, .write = [](const clap_ostream_t* self, const void* data, uint64_t size) {
            static_cast<std::string*>(self->ctx)->append(static_cast<const char*>(data), size);
            return static_cast<int64_t>(size);
        }};
    if (!state_ || !state_->save(plugin_, &stream))
        throw Failure("the plug-in does not save its state");
    return state;
}

bool Plugin::load_state(std::string_view state) {
    const clap_istream_t stream{.ctx = &state,
                                .read = [](const clap_istream_t* self, void* data, uint64_t size) {
                                    auto& rest = *static_cast<std::string_view*>(self->ctx);
                                    const size_t taken = std::min<size_t>(size, rest.size());
                                    std::memcpy(data, rest.data(), taken);
                                    rest.remove_prefix(taken);
                                    return static_cast<int64_t>(taken);
                                }};
    return state_ && state_->load(plugin_, &stream);
}

bool Plugin::activate(double sample_rate, uint32_t max_frames) {
    deactivate();
    if (!plugin_->activate(plugin_, sample_rate, 1, max_frames)) return false;
    if (!plugin_->start_processing(plugin_)) {
        plugin_->deactivate(plugin_);
        return false;
    }
    steady_time_ = 0;
    active_ = true;
    return true;
}

void Plugin::deactivate() {
    if (!active_) return;
    plugin_->stop_processing(plugin_);
    plugin_->deactivate(plugin_);
    active_ = false;
}

uint32_t Plugin::tail_frames() const {
    return tail_ ? tail_->get(plugin_) : 0;
}

bool Plugin::process(std::array<float*, 2> in, std::array<float*, 2> out, uint32_t frames,
                     std::span<const ParameterChange> changes) {
    const clap_audio_buffer_t input{.data32 = in.data(),
                                    .data64 = nullptr,
                                    .channel_count = static_cast<uint32_t>(in.size()),
                                    .latency = 0,
                                    .constant_mask = 0};
    clap_audio_buffer_t output{.data32 = out.data(),
                               .data64 = nullptr,
                               .channel_count = static_cast<uint32_t>(out.size()),
                               .latency = 0,
                               .constant_mask = 0};
    fill_events(changes);
    const clap_process_t block{.steady_time = steady_time_,
                               .frames_count = frames,
                               .transport = nullptr,
                               .audio_inputs = &input,
                               .audio_outputs = &output,
                               .audio_inputs_count = 1,
                               .audio_outputs_count = 1,
                               .in_events = &in_events_,
                               .out_events = &out_events_};
    const clap_process_status status = plugin_->process(plugin_, &block);
    if (status == CLAP_PROCESS_ERROR)
        throw Failure(fmt::format("the plug-in fails on the block at frame {}", steady_time_));
    steady_time_ += frames;
    return status == CLAP_PROCESS_SLEEP;
}

PluginLibrary::PluginLibrary(const fs::path& file) : file_(file.string()) {
    // Without a slash in it the name would be looked up on the system's library path.
    const std::string absolute = fs::absolute(file).string();
    handle_ = dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) throw Failure(fmt::format("cannot load the plug-in: {}", dlerror()));

    entry_ = static_cast<const clap_plugin_entry_t*>(dlsym(handle_, "clap_entry"));
    if (entry_ && clap_version_is_compatible(entry_->clap_version) &&
        entry_->init(absolute.c_str())) {
        factory_ =
            static_cast<const clap_plugin_factory_t*>(entry_->get_factory(CLAP_PLUGIN_FACTORY_ID));
        if (factory_ && factory_->get_plugin_count(factory_) > 0) return;
        entry_->deinit();
    }
    dlclose(handle_);
    throw Failure(fmt::format("'{}' is not a CLAP plug-in that can be used", file_));
}

PluginLibrary::~PluginLibrary() {
    entry_->deinit();
    dlclose(handle_);
}

std::unique_ptr<Plugin> PluginLibrary::create() const {
    return std::make_unique<Plugin>(*factory_, factory_->get_plugin_descriptor(factory_, 0)->id);
}

fs::path program_folder() {
    return fs::read_symlink("/proc/self/exe").parent_path();
}

fs::path default_plugin_file(bool live) {
    const char* const name = live ? "brisel-live.clap" : "brisel.clap";
    const fs::path beside = program_folder() / name;
    const fs::path installed = (program_folder() / "../lib/clap" / name).lexically_normal();
    for (const fs::path& file : {beside, installed})
        if (fs::exists(file)) return file;
    throw Failure(fmt::format("the plug-in is neither '{}' nor '{}'; name it with --plugin FILE",
                              beside.string(), installed.string()));
}

} // namespace brisel::render
