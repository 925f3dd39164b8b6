// What the plug-in tells its host: entry, factory, descriptor, ports, parameters and their texts, how
// events are read, saved state, tail.

#include "clap_host.h"

#include <brisel/reverb.h>

namespace {

using namespace test_host;

// Everything else in the headers that the tests name shows in a number that they write out.
static_assert(CLAP_PROCESS_ERROR == 0 && CLAP_PROCESS_CONTINUE == 1);

TEST(PluginEntry, OffersOnePluginThroughItsFactory) {
    EXPECT_EQ(entry().clap_version.major, 1u);
    EXPECT_EQ(entry().clap_version.minor, 2u);
    EXPECT_EQ(entry().clap_version.revision, 8u);
    EXPECT_TRUE(entry().init(BRISEL_CLAP_FILE));
    for (const char* id : {"", "clap.plugin-factory2", "CLAP.plugin-factory", "clap.plugin"})
        EXPECT_EQ(entry().get_factory(id), nullptr) << id;
    EXPECT_EQ(entry().get_factory(nullptr), nullptr);
    ASSERT_NE(factory(), nullptr);

    EXPECT_EQ(factory()->get_plugin_count(factory()), 1u);
    EXPECT_EQ(factory()->get_plugin_descriptor(factory(), 1), nullptr);
    const clap_plugin_descriptor_t* desc = factory()->get_plugin_descriptor(factory(), 0);
    ASSERT_NE(desc, nullptr);
    EXPECT_EQ(desc->clap_version.revision, 8u);
    EXPECT_STREQ(desc->id, "com.tamrockaudio.brisel");
    EXPECT_STREQ(desc->name, "Brisel");
    EXPECT_STREQ(desc->vendor, "Tamrock Audio");
    EXPECT_STREQ(desc->url, "https://tamrockaudio.com");
    EXPECT_STREQ(desc->manual_url, "");
    EXPECT_STREQ(desc->support_url, "");
    EXPECT_STREQ(desc->version, qv_dsp_version());
    EXPECT_STREQ(desc->description, "Research-backed FFDN reverb (Schlecht & Habets 2020)");
    const char* features[] = {"audio-effect", "reverb", "stereo"};
    for (size_t i = 0; i < 3; ++i) EXPECT_STREQ(desc->features[i], features[i]);
    EXPECT_EQ(desc->features[3], nullptr);

    EXPECT_EQ(factory()->create_plugin(factory(), nullptr, nullptr), nullptr);
    EXPECT_EQ(factory()->create_plugin(factory(), nullptr, "com.tamrockaudio.Brisel"), nullptr);
    Plugin p;
    EXPECT_EQ(p.plugin->desc, desc);
    EXPECT_EQ(p.plugin->get_extension(p.plugin, nullptr), nullptr);
    EXPECT_EQ(p.plugin->get_extension(p.plugin, "clap.latency"), nullptr);
    for (uint32_t id = 0; id < 12; ++id) EXPECT_EQ(p.value(id), kRows[id].def) << id;
    entry().deinit();
}

TEST(PluginPorts, AreOneStereoInputAndOneStereoOutput) {
    Plugin p;
    for (const bool is_input : {true, false}) {
        EXPECT_EQ(p.ports->count(p.plugin, is_input), 1u);
        clap_audio_port_info_t info;
        std::memset(&info, 0xAA, sizeof info);
        EXPECT_FALSE(p.ports->get(p.plugin, 1, is_input, &info));
        EXPECT_FALSE(p.ports->get(p.plugin, 0, is_input, nullptr));
        ASSERT_TRUE(p.ports->get(p.plugin, 0, is_input, &info));
        EXPECT_EQ(info.id, is_input ? 0u : 1u);
        EXPECT_STREQ(info.name, is_input ? "Input" : "Output");
        EXPECT_EQ(info.name[255], '\0');
        EXPECT_EQ(info.flags, 1u);
        EXPECT_EQ(info.channel_count, 2u);
        EXPECT_STREQ(info.port_type, "stereo");
        EXPECT_EQ(info.in_place_pair, 0xFFFFFFFFu);
    }
}

TEST(PluginParams, AreDescribedAndReadAsTheTableSays) {
    Plugin p;
    ASSERT_EQ(p.params->count(p.plugin), 12u);
    clap_param_info_t info;
    EXPECT_FALSE(p.params->get_info(p.plugin, 12, &info));
    for (uint32_t id = 0; id < 12; ++id) {
        std::memset(&info, 0xAA, sizeof info);
        ASSERT_TRUE(p.params->get_info(p.plugin, id, &info));
        EXPECT_EQ(info.id, id);
        EXPECT_EQ(info.flags, kRows[id].flags) << id;
        EXPECT_EQ(info.cookie, nullptr);
        EXPECT_STREQ(info.name, kRows[id].label);
        EXPECT_STREQ(info.module, "");
        EXPECT_EQ(info.min_value, kRows[id].min) << id;
        EXPECT_EQ(info.max_value, kRows[id].max) << id;
        EXPECT_EQ(info.default_value, kRows[id].def) << id;
    }
    double value = 1;
    EXPECT_FALSE(p.params->get_value(p.plugin, 12, &value));
    EXPECT_FALSE(p.params->get_value(p.plugin, 0, nullptr));
}

TEST(PluginParams, AreShownAndParsedInTheirUnits) {
    Plugin p;
    const struct {
        uint32_t id;
        double value;
        const char* text;
    } shown[] = {
        {0, 0.04, "40.0 ms"}, {0, 0.0051, "5.1 ms"}, {1, 2.5, "2.50 s"},  {2, 1.49, "K = 1"},
        {2, 1.5, "K = 2"},    {2, 3, "K = 3"},       {2, -7.4, "K = -6"}, {3, 0.3, "0.300"},
        {4, 1, "1.000"},      {5, 0.12345, "0.123"}, {6, 0.5, "On"},      {6, 0.49, "Off"},
        {6, kNaN, "Off"},     {7, 1, "On"},          {7, 0, "Off"},       {8, 0.06, "60.0 ms"},
        {9, 0.5, "0.500"},    {10, 3, "+3.0 dB"},    {10, 0, "+0.0 dB"},  {11, -24, "-24.0 dB"}};
    for (const auto& c : shown) EXPECT_EQ(p.text(c.id, c.value), c.text) << c.id << ' ' << c.value;
    for (const double value : {kNaN, kInf, -kInf, 2147483648.0})
        EXPECT_EQ(p.text(kStages, value), "K = -2147483648") << value;
    EXPECT_EQ(p.text(kSize, 0.04, 4), "40."); // cut, but terminated
    char buffer[8] = "before";
    EXPECT_FALSE(p.params->value_to_text(p.plugin, 12, 0, buffer, 8));
    EXPECT_STREQ(buffer, "before");

    const struct {
        uint32_t id;
        const char* text;
        double value;
    } parsed[] = {{1, "2.50 s", 2.5},  {0, "40.0 ms", 40}, {2, "K = 2", 0},
                  {10, " +3.0 dB", 3}, {11, "", 0},        {9, "-1e3x", -1000}};
    for (const auto& c : parsed) {
        double value = -1;
        EXPECT_TRUE(p.params->text_to_value(p.plugin, c.id, c.text, &value)) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
    }
    double value = -1;
    EXPECT_FALSE(p.params->text_to_value(p.plugin, 12, "1", &value));
    EXPECT_FALSE(p.params->text_to_value(p.plugin, 0, nullptr, &value));
    EXPECT_FALSE(p.params->text_to_value(p.plugin, 0, "1", nullptr));
    EXPECT_EQ(value, -1);
}

TEST(PluginEvents, CountByKindWhateverSizeTheyClaim) {
    Plugin p;
    Events events;
    events.add(1, 20).add(11, -30).add(2, kNaN).add(3, 0.5, 0, 5, 0).add(4, 0.5, 0, 5, 16);
    events.add(5, 0.1, 1).add(5, 0.1, 0, 6).add(12, 0.1).add(0xFFFFFFFF, 0.1).add_missing();
    events.add(8, 0.2).add(8, -0.0); // the later one wins
    p.flush(events);
    Values expected;
    for (uint32_t id = 0; id < 12; ++id) expected[id] = kRows[id].def;
    expected[kDecay] = 10;
    expected[11] = -24;
    expected[kStages] = kNaN;
    expected[3] = expected[4] = 0.5;
    expected[8] = 0.001;
    EXPECT_TRUE(same_bits(p.values(), expected));
    p.params->flush(p.plugin, nullptr, nullptr); // no list: nothing to do
    EXPECT_TRUE(same_bits(p.values(), expected));

    // A NaN makes the engine refuse all values, at activation too, until it is replaced.
    EXPECT_FALSE(p.activate(48000, 64));
    p.flush(Events(kStages, 1));
    EXPECT_TRUE(p.activate(48000, 64));
}

TEST(PluginEvents, AreReadOnlyWhenPortsAndEngineAreThereButAlsoForShortAndRefusedBlocks) {
    Plugin p;
    std::vector<float> audio(200, 0.25f);
    const std::vector<float*> stereo = {audio.data(), audio.data() + 100};
    EXPECT_EQ(p.process(0, stereo, stereo), CLAP_PROCESS_ERROR); // not activated yet
    ASSERT_TRUE(p.activate(48000, 64));
    const Events to_five(kDecay, 5);
    float* channels[] = {audio.data(), audio.data() + 100};
    clap_audio_buffer_t port = {channels, nullptr, 2, 0, 0};
    for (const uint32_t inputs : {0u, 1u}) {
        const clap_process_t process = {-1,     8,          nullptr,        &port,  &port,
                                        inputs, 1 - inputs, to_five.list(), nullptr};
        EXPECT_EQ(p.plugin->process(p.plugin, &process), CLAP_PROCESS_ERROR);
        EXPECT_EQ(p.value(kDecay), 2);
    }
    EXPECT_EQ(p.process(0, stereo, stereo, &to_five), CLAP_PROCESS_CONTINUE);
    EXPECT_EQ(p.value(kDecay), 5);
    const Events to_six(kDecay, 6);
    EXPECT_EQ(p.process(72, stereo, stereo, &to_six), CLAP_PROCESS_ERROR); // above the capacity
    EXPECT_EQ(p.value(kDecay), 6);
    for (const float sample : audio) EXPECT_EQ(sample, 0.25f);
}

TEST(PluginState, SurvivesStreamsThatMoveAFewBytesAtATime) {
    Values values;
    for (uint32_t id = 0; id < 12; ++id)
        values[id] = kRows[id].min + (kRows[id].max - kRows[id].min) / 3;
    values[10] = -0.0;
    Plugin from, to;
    for (uint32_t id = 0; id < 12; ++id) from.flush(Events(id, values[id]));
    Stream stream;
    ASSERT_TRUE(from.save(stream));
    EXPECT_EQ(stream.bytes, state_of(values));
    stream.bytes.push_back(0xEE); // beyond the state: not read
    clap_istream_t in = {&stream, Stream::read};
    ASSERT_TRUE(to.state->load(to.plugin, &in));
    EXPECT_EQ(stream.at, 104u);
    EXPECT_TRUE(same_bits(to.values(), values));

    for (size_t capacity = 0; capacity < 104; ++capacity) {
        Stream full = {{}, 5, capacity, 0};
        EXPECT_FALSE(from.save(full)) << capacity;
    }
    // Ends that claim to have moved more than they were asked to.
    const clap_ostream_t boasting_out = {
        nullptr, [](const clap_ostream_t*, const void*, uint64_t) -> int64_t { return 1000; }};
    EXPECT_FALSE(from.state->save(from.plugin, &boasting_out));
    in = {nullptr, [](const clap_istream_t*, void*, uint64_t) -> int64_t { return 1000; }};
    EXPECT_FALSE(to.state->load(to.plugin, &in));
    EXPECT_TRUE(same_bits(to.values(), values));
}

TEST(PluginState, IsClampedOrRefusedAsAWhole) {
    Values values;
    for (uint32_t id = 0; id < 12; ++id) values[id] = kRows[id].max;
    Plugin p;
    const Values defaults = p.values();
    const std::vector<unsigned char> good = state_of(values);
    for (size_t length = 0; length < 104; ++length)
        EXPECT_FALSE(p.load({{good.begin(), good.begin() + static_cast<long>(length)}})) << length;
    EXPECT_FALSE(p.load({state_of(values, "QVB2")}));
    EXPECT_FALSE(p.load({state_of(values, "qVB1")}));
    for (const uint32_t version : {0u, 2u, 0x01000000u, 0x00010001u})
        EXPECT_FALSE(p.load({state_of(values, "QVB1", version)})) << version;
    EXPECT_TRUE(same_bits(p.values(), defaults));

    EXPECT_TRUE(p.load({good}));
    EXPECT_TRUE(same_bits(p.values(), values));
    values = {-1, 50, kInf, -kInf, kNaN, 1e300, 0.25, -0.0, 0, 2, -25, 25};
    EXPECT_TRUE(p.load({state_of(values)}));
    EXPECT_TRUE(same_bits(p.values(), {0.005, 10, 3, 0, kNaN, 1, 0.25, -0.0, 0.001, 1, -24, 24}));
}

TEST(PluginTail, IsOneAndAHalfDecayTimesInFrames) {
    Plugin p;
    EXPECT_EQ(p.tail(), 0u);
    ASSERT_TRUE(p.activate(48000, 64));
    EXPECT_EQ(p.tail(), 144000u);
    ASSERT_TRUE(p.activate(44100.9, 64));
    p.flush(Events(kDecay, 0.12345));
    EXPECT_EQ(p.tail(), 8166u); // 8166.2
    p.flush(Events(kDecay, kNaN));
    EXPECT_EQ(p.tail(), 0x80000000u); // without end
    p.flush(Events(kDecay, 10));
    // Activations that fail still set the rate.
    EXPECT_FALSE(p.activate(2147483647.0, 0xFFFFFFFF));
    EXPECT_EQ(p.tail(), 2147483647u);
    EXPECT_FALSE(p.activate(1e300, 64));
    EXPECT_EQ(p.tail(), 0u);
}

} // namespace
