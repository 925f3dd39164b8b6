#include "tests/interposer.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <ucontext.h>

// What the dynamic linker allocates for itself reaches the leak checker under the interposer's
// name.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:ld-linux-x86-64\n";
}

// The allocator proper: that of a sanitizer where one is linked, glibc's otherwise.
extern "C" {
void* __libc_memalign(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
__attribute__((weak)) void* __interceptor_malloc(size_t); // alone serves the linker at the start
__attribute__((weak)) void* __interceptor_memalign(size_t, size_t);
__attribute__((weak)) void* __interceptor_realloc(void*, size_t);
__attribute__((weak)) void __interceptor_free(void*);
}

namespace {

struct ThreadState {
    const char* forbidden; // the first function called in real time
    long system_call;      // or the first system call's number
    uint64_t requested, fail;
    int64_t outstanding;
    long faults_before;
    bool real_time;
    volatile char dispatch; // the kernel's selector
};
thread_local constinit ThreadState state = {};

// Of <linux/prctl.h>, which not every build machine has that new.
constexpr int kSetSyscallUserDispatch = 59;
constexpr char kAllow = 0, kBlock = 1;
constexpr int kUserDispatchCode = 2;

constexpr size_t kUsual = 16; // alignment that malloc gives, bytes

void note(const char* function) {
    if (state.real_time && !state.forbidden) state.forbidden = function;
}

void* allocate(const char* function, size_t alignment, size_t size) {
    note(function);
    if (++state.requested == state.fail) {
        errno = ENOMEM;
        return nullptr;
    }
    void* block = !__interceptor_malloc ? __libc_memalign(alignment, size)
                  : alignment == kUsual ? __interceptor_malloc(size)
                                        : __interceptor_memalign(alignment, size);
    state.outstanding += block != nullptr;
    return block;
}

// A blocked system call: notes it, then has it carried out by returning to the instruction itself,
// two bytes back, with the trap off.
void on_blocked_system_call(int, siginfo_t* info, void* context) {
    state.dispatch = kAllow;
    if (info->si_code != kUserDispatchCode) abort();
    if (state.system_call < 0) state.system_call = info->si_syscall;
    auto* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    registers[REG_RIP] -= 2;
    registers[REG_RAX] = info->si_syscall;
}

// Takes the pages of the stack that a call may need.
__attribute__((noinline)) void touch_stack() {
    volatile char pages[512 * 1024];
    for (size_t k = 0; k < sizeof pages; k += 1024) pages[k] = 0;
}

long page_faults() {
    rusage usage = {};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_minflt + usage.ru_majflt;
}

} // namespace

namespace interposer {

bool sees_system_calls() {
    thread_local const bool armed = [] {
        struct sigaction action = {};
        action.sa_sigaction = on_blocked_system_call;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSYS, &action, nullptr);
        return prctl(kSetSyscallUserDispatch, 1UL, 0, 0, &state.dispatch) == 0;
    }();
    return armed;
}

void start() {
    sees_system_calls();
    touch_stack();
    state.forbidden = nullptr;
    state.system_call = -1;
    state.faults_before = page_faults();
    state.real_time = true;
    state.dispatch = kBlock;
}

Report stop() {
    state.dispatch = kAllow;
    state.real_time = false;
    const long faults = page_faults() - state.faults_before;
    if (state.forbidden) return {state.forbidden, faults};
    if (state.system_call < 0) return {"", faults};
    return {"system call " + std::to_string(state.system_call), faults};
}

void let_fail(uint64_t fail) {
    state.requested = 0;
    state.outstanding = 0;
    state.fail = fail;
}

Allocations allocations() {
    return {state.requested, state.outstanding};
}

} // namespace interposer

extern "C" void* malloc(size_t size) noexcept {
    return allocate("malloc", kUsual, size);
}

extern "C" void* calloc(size_t count, size_t size) noexcept {
    size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
    auto* block = static_cast<volatile char*>(allocate("calloc", kUsual, bytes));
    for (size_t k = 0; block && k < bytes; ++k) block[k] = 0;
    return const_cast<char*>(block);
}

extern "C" void* aligned_alloc(size_t alignment, size_t size) noexcept {
    return allocate("aligned_alloc", alignment, size);
}

extern "C" void* realloc(void* block, size_t size) noexcept {
    note("realloc");
    state.outstanding += block == nullptr;
    return __interceptor_realloc ? __interceptor_realloc(block, size) : __libc_realloc(block, size);
}

extern "C" void free(void* block) noexcept {
    note("free");
    state.outstanding -= block != nullptr;
    __interceptor_free ? __interceptor_free(block) : __libc_free(block);
}
