// Ctrl-C and its like end a run between two blocks, so that everything half-done is cleaned up on
// the way out.
#pragma once

namespace brisel::render {

// Thrown by check_interrupt; main() ends the process by the signal itself.
struct Interrupted {
    int signal;
};

// Turns SIGINT, SIGTERM and SIGHUP into a note that check_interrupt finds, and a write beyond a
// file-size limit into an error of the write instead of the process's end.
void catch_signals();

// Throws Interrupted once one of the signals has come.
void check_interrupt();

// Ends the process as the signal would have, for the shell to see.
[[noreturn]] void die_by_signal(int signal);

} // namespace brisel::render
