// The plug-in through its host's eyes: what it tells of itself, values, events, states; and what it
// does with sound, random lives compared bit for bit with a reverb driven by hand.
#include <cmath>

#include "tests/clap_host.h"
#include "tests/compare.h"

namespace {

using compare::Random;
using host::Events;
using host::Plugin;
using host::same_bits;
using host::state_of;
using host::Stream;
using Values = std::vector<double>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr float kUntouched = 777.0f;

struct Row {
    const char* label;
    double min, max, def;
    uint32_t flags;
};
constexpr Row kRows[12] = {{"Size", 0.005, 0.5, 0.04, 0x20},
                           {"Decay", 0.1, 10, 2, 0x20},
                           {"Brisel", 0, 3, 2, 0x21},
                           {"Damp", 0, 1, 0.3, 0x20},
                           {"Mix", 0, 1, 0.3, 0x20},
                           {"Width", 0, 1, 0.8, 0x20},
                           {"Modulate", 0, 1, 1, 0x21},
                           {"Early Reflections", 0, 1, 0, 0x21},
                           {"ER Size", 0.001, 0.5, 0.06, 0x20},
                           {"ER Level", 0, 1, 0.5, 0x20},
                           {"EQ Low (dB)", -24, 24, 0, 0x20},
                           {"EQ High (dB)", -24, 24, 0, 0x20}};
constexpr uint32_t kSize = 0, kDecay = 1, kStages = 2; // ids that tests name

Values defaults() {
    Values values;
    for (const Row& row : kRows) values.push_back(row.def);
    return values;
}

} // namespace

TEST(Plugin, TellsWhatItIs) {
    const clap_plugin_factory_t* factory = host::factory(clap_entry);
    EXPECT_TRUE(clap_entry.clap_version.minor == 2 && clap_entry.clap_version.revision == 8);
    for (const char* id : {static_cast<const char*>(nullptr), "", "CLAP.plugin-factory"})
        EXPECT_EQ(clap_entry.get_factory(id), nullptr);
    for (const char* id : {static_cast<const char*>(nullptr), "com.tamrockaudio.Brisel"})
        EXPECT_EQ(factory->create_plugin(factory, nullptr, id), nullptr);
    EXPECT_EQ(factory->get_plugin_count(factory), 1u);
    EXPECT_EQ(factory->get_plugin_descriptor(factory, 1), nullptr);
    Plugin p(clap_entry);
    ASSERT_TRUE(p.usable);
    const clap_plugin_descriptor_t* d = factory->get_plugin_descriptor(factory, 0);
    EXPECT_EQ(p.plugin->desc, d);
    std::string text;
    for (const char* part : {d->id, d->name, d->vendor, d->url, d->manual_url, d->support_url,
                             d->version, d->description})
        text += std::string(part) + '|';
    for (const char* const* f = d->features; *f; ++f) text += std::string(*f) + ',';
    EXPECT_EQ(text,
              "com.tamrockaudio.brisel|Brisel|Tamrock Audio|https://tamrockaudio.com|||0.1.0|"
              "Research-backed FFDN reverb (Schlecht & Habets 2020)|audio-effect,reverb,stereo,");
    EXPECT_EQ(p.plugin->get_extension(p.plugin, nullptr), nullptr);
    EXPECT_EQ(p.plugin->get_extension(p.plugin, "clap.latency"), nullptr);
    for (const bool in : {true, false}) {
        clap_audio_port_info_t info;
        std::memset(&info, 0xAA, sizeof info);
        EXPECT_EQ(p.ports->count(p.plugin, in), 1u);
        EXPECT_FALSE(p.ports->get(p.plugin, 1, in, &info) ||
                     p.ports->get(p.plugin, 0, in, nullptr));
        ASSERT_TRUE(p.ports->get(p.plugin, 0, in, &info));
        EXPECT_STREQ(info.name, in ? "Input" : "Output");
        EXPECT_STREQ(info.port_type, "stereo");
        EXPECT_TRUE(info.id == (in ? 0 : 1) && info.flags == 1 && info.channel_count == 2 &&
                    info.in_place_pair == CLAP_INVALID_ID);
    }
    ASSERT_EQ(p.params->count(p.plugin), 12u);
    clap_param_info_t info;
    for (uint32_t id = 0; id < 12; ++id) {
        std::memset(&info, 0xAA, sizeof info);
        ASSERT_TRUE(p.params->get_info(p.plugin, id, &info));
        const Row& row = kRows[id];
        EXPECT_STREQ(info.name, row.label);
        EXPECT_STREQ(info.module, "");
        EXPECT_TRUE(info.id == id && info.flags == row.flags && info.min_value == row.min &&
                    info.max_value == row.max && info.default_value == row.def)
            << id;
        EXPECT_EQ(p.value(id), row.def);
    }
    double value = 1;
    EXPECT_FALSE(p.params->get_info(p.plugin, 12, &info) ||
                 p.params->get_value(p.plugin, 12, &value) ||
                 p.params->get_value(p.plugin, 0, nullptr));
}

TEST(Plugin, ShowsAndParsesValuesInTheirUnits) {
    Plugin p(clap_entry);
    char buffer[64];
    const std::tuple<uint32_t, double, const char*> shown[] = {
        {0, 0.0051, "5.1 ms"}, {1, 2.5, "2.50 s"},  {2, 1.49, "K = 1"},
        {2, 1.5, "K = 2"},     {2, -7.4, "K = -6"}, {2, kNaN, "K = -2147483648"},
        {3, 0.3, "0.300"},     {4, 1, "1.000"},     {5, 0.12345, "0.123"},
        {6, 0.5, "On"},        {6, kNaN, "Off"},    {7, 0.49, "Off"},
        {8, 0.06, "60.0 ms"},  {9, 0.5, "0.500"},   {10, 0, "+0.0 dB"},
        {11, -24, "-24.0 dB"}};
    for (const auto& [id, value, text] : shown) {
        EXPECT_TRUE(p.params->value_to_text(p.plugin, id, value, buffer, sizeof buffer));
        EXPECT_STREQ(buffer, text) << id << ' ' << value;
    }
    buffer[4] = '#';
    EXPECT_TRUE(p.params->value_to_text(p.plugin, kSize, 0.04, buffer, 4));
    EXPECT_STREQ(buffer, "40."); // cut, but terminated
    EXPECT_EQ(buffer[4], '#');
    EXPECT_FALSE(p.params->value_to_text(p.plugin, 12, 0, buffer, 8));
    double value = -1;
    const std::pair<const char*, double> parsed[] = {
        {"2.50 s", 2.5}, {"40.0 ms", 40}, {"K = 2", 0}, {" +3.0 dB", 3}, {"", 0}, {"-1e3x", -1000}};
    for (const auto& [text, expected] : parsed) {
        EXPECT_TRUE(p.params->text_to_value(p.plugin, 1, text, &value));
        EXPECT_EQ(value, expected) << text;
    }
    EXPECT_FALSE(p.params->text_to_value(p.plugin, 12, "1", &value));
    EXPECT_FALSE(p.params->text_to_value(p.plugin, 0, nullptr, &value));
    EXPECT_FALSE(p.params->text_to_value(p.plugin, 0, "1", nullptr));
}

TEST(Plugin, TakesEventsByKindWhateverSizeTheyClaim) {
    Plugin p(clap_entry);
    Events events;
    events.add(1, 20).add(11, -30).add(2, kNaN).add(3, 0.5, 0, 5, 0).add(4, 0.5, 0, 5, 16);
    events.add(5, 0.1, 1).add(5, 0.1, 0, 6).add(12, 0.1).add(0xFFFFFFFF, 0.1).add_missing();
    events.add(8, 0.2).add(8, -0.0); // the later one wins
    p.flush(events);
    const Values expected = {0.04, 10, kNaN, 0.5, 0.5, 0.8, 1, 0, 0.001, 0.5, 0, -24};
    EXPECT_TRUE(same_bits(p.values(), expected));

    // A NaN makes the engine refuse all values, at activation too, until it is replaced.
    EXPECT_FALSE(p.activate(48000, 64));
    p.flush(Events(kStages, 1));
    EXPECT_TRUE(p.activate(48000, 64));
    // Events count with a refused block, but not without a port on either side.
    float sample = 0.25f, *channels[] = {&sample};
    clap_audio_buffer_t port = {channels, nullptr, 1, 0, 0};
    for (const uint32_t inputs : {0u, 1u}) {
        const Events to_four(kDecay, 4);
        const clap_process_t block = {-1,     8,          nullptr,        &port,  &port,
                                      inputs, 1 - inputs, to_four.list(), nullptr};
        EXPECT_EQ(p.plugin->process(p.plugin, &block), CLAP_PROCESS_ERROR);
        EXPECT_EQ(p.value(kDecay), 10);
    }
    const Events to_six(kDecay, 6);
    EXPECT_EQ(p.process(72, {&sample}, {&sample}, &to_six),
              CLAP_PROCESS_ERROR); // above the capacity
    EXPECT_EQ(p.value(kDecay), 6);
}

TEST(Plugin, SavesAndLoadsItsStateAsAWhole) {
    Values values;
    for (const Row& row : kRows) values.push_back(row.min + (row.max - row.min) / 3);
    values[10] = -0.0;
    Plugin from(clap_entry), to(clap_entry);
    for (uint32_t id = 0; id < 12; ++id) from.flush(Events(id, values[id]));
    Stream stream;
    ASSERT_TRUE(from.save(stream));
    EXPECT_EQ(stream.bytes, state_of(values));
    stream.bytes.push_back(0xEE); // beyond the state: not read
    ASSERT_TRUE(to.load(stream));
    EXPECT_EQ(stream.at, 104u);
    EXPECT_TRUE(same_bits(to.values(), values));

    const std::vector<unsigned char> good = state_of({0.5, 10, 3, 1, 1, 1, 1, 1, 0.5, 1, 24, 24});
    for (size_t length = 0; length < 104; ++length) {
        // 0 at the end, -1, or the claim to have moved more than was asked for.
        const int64_t end = length % 3 == 0 ? 0 : length % 3 == 1 ? -1 : 1000;
        Stream full{{}, 5, length, 0, end};
        EXPECT_FALSE(from.save(full)) << length;
        Stream cut{{good.begin(), good.begin() + static_cast<long>(length)}, 5, 0, 0, end};
        EXPECT_FALSE(to.load(cut)) << length;
    }
    EXPECT_FALSE(to.load(state_of(values, "QVB2")) || to.load(state_of(values, "qVB1")));
    for (const uint32_t version : {0u, 2u, 0x01000000u, 0x00010001u})
        EXPECT_FALSE(to.load(state_of(values, "QVB1", version))) << version;
    EXPECT_TRUE(same_bits(to.values(), values));
    EXPECT_TRUE(to.load(state_of({-1, 50, kInf, -kInf, kNaN, 1e300, 0.25, -0.0, 0, 2, -25, 25})));
    EXPECT_TRUE(same_bits(to.values(), {0.005, 10, 3, 0, kNaN, 1, 0.25, -0.0, 0.001, 1, -24, 24}));
}

TEST(Plugin, ReportsATailOfOneAndAHalfDecayTimes) {
    Plugin p(clap_entry);
    EXPECT_EQ(p.tail(), 0u);
    ASSERT_TRUE(p.activate(44100.9, 64));
    EXPECT_EQ(p.tail(), 132300u);
    p.flush(Events(kDecay, 0.12345));
    EXPECT_EQ(p.tail(), 8166u); // 8166.2
    p.flush(Events(kDecay, kNaN));
    EXPECT_EQ(p.tail(), 0x80000000u); // without end
    p.flush(Events(kDecay, 10));
    EXPECT_FALSE(p.activate(2147483647.0, 0xFFFFFFFF)); // it sets the rate all the same
    EXPECT_EQ(p.tail(), 2147483647u);
    EXPECT_FALSE(p.activate(1e300, 64));
    EXPECT_EQ(p.tail(), 0u);
}

// The few frames behind the last whole tile pass dry, on a side whose other one is missing, too.
TEST(Plugin, GivesTheRestOfABlockToARightOutputAlone) {
    Plugin p(clap_entry);
    ASSERT_TRUE(p.activate(48000, 64));
    float left[5] = {1, 2, 3, 4, 5}, right[5] = {6, 7, 8, 9, 10}, out[5] = {};
    EXPECT_EQ(p.process(5, {left, right}, {nullptr, out}), CLAP_PROCESS_CONTINUE);
    EXPECT_TRUE(std::ranges::equal(out, right));
}

// Pending values wait through a flush without a list: a NaN that follows makes the engine refuse
// them, and it goes on sounding as if nothing had come.
TEST(Plugin, KeepsPendingValuesThroughAFlushWithoutAList) {
    std::vector<float> sounds[2];
    for (const bool interfere : {false, true}) {
        Plugin p(clap_entry);
        ASSERT_TRUE(p.activate(48000, 512));
        for (int block = 0; block < 12; ++block) {
            if (interfere && block == 8) {
                ASSERT_TRUE(p.load(state_of({0.03, 1, 1, 0, 1, 1, 0, 0, 0.1, 0, 0, 0})));
                p.params->flush(p.plugin, nullptr, nullptr);
                p.flush(Events(kDecay, kNaN));
            }
            std::vector<float> audio = compare::noise(512, 1);
            ASSERT_EQ(p.process(512, {audio.data()}, {audio.data()}), CLAP_PROCESS_CONTINUE);
            sounds[interfere].insert(sounds[interfere].end(), audio.begin(), audio.end());
        }
    }
    EXPECT_EQ(sounds[0], sounds[1]);
}

// ---- Sound --------------------------------------------------------------------------------------

namespace {

// An instance and what it promises to do with an engine, done by hand: led through the same random
// life.
struct Life {
    explicit Life(uint64_t stream) : random(stream) { activate(); }

    bool apply() {
        pending = false;
        if (!reverb) return true;
        const auto f = [&](size_t id) { return static_cast<float>(values[id]); };
        const double K = std::floor(values[kStages] + 0.5);
        const qv_reverb_params params = {f(0),
                                         f(1),
                                         std::isnan(K) ? INT32_MIN : static_cast<int32_t>(K),
                                         0.0f,
                                         f(3),
                                         f(4),
                                         f(5),
                                         values[6] >= 0.5,
                                         values[7] >= 0.5,
                                         f(8),
                                         f(9),
                                         f(10),
                                         f(11)};
        const bool ok = qv_reverb_set(reverb.get(), &params) == 0;
        ++(ok ? accepted : refused);
        return ok;
    }
    void set(uint32_t id, double value) {
        values[id] = value < kRows[id].min   ? kRows[id].min
                     : value > kRows[id].max ? kRows[id].max
                                             : value;
        pending = true;
    }
    double any_value(uint32_t id) {
        const Row& row = kRows[id];
        if (random.chance(0.2f))
            return random.pick({row.min, row.max, -kInf, kInf, 1e300, -0.0, kNaN});
        // Mostly short lines, so that tails begin before the next change.
        const double top = id == kSize && random.chance(0.9f) ? 0.03 : row.max;
        return row.min + (top - row.min) * double{random.real(0, 1)};
    }
    void any_events(Events& events) {
        for (uint32_t n = random.integer(0, 5); n > 0; --n) {
            const uint32_t id = random.integer(0, 11);
            const double value = any_value(id);
            if (random.chance(0.5f)) {
                events.add(id, value, 0, 5, random.integer(0, 99));
                set(id, value);
            } else {
                events.add(id, value, 1).add(id, value, 0, 6).add(12, value).add_missing();
            }
        }
    }
    void activate() {
        const auto rate = random.pick({22050.0, 44100.9, 48000.0, 8000.0});
        const uint32_t length = random.pick({1u, 100u, 256u, 500u, 881u});
        capacity = std::max(64u, (length + 7) / 8 * 8);
        plugin.deactivate();
        reverb = compare::create(static_cast<int32_t>(rate), static_cast<int32_t>(capacity));
        const bool was_pending =
            pending; // activation hands the values over, yet leaves them pending
        EXPECT_EQ(plugin.activate(rate, length), reverb && apply());
        pending = was_pending;
    }
    void process() {
        const uint32_t frames = random.integer(0, random.chance(0.7f) ? capacity + 7 : 30);
        const bool silent = random.chance(0.5f);
        const auto signal = silent ? compare::Signal::kSilence : compare::Signal::kNonFinite;
        std::vector<float> in[2], got[2], expected[2];
        for (int side = 0; side < 2; ++side) {
            in[side] = compare::make(frames + 8, signal, random);
            got[side] = expected[side] =
                random.chance(0.3f) ? in[side] : std::vector<float>(frames + 8, kUntouched);
        }
        Events events;
        if (reverb && random.chance(0.08f)) any_events(events); // not read without an engine
        float *from[] = {in[0].data(), in[1].data()}, *to[] = {got[0].data(), got[1].data()};
        const size_t ins = random.integer(0, 2), outs = random.integer(1, 2);
        const int32_t status = plugin.process(frames, from, ins, to, outs, &events);

        if (reverb && pending) apply();
        const uint32_t whole = frames / 8 * 8;
        const float *left = ins > 0 ? from[0] : nullptr, *right = ins > 1 ? from[1] : left;
        float* other = outs > 1 ? expected[1].data() : nullptr;
        const bool fails =
            !reverb ||
            (whole > 0 && qv_reverb_process(reverb.get(), left, ins > 1 ? right : nullptr,
                                            expected[0].data(), other, int32_t(whole)));
        EXPECT_EQ(status, fails ? CLAP_PROCESS_ERROR : CLAP_PROCESS_CONTINUE);
        for (uint32_t t = whole; t < frames && !fails; ++t) { // the last frames pass dry
            expected[0][t] = left ? left[t] : 0.0f;
            if (other) other[t] = right ? right[t] : 0.0f;
        }
        for (int side = 0; side < 2; ++side)
            EXPECT_TRUE(compare::same<std::span<const float>>(got[side], expected[side]))
                << frames << " frames";
        errors += fails;
        tails += silent && !fails && whole > 0 && std::fabs(expected[0][0]) > 1e-6f;
    }
    void step() {
        Events events;
        switch (random.integer(0, 29)) {
        case 0:
            activate();
            break;
        case 1:
        case 2:
            any_events(events);
            plugin.flush(events);
            if (pending) apply();
            break;
        case 3: {
            Values loaded;
            for (uint32_t id = 0; id < 12; ++id) loaded.push_back(any_value(id));
            EXPECT_TRUE(plugin.load(state_of(loaded), random.integer(1, 120)));
            for (uint32_t id = 0; id < 12; ++id) set(id, loaded[id]);
            break;
        }
        case 4:
            plugin.plugin->reset(plugin.plugin);
            plugin.plugin->on_main_thread(plugin.plugin);
            break;
        default:
            process();
        }
        EXPECT_TRUE(same_bits(plugin.values(), values));
    }

    Random random;
    Plugin plugin{clap_entry};
    compare::Reverb reverb;
    Values values = defaults();
    bool pending = false;
    uint32_t capacity = 0;
    int accepted = 0, refused = 0, errors = 0, tails = 0;
};

} // namespace

TEST(Plugin, SoundsLikeTheReverbDrivenByHand) {
    int accepted = 0, refused = 0, errors = 0, tails = 0;
    for (uint64_t k = 0; k < 8 && !HasFailure(); ++k) {
        Life life(k);
        for (int step = 0; step < 300 && !HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "life " << k << ", step " << step);
            life.step();
        }
        accepted += life.accepted;
        refused += life.refused;
        errors += life.errors;
        tails += life.tails;
    }
    // The lives have met all of it, tails heard in silent blocks included.
    EXPECT_GT(accepted, 50);
    EXPECT_GT(refused, 10);
    EXPECT_GT(errors, 10);
    EXPECT_GT(tails, 100);
}
