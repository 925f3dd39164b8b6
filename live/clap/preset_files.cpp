#include "live/clap/preset_files.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace brisel::live::clap {

namespace {

// The whole of `parts` one behind the other; false, and an empty path, when they are too long.
bool join(Path& path, std::initializer_list<std::string_view> parts) {
    size_t length = 0;
    path[0] = '\0';
    for (const std::string_view part : parts) {
        if (part.size() >= sizeof path - length) {
            path[0] = '\0';
            return false;
        }
        length += part.copy(path + length, part.size());
    }
    path[length] = '\0';
    return true;
}

bool is_folder(const char* path) {
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// The folder that holds this library, links in its path followed.
bool library_folder(Path& path) {
    Dl_info info;
    if (!dladdr(reinterpret_cast<const void*>(&library_folder), &info) ||
        !realpath(info.dli_fname, path))
        return false;
    char* const slash = std::strrchr(path, '/');
    if (!slash) return false;
    *slash = '\0';
    return true;
}

// Reads a regular file of at most `capacity` bytes. Returns its length, or -1 with errno set.
ssize_t read_file(const char* path, char* buffer, size_t capacity) {
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return -1;
    struct stat status;
    ssize_t length = fstat(file, &status);
    if (length == 0 && !S_ISREG(status.st_mode)) {
        length = -1;
        errno = EINVAL;
    }
    while (length >= 0 && static_cast<size_t>(length) < capacity) {
        const size_t room = capacity - static_cast<size_t>(length);
        const ssize_t given = read(file, buffer + length, room);
        if (given == 0) break;
        length = given < 0 ? -1 : length + given;
    }
    const int error = errno;
    close(file);
    errno = error;
    return length;
}

} // namespace

bool factory_preset_folder(Path& path) {
    Path library;
    if (factory_presets().empty() || !library_folder(library)) return false;
    for (const char* folder : {"/../../share/brisel/presets/live", "/presets/live"}) {
        // Other things may be called so: it is the folder that holds our first preset.
        Path place, first;
        if (join(place, {library, folder}) && realpath(place, path) &&
            join(first, {path, "/", factory_presets()[0].key, ".", kPresetEnding}) &&
            access(first, R_OK) == 0)
            return true;
    }
    return false;
}

bool user_preset_folder(Path& path) {
    constexpr std::string_view kFolder = "/brisel/presets";
    const char* const data = getenv("XDG_DATA_HOME");
    const char* const home = getenv("HOME");
    if (data && data[0] == '/') return join(path, {data, kFolder}) && is_folder(path);
    return home && home[0] == '/' && join(path, {home, "/.local/share", kFolder}) &&
           is_folder(path);
}

PresetFile::PresetFile(const char* path) {
    const ssize_t length = read_file(path, buffer_, sizeof buffer_);
    if (length < 0) {
        error_ = errno;
        return;
    }
    text_ = {buffer_, static_cast<size_t>(length)};
    valid_ = read_preset(text_, preset_);
}

std::string_view PresetFile::description() const {
    if (!text_.starts_with('#')) return {};
    std::string_view line = text_.substr(1, text_.find_first_of("\r\n") - 1);
    line.remove_prefix(std::min(line.find_first_not_of(" \t#"), line.size()));
    return line;
}

} // namespace brisel::live::clap
