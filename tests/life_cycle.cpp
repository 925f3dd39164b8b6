// Loads the plug-in as a host does, lets it live with other settings each time, unloads it, and checks that
// it is gone. A program of its own, because one that links the library could not unload it; memcheck runs
// it to look for leaks and for samples that come from memory nobody has written.
//
// usage: life_cycle LIBRARY TIMES
#include <clap/clap.h>
#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "life_cycle: %s\n", what);
    std::exit(1);
}

struct Settings {
    clap_event_param_value_t events[12];
};

// Every parameter in every part of its range as the lives go by; early reflections above 5 ms, and lines
// that hold the block.
Settings settings_of(int life) {
    constexpr double kMin[] = {0.006, 0.1, 0, 0, 0, 0, 0, 0, 0.006, 0, -24, -24};
    constexpr double kMax[] = {0.5, 10, 3, 1, 1, 1, 1, 1, 0.5, 1, 24, 24};
    Settings settings = {};
    for (uint32_t id = 0; id < 12; ++id) {
        const double part = std::fmod(life * (0.618 + 0.137 * id), 1.0);
        clap_event_param_value_t& event = settings.events[id];
        event.header = {sizeof event, 0, CLAP_CORE_EVENT_SPACE_ID, CLAP_EVENT_PARAM_VALUE, 0};
        event.param_id = id;
        event.note_id = -1;
        event.value = kMin[id] + part * (kMax[id] - kMin[id]);
    }
    return settings;
}

uint32_t event_count(const clap_input_events_t*) {
    return 12;
}

const clap_event_header_t* event_at(const clap_input_events_t* list, uint32_t index) {
    return &static_cast<const Settings*>(list->ctx)->events[index].header;
}

struct Bytes {
    unsigned char data[104];
    uint64_t used;
};

int64_t write(const clap_ostream_t* stream, const void* data, uint64_t size) {
    auto& bytes = *static_cast<Bytes*>(stream->ctx);
    require(bytes.used + size <= sizeof bytes.data, "the state is longer than 104 bytes");
    std::memcpy(bytes.data + bytes.used, data, size);
    bytes.used += size;
    return static_cast<int64_t>(size);
}

int64_t read(const clap_istream_t* stream, void* data, uint64_t size) {
    auto& bytes = *static_cast<Bytes*>(stream->ctx);
    const uint64_t n = std::min(size, sizeof bytes.data - bytes.used);
    std::memcpy(data, bytes.data + bytes.used, n);
    bytes.used += n;
    return static_cast<int64_t>(n);
}

void render(const clap_plugin_t* plugin, const clap_input_events_t* events) {
    constexpr uint32_t kFrames = 248;
    float left[kFrames], right[kFrames];
    for (uint32_t t = 0; t < kFrames; ++t) {
        left[t] = t % 9 == 0 ? 0.5f : 0.0f;
        right[t] = t % 7 == 0 ? -0.5f : 0.0f;
    }
    float* channels[] = {left, right};
    const clap_audio_buffer_t in = {channels, nullptr, 2, 0, 0};
    clap_audio_buffer_t out = in;
    const clap_process_t process = {-1, kFrames, nullptr, &in, &out, 1, 1, events, nullptr};
    require(plugin->process(plugin, &process) == CLAP_PROCESS_CONTINUE, "processing failed");
    // Memcheck reports a comparison of a sample that was never computed.
    for (uint32_t t = 0; t < kFrames; ++t)
        require(std::fabs(left[t]) < 100.0f && std::fabs(right[t]) < 100.0f, "a wild sample");
}

void live(const clap_plugin_entry_t& entry, const char* path, int life) {
    require(entry.init(path), "the entry's init failed");
    const auto* factory =
        static_cast<const clap_plugin_factory_t*>(entry.get_factory(CLAP_PLUGIN_FACTORY_ID));
    require(factory && factory->get_plugin_count(factory) == 1, "no factory");
    const clap_plugin_t* plugin =
        factory->create_plugin(factory, nullptr, factory->get_plugin_descriptor(factory, 0)->id);
    require(plugin && plugin->init(plugin), "no plug-in");

    Settings settings = settings_of(life);
    const clap_input_events_t events = {&settings, event_count, event_at};
    require(plugin->activate(plugin, life % 2 ? 44100.0 : 48000.0, 1, 248), "activation failed");
    require(plugin->start_processing(plugin), "start failed");
    for (int block = 0; block < 30; ++block) render(plugin, block == 10 ? &events : nullptr);

    const auto* state =
        static_cast<const clap_plugin_state_t*>(plugin->get_extension(plugin, CLAP_EXT_STATE));
    Bytes bytes = {};
    const clap_ostream_t to = {&bytes, write};
    require(state->save(plugin, &to) && bytes.used == sizeof bytes.data, "save failed");
    bytes.used = 0;
    const clap_istream_t from = {&bytes, read};
    require(state->load(plugin, &from), "load failed");
    render(plugin, nullptr);

    plugin->stop_processing(plugin);
    plugin->deactivate(plugin);
    if (life % 3 == 0) {
        require(plugin->activate(plugin, 48000.0, 1, 250), "the second activation failed");
        render(plugin, nullptr);
    }
    plugin->destroy(plugin);
    entry.deinit();
}

} // namespace

int main(int argc, char** argv) {
    require(argc == 3, "usage: life_cycle LIBRARY TIMES");
    const int times = std::atoi(argv[2]);
    require(times > 0, "TIMES must be a positive number");
    for (int life = 0; life < times; ++life) {
        const int binding = life % 2 ? RTLD_LAZY : RTLD_NOW;
        void* library = dlopen(argv[1], binding | RTLD_LOCAL);
        if (!library) std::fprintf(stderr, "%s\n", dlerror());
        require(library, "the library does not load");
        const auto* entry = static_cast<const clap_plugin_entry_t*>(dlsym(library, "clap_entry"));
        require(entry, "no clap_entry");
        live(*entry, argv[1], life);
        require(dlclose(library) == 0, "the library does not unload");
        require(!dlopen(argv[1], RTLD_NOLOAD | RTLD_NOW), "the library is still there");
    }
    std::printf("%d lives\n", times);
    return 0;
}
