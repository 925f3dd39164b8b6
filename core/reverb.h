// The reverb object as the library allocates it: the public record and, behind it, what only the
// library knows.
#ifndef BRISEL_CORE_REVERB_H
#define BRISEL_CORE_REVERB_H

#include "brisel/reverb.h"
#include "core/ffdn_block.h"

namespace brisel {

// Storage is taken once, at creation, for the largest network that any settings need. A change of
// settings lays the new network out in it and silences only what was written since the last change:
// the audio thread may change settings and never meets the allocator or a page fault.
struct ReverbObject {
    qv_reverb pub;           // first: a pointer to it is a pointer to the object
    float* ring;             // of the engine's lines
    float* tap_block;        // the engine's
    float* work_block;       // the engine's
    float* er_ring;          // of the early reflections
    uint64_t frames_written; // since the storage was last silent, in every ring

    // Parts of a network that few settings decide, ready to be copied into it.
    ffdn_block_stage stages[BRISEL_MAX_STAGES]; // silent; K stages are the first K of them
    ModulationDraws modulation;
    ffdn_er taps;    // of early reflections of taps_size, without a ring
    float taps_size; // seconds; 0 before there are taps
};

inline ReverbObject& object_of(qv_reverb* rev) {
    return *reinterpret_cast<ReverbObject*>(rev);
}

} // namespace brisel

#endif
