// Renders every raw file of a list, mono float32, through one preset, tail included: NAME.raw
// becomes NAME.raw.wet, two channels, interleaved. Each thread has a reverb of its own and takes
// the next file.
//
//   c++ -std=c++20 offline_batch.cpp $(pkg-config --cflags --libs brisel-live) -pthread -o batch
//   ./batch "Grand Hall" 48000 *.raw
#include <algorithm>
#include <atomic>
#include <brisel/live.hpp>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

bool read(const std::string& name, std::vector<float>& to) {
    std::ifstream file(name, std::ios::binary | std::ios::ate);
    if (!file) return false;
    to.resize(static_cast<size_t>(file.tellg()) / sizeof(float));
    file.seekg(0);
    const auto bytes = static_cast<std::streamsize>(to.size() * sizeof(float));
    return static_cast<bool>(file.read(reinterpret_cast<char*>(to.data()), bytes));
}

bool render(brisel::Live& reverb, const std::string& name) {
    std::vector<float> dry;
    if (!read(name, dry)) return false;
    reverb.reset(); // no tail of the file before
    dry.resize(dry.size() + reverb.tail_frames(), 0.0f);
    std::vector<float> left(dry.size()), right(dry.size()), both(2 * dry.size());
    if (reverb.process(dry, {}, left, right) != BRISEL_LIVE_OK) return false; // all of it at once
    for (size_t t = 0; t < dry.size(); ++t) both[2 * t] = left[t], both[2 * t + 1] = right[t];
    std::ofstream file(name + ".wet", std::ios::binary);
    const auto bytes = static_cast<std::streamsize>(both.size() * sizeof(float));
    return file.write(reinterpret_cast<const char*>(both.data()), bytes) && file.flush();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) return std::fprintf(stderr, "usage: batch PRESET RATE FILE...\n"), 2;
    std::atomic<int> next = 3, failures = 0;
    const auto work = [&] {
        auto reverb = brisel::Live::make(std::atof(argv[2]), 4096);
        brisel_live_status status = reverb.status();
        if (reverb) status = reverb->load_preset(argv[1]);
        if (status != BRISEL_LIVE_OK) {
            std::fprintf(stderr, "batch: %s\n", brisel_live_strerror(status));
            failures += 1;
            return;
        }
        for (int k = next++; k < argc; k = next++) {
            if (render(*reverb, argv[k])) continue;
            std::fprintf(stderr, "batch: cannot render %s\n", argv[k]);
            failures += 1;
        }
    };
    std::vector<std::jthread> threads(std::max(1u, std::thread::hardware_concurrency()));
    for (std::jthread& thread : threads) thread = std::jthread(work);
    for (std::jthread& thread : threads) thread.join();
    return failures > 0;
}
