// Zero-filled storage for the vector kernels, 64-byte aligned, released by free().
#ifndef BRISEL_CORE_ALIGNED_MEMORY_H
#define BRISEL_CORE_ALIGNED_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace brisel {

// Null when memory runs out or the size does not fit.
inline float* allocate_floats(uint64_t count) {
    if (count > SIZE_MAX / sizeof(float) - 64) return nullptr;
    const size_t bytes = (static_cast<size_t>(count) * sizeof(float) + 63) & ~size_t{63};
    void* memory = std::aligned_alloc(64, bytes);
    if (memory) std::memset(memory, 0, bytes);
    return static_cast<float*>(memory);
}

// Frees what a record owns and leaves its pointer null.
template <typename T>
void release(T*& pointer) {
    std::free(pointer);
    pointer = nullptr;
}

} // namespace brisel

#endif
