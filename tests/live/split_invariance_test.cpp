// However a host cuts the signal into blocks, the output is the same bits: random input, random
// automation and modulation of every parameter, sleep and waking included. Nothing that depends on
// where a block or a slice ends passes this.
//   split_invariance_test [--runs N] [--seed S]
#include <charconv>
#include <string_view>

#include "live/engine/reverb.h"
#include "tests/compare.h"

namespace {

using namespace brisel::live;
using compare::Random;

uint64_t runs = 25, first_seed = 0;

struct Scene {
    double rate;
    Settings start;
    std::vector<float> in[2];
    std::vector<Event> events; // frames count from the beginning
    Tempo tempo;
    bool mono_in, mono_out;
};

double random_value(Random& random, const Parameter& parameter) {
    // Extremes often, and times short enough to be lived through.
    if (random.chance(0.2f)) return random.chance(0.5f) ? parameter.least : parameter.most;
    const float reach = random.chance(0.7f) ? 0.5f : 1.0f;
    return from_position(parameter, static_cast<double>(random.real(0.0f, reach)));
}

// Noise, then silence that is long enough for sleep now and then, then noise that wakes it.
std::vector<float> random_input(Random& random, size_t frames) {
    std::vector<float> signal(frames, 0.0f);
    for (size_t t = 0; t < frames;) {
        const size_t n = std::min<size_t>(frames - t, random.integer(1, 4000));
        const auto part = std::span(signal).subspan(t, n);
        if (random.chance(0.6f))
            std::ranges::copy(compare::make(n, random.pick(compare::kSignals), random),
                              part.begin());
        for (float& x : part)
            if (std::fabs(x) > 1e3f) x = 0.5f; // the largest floats overflow in a long decay
        if (random.chance(0.1f)) part[0] = 0.9e-7f;
        t += n;
        if (random.chance(0.3f)) t += random.integer(0, static_cast<uint32_t>(frames) / 2);
    }
    return signal;
}

Scene random_scene(uint64_t seed) {
    Random random(seed);
    Scene scene = {};
    scene.rate = random.pick({8000.0, 11025.0, 22050.0, 44100.0, 48000.0, 96000.0, 192000.0});
    const uint32_t frames = random.integer(2000, random.pick({8000u, 40000u}));
    for (auto& channel : scene.in) channel = random_input(random, frames);
    const auto id = [&] { return static_cast<uint16_t>(random.integer(0, kParameters - 1)); };
    scene.start = default_settings();
    for (uint32_t k = random.integer(0, 10); k > 0; --k) {
        const uint16_t i = id();
        scene.start[i] = random_value(random, parameters()[i]);
    }
    if (random.chance(0.5f)) { // sleeps soon
        scene.start[kDecay] = 0.1;
        scene.start[kSize] = 0.005;
    }
    for (uint32_t k = random.integer(0, random.pick({4u, 60u})); k > 0; --k) {
        Event event = {random.integer(0, frames - 1), id(), random.chance(0.2f), 0.0};
        const Parameter& parameter = parameters()[event.parameter];
        event.value = random_value(random, parameter);
        if (event.modulation)
            event.value = (event.value - parameter.least) * (random.chance(0.5f) ? 1 : -1);
        scene.events.push_back(event);
        if (random.chance(0.2f)) scene.events.push_back({event.frame, event.parameter, false, 0.0});
    }
    std::ranges::stable_sort(scene.events, {}, &Event::frame);
    scene.tempo.beats_per_minute = static_cast<double>(random.real(100.0f, 300.0f));
    scene.mono_in = random.chance(0.15f);
    scene.mono_out = random.chance(0.15f);
    return scene;
}

struct Rendered {
    std::vector<float> out[2];
    bool slept = false;
};

Rendered render(const Scene& scene, Random& random) {
    Reverb reverb;
    reverb.values().load(scene.start);
    EXPECT_TRUE(reverb.prepare(scene.rate, 4096));
    const auto frames = static_cast<uint32_t>(scene.in[0].size());
    Rendered result;
    for (int c : {0, 1}) result.out[c] = scene.in[c]; // in place
    const uint32_t longest = random.pick({3u, 9u, 64u, 700u, 4096u});
    auto next = scene.events.begin();
    for (uint32_t at = 0; at < frames;) {
        const uint32_t n = std::min(frames - at, random.integer(1, longest));
        std::vector<Event> events;
        for (; next != scene.events.end() && next->frame < at + n; ++next) {
            events.push_back(*next);
            events.back().frame -= at;
        }
        float* const left = result.out[0].data() + at;
        float* const right = result.out[1].data() + at;
        const float* const in[2] = {left, scene.mono_in ? nullptr : right};
        float* const out[2] = {left, scene.mono_out ? nullptr : right};
        const Status status = reverb.process(in, out, n, events, &scene.tempo);
        result.slept = result.slept || status == Status::kAsleep;
        at += n;
    }
    return result;
}

TEST(SplitInvariance, GivesTheSameBitsHoweverAHostCuts) {
    uint64_t slept = 0;
    for (uint64_t seed = first_seed; seed < first_seed + runs && !HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "--seed " << seed);
        const Scene scene = random_scene(seed);
        Random cuts(~seed);
        const Rendered one = render(scene, cuts), other = render(scene, cuts);
        for (int c : {0, 1}) EXPECT_TRUE(compare::same(one.out[c], other.out[c])) << c;
        for (float y : one.out[0]) ASSERT_TRUE(std::isfinite(y));
        slept += one.slept;
    }
    if (runs >= 25) {
        EXPECT_GT(slept, runs / 50);
    }
}

bool read_option(std::string_view name, std::string_view value) {
    uint64_t& to = name == "--runs" ? runs : first_seed;
    const auto [end, error] = std::from_chars(value.begin(), value.end(), to);
    return (name == "--runs" || name == "--seed") && error == std::errc() && end == value.end();
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 < argc && read_option(argv[i], argv[i + 1])) continue;
        std::fprintf(stderr, "usage: %s [--runs N] [--seed S]\n", argv[0]);
        return 2;
    }
    return RUN_ALL_TESTS();
}
