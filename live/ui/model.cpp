#include "live/ui/model.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace brisel::live::ui {

namespace {

namespace fs = std::filesystem;

fs::path user_folder() {
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data)
        return fs::path(data) / "brisel/presets";
    if (const char* home = std::getenv("HOME"); home && *home)
        return fs::path(home) / ".local/share/brisel/presets";
    return {};
}

// False for a file that is no preset.
bool read_file(const fs::path& path, PresetEntry& entry) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    std::string text(kLongestPreset + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    char name[64];
    entry.category = "Yours";
    entry.name = preset_name(path.stem().native(), name);
    return read_preset(text, entry.preset);
}

// Some hosts keep values in single precision.
bool same(const Parameter& parameter, double a, double b) {
    return std::fabs(to_position(parameter, a) - to_position(parameter, b)) < 1e-5;
}

} // namespace

Model::Model(const brisel_ui_host& host) : host_(host) {
    scan_presets();
    const auto remembered = static_cast<int>(*host_.memory >> kPresetShift) - 1;
    if (remembered < static_cast<int>(presets_.size())) preset_ = remembered;
    refresh();
}

ParameterMask Model::refresh() {
    ParameterMask changed = std::exchange(changed_, 0);
    for (uint32_t i = 0; i < kParameters; ++i) {
        const Id id = static_cast<Id>(i);
        const double value = clamp(parameters()[id], host_.value(host_.context, id));
        const double sounding = clamp(parameters()[id], host_.sounding(host_.context, id));
        if (value != settings_[id] || sounding != sounding_[id]) changed |= bit_of(id);
        settings_[id] = value;
        sounding_[id] = sounding;
    }
    if (changed && !preset_unchanged()) {
        const auto found = std::ranges::find_if(
            presets_, [this](const auto& entry) { return matches(entry.preset); });
        if (found != presets_.end()) remember(static_cast<int>(found - presets_.begin()));
    }
    return changed;
}

double Model::sample_rate() const {
    const double rate = host_.sample_rate(host_.context);
    return rate >= 1000.0 ? rate : 48000.0;
}

brisel_ui_meters Model::meters() const {
    brisel_ui_meters meters = {};
    host_.meters(host_.context, &meters);
    return meters;
}

void Model::set(Id id, double value) {
    value = clamp(parameters()[id], value);
    if (value == settings_[id]) return;
    settings_[id] = value;
    changed_ |= bit_of(id);
    host_.edit(host_.context, BRISEL_UI_VALUE, id, value);
}

void Model::choose(Id id, double value) {
    begin(id);
    set(id, value);
    end(id);
}

void Model::scan_presets() {
    constexpr ParameterMask kGiven = kAllParameters & ~(kNotInPresets | bit_of(kMix));
    presets_ = {{"Basics", "Default", {default_settings(), kGiven}}};
    for (const FactoryPreset& factory : factory_presets()) {
        PresetEntry entry = {std::string(factory.category), std::string(factory.name), {}};
        if (read_preset(factory.text, entry.preset)) presets_.push_back(std::move(entry));
    }
    const auto own = static_cast<std::ptrdiff_t>(presets_.size());
    std::error_code error; // a folder that is missing or closed holds no presets
    for (fs::directory_iterator file(user_folder(), error), end; !error && file != end;
         file.increment(error)) {
        PresetEntry entry;
        if (file->path().extension() == ".preset" && file->is_regular_file(error) &&
            read_file(file->path(), entry))
            presets_.push_back(std::move(entry));
    }
    std::sort(presets_.begin() + own, presets_.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    if (preset_ >= static_cast<int>(presets_.size())) preset_ = -1;
}

// What loading leaves alone: a locked Mix, and what presets leave to the moment or to the mixer
// where they do not mention it.
ParameterMask Model::kept(const Preset& preset) const {
    constexpr ParameterMask kOnlyWhereGiven = kNotInPresets | bit_of(kMix);
    return (kOnlyWhereGiven & ~preset.given) | bit_of(kClear) | (mix_locked() ? bit_of(kMix) : 0);
}

bool Model::matches(const Preset& preset) const {
    for (uint32_t id = 0; id < kParameters; ++id)
        if (!(kept(preset) >> id & 1) &&
            !same(parameters()[id], settings_[id], preset.settings[id]))
            return false;
    return true;
}

void Model::remember(int index) {
    preset_ = index;
    *host_.memory = (*host_.memory & kMixLocked) | static_cast<uint32_t>(index + 1) << kPresetShift;
}

void Model::load_preset(int index) {
    const Preset& preset = presets_[static_cast<size_t>(index)].preset;
    for (uint32_t i = 0; i < kParameters; ++i) {
        const Id id = static_cast<Id>(i);
        if (!(kept(preset) >> id & 1) && preset.settings[id] != settings_[id])
            choose(id, preset.settings[id]);
    }
    remember(index);
}

void Model::step_preset(int by) {
    const int count = static_cast<int>(presets_.size());
    if (count == 0) return;
    const int from = preset_ < 0 && by < 0 ? 0 : preset_;
    load_preset((from + by + count) % count);
}

} // namespace brisel::live::ui
