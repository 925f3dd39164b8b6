// What the window shows and changes: the values of the plug-in as the host has them, and presets.
#ifndef BRISEL_LIVE_UI_MODEL_H
#define BRISEL_LIVE_UI_MODEL_H

#include <string>
#include <vector>

#include "live/engine/presets.h"
#include "live/ui/module.h"

namespace brisel::live::ui {

struct PresetEntry {
    std::string category, name;
    Preset preset;
};

class Model {
public:
    explicit Model(const brisel_ui_host& host);

    // Takes the host's values; the parameters whose value or modulation differs from before.
    ParameterMask refresh();

    const Settings& settings() const { return settings_; }
    double value(Id id) const { return settings_[id]; }
    double sounding(Id id) const { return sounding_[id]; }
    double sample_rate() const; // Hz; 48000 where the host does not tell
    brisel_ui_meters meters() const;

    // A gesture: begin, values, end. The value is clamped.
    void begin(Id id) { host_.edit(host_.context, BRISEL_UI_BEGIN, id, 0.0); }
    void set(Id id, double value);
    void end(Id id) { host_.edit(host_.context, BRISEL_UI_END, id, 0.0); }
    void choose(Id id, double value); // all three

    // The program's presets and, last, those that the user has in files.
    const std::vector<PresetEntry>& presets() const { return presets_; }
    // Reads the user's folder anew.
    void scan_presets();
    // The one that was loaded last, or whose values are these; -1 for none.
    int preset() const { return preset_; }
    // Whether its values are still these.
    bool preset_unchanged() const {
        return preset_ >= 0 && matches(presets_[size_t(preset_)].preset);
    }
    void load_preset(int index);
    void step_preset(int by); // to the next one, or back, in a circle

    // A locked Mix stays as it is when a preset is loaded.
    bool mix_locked() const { return *host_.memory & kMixLocked; }
    void toggle_mix_lock() { *host_.memory ^= kMixLocked; }

private:
    // The host's memory: the lock, and above it the preset's number, 0 for none.
    static constexpr uint32_t kMixLocked = 1, kPresetShift = 1;

    ParameterMask kept(const Preset& preset) const;
    bool matches(const Preset& preset) const;
    void remember(int index);

    const brisel_ui_host& host_;
    Settings settings_{}, sounding_{};
    ParameterMask changed_ = 0; // by set(), since the last refresh
    std::vector<PresetEntry> presets_;
    int preset_ = -1;
};

} // namespace brisel::live::ui

#endif
