// For the plug-ins' audio binaries, which need libc and libm only: the few functions through which
// the C++ standard library would allocate and throw. Without these, all of its machinery for
// exceptions comes along, which takes 70 KiB when the library is loaded, never gives them back, and
// needs the loader's thread-local storage. Nothing here throws: a check that fails is a bug, and
// ends the program as an assertion does.
#include <cstddef>
#include <cstdlib>
#include <new>

// NOLINTBEGIN: names, namespace and form are the library's.
namespace std {

// All that the library defines in one place: if one were missing, its own would come along with the
// rest.
[[noreturn]] void __throw_bad_exception() {
    abort();
}
[[noreturn]] void __throw_bad_alloc() {
    abort();
}
[[noreturn]] void __throw_bad_cast() {
    abort();
}
[[noreturn]] void __throw_bad_typeid() {
    abort();
}
[[noreturn]] void __throw_bad_array_new_length() {
    abort();
}
[[noreturn]] void __throw_logic_error(const char*) {
    abort();
}
[[noreturn]] void __throw_domain_error(const char*) {
    abort();
}
[[noreturn]] void __throw_invalid_argument(const char*) {
    abort();
}
[[noreturn]] void __throw_length_error(const char*) {
    abort();
}
[[noreturn]] void __throw_out_of_range(const char*) {
    abort();
}
[[noreturn]] void __throw_runtime_error(const char*) {
    abort();
}
[[noreturn]] void __throw_range_error(const char*) {
    abort();
}
[[noreturn]] void __throw_overflow_error(const char*) {
    abort();
}
[[noreturn]] void __throw_underflow_error(const char*) {
    abort();
}
[[noreturn]] void __throw_out_of_range_fmt(const char*, ...) {
    abort();
}

} // namespace std
// NOLINTEND

namespace {

void* checked(void* memory) {
    if (!memory) std::abort();
    return memory;
}

} // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size > 0 ? size : 1);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    const auto multiple = static_cast<std::size_t>(alignment);
    return std::aligned_alloc(multiple, (size + multiple - 1) / multiple * multiple);
}
void* operator new(std::size_t size) {
    return checked(operator new(size, std::nothrow));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return checked(operator new(size, alignment, std::nothrow));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
