// What every benchmark program begins with: its options, its floating-point mode, the machine's
// name.
#ifndef BRISEL_BENCH_PROGRAM_H
#define BRISEL_BENCH_PROGRAM_H

#include <immintrin.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <string>

namespace bench {

// Ends the program with 0 after --help and with 2 after a wrong option.
inline void parse_or_exit(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::exit(app.exit(error) == 0 ? 0 : 2);
    }
}

// Flush-to-zero and denormals-are-zero for the whole thread, as hosts set them for theirs.
inline void flush_to_zero() {
    _mm_setcsr(_mm_getcsr() | 0x8040);
}

inline std::string processor_name() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
    }
    return "unknown processor";
}

} // namespace bench

#endif
