// What ends a run, and with which exit code. main() prints what() and returns the code.
#pragma once

#include <stdexcept>

namespace brisel::render {

// The command line is wrong, whatever the files hold: exit code 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Something else stands in the way: a file, its contents, the plug-in. Exit code 1.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A text is no value of its kind or out of range. Whoever knows where the text came from (an
// option, a line of a file) turns it into one of the above with the place in front.
struct ValueError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace brisel::render
