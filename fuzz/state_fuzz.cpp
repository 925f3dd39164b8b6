// The saved state: arbitrary bytes through streams that misbehave. A load is all or nothing, values end up
// within their ranges, what is saved loads again, and the instance goes on rendering.
#include <clap/clap.h>

#include <cmath>

#include "fuzz/input.h"

extern "C" const clap_plugin_entry_t clap_entry;

namespace {

constexpr double kMin[12] = {0.005, 0.1, 0, 0, 0, 0, 0, 0, 0.001, 0, -24, -24};
constexpr double kMax[12] = {0.5, 10, 3, 1, 1, 1, 1, 1, 0.5, 1, 24, 24};

// One end of a stream: moves as many bytes as the input says, now and then claims a failure, nothing, or
// more than it was asked for.
struct Stream {
    fuzz::Input& input;
    unsigned char bytes[256];
    uint64_t size, at;
    bool lied;

    int64_t amount(uint64_t asked) {
        const uint8_t how = input.bits<uint8_t>();
        const uint64_t left = std::min<uint64_t>(asked, size - at);
        if (how < 200) return static_cast<int64_t>(left);
        if (how < 240) return static_cast<int64_t>(std::min<uint64_t>(left, 1 + how % 7));
        lied = true;
        if (how < 248) return 0;
        if (how < 252) return -1;
        return how < 254 ? INT64_MIN : static_cast<int64_t>(asked + 1);
    }
    static int64_t read(const clap_istream_t* stream, void* to, uint64_t asked) {
        auto& s = *static_cast<Stream*>(stream->ctx);
        const int64_t n = s.amount(asked);
        if (n < 1 || static_cast<uint64_t>(n) > asked) return n;
        std::memcpy(to, s.bytes + s.at, static_cast<size_t>(n));
        s.at += static_cast<uint64_t>(n);
        return n;
    }
    static int64_t write(const clap_ostream_t* stream, const void* from, uint64_t asked) {
        auto& s = *static_cast<Stream*>(stream->ctx);
        const int64_t n = s.amount(asked);
        if (n < 1 || static_cast<uint64_t>(n) > asked) return n;
        std::memcpy(s.bytes + s.at, from, static_cast<size_t>(n));
        s.at += static_cast<uint64_t>(n);
        return n;
    }
};

void get_values(const clap_plugin_t* plugin, double (&values)[12]) {
    const auto* params =
        static_cast<const clap_plugin_params_t*>(plugin->get_extension(plugin, CLAP_EXT_PARAMS));
    for (uint32_t id = 0; id < 12; ++id) FUZZ_REQUIRE(params->get_value(plugin, id, &values[id]));
}

void load(const clap_plugin_t* plugin, const clap_plugin_state_t* state, fuzz::Input& input) {
    Stream stream = {input, {}, input.bits<uint8_t>(), 0, false};
    // Most inputs get past the header.
    if (input.below(4) != 0) std::memcpy(stream.bytes, "QVB1\1\0\0\0", 8);
    for (uint64_t k = stream.bytes[0] ? 8 : 0; k < stream.size; ++k)
        stream.bytes[k] = input.bits<uint8_t>();
    double before[12], after[12], loaded[12];
    get_values(plugin, before);
    const clap_istream_t from = {&stream, Stream::read};
    const bool accepted = state->load(plugin, &from);
    get_values(plugin, after);
    const bool well_formed = stream.size >= 104 && !std::memcmp(stream.bytes, "QVB1\1\0\0\0", 8);
    FUZZ_REQUIRE(accepted == (well_formed && !stream.lied));
    if (!accepted) {
        FUZZ_REQUIRE(std::memcmp(before, after, sizeof after) == 0);
        return;
    }
    std::memcpy(loaded, stream.bytes + 8, sizeof loaded);
    for (int id = 0; id < 12; ++id) {
        double expected = loaded[id];
        if (expected < kMin[id]) expected = kMin[id];
        if (expected > kMax[id]) expected = kMax[id];
        FUZZ_REQUIRE(std::memcmp(&after[id], &expected, sizeof expected) == 0);
    }
}

void save(const clap_plugin_t* plugin, const clap_plugin_state_t* state, fuzz::Input& input) {
    Stream stream = {input, {}, 256, 0, false};
    const clap_ostream_t to = {&stream, Stream::write};
    const bool saved = state->save(plugin, &to);
    FUZZ_REQUIRE(saved == !stream.lied);
    if (!saved) return;
    double values[12];
    get_values(plugin, values);
    FUZZ_REQUIRE(stream.at == 104 && std::memcmp(stream.bytes, "QVB1\1\0\0\0", 8) == 0 &&
                 std::memcmp(stream.bytes + 8, values, sizeof values) == 0);
}

void render(const clap_plugin_t* plugin) {
    float left[64] = {1.0f}, right[64] = {};
    float* channels[] = {left, right};
    const clap_audio_buffer_t in = {channels, nullptr, 2, 0, 0};
    clap_audio_buffer_t out = in;
    const clap_process_t process = {-1, 64, nullptr, &in, &out, 1, 1, nullptr, nullptr};
    FUZZ_REQUIRE(plugin->process(plugin, &process) == CLAP_PROCESS_CONTINUE);
    for (int t = 0; t < 64; ++t) FUZZ_REQUIRE(std::isfinite(left[t]) && std::isfinite(right[t]));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const auto* factory =
        static_cast<const clap_plugin_factory_t*>(clap_entry.get_factory(CLAP_PLUGIN_FACTORY_ID));
    const clap_plugin_t* plugin =
        factory->create_plugin(factory, nullptr, "com.tamrockaudio.brisel");
    FUZZ_REQUIRE(plugin && plugin->init(plugin));
    const auto* state =
        static_cast<const clap_plugin_state_t*>(plugin->get_extension(plugin, CLAP_EXT_STATE));
    bool active = false;
    while (!input.empty()) {
        switch (input.below(4)) {
        case 0:
            load(plugin, state, input);
            break;
        case 1:
            save(plugin, state, input);
            break;
        case 2:
            if (!active) {
                plugin->activate(plugin, 12000.0, 1, 64);
                // Values that the engine refuses leave it with its defaults.
                active = true;
            }
            break;
        default:
            if (active) render(plugin);
        }
    }
    plugin->destroy(plugin);
    return 0;
}
