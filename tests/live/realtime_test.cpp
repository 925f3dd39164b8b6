// Brisel Live on the audio thread: random lives in which everything is automated, presets are
// loaded, the sound is reset, sleeps and wakes call neither allocator nor kernel and meet no page
// for the first time.
#include "live/engine/presets.h"
#include "live/engine/reverb.h"
#include "tests/compare.h"
#include "tests/interposer.h"

namespace {

using namespace brisel::live;
using compare::Random;

TEST(LiveRealTime, StaysClearOfAllocatorAndKernel) {
    int faulty = 0;
    for (uint64_t life = 0; life < 12; ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(life);
        Reverb reverb;
        ASSERT_TRUE(reverb.prepare(random.pick({8000.0, 44100.0, 48000.0, 96000.0}), 1024));
        std::vector<float> left(4000), right(4000);
        long faults = 0;
        for (int step = 0; step < 150; ++step) {
            const auto signal =
                random.chance(0.7f) ? compare::Signal::kNoise : compare::Signal::kQuiet;
            const uint32_t frames = random.integer(1, random.pick({9u, 1024u, 4000u}));
            left = compare::make(left.size(), signal, random);
            right = compare::make(right.size(), signal, random);
            std::vector<Event> events;
            for (uint32_t k = random.chance(0.5f) ? random.integer(1, 8) : 0; k > 0; --k) {
                const auto id = static_cast<uint16_t>(random.integer(0, kParameters - 1));
                const auto place = static_cast<double>(random.real(0.0f, 1.0f));
                events.push_back({random.integer(0, frames), id, random.chance(0.2f),
                                  from_position(parameters()[id], place)});
            }
            const Tempo tempo = {static_cast<double>(random.real(60.0f, 180.0f))};
            const auto& preset = factory_presets()[random.integer(
                0, static_cast<uint32_t>(factory_presets().size()) - 1)];
            const uint32_t deed = random.integer(0, 19);
            const auto report = interposer::in_real_time([&] {
                if (deed == 0) reverb.reset();
                Preset read;
                if (deed == 1 && read_preset(preset.text, read))
                    reverb.values().load(read.settings);
                const float* const in[2] = {left.data(), right.data()};
                float* const out[2] = {left.data(), right.data()};
                reverb.process(in, out, frames, events, &tempo);
                reverb.read_meters();
                reverb.tail_frames();
            });
            ASSERT_EQ(report.forbidden, "") << "step " << step << ", deed " << deed;
            faults += life > 0 ? report.page_faults : 0; // the first touches code and tables
        }
        faulty += faults > 0;
    }
#if !defined(BRISEL_SANITIZED)
    EXPECT_LE(faulty, 2); // the kernel may take a page away by itself
#endif
}

} // namespace
