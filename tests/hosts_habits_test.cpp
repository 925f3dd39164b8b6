// What hosts do besides playing: activating at odd rates and block lengths, again after a failure, loading
// states at any moment, keeping many instances.
#include <unistd.h>

#include <fstream>
#include <memory>

#include "tests/clap_host.h"
#include "tests/compare.h"

namespace {

using compare::Random;
using compare::Signal;
using namespace test_host;

// The documented rule, in the engine's single precision: samples of the shortest line.
uint32_t shortest_line(int32_t rate, double size) {
    const float scale = static_cast<float>(rate) * static_cast<float>(size) / 997.0f;
    return static_cast<uint32_t>(std::max(std::round(997.0f * scale), 1.0f));
}

uint32_t capacity_of(uint32_t longest_block) {
    return std::max(64u, (longest_block + 7) / 8 * 8);
}

std::vector<float> render(Plugin& plugin, uint32_t block) {
    Random random(1);
    const auto in = compare::make(8 * block, Signal::kNoise, random);
    std::vector<float> out(16 * block);
    for (uint32_t t = 0; t < 8 * block; t += block) {
        auto left = in;
        EXPECT_EQ(plugin.process(block, {&left[t], &left[t]}, {&out[t], &out[t + 8 * block]}),
                  CLAP_PROCESS_CONTINUE);
    }
    return out;
}

uint64_t resident_bytes() {
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

} // namespace

TEST(Hosts, ActivateAtAnyRateAndBlockLengthAsDocumented) {
    const double rates[] = {8000,  9000,  9000.9, 9001,   11025, 44100.7,
                            48000, 96000, 192000, 384000, 768000};
    const uint32_t blocks[] = {1, 64, 65, 359, 361, 1024, 1921, 2048, 4096, 16384};
    Plugin twin;
    ASSERT_TRUE(twin.activate(48000, 512));
    const std::vector<float> expected = render(twin, 512);

    Plugin plugin;
    int worked = 0, refused_size = 0, failed = 0;
    for (const double size : {0.04, 0.02}) {
        for (const double rate : rates) {
            for (const uint32_t block : blocks) {
                if (rate > 200000 && size < 0.04) continue; // takes long and adds nothing
                SCOPED_TRACE(testing::Message() << rate << " Hz, " << block << ", " << size);
                const auto whole_rate = static_cast<int32_t>(rate);
                const bool has_engine =
                    whole_rate > 9000 && capacity_of(block) <= shortest_line(whole_rate, 0.04);
                const bool takes_size =
                    has_engine && capacity_of(block) <= shortest_line(whole_rate, size);
                plugin.flush(Events(kSize, size));
                EXPECT_EQ(plugin.activate(rate, block), takes_size);
                std::vector<float> out(64, 7.0f), in(64, 0.5f);
                EXPECT_EQ(plugin.process(64, {in.data()}, {out.data()}),
                          has_engine ? CLAP_PROCESS_CONTINUE : CLAP_PROCESS_ERROR);
                if (!has_engine) {
                    EXPECT_EQ(std::count(out.begin(), out.end(), 7.0f), 64);
                }
                plugin.plugin->deactivate(plugin.plugin);
                ++(takes_size ? worked : has_engine ? refused_size : failed);
            }
        }
        // Whatever failed before, a good activation is a good one.
        plugin.flush(Events(kSize, 0.04));
        ASSERT_TRUE(plugin.activate(48000, 512));
        EXPECT_TRUE(compare::same_bits(render(plugin, 512), expected));
    }
    EXPECT_GT(worked, 50);
    EXPECT_GT(refused_size, 5);
    EXPECT_GT(failed, 20);
}

// A state counts from the next block on, whenever it arrives: it sounds like the same values flushed.
TEST(Hosts, LoadStatesBeforeActivationWhileActiveAndBetweenBlocks) {
    const Values values = {0.03, 4, 3, 0.5, 0.9, 0.4, 0, 1, 0.05, 0.7, -3, 4};
    const auto flush_all = [&](Plugin& plugin) {
        Events events;
        for (uint32_t id = 0; id < 12; ++id) events.add(id, values[id]);
        plugin.flush(events);
    };
    Plugin twin;
    ASSERT_TRUE(twin.activate(48000, 256));
    flush_all(twin);
    const std::vector<float> expected = render(twin, 256);

    enum Moment { kBeforeActivation, kAfterAFailedOne, kWhileActive, kBetweenBlocks, kAfterStop };
    for (const Moment moment :
         {kBeforeActivation, kAfterAFailedOne, kWhileActive, kBetweenBlocks, kAfterStop}) {
        SCOPED_TRACE(moment);
        Plugin plugin;
        const auto load = [&] { EXPECT_TRUE(plugin.load({state_of(values)})); };
        if (moment == kAfterAFailedOne) {
            EXPECT_FALSE(plugin.activate(8000, 256));
        }
        if (moment <= kAfterAFailedOne) load();
        ASSERT_TRUE(plugin.activate(48000, 256));
        if (moment == kBetweenBlocks) render(plugin, 256);
        if (moment == kAfterStop) {
            render(plugin, 256);
            plugin.plugin->stop_processing(plugin.plugin);
            plugin.plugin->deactivate(plugin.plugin);
            load();
            ASSERT_TRUE(plugin.activate(48000, 256));
        } else if (moment >= kWhileActive) {
            load();
        }
        EXPECT_TRUE(same_bits(plugin.values(), values));
        EXPECT_TRUE(compare::same_bits(render(plugin, 256), expected));
    }
}

TEST(Hosts, KeepFiftyInstances) {
    constexpr size_t kInstances = 50;
    // At 48 kHz: the lines of the largest Size there is, 0.67 million samples, and some more.
    [[maybe_unused]] constexpr uint64_t kMostBytes = 5 << 20;
    [[maybe_unused]] const uint64_t before = resident_bytes();
    std::vector<std::unique_ptr<Plugin>> instances(kInstances);
    for (auto& instance : instances) {
        instance = std::make_unique<Plugin>();
        ASSERT_TRUE(instance->activate(48000, 512));
    }
    const std::vector<float> expected = render(*instances[0], 512);
    for (size_t k = 1; k < kInstances; ++k)
        ASSERT_TRUE(compare::same_bits(render(*instances[k], 512), expected)) << "instance " << k;
#if !defined(BRISEL_SANITIZED)
    EXPECT_LT((resident_bytes() - before) / kInstances, kMostBytes);
#endif
}
