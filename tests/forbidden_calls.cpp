#include "tests/forbidden_calls.h"

#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

// Keeps the compiler from removing a call whose result nobody needs, and blocks from being leaks.
void* volatile kept[32];
size_t kept_count = 0;
volatile long result;

void keep(void* block) {
    kept[kept_count++ % 32] = block;
}

// Taken before the real-time scope.
void* block = malloc(1000);
void* page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_rwlock_t rwlock = PTHREAD_RWLOCK_INITIALIZER;
pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
sem_t semaphore; // of value 0

void* idle(void* argument) {
    return argument;
}

const ForbiddenCall functions[] = {
    {"malloc", [] { keep(malloc(10)); }},
#if !defined(BRISEL_SANITIZED) // which replaces this one whole
    {"malloc", [] { keep(strdup("libc's own")); }},
#endif
    {"calloc", [] { keep(calloc(3, 7)); }},
    {"realloc", [] { block = realloc(block, 5000); }},
    {"free", [] { free(block); }},
    {"memalign", [] { keep(memalign(64, 64)); }},
    {"aligned_alloc", [] { keep(aligned_alloc(32, 64)); }},
    {"posix_memalign",
     [] {
         void* aligned = nullptr;
         result = posix_memalign(&aligned, 64, 64);
         keep(aligned);
     }},
    {"pthread_mutex_lock", [] { pthread_mutex_lock(&mutex); }},
    {"pthread_mutex_trylock", [] { result = pthread_mutex_trylock(&mutex); }},
    {"pthread_mutex_unlock", [] { pthread_mutex_unlock(&mutex); }},
    {"pthread_rwlock_rdlock", [] { pthread_rwlock_rdlock(&rwlock); }},
    {"pthread_rwlock_wrlock",
     [] {
         pthread_rwlock_unlock(&rwlock);
         pthread_rwlock_wrlock(&rwlock);
     }},
    {"pthread_cond_signal", [] { pthread_cond_signal(&condition); }},
    {"sem_post", [] { sem_post(&semaphore); }},
    {"sem_wait", [] { sem_wait(&semaphore); }},
    {"pthread_create",
     [] {
         pthread_t thread;
         if (pthread_create(&thread, nullptr, idle, nullptr) == 0) pthread_join(thread, nullptr);
     }},
};

const ForbiddenCall system_calls[] = {
    {"system call 9,",
     [] { keep(mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)); }},
    {"system call 28,", [] { madvise(page, 4096, MADV_DONTNEED); }},
    {"system call 11,", [] { munmap(page, 4096); }},
    {"system call 257,", [] { close(open("/dev/null", O_WRONLY)); }},
    {"system call 1,", [] { result = write(-1, "x", 1); }},
    {"system call 0,",
     [] {
         char byte;
         result = read(-1, &byte, 1);
     }},
    {"system call 230,",
     [] {
         const timespec moment = {0, 1};
         clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
     }},
    {"system call 202,",
     [] {
         static int word; // nobody waits on it
         result = syscall(SYS_futex, &word, 1 /* wake */, 1, nullptr, nullptr, 0);
     }},
    // Without any function of libc.
    {"system call 110,",
     [] {
         long parent;
         asm volatile("syscall" : "=a"(parent) : "a"(long{SYS_getppid}) : "rcx", "r11", "memory");
         result = parent;
     }},
};

} // namespace

std::span<const ForbiddenCall> forbidden_functions() {
    return functions;
}

std::span<const ForbiddenCall> forbidden_system_calls() {
    return system_calls;
}
