// Whether this processor runs the vector code. What calls this before any vector code is compiled
// for every x86-64 processor, as cpu.cpp is.
#ifndef BRISEL_CORE_CPU_H
#define BRISEL_CORE_CPU_H

namespace brisel {

// AVX2 and FMA, and a system that keeps their registers. [any-thread]
bool processor_serves();

// The same, and where it does not, a line about it on standard error. [main-thread]
bool processor_serves_or_complain();

} // namespace brisel

#endif
