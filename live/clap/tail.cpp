// Extension "clap.tail": how long the reverb sounds on.
#include "live/clap/plugin.h"

namespace brisel::live::clap {

namespace {

// In frames; at INT32_MAX, which hosts take for endless, a frozen one. [any-thread]
uint32_t get(const clap_plugin_t* plugin) {
    constexpr uint64_t kEndless = INT32_MAX;
    return static_cast<uint32_t>(std::min(self(plugin).reverb.tail_frames(), kEndless));
}

} // namespace

constexpr clap_plugin_tail_t kTail = {get};

void report_tail(Plugin& p) {
    const uint32_t tail = get(&p.clap);
    if (tail == p.reported_tail) return;
    p.reported_tail = tail;
    if (p.host_tail) p.host_tail->changed(p.host);
}

} // namespace brisel::live::clap
