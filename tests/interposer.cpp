// The interposed functions and the system-call trap behind interposer.h.
#include "tests/interposer.h"

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <ucontext.h>

// What the dynamic linker allocates for itself reaches the leak checker under the interposer's name.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:ld-linux-x86-64\n";
}

// The allocator proper: that of a sanitizer where one is linked, glibc's otherwise.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
__attribute__((weak)) void* __interceptor_malloc(size_t);
__attribute__((weak)) void* __interceptor_calloc(size_t, size_t);
__attribute__((weak)) void* __interceptor_realloc(void*, size_t);
__attribute__((weak)) void* __interceptor_memalign(size_t, size_t);
__attribute__((weak)) void __interceptor_free(void*);
}

namespace {

struct ThreadState {
    bool real_time;
    const char* first_forbidden; // a function's name
    long first_system_call;      // or a system call's number, -1 for none
    uint64_t forbidden;
    uint64_t requested, fail_first;
    bool fail_later;
    int64_t outstanding;
    volatile char dispatch; // the kernel's selector
};
thread_local constinit ThreadState state = {false, nullptr, -1, 0, 0, 0, false, 0, 0};

// Of <linux/prctl.h>, which not every build machine has that new.
constexpr int kSetSyscallUserDispatch = 59;
constexpr unsigned long kDispatchOn = 1;
constexpr char kAllow = 0, kBlock = 1;
constexpr int kUserDispatchCode = 2;

void note(const char* function) {
    if (!state.real_time) return;
    if (state.forbidden++ == 0) state.first_forbidden = function;
}

// Counts an allocation and tells whether it is to fail.
bool refused(const char* function) {
    note(function);
    ++state.requested;
    if (state.fail_first == 0) return false;
    return state.fail_later ? state.requested >= state.fail_first
                            : state.requested == state.fail_first;
}

void* counted(void* block) {
    if (block) ++state.outstanding;
    return block;
}

void* out_of_memory() {
    errno = ENOMEM;
    return nullptr;
}

void* allocate_aligned(size_t alignment, size_t size) {
    return __interceptor_memalign ? __interceptor_memalign(alignment, size)
                                  : __libc_memalign(alignment, size);
}

// A blocked system call: notes it, then has it carried out by returning to the instruction itself, two
// bytes back, with the trap off.
void on_blocked_system_call(int, siginfo_t* info, void* context) {
    state.dispatch = kAllow;
    if (info->si_code != kUserDispatchCode) abort();
    if (state.forbidden++ == 0) state.first_system_call = info->si_syscall;
    auto* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    registers[REG_RIP] -= 2;
    registers[REG_RAX] = info->si_syscall;
}

bool arm_system_call_trap() {
    thread_local const bool armed = [] {
        struct sigaction action = {};
        action.sa_sigaction = on_blocked_system_call;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSYS, &action, nullptr);
        return prctl(kSetSyscallUserDispatch, kDispatchOn, 0, 0, &state.dispatch) == 0;
    }();
    return armed;
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

RealTimeScope::RealTimeScope() {
    arm_system_call_trap();
    touch_stack();
    state.first_forbidden = nullptr;
    state.first_system_call = -1;
    state.forbidden = 0;
    faults_before_ = page_faults();
    state.real_time = true;
    state.dispatch = kBlock;
}

RealTimeScope::~RealTimeScope() {
    state.dispatch = kAllow;
    state.real_time = false;
}

Report RealTimeScope::finish() {
    state.dispatch = kAllow;
    state.real_time = false;
    Report report = {"", page_faults() - faults_before_};
    if (state.forbidden > 0) {
        report.forbidden = state.first_forbidden
                               ? state.first_forbidden
                               : "system call " + std::to_string(state.first_system_call);
        report.forbidden += ", " + std::to_string(state.forbidden) + " forbidden calls in all";
    }
    return report;
}

bool sees_system_calls() {
    return arm_system_call_trap();
}

FailingAllocations::FailingAllocations(uint64_t first, bool all_later) {
    state.requested = 0;
    state.outstanding = 0;
    state.fail_later = all_later;
    state.fail_first = first;
}

FailingAllocations::~FailingAllocations() {
    state.fail_first = 0;
}

uint64_t FailingAllocations::requested() const {
    return state.requested;
}

int64_t FailingAllocations::outstanding() const {
    return state.outstanding;
}

} // namespace interposer

// ---- The allocator ---------------------------------------------------------------------------------

extern "C" void* malloc(size_t size) noexcept {
    if (refused("malloc")) return out_of_memory();
    return counted(__interceptor_malloc ? __interceptor_malloc(size) : __libc_malloc(size));
}

extern "C" void* calloc(size_t count, size_t size) noexcept {
    if (refused("calloc")) return out_of_memory();
    return counted(__interceptor_calloc ? __interceptor_calloc(count, size)
                                        : __libc_calloc(count, size));
}

extern "C" void* realloc(void* block, size_t size) noexcept {
    if (refused("realloc")) return out_of_memory();
    void* moved =
        __interceptor_realloc ? __interceptor_realloc(block, size) : __libc_realloc(block, size);
    return block ? moved : counted(moved);
}

extern "C" void* memalign(size_t alignment, size_t size) noexcept {
    if (refused("memalign")) return out_of_memory();
    return counted(allocate_aligned(alignment, size));
}

extern "C" void* aligned_alloc(size_t alignment, size_t size) noexcept {
    if (refused("aligned_alloc")) return out_of_memory();
    return counted(allocate_aligned(alignment, size));
}

extern "C" int posix_memalign(void** block, size_t alignment, size_t size) noexcept {
    if (refused("posix_memalign")) return ENOMEM;
    *block = counted(allocate_aligned(alignment, size));
    return *block ? 0 : ENOMEM;
}

extern "C" void free(void* block) noexcept {
    note("free");
    if (block) --state.outstanding;
    if (__interceptor_free)
        __interceptor_free(block);
    else
        __libc_free(block);
}

// ---- Locks and threads -----------------------------------------------------------------------------

// Without contention a lock never reaches the kernel, so the system-call trap alone would not see it.
#define BRISEL_INTERPOSE(function, qualifiers, parameters, arguments)                              \
    extern "C" int function parameters qualifiers {                                                \
        note(#function);                                                                           \
        static decltype(&::function) forward;                                                      \
        if (!forward)                                                                              \
            forward = reinterpret_cast<decltype(&::function)>(dlsym(RTLD_NEXT, #function));        \
        return forward arguments;                                                                  \
    }

BRISEL_INTERPOSE(pthread_mutex_lock, noexcept, (pthread_mutex_t * m), (m))
BRISEL_INTERPOSE(pthread_mutex_trylock, noexcept, (pthread_mutex_t * m), (m))
BRISEL_INTERPOSE(pthread_mutex_unlock, noexcept, (pthread_mutex_t * m), (m))
BRISEL_INTERPOSE(pthread_rwlock_rdlock, noexcept, (pthread_rwlock_t * l), (l))
BRISEL_INTERPOSE(pthread_rwlock_wrlock, noexcept, (pthread_rwlock_t * l), (l))
BRISEL_INTERPOSE(pthread_spin_lock, noexcept, (pthread_spinlock_t * l), (l))
BRISEL_INTERPOSE(pthread_cond_signal, noexcept, (pthread_cond_t * c), (c))
BRISEL_INTERPOSE(pthread_cond_wait, , (pthread_cond_t * c, pthread_mutex_t* m), (c, m))
BRISEL_INTERPOSE(sem_post, noexcept, (sem_t * s), (s))
BRISEL_INTERPOSE(sem_wait, , (sem_t * s), (s))
BRISEL_INTERPOSE(pthread_create, noexcept,
                 (pthread_t * t, const pthread_attr_t* a, void* (*f)(void*), void* p), (t, a, f, p))
