// Stands between this process, the shared library included, and what a real-time thread must not
// call: the allocator, whose functions the test program defines itself and the dynamic linker
// therefore prefers, and the kernel, by syscall user dispatch, which stops any system call however
// it is made. Counts allocations and lets chosen ones fail. All of it is per thread. (That the
// library calls no lock at all shows in the list of what it imports: library_test.sh.)
#ifndef BRISEL_TESTS_INTERPOSER_H
#define BRISEL_TESTS_INTERPOSER_H

#include <cstdint>
#include <string>

namespace interposer {

// What has happened since start().
struct Report {
    std::string forbidden; // the first forbidden call, "" for none
    long page_faults;
};
void start();
Report stop();

// Runs `work` as a real-time thread would; what it forbids is carried out all the same.
template <typename Work>
Report in_real_time(Work work) {
    start();
    work();
    return stop();
}

// False where the kernel has no syscall user dispatch: system calls then go unnoticed.
bool sees_system_calls();

// What a call did while this thread's allocation number `fail` (from 1; 0 for none) found no
// memory.
struct Allocations {
    uint64_t requested;
    int64_t outstanding; // blocks allocated less blocks released
};
void let_fail(uint64_t fail);
Allocations allocations();

template <typename Call>
Allocations with_failing_allocation(uint64_t fail, Call call) {
    let_fail(fail);
    call();
    const Allocations made = allocations();
    let_fail(0);
    return made;
}

} // namespace interposer

#endif
