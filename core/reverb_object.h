// The reverb object as the library allocates it: the public record and, behind it, what only the
// library knows.
#ifndef BRISEL_CORE_REVERB_OBJECT_H
#define BRISEL_CORE_REVERB_OBJECT_H

#include "brisel/reverb.h"
#include "core/ffdn_block_storage.h"

namespace brisel {

// Storage is taken once, at creation, for the largest network that any settings need. A change of
// settings lays the new network out in it and silences only what was written since the last change:
// the audio thread may change settings and never meets the allocator or a page fault.
struct ReverbObject {
    qv_reverb pub; // first: a pointer to it is a pointer to the object
    NetworkStorage network;
    float* er_ring;
    uint64_t frames_written; // since the storage was last silent, in every ring
};

inline ReverbObject& object_of(qv_reverb* rev) {
    return *reinterpret_cast<ReverbObject*>(rev);
}

} // namespace brisel

#endif
