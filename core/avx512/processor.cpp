#include "core/avx2/loop/feedback_loop.h"

namespace brisel {

// Weak, so that a test's own definition can keep a processor on the loops for AVX2.
__attribute__((weak)) bool wide_loop_available() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512dq");
}

} // namespace brisel
