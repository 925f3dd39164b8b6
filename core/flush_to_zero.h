// Flush-to-zero and denormals-are-zero for the length of a scope.
#ifndef BRISEL_CORE_FLUSH_TO_ZERO_H
#define BRISEL_CORE_FLUSH_TO_ZERO_H

#include <cstdint>

namespace brisel {

// The control word is switched by volatile assembler with a memory clobber: the intrinsics for
// MXCSR are no barrier for floating-point code, so the compiler could move work across them.
// Arithmetic on values in registers only could still cross: everything between construction and
// destruction must go through memory or through a call that is not inlined.
class FlushToZeroScope {
public:
    FlushToZeroScope() : saved_(read()) { write(saved_ | kFlushToZero | kDenormalsAreZero); }
    ~FlushToZeroScope() { write(saved_); }
    FlushToZeroScope(const FlushToZeroScope&) = delete;
    FlushToZeroScope& operator=(const FlushToZeroScope&) = delete;

private:
    static constexpr uint32_t kFlushToZero = 0x8000;
    static constexpr uint32_t kDenormalsAreZero = 0x0040;

    static uint32_t read() {
        uint32_t mxcsr;
        asm volatile("stmxcsr %0" : "=m"(mxcsr) : : "memory");
        return mxcsr;
    }
    static void write(uint32_t mxcsr) { asm volatile("ldmxcsr %0" : : "m"(mxcsr) : "memory"); }

    uint32_t saved_;
};

} // namespace brisel

#endif
