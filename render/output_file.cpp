#include "render/output_file.h"

#include "render/errors.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace brisel::render {

namespace {

constexpr int kMostLinks = 40; // in a row, as the system has it

// mkstemp makes files for their owner only; this is the mode that creating a file gives. Asked for
// once, before there are threads, since asking changes it for a moment.
const mode_t kUsualMode = [] {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}();

// Where the links lead to, whether there is a file or not.
fs::path behind_links(fs::path path) {
    std::error_code error;
    for (int i = 0; i < kMostLinks && fs::is_symlink(path, error); ++i)
        path = path.parent_path() / fs::read_symlink(path, error);
    return path;
}

} // namespace

OutputFile::OutputFile(const fs::path& target) : target_(target) {
    if (is_standard_output(target_)) {
        descriptor_ = Descriptor(STDOUT_FILENO);
        struct stat status {};
        rewritable_ = fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode) &&
                      lseek(STDOUT_FILENO, 0, SEEK_CUR) == 0 &&
                      (fcntl(STDOUT_FILENO, F_GETFL) & O_APPEND) == 0;
    } else if (is_device(target_)) {
        descriptor_ = Descriptor(open(target_.c_str(), O_WRONLY | O_CLOEXEC));
        if (!descriptor_) fail(errno);
    } else {
        make_temporary();
    }
}

void OutputFile::make_temporary() {
    std::error_code error;
    if (fs::is_directory(target_, error)) fail(EISDIR);
    const fs::path named = std::exchange(target_, behind_links(target_));
    const fs::path folder = target_.has_parent_path() ? target_.parent_path() : ".";
    const std::string suffix = ".part";
    std::string name =
        (folder / fmt::format(".{}.XXXXXX{}", target_.filename().string(), suffix)).string();
    descriptor_ = Descriptor(mkostemps(name.data(), static_cast<int>(suffix.size()), O_CLOEXEC));
    if (!descriptor_) {
        const int reason = errno;
        target_ = named;
        fail(reason);
    }
    temporary_ = name;
    struct stat replaced {};
    if (stat(target_.c_str(), &replaced) != 0) {
        fchmod(descriptor(), kUsualMode);
        return;
    }
    // Another's file can be given back only by root; its mode is kept in any case.
    if (fchown(descriptor(), replaced.st_uid, replaced.st_gid) != 0) errno = 0;
    fchmod(descriptor(), replaced.st_mode & 07777);
}

OutputFile::~OutputFile() {
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

void OutputFile::commit() {
    const int closing = descriptor_.release();
    if (closing != STDOUT_FILENO && close(closing) != 0) fail(errno);
    if (temporary_.empty()) return;
    if (rename(temporary_.c_str(), target_.c_str()) != 0) fail(errno);
    temporary_.clear();
}

void OutputFile::fail(int error) const {
    throw Failure(fmt::format("cannot write {}: {}", output_name(target_), std::strerror(error)));
}

void write_file(const fs::path& target, std::string_view contents) {
    OutputFile file(target);
    try {
        write_all(file.descriptor(), contents);
    } catch (const std::system_error& e) {
        throw Failure(fmt::format("cannot write {}: {}", output_name(target), e.code().message()));
    }
    file.commit();
}

std::string read_file(const fs::path& file) {
    const Descriptor input = open_input(file);
    std::string contents;
    std::array<char, 1 << 14> buffer{};
    for (;;) {
        const ssize_t size = read(input.get(), buffer.data(), buffer.size());
        if (size < 0)
            throw Failure(
                fmt::format("cannot read {}: {}", input_name(file), std::strerror(errno)));
        if (size == 0) return contents;
        contents.append(buffer.data(), static_cast<size_t>(size));
    }
}

} // namespace brisel::render
