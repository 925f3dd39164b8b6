#include "render/output_file.h"

#include "render/errors.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace brisel::render {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail_to_write(const fs::path& file, int error) {
    throw Failure(fmt::format("cannot write '{}': {}", file.string(), std::strerror(error)));
}

// mkstemp makes files for their owner only; this is the mode that creating a file gives.
void set_usual_mode(int descriptor) {
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(descriptor, 0666 & ~mask);
}

} // namespace

bool is_device(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

OutputFile::OutputFile(const fs::path& target) : target_(target) {
    if (is_device(target_)) {
        descriptor_ = open(target_.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) fail_to_write(target_, errno);
        return;
    }
    std::error_code error;
    if (fs::is_directory(target_, error)) fail_to_write(target_, EISDIR);
    if (fs::is_symlink(target_, error)) target_ = fs::weakly_canonical(target_, error);

    const fs::path folder = target_.has_parent_path() ? target_.parent_path() : ".";
    const std::string suffix = ".part";
    std::string name =
        (folder / fmt::format(".{}.XXXXXX{}", target_.filename().string(), suffix)).string();
    descriptor_ = mkostemps(name.data(), static_cast<int>(suffix.size()), O_CLOEXEC);
    if (descriptor_ < 0) fail_to_write(target_, errno);
    temporary_ = name;
    set_usual_mode(descriptor_);
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

void OutputFile::commit() {
    const int closing = descriptor_;
    descriptor_ = -1;
    if (close(closing) != 0) fail_to_write(target_, errno);
    if (temporary_.empty()) return;
    if (rename(temporary_.c_str(), target_.c_str()) != 0) fail_to_write(target_, errno);
    temporary_.clear();
}

void write_file(const fs::path& target, std::string_view contents) {
    OutputFile file(target);
    while (!contents.empty()) {
        const ssize_t written = write(file.descriptor(), contents.data(), contents.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) fail_to_write(target, errno);
        contents.remove_prefix(static_cast<size_t>(written));
    }
    file.commit();
}

std::string read_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream contents;
    if (stream && !fs::is_directory(file)) contents << stream.rdbuf();
    if (!stream || fs::is_directory(file))
        throw Failure(fmt::format("cannot read '{}': {}", file.string(),
                                  std::strerror(fs::is_directory(file) ? EISDIR : errno)));
    return contents.str();
}

} // namespace brisel::render
