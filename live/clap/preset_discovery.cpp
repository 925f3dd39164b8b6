// The factory "clap.preset-discovery-factory": tells hosts where presets are and what each is
// called. The program's own are listed as files where those are installed, and from the library
// itself only elsewhere: hosts then index and load every preset the same way.
#include <new>

#include "live/clap/plugin.h"
#include "live/clap/preset_files.h"

namespace brisel::live::clap {

namespace {

using Receiver = clap_preset_discovery_metadata_receiver_t;

constexpr clap_preset_discovery_provider_descriptor_t kProvider = {
    .clap_version = kInterfaceVersion,
    .id = "com.tamrockaudio.brisel-live.presets",
    .name = "Brisel Live",
    .vendor = "Tamrock Audio",
};

struct Provider {
    clap_preset_discovery_provider_t clap; // what the host holds; provider_data points back here
    const clap_preset_discovery_indexer_t* indexer;
};

constexpr size_t kLongestLine = 256; // bytes of a text for the receiver, with the null at its end

// A text that ends where the receiver expects it to.
class Line {
public:
    explicit Line(std::string_view text) { copy_text(text_, text); }
    const char* c_str() const { return text_; }
    bool empty() const { return text_[0] == '\0'; }

private:
    char text_[kLongestLine];
};

// One preset; `key` is null for a file of its own. False when the receiver wants no more.
bool describe(const Receiver& receiver, const char* name, const char* key,
              std::string_view category, std::string_view description) {
    if (!receiver.begin_preset(&receiver, name, key)) return false;
    constexpr clap_universal_plugin_id_t kPlugin = {"clap", "com.tamrockaudio.brisel-live"};
    receiver.add_plugin_id(&receiver, &kPlugin);
    const Line shown_description(description), shown_category(category);
    if (!shown_description.empty()) receiver.set_description(&receiver, shown_description.c_str());
    receiver.add_feature(&receiver, CLAP_PLUGIN_FEATURE_REVERB);
    if (!shown_category.empty()) receiver.add_feature(&receiver, shown_category.c_str());
    return true;
}

bool describe_program(const Receiver& receiver) {
    for (const FactoryPreset& preset : factory_presets())
        if (!describe(receiver, Line(preset.name).c_str(), Line(preset.key).c_str(),
                      preset.category, preset.description))
            break;
    return true;
}

// What is behind the last slash of `path`, which loses it.
std::string_view take_last(std::string_view& path) {
    const size_t start = path.rfind('/') + 1; // 0 without a slash
    const std::string_view last = path.substr(start);
    path = path.substr(0, start > 0 ? start - 1 : 0);
    return last;
}

// The file's name is the preset's, and its folder's name the category.
bool describe_file(const Receiver& receiver, const char* path) {
    const PresetFile file(path);
    if (!file.valid()) {
        receiver.on_error(&receiver, file.error(),
                          file.error() ? "The preset cannot be read." : "This is no preset.");
        return false;
    }
    std::string_view rest = path;
    const std::string_view name = take_last(rest), folder = take_last(rest);
    char name_text[kLongestLine], category[kLongestLine];
    describe(receiver, Line(preset_name(name.substr(0, name.rfind('.')), name_text)).c_str(),
             nullptr, folder == "presets" ? "" : preset_name(folder, category), file.description());
    return true;
}

// ---- Provider ----

bool declare(const clap_preset_discovery_indexer_t& indexer, uint32_t flags, const char* name,
             const char* folder) {
    const clap_preset_discovery_location_t location = {
        .flags = flags,
        .name = name,
        .kind = static_cast<uint32_t>(folder ? CLAP_PRESET_DISCOVERY_LOCATION_FILE
                                             : CLAP_PRESET_DISCOVERY_LOCATION_PLUGIN),
        .location = folder};
    return indexer.declare_location(&indexer, &location);
}

bool init(const clap_preset_discovery_provider_t* provider) {
    const auto& indexer = *static_cast<const Provider*>(provider->provider_data)->indexer;
    const clap_preset_discovery_filetype_t type = {.name = "Brisel preset",
                                                   .description = "Settings as text",
                                                   .file_extension = kPresetEnding};
    Path path;
    const char* const factory = factory_preset_folder(path) ? path : nullptr;
    if (!indexer.declare_filetype(&indexer, &type) ||
        !declare(indexer, CLAP_PRESET_DISCOVERY_IS_FACTORY_CONTENT, kDescriptor.name, factory))
        return false;
    return !user_preset_folder(path) ||
           declare(indexer, CLAP_PRESET_DISCOVERY_IS_USER_CONTENT, "User", path);
}

void destroy(const clap_preset_discovery_provider_t* provider) {
    delete static_cast<Provider*>(provider->provider_data);
}

bool get_metadata(const clap_preset_discovery_provider_t*, uint32_t kind, const char* location,
                  const Receiver* receiver) {
    if (!receiver) return false;
    if (kind == CLAP_PRESET_DISCOVERY_LOCATION_PLUGIN) return describe_program(*receiver);
    if (kind == CLAP_PRESET_DISCOVERY_LOCATION_FILE && location)
        return describe_file(*receiver, location);
    receiver->on_error(receiver, 0, "Presets are in files and in the plug-in.");
    return false;
}

const void* get_extension(const clap_preset_discovery_provider_t*, const char*) {
    return nullptr;
}

// ---- Factory, [any-thread] ----

uint32_t count(const clap_preset_discovery_factory_t*) {
    return 1;
}

const clap_preset_discovery_provider_descriptor_t*
get_descriptor(const clap_preset_discovery_factory_t*, uint32_t index) {
    return index == 0 ? &kProvider : nullptr;
}

const clap_preset_discovery_provider_t* create(const clap_preset_discovery_factory_t*,
                                               const clap_preset_discovery_indexer_t* indexer,
                                               const char* id) {
    if (!indexer || !same_text(id, kProvider.id)) return nullptr;
    auto* const provider = new (std::nothrow)
        Provider{{&kProvider, nullptr, init, destroy, get_metadata, get_extension}, indexer};
    if (!provider) return nullptr;
    provider->clap.provider_data = provider;
    return &provider->clap;
}

} // namespace

constexpr clap_preset_discovery_factory_t kPresetDiscovery = {count, get_descriptor, create};

} // namespace brisel::live::clap
