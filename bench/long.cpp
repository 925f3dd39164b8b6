// What takes minutes: hours of audio at the ends of every range, block times by signal, the offset
// that some settings keep, a thousand instances.
//
// usage: bench_long hours HOURS | times MINUTES | offsets SECONDS | instances COUNT
// Exit status 1 when a promise is broken; the figures are printed either way.
#include <brisel/reverb.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr int32_t kRate = 48000;
constexpr int32_t kBlock = 240; // the shortest line of all settings holds it

bool broken = false;

void require(bool condition, const char* what, const std::string& where) {
    if (condition) return;
    std::printf("BROKEN: %s: %s\n", where.c_str(), what);
    broken = true;
}

struct Range {
    const char* name;
    float qv_reverb_params::*field; // null for the switches below
    float low, high;
};
// The plug-in's ranges.
constexpr Range kRanges[] = {
    {"Size", &qv_reverb_params::size, 0.005f, 0.5f},
    {"Decay", &qv_reverb_params::t60, 0.1f, 10.0f},
    {"Brisel", nullptr, 0, 3},
    {"Damp", &qv_reverb_params::damp, 0, 1},
    {"Mix", &qv_reverb_params::mix, 0, 1},
    {"Width", &qv_reverb_params::width, 0, 1},
    {"Modulate", nullptr, 0, 1},
    {"Early Reflections", nullptr, 0, 1},
    {"ER Size", &qv_reverb_params::er_size, 0.0051f, 0.5f},
    {"ER Level", &qv_reverb_params::er_level, 0, 1},
    {"EQ Low", &qv_reverb_params::eq_low_db, -24, 24},
    {"EQ High", &qv_reverb_params::eq_high_db, -24, 24},
};
constexpr int kRangeCount = static_cast<int>(std::size(kRanges));

void put_at_end(qv_reverb_params& p, int which, bool high) {
    const Range& range = kRanges[which];
    const float value = high ? range.high : range.low;
    if (range.field) {
        p.*range.field = value;
        // Without early reflections their settings would not count.
        if (range.field == &qv_reverb_params::er_size || range.field == &qv_reverb_params::er_level)
            p.er_enable = 1;
    } else if (which == 2) {
        p.cascade_stages = static_cast<int32_t>(value);
    } else if (which == 6) {
        p.modulate = high;
    } else {
        p.er_enable = high;
    }
}

qv_reverb* make(const qv_reverb_params& params) {
    qv_reverb* rev = qv_reverb_create(kRate, kBlock);
    if (!rev || qv_reverb_set(rev, &params) != 0) {
        std::fprintf(stderr, "bench_long: settings refused\n");
        std::exit(2);
    }
    return rev;
}

qv_reverb_params defaults() {
    qv_reverb* rev = qv_reverb_create(kRate, kBlock);
    const qv_reverb_params params = rev->params;
    qv_reverb_destroy(rev);
    return params;
}

// Ten seconds of noise of full scale, read from a different place each block.
class Noise {
public:
    Noise() : samples_(10 * kRate + kBlock) {
        for (float& x : samples_) x = static_cast<float>(next()) * 0x1p-31f - 1.0f;
    }
    const float* block() { return samples_.data() + next() % (10 * kRate); }

private:
    uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    uint32_t state_ = 1;
    std::vector<float> samples_;
};

float peak(const float* left, const float* right) {
    float most = 0.0f;
    bool finite = true;
    for (int32_t t = 0; t < kBlock; ++t) {
        const float a = std::max(std::fabs(left[t]), std::fabs(right[t]));
        finite &= a < INFINITY && left[t] == left[t] && right[t] == right[t];
        most = std::max(most, a);
    }
    return finite ? most : INFINITY;
}

// Minutes of noise, of silence, of a constant, of clicks, over and over; then silence to the end.
void run_hours(double hours, const qv_reverb_params& params, const std::string& name) {
    Noise noise;
    qv_reverb* rev = make(params);
    std::vector<float> silence(kBlock), constant(kBlock, 1.0f), click(kBlock);
    click[0] = 1.0f;
    std::vector<float> left(kBlock), right(kBlock);
    const auto blocks = static_cast<int64_t>(hours * 3600 * kRate / kBlock);
    const int64_t minute = 60 * kRate / kBlock;
    float loudest = 0.0f;
    const auto start = std::chrono::steady_clock::now();
    for (int64_t b = 0; b < blocks; ++b) {
        const int64_t kind = b / minute % 4;
        const float* in = kind == 0   ? noise.block()
                          : kind == 1 ? silence.data()
                          : kind == 2 ? constant.data()
                                      : (b % 16 == 0 ? click : silence).data();
        qv_reverb_process(rev, in, kind == 0 ? noise.block() : in, left.data(), right.data(),
                          kBlock);
        loudest = std::max(loudest, peak(left.data(), right.data()));
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    // 20 decay times, 1200 dB, and what the lines hold: beyond the smallest number there is.
    const double tail = 20.0 * params.t60 + 4.0;
    float rest = 0.0f;
    for (double t = 0; t < tail + 1.0; t += double{kBlock} / kRate) {
        qv_reverb_process(rev, silence.data(), silence.data(), left.data(), right.data(), kBlock);
        rest = t < tail ? 0.0f : std::max(rest, peak(left.data(), right.data()));
    }
    bool keeps_offset = false;
    for (const float a1 : rev->engine.shelf_a1) keeps_offset |= a1 > 0.9999f;
    const bool shelves = rev->eq.active != 0;
    std::printf("%-24s %5.0f s  loudest %9.3g  %.0f s later %.3g%s\n", name.c_str(),
                seconds.count(), double{loudest}, tail, double{rest},
                keeps_offset ? "  (slow filters)" : "");
    std::fflush(stdout);
    require(std::isfinite(loudest), "not finite", name);
    if (!keeps_offset) require(rest <= (shelves ? 1e-33f : 0.0f), "does not decay", name);
    qv_reverb_destroy(rev);
}

void hours_at_every_end(double hours) {
    std::printf("%g hours of audio at 48 kHz a line\n", hours);
    for (int which = 0; which < kRangeCount; ++which) {
        for (const bool high : {false, true}) {
            qv_reverb_params params = defaults();
            put_at_end(params, which, high);
            run_hours(hours, params, std::string(kRanges[which].name) + (high ? " max" : " min"));
        }
    }
    for (const uint32_t ends : {0x000u, 0xFFFu, 0x5A6u, 0xA59u, 0xF8Du, 0x3F6u}) {
        qv_reverb_params params = defaults();
        char name[32];
        std::snprintf(name, sizeof name, "ends %03x", ends);
        for (int which = kRangeCount - 1; which >= 0; --which)
            put_at_end(params, which, ends >> which & 1);
        run_hours(hours, params, name);
    }
}

// ---- Block times --------------------------------------------------------------------------------

struct Times {
    double median, p999, worst; // nanoseconds a frame
    double noise;               // median of a second reverb beside it, on noise
};

// Signal and noise in turn, block by block: whatever slows the machine slows both. Three passes
// over the same blocks; a block counts with its shortest time, so that what the system did
// meanwhile stays out as far as it can.
template <typename Input>
Times time_blocks(const qv_reverb_params& params, int64_t blocks, Input input, Noise& noise) {
    using Clock = std::chrono::steady_clock;
    std::vector<float> left(kBlock), right(kBlock);
    std::vector<double> times[2];
    for (auto& side : times) side.assign(static_cast<size_t>(blocks), INFINITY);
    for (int pass = 0; pass < 3; ++pass) {
        qv_reverb* revs[2] = {make(params), make(params)};
        for (size_t b = 0; b < times[0].size(); ++b) {
            const float* in[2] = {input(static_cast<int64_t>(b)), noise.block()};
            for (size_t side : {b % 2, 1 - b % 2}) {
                const auto start = Clock::now();
                qv_reverb_process(revs[side], in[side], in[side], left.data(), right.data(),
                                  kBlock);
                const std::chrono::duration<double, std::nano> took = Clock::now() - start;
                times[side][b] = std::min(times[side][b], took.count() / kBlock);
            }
        }
        for (qv_reverb* rev : revs) qv_reverb_destroy(rev);
    }
    for (auto& side : times) std::sort(side.begin(), side.end());
    const auto& t = times[0];
    return {t[t.size() / 2], t[t.size() - 1 - t.size() / 1000], t.back(), times[1][t.size() / 2]};
}

void block_times(double minutes) {
    constexpr double kMostSlower = 1.1; // of medians; more is a slow path
    Noise noise;
    const auto blocks = static_cast<int64_t>(minutes * 60 * kRate / kBlock);
    std::vector<float> silence(kBlock), burst(kBlock), denormal(kBlock), tiny(kBlock);
    for (size_t t = 0; t < kBlock; ++t) {
        burst[t] = t % 2 ? 1.0f : -1.0f;
        denormal[t] = t % 2 ? 3e-39f : -2e-39f;
        tiny[t] = t % 2 ? 3e-38f : -2e-38f; // products with gains are denormal
    }
    std::printf("%g minutes a signal, blocks of %d frames: ns a frame\n", minutes, kBlock);
    std::printf("%-34s %-20s %8s %8s %8s %16s\n", "settings", "signal", "median", "99.9 %", "worst",
                "noise beside it");
    for (int settings = 0; settings < 3; ++settings) {
        qv_reverb_params params = defaults();
        const char* name = "default";
        if (settings == 1) {
            name = "K 3, early reflections, EQ";
            params.cascade_stages = 3;
            params.er_enable = 1;
            params.eq_low_db = params.eq_high_db = 6.0f;
        } else if (settings == 2) {
            name = "K 0, no damping, not modulated";
            params.cascade_stages = 0;
            params.damp = 0.0f;
            params.modulate = 0;
        }
        const auto row = [&](const char* signal, auto input) {
            const Times t = time_blocks(params, blocks, input, noise);
            std::printf("%-34s %-20s %8.2f %8.2f %8.2f %16.2f\n", name, signal, t.median, t.p999,
                        t.worst, t.noise);
            std::fflush(stdout);
            require(t.median <= kMostSlower * t.noise, "slower than noise", signal);
        };
        row("noise", [&](int64_t) { return noise.block(); });
        row("silence", [&](int64_t) { return silence.data(); });
        row("denormal input", [&](int64_t) { return denormal.data(); });
        row("tail into denormals", [&](int64_t) { return tiny.data(); });
        row("bursts and silence",
            [&](int64_t b) { return (b / 500 % 10 == 0 ? burst : silence).data(); });
    }
}

// ---- Kept offsets -------------------------------------------------------------------------------

// Feeds a constant of 1, or noise, to every combination; shows those that keep something behind the
// tail.
void offsets(double seconds) {
    Noise noise;
    std::vector<float> constant(kBlock, 1.0f), silence(kBlock), left(kBlock), right(kBlock);
    std::printf(
        "left behind 3 decay times after %g s of a constant 1.0, 10 s after that, and 3 decay\n"
        "times after noise of full scale; wet only, K 2; in dB of full scale\n",
        seconds);
    std::printf("%6s %6s %5s  %13s  %8s %8s %8s\n", "Decay", "Size", "Damp", "lines stuck",
                "constant", "later", "noise");
    double worst[3] = {};
    for (const float decay : {0.1f, 0.2f, 0.5f, 1.0f, 1.5f, 2.0f, 2.5f, 3.0f}) {
        for (const float size :
             {0.01f, 0.02f, 0.03f, 0.04f, 0.06f, 0.1f, 0.15f, 0.2f, 0.3f, 0.4f, 0.5f}) {
            for (const float damp : {0.3f, 0.5f, 0.7f, 0.85f, 1.0f}) {
                qv_reverb_params params = defaults();
                params.t60 = decay;
                params.size = size;
                params.damp = damp;
                params.mix = 1.0f;
                qv_reverb* rev = make(params);
                const auto run = [&](double duration, const float* fixed) {
                    for (double t = 0; t < duration; t += double{kBlock} / kRate) {
                        const float* in = fixed ? fixed : noise.block();
                        qv_reverb_process(rev, in, in, left.data(), right.data(), kBlock);
                    }
                    return double{peak(left.data(), right.data())};
                };
                const double tail = 3.0 * decay + 4.0 * size;
                run(seconds, constant.data());
                const double kept[3] = {run(tail, silence.data()), run(10.0, silence.data()), [&] {
                                            qv_reverb_set(rev, &params);
                                            run(seconds, nullptr);
                                            return run(tail, silence.data());
                                        }()};
                const auto stuck =
                    std::count(rev->engine.shelf_a1, rev->engine.shelf_a1 + 16, 1.0f);
                for (int k = 0; k < 3; ++k) worst[k] = std::max(worst[k], kept[k]);
                if (kept[0] > 1e-4) // an ordinary tail is below 1e-9 by then
                    std::printf("%6.1f %6.3f %5.2f  %13ld  %8.1f %8.1f %8.1f\n", double{decay},
                                double{size}, double{damp}, static_cast<long>(stuck),
                                20 * std::log10(kept[0]), 20 * std::log10(kept[1]),
                                20 * std::log10(kept[2]));
                qv_reverb_destroy(rev);
            }
        }
    }
    std::printf("most: constant %.1f dB, later %.1f dB, noise %.1f dB\n", 20 * std::log10(worst[0]),
                20 * std::log10(worst[1]), 20 * std::log10(worst[2]));
    require(worst[0] < 1.0, "the offset exceeds the constant", "offsets");
}

// ---- Instances ----------------------------------------------------------------------------------

uint64_t resident_bytes() {
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

void instances(int count) {
    Noise noise;
    const uint64_t before = resident_bytes();
    const auto start = std::chrono::steady_clock::now();
    std::vector<qv_reverb*> all(static_cast<size_t>(count));
    const qv_reverb_params params = defaults();
    for (qv_reverb*& rev : all) rev = make(params);
    const std::chrono::duration<double> created = std::chrono::steady_clock::now() - start;
    std::vector<float> left(kBlock), right(kBlock), first;
    int same = 0;
    const float* in = noise.block();
    for (qv_reverb* rev : all) {
        for (int b = 0; b < 20; ++b)
            qv_reverb_process(rev, in, in, left.data(), right.data(), kBlock);
        if (first.empty()) first = left;
        same += first == left;
    }
    std::printf("%d instances at 48 kHz: %.2f MB resident and %.2f ms of creation each\n", count,
                static_cast<double>(resident_bytes() - before) / 1e6 / count,
                1e3 * created.count() / count);
    require(same == count, "instances differ", "instances");
    for (qv_reverb* rev : all) qv_reverb_destroy(rev);
}

} // namespace

int main(int argc, char** argv) {
    const std::string part = argc == 3 ? argv[1] : "";
    const double amount = argc == 3 ? std::atof(argv[2]) : 0.0;
    if (part == "hours" && amount > 0)
        hours_at_every_end(amount);
    else if (part == "times" && amount > 0)
        block_times(amount);
    else if (part == "offsets" && amount > 0)
        offsets(amount);
    else if (part == "instances" && amount >= 1)
        instances(static_cast<int>(amount));
    else {
        std::fprintf(
            stderr,
            "usage: bench_long hours HOURS | times MINUTES | offsets SECONDS | instances COUNT\n");
        return 2;
    }
    return broken ? 1 : 0;
}
