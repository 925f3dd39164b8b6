// Standard input and output under the name "-", pipes, and the temporary files that stand in where
// a pipe will not do.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace brisel::render {

inline constexpr std::string_view kStandardStream = "-";

// Closes what it holds, unless that is standard input or output.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();

    int get() const { return number_; }
    int release();
    explicit operator bool() const { return number_ >= 0; }

private:
    int number_ = -1;
};

// Opens those of the three standard descriptors that the parent has closed: a result would
// otherwise take the place of one, and get what is written there.
void fill_standard_descriptors();

// Whether something that is no regular file lies at `path`, standard output included.
bool is_device(const std::filesystem::path& path);

// Whether writing to `path` writes to standard output, by whatever name.
bool is_standard_output(const std::filesystem::path& path);

// "standard input" for "-", else the path in quotation marks: for messages.
std::string input_name(const std::filesystem::path& path);
std::string output_name(const std::filesystem::path& path);

// A file without a name in the folder for temporary files, which is gone when it is closed.
// Throws Failure.
Descriptor anonymous_file();

// Opens `path`, or standard input, for reading. Throws Failure.
Descriptor open_input(const std::filesystem::path& path);

// Everything that is left in `from`, into `to`. Throws std::system_error; Interrupted at a signal.
void copy_all(int from, int to);

// All of `bytes`. Throws std::system_error; Interrupted at a signal.
void write_all(int descriptor, std::string_view bytes);

} // namespace brisel::render
