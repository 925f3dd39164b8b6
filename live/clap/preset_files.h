// Presets as files: where they lie and what is in one. [any-thread]
#ifndef BRISEL_LIVE_CLAP_PRESET_FILES_H
#define BRISEL_LIVE_CLAP_PRESET_FILES_H

#include <climits>
#include <string_view>

#include "live/engine/presets.h"

namespace brisel::live::clap {

inline constexpr const char* kPresetEnding = "preset"; // of file names, behind the dot

// A path without end, null-terminated.
using Path = char[PATH_MAX];

// The folder with the program's presets, one file each in folders of their categories, found from
// the library's own place: of an installation share/brisel/presets/live, of a build folder
// presets/live. False where they are not.
bool factory_preset_folder(Path& path);

// The folder of the user's own, `brisel/presets` in $XDG_DATA_HOME or ~/.local/share. False where
// there is no such folder.
bool user_preset_folder(Path& path);

// One file, read as a preset.
class PresetFile {
public:
    explicit PresetFile(const char* path);

    bool valid() const { return valid_; }
    int error() const { return error_; } // errno of a file that cannot be read, else 0
    const Preset& preset() const { return preset_; }

    // The file's first line without its `#`, where it is a comment; else empty.
    std::string_view description() const;

private:
    bool valid_ = false;
    int error_ = 0;
    Preset preset_;
    std::string_view text_;
    char buffer_[kLongestPreset + 1];
};

} // namespace brisel::live::clap

#endif
