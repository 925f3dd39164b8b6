#include "render/streams.h"

#include "render/errors.h"
#include "render/interrupt.h"

#include <array>
#include <cerrno>
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

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

Descriptor::~Descriptor() {
    if (number_ > STDERR_FILENO) close(number_);
}

int Descriptor::release() {
    return std::exchange(number_, -1);
}

void fill_standard_descriptors() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(number, F_GETFD) < 0 && open("/dev/null", O_RDWR) != number) std::abort();
}

bool is_device(const fs::path& path) {
    if (path == kStandardStream) return true;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

bool is_standard_output(const fs::path& path) {
    if (path == kStandardStream) return true;
    struct stat named {};
    struct stat standard {};
    return stat(path.c_str(), &named) == 0 && fstat(STDOUT_FILENO, &standard) == 0 &&
           named.st_dev == standard.st_dev && named.st_ino == standard.st_ino;
}

std::string input_name(const fs::path& path) {
    return path == kStandardStream ? "standard input" : fmt::format("'{}'", path.string());
}

std::string output_name(const fs::path& path) {
    return path == kStandardStream ? "standard output" : fmt::format("'{}'", path.string());
}

Descriptor anonymous_file() {
    std::error_code error;
    fs::path folder = fs::temp_directory_path(error);
    if (error) folder = "/tmp";
    std::string name = (folder / "brisel-XXXXXX").string();
    Descriptor file(mkostemp(name.data(), O_CLOEXEC));
    if (!file)
        throw Failure(fmt::format("cannot make a temporary file in '{}': {}", folder.string(),
                                  std::strerror(errno)));
    unlink(name.c_str());
    return file;
}

Descriptor open_input(const fs::path& path) {
    std::error_code unknown;
    int number = STDIN_FILENO;
    if (path != kStandardStream) {
        number = fs::is_directory(path, unknown) ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fs::is_directory(path, unknown)) errno = EISDIR;
    }
    if (number < 0)
        throw Failure(fmt::format("cannot read {}: {}", input_name(path), std::strerror(errno)));
    return Descriptor(number);
}

void copy_all(int from, int to) {
    std::array<char, 1 << 16> buffer{};
    for (;;) {
        const ssize_t size = read(from, buffer.data(), buffer.size());
        check_interrupt();
        if (size == 0) return;
        if (size < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category());
        if (size > 0) write_all(to, {buffer.data(), static_cast<size_t>(size)});
    }
}

void write_all(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        check_interrupt();
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0)
            throw std::system_error(written < 0 ? errno : EIO, std::generic_category());
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

} // namespace brisel::render
