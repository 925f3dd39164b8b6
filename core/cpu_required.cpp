// In a program: ends it where the processor does not run the vector code, before any initialiser of
// its own, which may hold such code already.
#include <cstdlib>

#include "core/cpu.h"

namespace {

constexpr int kFirst = 101; // the earliest that is not the compiler's

[[gnu::constructor(kFirst)]] void require_processor() {
    if (!brisel::processor_serves_or_complain()) std::_Exit(1);
}

} // namespace
