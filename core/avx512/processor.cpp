#include "core/avx512/units.h"

namespace brisel {

// Weak, so that a test's own definition can keep every processor to AVX2.
__attribute__((weak)) bool wide_vectors() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512dq");
}

} // namespace brisel
