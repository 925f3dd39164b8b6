// A file that appears under its name only when it is complete. Owns the temporary file beside the
// target, the rename and the cleaning up; leaves the contents to others.
#pragma once

#include "render/streams.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace brisel::render {

// Regular targets are written to a temporary file in the same folder, which replaces the target at
// commit() and is removed when none comes. The target's mode is kept, and of a symbolic link the
// file that it leads to is replaced. Anything else (standard output, a device, a pipe) is written
// in place.
class OutputFile {
public:
    // "-" is standard output. Throws Failure when the file cannot be made.
    explicit OutputFile(const std::filesystem::path& target);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int descriptor() const { return descriptor_.get(); }
    bool in_place() const { return temporary_.empty(); }
    // Written in place, and yet a file of its own: `brisel-render in.wav - >out.wav`.
    bool is_rewritable() const { return rewritable_; }

    // Throws Failure when the last bytes cannot be written or the target cannot be replaced.
    void commit();

private:
    [[noreturn]] void fail(int error) const;
    void make_temporary();

    std::filesystem::path target_;
    std::filesystem::path temporary_;
    Descriptor descriptor_;
    bool rewritable_ = false;
};

// Small files as a whole; "-" is standard input or output. Both throw Failure.
void write_file(const std::filesystem::path& target, std::string_view contents);
std::string read_file(const std::filesystem::path& file);

} // namespace brisel::render
