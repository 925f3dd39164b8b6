#include "render/interrupt.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace brisel::render {

namespace {

std::atomic<int> caught_signal = 0;
static_assert(std::atomic<int>::is_always_lock_free); // as a handler needs it

void note_signal(int signal) {
    caught_signal = signal;
}

} // namespace

void catch_signals() {
    struct sigaction action {};
    action.sa_handler = note_signal;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: whatever waits for a pipe shall end, too. What waits all the same, inside a
    // library, is ended by a second signal.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        sigaction(signal, nullptr, &before);
        // A signal that the parent has switched off (nohup, a background job) stays off.
        if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
    }
    std::signal(SIGXFSZ, SIG_IGN);
}

void check_interrupt() {
    if (const int signal = caught_signal) throw Interrupted{signal};
}

void die_by_signal(int signal) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    std::_Exit(128 + signal);
}

} // namespace brisel::render
