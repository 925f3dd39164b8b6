// The plug-in under a hostile host: any order of calls, event lists of any content, block lengths
// and channels of any kind, texts, states through streams that misbehave. Buffers are exactly as
// long as they must be, so that the address sanitizer sees the first sample too many.
#include "fuzz/hostile_host.h"
#include "tests/clap_host.h"

namespace {

using fuzz::Input;
using fuzz::Port;

constexpr double kMin[12] = {0.005, 0.1, 0, 0, 0, 0, 0, 0, 0.001, 0, -24, -24};
constexpr double kMax[12] = {0.5, 10, 3, 1, 1, 1, 1, 1, 0.5, 1, 24, 24};

void process(const clap_plugin_t* plugin, uint32_t capacity, Input& input) {
    const fuzz::Events events(input, 12, false);
    const bool huge = input.below(16) == 0;
    uint32_t frames = input.flag() ? capacity : input.bits<uint16_t>() % (capacity + 16);
    if (huge) frames = input.bits<uint32_t>() | 0x10000; // refused before a sample is touched
    const size_t size = huge ? 0 : frames;
    Port in(input, size), out(input, size);
    if (input.flag()) { // in place, as far as the channels go
        for (size_t c = 0; c < std::min(in.channels.size(), out.channels.size()); ++c)
            out.channels[c] = in.channels[c];
    }
    const uint8_t ports = input.bits<uint8_t>();
    const clap_process_t call = {input.bits<uint8_t>(),
                                 frames,
                                 nullptr,
                                 &in.buffer,
                                 &out.buffer,
                                 ports & 0x80 ? 0u : 1u,
                                 ports & 0x40 ? 0u : 1u,
                                 ports & 0x20 ? nullptr : events.list(),
                                 nullptr};
    const clap_process_status status = plugin->process(plugin, &call);
    FUZZ_REQUIRE(status == CLAP_PROCESS_ERROR || status == CLAP_PROCESS_CONTINUE);
    if (huge || ports & 0xC0) FUZZ_REQUIRE(status == CLAP_PROCESS_ERROR);
}

void texts(const host::Plugin& p, Input& input) {
    const uint32_t id = input.below(8) == 0 ? input.bits<uint32_t>() : input.below(13);
    const uint32_t capacity = input.bits<uint8_t>();
    double value = input.bits<double>();
    std::vector<char> text(capacity, '#');
    char* const to = capacity ? text.data() : nullptr;
    const bool shown = p.params->value_to_text(p.plugin, id, value, to, capacity);
    FUZZ_REQUIRE(shown == (id < 12));
    if (shown && capacity > 0) {
        FUZZ_REQUIRE(std::memchr(to, 0, capacity));
        FUZZ_REQUIRE(p.params->text_to_value(p.plugin, id, to, &value));
    }
    clap_param_info_t info;
    clap_audio_port_info_t port;
    FUZZ_REQUIRE(p.params->get_info(p.plugin, id, &info) == (id < 12));
    FUZZ_REQUIRE(p.ports->get(p.plugin, id, input.flag(), &port) == (id == 0));
    FUZZ_REQUIRE(p.tail() <= 2147483648u);
}

// A state of arbitrary bytes is loaded as a whole, with its values brought into their ranges, or
// not at all; what is saved then is what was loaded.
void states(host::Plugin& p, Input& input) {
    host::Stream stream;
    stream.chunk = 1 + input.below(120);
    stream.end = static_cast<int64_t>(input.below(3)) - 1; // 1: more than was asked for
    if (stream.end == 1) stream.end = 1000;
    stream.bytes = host::state_of({});
    if (input.below(4) == 0) stream.bytes[input.below(8)] ^= 1;
    const bool well_formed = stream.bytes == host::state_of({});
    for (uint32_t k = input.below(2) ? 96 : input.below(120); k > 0; --k)
        stream.bytes.push_back(input.bits<uint8_t>());
    const std::vector<double> before = p.values();
    const bool loaded = p.load(stream);
    FUZZ_REQUIRE(loaded == (well_formed && stream.bytes.size() >= 104));
    const std::vector<double> after = p.values();
    for (size_t id = 0; id < 12; ++id) {
        double expected = before[id];
        if (loaded) std::memcpy(&expected, &stream.bytes[8 + 8 * id], 8);
        if (loaded && expected < kMin[id]) expected = kMin[id];
        if (loaded && expected > kMax[id]) expected = kMax[id];
        FUZZ_REQUIRE(std::memcmp(&after[id], &expected, 8) == 0);
    }
    host::Stream saved;
    saved.chunk = stream.chunk;
    saved.capacity = input.flag() ? 4096 : input.below(110);
    saved.end = stream.end;
    FUZZ_REQUIRE(p.save(saved) == (saved.capacity >= 104));
    if (saved.capacity >= 104) FUZZ_REQUIRE(saved.bytes == host::state_of(after));
}

// Rates that would take more memory than a fuzzer has are brought down; the others stay hostile.
double any_rate(Input& input) {
    const double rates[] = {8000, 9001, 12000, 16000, 44100};
    const double any = input.bits<double>();
    const uint32_t choice = input.below(8);
    if (choice < 5) return rates[choice];
    return any > 50000.0 && any < 2147483648.0 ? 50000.0 : any;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    host::Plugin p(clap_entry);
    FUZZ_REQUIRE(p.usable);
    uint32_t capacity = 0;
    for (int calls = 0; calls < 100 && !input.empty(); ++calls) {
        switch (input.below(8)) {
        case 0:
            capacity = input.below(8) == 0 ? input.bits<uint32_t>() : input.bits<uint16_t>() % 600;
            p.plugin->activate(p.plugin, any_rate(input), input.bits<uint32_t>(), capacity);
            capacity = std::min(capacity, 600u);
            break;
        case 1:
            p.deactivate();
            p.plugin->reset(p.plugin);
            p.plugin->on_main_thread(p.plugin);
            FUZZ_REQUIRE(p.plugin->start_processing(p.plugin));
            break;
        case 2: {
            const fuzz::Events events(input, 12, false);
            p.params->flush(p.plugin, input.below(8) == 0 ? nullptr : events.list(), nullptr);
            break;
        }
        case 3:
            texts(p, input);
            break;
        case 4:
            states(p, input);
            break;
        default:
            process(p.plugin, capacity, input);
        }
    }
    return 0;
}
