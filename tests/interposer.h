// Stands between this process, the shared library included, and what a real-time thread must not call:
// the allocator and the locks (interposed functions, which the dynamic linker prefers because the test
// program defines them) and the kernel (syscall user dispatch, which stops any system call, however it
// is made). Counts allocations, lets chosen ones fail, and reports what happens inside a real-time
// scope. All of it is per thread.
#ifndef BRISEL_TESTS_INTERPOSER_H
#define BRISEL_TESTS_INTERPOSER_H

#include <cstdint>
#include <string>

namespace interposer {

// What a real-time scope has met: "" for nothing, or the first forbidden call and how many there were.
struct Report {
    std::string forbidden;
    long page_faults; // minor and major
};

// From construction to finish() every call of this thread into the allocator, the locks or the kernel is
// noted; it is carried out all the same.
class RealTimeScope {
public:
    RealTimeScope();
    ~RealTimeScope();
    RealTimeScope(const RealTimeScope&) = delete;
    RealTimeScope& operator=(const RealTimeScope&) = delete;
    Report finish();

private:
    long faults_before_;
};

// Runs `work` in a real-time scope.
template <typename Work>
Report in_real_time(Work work) {
    RealTimeScope scope;
    work();
    return scope.finish();
}

// False where the kernel has no syscall user dispatch: system calls then go unnoticed.
bool sees_system_calls();

// While it lives, this thread's allocation number `first` (counted from 1) fails, and with `all_later`
// every one behind it; 0 lets none fail.
class FailingAllocations {
public:
    explicit FailingAllocations(uint64_t first, bool all_later = false);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
    uint64_t requested() const;  // allocations asked for since construction
    int64_t outstanding() const; // blocks allocated and not released since construction
};

} // namespace interposer

#endif
