// Order statistics and the clock of the benchmark programs.
#ifndef BRISEL_BENCH_STATISTICS_H
#define BRISEL_BENCH_STATISTICS_H

#include <x86intrin.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <vector>

namespace bench {

// The value below which the share `q` of the samples lies; 0 without samples.
inline double quantile(std::vector<double> samples, double q) {
    if (samples.empty()) return 0.0;
    const auto rank = std::lround(q * static_cast<double>(samples.size() - 1));
    std::nth_element(samples.begin(), samples.begin() + rank, samples.end());
    return samples[static_cast<size_t>(rank)];
}

inline double median(const std::vector<double>& samples) {
    return quantile(samples, 0.5);
}

// The processor's time stamp counter: two stamps cost a few nanoseconds, where the system's clock
// takes twenty or more, too much beside a block of half a microsecond. What they cost is
// subtracted.
class Clock {
public:
    Clock() {
        using std::chrono::steady_clock;
        const auto start = steady_clock::now();
        const uint64_t first = __rdtsc();
        while (steady_clock::now() - start < std::chrono::milliseconds(50)) {
        }
        const uint64_t ticks = __rdtsc() - first;
        const std::chrono::duration<double, std::nano> elapsed = steady_clock::now() - start;
        ns_per_tick_ = elapsed.count() / static_cast<double>(ticks);
        std::vector<double> empty(1001);
        for (double& interval : empty) {
            const uint64_t stamp = __rdtsc();
            interval = static_cast<double>(__rdtsc() - stamp);
        }
        overhead_ticks_ = median(empty);
    }

    // Nanoseconds that `work` takes.
    template <typename Work>
    double time(Work work) const {
        const uint64_t stamp = __rdtsc();
        work();
        const auto ticks = static_cast<double>(__rdtsc() - stamp);
        return std::max(0.0, ticks - overhead_ticks_) * ns_per_tick_;
    }

private:
    double ns_per_tick_ = 0.0, overhead_ticks_ = 0.0;
};

} // namespace bench

#endif
