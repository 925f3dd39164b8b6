// What the library says of itself and of the processor that it runs on.
#include <cpuid.h>

#include "brisel/reverb.h"

const char* qv_dsp_version(void) {
    return BRISEL_VERSION;
}

uint32_t qv_dsp_cpu_features(void) {
    uint32_t eax = 0;
    uint32_t ebx = 0;
    uint32_t ecx = 0;
    uint32_t edx = 0;
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) return 0;
    const uint32_t avx2 = (ebx >> 5) & 1;
    const uint32_t avx512f = (ebx >> 16) & 1;
    return avx2 | avx512f << 1;
}
