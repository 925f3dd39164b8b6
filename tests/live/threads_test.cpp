// One instance of brisel-live.clap under a host whose main thread reads and changes everything
// while audio runs. Under the thread sanitizer the test shows any data that both touch without
// order.
#include <thread>

#include "tests/live/strict_host.h"

using namespace strict_host;

TEST(LiveThreads, MainThreadReadsAndLoadsWhileAudioRuns) {
    compare::Random random(1);
    const Stereo noise = {compare::noise(512, 1), compare::noise(512, 2)};
    Instance instance;
    instance.room = SIZE_MAX;
    ASSERT_TRUE(instance.start());
    std::atomic<bool> done = false;
    std::thread audio([&] {
        for (int block = 0; block < 400; ++block) {
            Events events;
            events.value(static_cast<uint32_t>(block) % kParameters, block % 3);
            events.modulation(kDecay, block % 5);
            const auto rendered = instance.render(noise, 0, 512, &events);
            EXPECT_NE(rendered.status, CLAP_PROCESS_ERROR);
        }
        done = true;
    });
    size_t queued = 0;
    while (!done) {
        for (uint32_t id = 0; id < kParameters; ++id) instance.text(id, instance.value(id));
        EXPECT_GT(instance.tail() + 1, 0u);
        EXPECT_TRUE(instance.loads(instance.saved()));
        queued += instance.window().edit({Edit::Kind::kBegin, kSize, 0});
        queued += instance.window().edit({Edit::Kind::kValue, kSize, random.real(0.005f, 0.5f)});
        queued += instance.window().edit({Edit::Kind::kEnd, kSize, 0});
        EXPECT_GE(instance.window().sounding(kDecay), 0.1);
    }
    audio.join();
    instance.stop();
    instance.flush(Events());
    EXPECT_EQ(instance.said.size(), queued);
}
