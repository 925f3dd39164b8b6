// Extension "clap.preset-load": presets that a host has found, by file or from the program itself.
#include "live/clap/plugin.h"
#include "live/clap/preset_files.h"

namespace brisel::live::clap {

namespace {

bool from_file(Plugin& p, const char* path, int32_t& error) {
    if (!path || path[0] != '/') return false;
    const PresetFile file(path);
    error = file.error();
    if (file.valid()) take_over(p, file.preset(), kNotInPresets);
    return file.valid();
}

bool from_program(Plugin& p, const char* key) {
    const FactoryPreset* factory = key ? find_factory_preset(key) : nullptr;
    Preset preset;
    if (!factory || !read_preset(factory->text, preset)) return false;
    take_over(p, preset, kNotInPresets);
    return true;
}

bool from_location(const clap_plugin_t* plugin, uint32_t kind, const char* location,
                   const char* key) {
    Plugin& p = self(plugin);
    int32_t error = 0;
    bool loaded = false;
    if (kind == CLAP_PRESET_DISCOVERY_LOCATION_FILE) loaded = from_file(p, location, error);
    if (kind == CLAP_PRESET_DISCOVERY_LOCATION_PLUGIN) loaded = from_program(p, key);
    if (!p.host_preset_load) return loaded;
    if (loaded)
        p.host_preset_load->loaded(p.host, kind, location, key);
    else
        p.host_preset_load->on_error(p.host, kind, location, key, error,
                                     error ? "The preset cannot be read." : "This is no preset.");
    return loaded;
}

} // namespace

constexpr clap_plugin_preset_load_t kPresetLoad = {from_location};

} // namespace brisel::live::clap
