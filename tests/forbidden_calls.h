// What a real-time thread must not do, as functions of a shared library of its own: what the interposer
// sees of these, it sees of any other library.
#ifndef BRISEL_TESTS_FORBIDDEN_CALLS_H
#define BRISEL_TESTS_FORBIDDEN_CALLS_H

#include <span>

struct ForbiddenCall {
    const char* reported; // how the interposer's report begins
    void (*call)();
};

std::span<const ForbiddenCall> forbidden_functions();    // of the allocator, locks, threads
std::span<const ForbiddenCall> forbidden_system_calls(); // by their numbers

#endif
