// brisel/live.h: what it renders is the engine's, to the bit, and each refusal has its own status.
#include "brisel/live.h"
#include "brisel/live.hpp"
#include "live/engine/presets.h"
#include "live/engine/reverb.h"
#include "tests/compare.h"

namespace {

using namespace brisel::live;
using compare::Random;

// One life of both: values, presets, tempo, resets and blocks with more events than are handed on
// at once, some of them wrong.
TEST(LiveApi, GivesTheBitsOfTheEngine) {
    for (uint64_t life = 0; life < 8; ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(life);
        const double rate = random.pick({8000.0, 44100.0, 96000.0});
        auto made = brisel::Live::make(rate, 441);
        ASSERT_TRUE(made);
        brisel::Live live = std::move(*made);
        EXPECT_EQ(made->set("mix", 1.0), BRISEL_LIVE_BAD_ARGUMENT); // moved from
        Reverb engine;
        ASSERT_TRUE(engine.prepare(rate, 441));
        Tempo tempo = {0.0};
        bool slept = false;
        for (int block = 0; block < 60; ++block) {
            const uint32_t frames = random.integer(0, random.pick({9u, 441u, 5000u}));
            const uint32_t index = random.integer(0, brisel_live_preset_count() - 1);
            if (random.chance(0.1f)) {
                const bool by_key = random.chance(0.5f);
                ASSERT_EQ(live.load_preset(by_key ? brisel_live_preset_key(index)
                                                  : brisel_live_preset_name(index)),
                          BRISEL_LIVE_OK);
                Preset preset;
                ASSERT_TRUE(read_preset(factory_presets()[index].text, preset));
                engine.values().load(preset.settings, kNotInPresets);
            }
            if (random.chance(0.2f)) {
                tempo.beats_per_minute = static_cast<double>(random.real(20.0f, 999.0f));
                ASSERT_EQ(live.set_tempo(tempo.beats_per_minute), BRISEL_LIVE_OK);
            }
            if (random.chance(0.05f)) {
                live.reset();
                engine.reset();
            }
            std::vector<brisel_live_event> given;
            std::vector<Event> heard;
            brisel_live_status expected = BRISEL_LIVE_OK;
            uint32_t frame = 0;
            for (uint32_t k = random.integer(0, random.pick({0u, 3u, 200u})); k > 0; --k) {
                frame += random.integer(0, 1 + frames / 50);
                const uint32_t at = frame - random.integer(0, std::min(frame, 3u));
                const uint32_t id = random.integer(0, kParameters);
                double value = id < kParameters
                                   ? from_position(parameters()[id],
                                                   static_cast<double>(random.real(0.0f, 1.0f)))
                                   : 0.0;
                if (random.chance(0.05f)) value = random.pick({std::nan(""), 1e9, -1e9});
                given.push_back({at, id, value});
                const brisel_live_status wrong = id == kParameters ? BRISEL_LIVE_UNKNOWN_PARAMETER
                                                 : !(std::fabs(value) < 1e9) ? BRISEL_LIVE_BAD_VALUE
                                                                             : BRISEL_LIVE_OK;
                if (expected == BRISEL_LIVE_OK) expected = wrong;
                if (wrong == BRISEL_LIVE_OK)
                    heard.push_back({at, static_cast<uint16_t>(id), false, value});
            }
            const auto signal =
                random.chance(0.5f) ? compare::Signal::kNonFinite : compare::Signal::kSilence;
            std::vector<float> sound[2] = {compare::make(frames, signal, random),
                                           compare::make(frames, signal, random)};
            std::vector<float> got[2] = {sound[0], sound[1]};
            const bool mono = random.chance(0.3f);
            const std::span<float> right = mono ? std::span<float>() : std::span(got[1]);
            ASSERT_EQ(live.process(got[0], right, got[0], right, given), expected);
            const float* const in[2] = {sound[0].data(), mono ? nullptr : sound[1].data()};
            float* const out[2] = {sound[0].data(), mono ? nullptr : sound[1].data()};
            float none = 0.0f;
            float* const nothing[2] = {&none, nullptr};
            const Status status = engine.process(in, frames ? out : nothing, frames, heard, &tempo);
            for (int c : {0, 1}) ASSERT_TRUE(compare::same(got[c], sound[c])) << c;
            if (frames > 0) slept = status == Status::kAsleep;
            ASSERT_EQ(brisel_live_asleep(live.get()), slept);
            ASSERT_EQ(live.tail_frames(), engine.tail_frames());
            brisel_live_meters meters;
            ASSERT_EQ(brisel_live_read_meters(live.get(), &meters), BRISEL_LIVE_OK);
            const Meters peaks = engine.read_meters();
            ASSERT_EQ(meters.output, peaks.output);
            ASSERT_EQ(meters.duck, peaks.duck);
            for (uint32_t id = 0; id < kParameters; ++id)
                ASSERT_EQ(*live.value(brisel_live_parameter_at(id)->key),
                          engine.values().plain(static_cast<Id>(id)));
        }
        // All but the moment's two come back from the text.
        char text[BRISEL_LIVE_LONGEST_PRESET];
        ASSERT_EQ(brisel_live_save_text(live.get(), text, sizeof text), BRISEL_LIVE_OK);
        auto other = brisel::Live::make(rate, 64);
        ASSERT_EQ(brisel_live_load_text(other->get(), text), BRISEL_LIVE_OK);
        for (uint32_t id = 0; id < kClear; ++id)
            ASSERT_EQ(*other->value(parameters()[id].key),
                      engine.values().plain(static_cast<Id>(id)));
    }
}

TEST(LiveApi, RefusesByNameAndChangesNothing) {
    auto made = brisel::Live::make(48000.0, 64);
    ASSERT_TRUE(made);
    brisel_live* const live = made->get();
    brisel_live* fresh = nullptr;
    ASSERT_EQ(brisel_live_create(&fresh), BRISEL_LIVE_OK);
    float sound[8] = {1.0f, 1.0f};
    char text[64];
    double value = 7.0;
    brisel_live_meters meters;
    const auto process = [&](brisel_live* which, float* out, uint32_t events) {
        return brisel_live_process(which, sound, sound, out, nullptr, 8, nullptr, events);
    };
    const struct {
        brisel_live_status got, expected;
    } rows[] = {
        {brisel_live_create(nullptr), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_prepare(nullptr, 48000.0, 64), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_prepare(live, 999.0, 64), BRISEL_LIVE_BAD_RATE},
        {brisel_live_prepare(live, std::nan(""), 64), BRISEL_LIVE_BAD_RATE},
        {brisel_live_prepare(live, 48000.0, 0), BRISEL_LIVE_BAD_BLOCK},
        {brisel_live_prepare(live, 48000.0, 65537), BRISEL_LIVE_BAD_BLOCK},
        {brisel_live_set(nullptr, 0, 0.04), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_set(live, 26, 0.0), BRISEL_LIVE_UNKNOWN_PARAMETER},
        {brisel_live_set(live, 0x10000, 0.04), BRISEL_LIVE_UNKNOWN_PARAMETER},
        {brisel_live_set(live, kSize, 0.6), BRISEL_LIVE_BAD_VALUE},
        {brisel_live_set(live, kSize, std::nan("")), BRISEL_LIVE_BAD_VALUE},
        {brisel_live_set_by_key(live, "Size", 0.1), BRISEL_LIVE_UNKNOWN_PARAMETER},
        {brisel_live_set_by_key(live, nullptr, 0.1), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_get(live, 26, &value), BRISEL_LIVE_UNKNOWN_PARAMETER},
        {brisel_live_get(live, kSize, nullptr), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_get_by_key(live, nullptr, &value), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_value_to_text(kSize, 0.04, text, 7), BRISEL_LIVE_TEXT_TOO_LONG}, // "40.0 ms"
        {brisel_live_value_to_text(kSize, 4.0, text, 64), BRISEL_LIVE_BAD_VALUE},
        {brisel_live_value_to_text(26, 0.0, text, 64), BRISEL_LIVE_UNKNOWN_PARAMETER},
        {brisel_live_value_to_text(kSize, 0.04, nullptr, 64), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_text_to_value(kSize, "40 Hz", &value), BRISEL_LIVE_BAD_TEXT},
        {brisel_live_text_to_value(26, "1", &value), BRISEL_LIVE_UNKNOWN_PARAMETER},
        {brisel_live_text_to_value(kSize, nullptr, &value), BRISEL_LIVE_BAD_ARGUMENT},
        {process(nullptr, sound, 0), BRISEL_LIVE_BAD_ARGUMENT},
        {process(live, nullptr, 0), BRISEL_LIVE_BAD_ARGUMENT},
        {process(live, sound, 1), BRISEL_LIVE_BAD_ARGUMENT},
        {process(fresh, sound, 0), BRISEL_LIVE_NOT_PREPARED},
        {brisel_live_set_tempo(live, 19.0), BRISEL_LIVE_BAD_VALUE},
        {brisel_live_set_tempo(nullptr, 90.0), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_read_meters(nullptr, &meters), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_load_preset(live, "Vocal"), BRISEL_LIVE_UNKNOWN_PRESET},
        {brisel_live_load_preset(live, nullptr), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_load_text(live, "size"), BRISEL_LIVE_BAD_TEXT},
        {brisel_live_load_text(nullptr, "size = 0.1"), BRISEL_LIVE_BAD_ARGUMENT},
        {brisel_live_save_text(live, text, sizeof text), BRISEL_LIVE_TEXT_TOO_LONG},
        {brisel_live_save_text(live, nullptr, 0), BRISEL_LIVE_BAD_ARGUMENT},
    };
    for (const auto& row : rows) EXPECT_EQ(row.got, row.expected) << "row " << &row - rows;
    EXPECT_EQ(value, 7.0);
    EXPECT_EQ(*made->value("size"), 0.04);
    EXPECT_EQ(sound[0], 0.0f); // not prepared: zeros
    EXPECT_EQ(process(live, sound, 0), BRISEL_LIVE_OK);
    EXPECT_EQ(brisel_live_parameter_at(26), nullptr);
    EXPECT_EQ(brisel_live_preset_name(brisel_live_preset_count()), nullptr);
    EXPECT_EQ(brisel_live_tail_frames(nullptr) + brisel_live_asleep(nullptr), 0u);
    brisel_live_reset(nullptr);
    brisel_live_destroy(nullptr);
    brisel_live_destroy(fresh);
    EXPECT_STREQ(brisel_live_strerror(static_cast<brisel_live_status>(12)), "unknown status");
    EXPECT_FALSE(brisel::Live::make(0.0, 64));
    EXPECT_EQ(made->process(std::span(sound), std::span(sound, 4), std::span(sound), {}),
              BRISEL_LIVE_BAD_BLOCK);
}

} // namespace
