// What a host finds first: the library's one symbol, the factory, and the description of the
// plug-in. Compiled for every x86-64 processor, so that it can decline where the others do not run.
#include "core/cpu.h"
#include "live/clap/clap_layout.h"
#include "live/clap/plugin.h"

namespace brisel::live::clap {

namespace {

constexpr const char* kFeatures[] = {CLAP_PLUGIN_FEATURE_AUDIO_EFFECT, CLAP_PLUGIN_FEATURE_REVERB,
                                     CLAP_PLUGIN_FEATURE_STEREO, nullptr};

} // namespace

constexpr clap_plugin_descriptor_t kDescriptor = {
    .clap_version = kInterfaceVersion,
    .id = "com.tamrockaudio.brisel-live",
    .name = "Brisel Live",
    .vendor = "Tamrock Audio",
    .url = "https://tamrockaudio.com",
    .manual_url = "",
    .support_url = "",
    .version = BRISEL_VERSION,
    .description = "Reverb that never stops, whatever is turned (FFDN, Schlecht & Habets 2020)",
    .features = kFeatures,
};

namespace {

// The factories' functions are [any-thread].

uint32_t plugin_count(const clap_plugin_factory_t*) {
    return 1;
}

const clap_plugin_descriptor_t* plugin_descriptor(const clap_plugin_factory_t*, uint32_t index) {
    return index == 0 ? &kDescriptor : nullptr;
}

const clap_plugin_t* create_plugin(const clap_plugin_factory_t*, const clap_host_t* host,
                                   const char* id) {
    return same_text(id, kDescriptor.id) ? create(host) : nullptr;
}

constexpr clap_plugin_factory_t kFactory = {plugin_count, plugin_descriptor, create_plugin};

// Nothing is set up for the library as a whole, so that hosts may call these as often as they like.
bool init(const char*) {
    return processor_serves_or_complain();
}

void deinit() {}

const void* get_factory(const char* id) {
    if (same_text(id, CLAP_PLUGIN_FACTORY_ID)) return &kFactory;
    if (same_text(id, CLAP_PRESET_DISCOVERY_FACTORY_ID) ||
        same_text(id, CLAP_PRESET_DISCOVERY_FACTORY_ID_COMPAT))
        return &kPresetDiscovery;
    return nullptr;
}

} // namespace

} // namespace brisel::live::clap

extern "C" CLAP_EXPORT const clap_plugin_entry_t clap_entry = {
    .clap_version = brisel::live::clap::kInterfaceVersion,
    .init = brisel::live::clap::init,
    .deinit = brisel::live::clap::deinit,
    .get_factory = brisel::live::clap::get_factory,
};
