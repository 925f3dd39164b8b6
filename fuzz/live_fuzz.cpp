// brisel-live.clap under a hostile host: any order of calls, events and ports of any content,
// layouts, texts, states through streams that misbehave. What it renders is finite, and free of
// subnormals.
#include <cmath>
#include <string>

#include "fuzz/hostile_host.h"
#include "live/engine/parameters.h"
#include "tests/clap_host.h"

namespace {

using brisel::live::kParameters;
using fuzz::Input;

void process(const clap_plugin_t* plugin, bool started, Input& input) {
    const fuzz::Events events(input, kParameters, true);
    const uint32_t frames = input.bits<uint16_t>() % 700;
    fuzz::Port in(input, frames), out(input, frames);
    if (input.flag()) // in place, as far as the channels go
        for (size_t c = 0; c < std::min(in.channels.size(), out.channels.size()); ++c)
            out.channels[c] = in.channels[c];
    const uint8_t missing = input.bits<uint8_t>();
    const clap_process_t call = {-1,
                                 frames,
                                 nullptr,
                                 missing & 0x40 ? nullptr : &in.buffer,
                                 &out.buffer,
                                 missing & 0x80 ? 0u : 1u,
                                 missing == 0 ? 0u : 1u,
                                 missing & 0x20 ? nullptr : events.list(),
                                 nullptr};
    const clap_process_status status = plugin->process(plugin, &call);
    FUZZ_REQUIRE(status >= CLAP_PROCESS_ERROR && status <= CLAP_PROCESS_SLEEP);
    if (!started || missing == 0) FUZZ_REQUIRE(status == CLAP_PROCESS_ERROR);
    if (status == CLAP_PROCESS_ERROR) return;
    for (size_t c = 0; c < std::min<size_t>(out.channels.size(), 2); ++c)
        for (uint32_t t = 0; out.channels[c] && t < frames; ++t) {
            const float x = out.channels[c][t];
            FUZZ_REQUIRE(x == 0.0f || std::isnormal(x));
            if (status == CLAP_PROCESS_SLEEP) FUZZ_REQUIRE(x == 0.0f);
        }
}

void texts(const host::Plugin& p, Input& input) {
    const uint32_t id = input.below(8) == 0 ? input.bits<uint32_t>() : input.below(kParameters + 1);
    const uint32_t capacity = input.bits<uint8_t>();
    double value = input.bits<double>(), parsed = 0;
    std::vector<char> text(capacity, '#');
    const bool shown = p.params->value_to_text(p.plugin, id, value, text.data(), capacity);
    FUZZ_REQUIRE(shown == (id < kParameters && capacity > 0 && !std::isnan(value)));
    if (shown && capacity >= brisel::live::kLongestText)
        FUZZ_REQUIRE(p.params->text_to_value(p.plugin, id, text.data(), &parsed));
    std::string typed(input.below(40), '\0');
    for (char& c : typed)
        c = input.flag() ? input.bits<char>() : "0.e-+msdBkHz% /T"[input.below(16)];
    if (p.params->text_to_value(p.plugin, id, typed.c_str(), &parsed)) {
        const auto* parameter = brisel::live::find_parameter(id);
        FUZZ_REQUIRE(parameter && parsed >= parameter->least && parsed <= parameter->most);
    }
}

// A state is loaded with its values brought into their ranges, or changes nothing; what is saved is
// loaded as it was.
void states(host::Plugin& p, Input& input) {
    host::Stream stream;
    stream.chunk = 1 + input.below(120);
    FUZZ_REQUIRE(p.save(stream));
    const std::vector<double> before = p.values();
    for (uint32_t k = input.below(8); k > 0; --k)
        stream.bytes[input.bits<uint16_t>() % stream.bytes.size()] = input.bits<uint8_t>();
    const bool loaded = p.load(stream);
    const std::vector<double> after = p.values();
    if (!loaded) FUZZ_REQUIRE(host::same_bits(before, after));
    for (const auto& parameter : brisel::live::parameters()) {
        const double value =
            after[static_cast<size_t>(&parameter - brisel::live::parameters().data())];
        FUZZ_REQUIRE(value >= parameter.least && value <= parameter.most);
    }
    host::Stream saved;
    saved.chunk = stream.chunk;
    FUZZ_REQUIRE(p.save(saved) && p.load(saved) && host::same_bits(p.values(), after));
}

// Layouts change while inactive only, and only to those that there are.
void layouts(const host::Plugin& p, bool active, Input& input) {
    const auto* configurable =
        p.extension<clap_plugin_configurable_audio_ports_t>(CLAP_EXT_CONFIGURABLE_AUDIO_PORTS);
    clap_audio_port_configuration_request_t requests[3];
    for (auto& request : requests)
        request = {input.flag(), input.below(8) == 0,
                   input.below(8) == 0 ? input.bits<uint32_t>() : input.below(4),
                   input.flag()   ? nullptr
                   : input.flag() ? CLAP_PORT_MONO
                                  : CLAP_PORT_STEREO,
                   nullptr};
    const uint32_t count = input.below(4);
    const bool possible = configurable->can_apply_configuration(p.plugin, requests, count);
    FUZZ_REQUIRE(configurable->apply_configuration(p.plugin, requests, count) == possible);
    if (active) FUZZ_REQUIRE(!possible);
    clap_audio_port_info_t in, out;
    FUZZ_REQUIRE(p.ports->get(p.plugin, 0, true, &in) && p.ports->get(p.plugin, 0, false, &out));
    FUZZ_REQUIRE(in.channel_count >= 1 && in.channel_count <= out.channel_count &&
                 out.channel_count <= 2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    host::Plugin p(clap_entry, "com.tamrockaudio.brisel-live");
    FUZZ_REQUIRE(p.usable);
    bool active = false, started = false;
    for (int calls = 0; calls < 60 && !input.empty(); ++calls) {
        switch (input.below(10)) {
        case 0: {
            const double any = input.bits<double>();
            const double rate = input.flag()                       ? 8000.0
                                : any > 20000.0 && any <= 768000.0 ? 1234.5
                                                                   : any;
            const uint32_t most = input.flag() ? 512 : input.bits<uint32_t>();
            const bool taken = p.plugin->activate(p.plugin, rate, input.bits<uint32_t>(), most);
            FUZZ_REQUIRE(taken == (!active && most > 0 && rate >= 1000.0 && rate <= 768000.0));
            active |= taken;
            break;
        }
        case 1:
            started = p.plugin->start_processing(p.plugin);
            FUZZ_REQUIRE(started == active);
            break;
        case 2:
            if (input.flag())
                p.plugin->stop_processing(p.plugin);
            else
                p.plugin->deactivate(p.plugin), active = false;
            started = false;
            break;
        case 3: {
            const fuzz::Events events(input, kParameters, true);
            p.params->flush(p.plugin, input.below(8) == 0 ? nullptr : events.list(), nullptr);
            FUZZ_REQUIRE(p.tail() <= INT32_MAX);
            break;
        }
        case 4:
            texts(p, input);
            break;
        case 5:
            states(p, input);
            break;
        case 6:
            layouts(p, active, input);
            p.plugin->reset(p.plugin);
            break;
        default:
            process(p.plugin, started, input);
        }
    }
    return 0;
}
