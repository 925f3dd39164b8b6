// Runs a fuzz target over files, without a fuzzer: how the corpus is kept as plain tests, and how
// one input is looked at in a debugger.
//
// usage: TARGET-replay FILE|FOLDER...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    std::vector<fs::path> files;
    for (int k = 1; k < argc; ++k) {
        if (!fs::is_directory(argv[k]))
            files.emplace_back(argv[k]);
        else
            for (const auto& entry : fs::directory_iterator(argv[k])) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::ifstream stream(file, std::ios::binary);
        const std::vector<char> bytes(std::istreambuf_iterator<char>(stream), {});
        // A failing target aborts: the last name shown is the culprit's.
        std::printf("%s, %zu bytes\n", file.c_str(), bytes.size());
        std::fflush(stdout);
        if (!stream) return 1;
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    return files.empty() ? 2 : 0;
}
