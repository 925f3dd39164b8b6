// Sixteen instances on sixteen threads, as a host with a thread pool runs them: they share nothing, so each
// sounds to the bit as it does alone. Under the thread sanitizer the same test shows any data that two of
// them touch.
#include <atomic>
#include <barrier>
#include <thread>

#include "tests/clap_host.h"
#include "tests/reverb_object.h"

namespace {

using compare::Random;
using compare::Signal;
using namespace test_host;

constexpr size_t kThreads = 16;

// One life of a plug-in and of a reverb object, set up, changed and destroyed on the thread that runs it.
// Returns everything it has heard.
std::vector<float> life(uint64_t stream) {
    Random random(stream);
    std::vector<float> heard;
    Plugin plugin;
    for (int activation = 0; activation < 3; ++activation) {
        const uint32_t capacity = 64 * random.integer(1, 8);
        plugin.activate(random.pick({44100.0, 48000.0}), capacity);
        const auto rev = reverb_object::create(48000, 512);
        for (int step = 0; step < 30; ++step) {
            Events events;
            if (random.chance(0.3f)) events.add(random.integer(0, 11), random.real(-24.0f, 24.0f));
            auto left = compare::make(capacity, Signal::kNoise, random);
            auto right = compare::make(capacity, Signal::kNoise, random);
            plugin.process(capacity, {left.data(), right.data()}, {left.data(), right.data()},
                           &events);
            heard.insert(heard.end(), left.begin(), left.end());
            heard.insert(heard.end(), right.begin(), right.end());
            Stream saved;
            if (random.chance(0.1f) && plugin.save(saved)) plugin.load(saved);

            const qv_reverb_params params = reverb_object::random_params(random);
            if (random.chance(0.1f)) qv_reverb_set(rev.get(), &params);
            const auto n = static_cast<int32_t>(capacity);
            qv_reverb_process(rev.get(), right.data(), nullptr, left.data(), nullptr, n);
            heard.insert(heard.end(), left.begin(), left.end());
        }
    }
    return heard;
}

} // namespace

TEST(Threads, SixteenInstancesSoundAsTheyDoAlone) {
    std::vector<std::vector<float>> expected, got(kThreads);
    for (size_t k = 0; k < kThreads; ++k) expected.push_back(life(k));
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    for (size_t k = 0; k < kThreads; ++k)
        threads.emplace_back([&, k] {
            start.arrive_and_wait();
            got[k] = life(k);
        });
    for (std::thread& thread : threads) thread.join();
    for (size_t k = 0; k < kThreads; ++k) {
        EXPECT_GT(expected[k].size(), 10000u);
        EXPECT_TRUE(compare::same_bits(got[k], expected[k])) << "instance " << k;
    }
}

// A host moves an instance between threads: made and activated on one, processed on a second, its values
// changed by a flush on a third, destroyed on a fourth, each call after the one before.
TEST(Threads, InstanceMayChangeThreadsBetweenCalls) {
    const auto on_a_thread = [](auto work) { std::thread(work).join(); };
    std::vector<float> in(256, 0.5f), out_l(256), out_r(256);
    const auto block = [&](Plugin& plugin) {
        return plugin.process(256, {in.data()}, {out_l.data(), out_r.data()});
    };
    Plugin alone;
    ASSERT_TRUE(alone.activate(48000, 256));
    for (int k = 0; k < 20; ++k) {
        if (k == 9) alone.flush(Events(kDecay, 5.0));
        ASSERT_EQ(block(alone), 1);
    }
    const std::vector<float> expected = out_r;

    std::unique_ptr<Plugin> plugin;
    on_a_thread([&] {
        plugin = std::make_unique<Plugin>();
        ASSERT_TRUE(plugin->activate(48000, 256));
    });
    for (int k = 0; k < 20; ++k) {
        if (k == 9) on_a_thread([&] { plugin->flush(Events(kDecay, 5.0)); });
        on_a_thread([&] { ASSERT_EQ(block(*plugin), 1); });
    }
    EXPECT_TRUE(compare::same_bits(out_r, expected));
    on_a_thread([&] { plugin.reset(); });
}
