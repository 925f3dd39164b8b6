// Memory for samples that belongs to its object.
#ifndef BRISEL_LIVE_STORAGE_H
#define BRISEL_LIVE_STORAGE_H

#include <cstdlib>
#include <memory>

#include "core/aligned_memory.h"

namespace brisel::live {

struct FreeFloats {
    void operator()(float* memory) const { std::free(memory); }
};
using Floats = std::unique_ptr<float[], FreeFloats>;

// Zero-filled and in memory already touched; null when memory runs out.
inline Floats make_floats(uint64_t count) {
    return Floats(allocate_floats(count));
}

} // namespace brisel::live

#endif
