#include "core/cpu.h"

#include <cstdio>

namespace brisel {

bool processor_serves() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

bool processor_serves_or_complain() {
    if (processor_serves()) return true;
    std::fputs("Brisel needs a processor with AVX2 and FMA; this one lacks them.\n", stderr);
    return false;
}

} // namespace brisel
