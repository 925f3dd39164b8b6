// A file that appears under its name only when it is complete. Owns the temporary file beside the
// target, the rename and the cleaning up; leaves the contents to others.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace brisel::render {

// Regular targets are written to a temporary file in the same folder, which replaces the target at
// commit() and is removed when none comes. Anything else that exists (a device, a pipe) cannot be
// replaced and is written in place. A symbolic link to a file stays and the file is replaced.
class OutputFile {
public:
    // Throws Failure when the file cannot be made.
    explicit OutputFile(const std::filesystem::path& target);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int descriptor() const { return descriptor_; }
    // The file that descriptor() writes to; empty for what is written in place.
    const std::filesystem::path& temporary() const { return temporary_; }

    // Throws Failure when the last bytes cannot be written or the target cannot be replaced.
    void commit();

private:
    std::filesystem::path target_;
    std::filesystem::path temporary_;
    int descriptor_ = -1;
};

// Whether something that is no regular file lies at `path`.
bool is_device(const std::filesystem::path& path);

// Small files as a whole. Both throw Failure.
void write_file(const std::filesystem::path& target, std::string_view contents);
std::string read_file(const std::filesystem::path& file);

} // namespace brisel::render
