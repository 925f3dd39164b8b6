// Values and presets as text: what is shown parses back, what is saved comes back exactly, and what
// is no preset changes nothing.
#include "live/engine/presets.h"

#include <set>
#include <string>

#include "tests/compare.h"

namespace {

using namespace brisel::live;
using compare::Random;

Settings random_settings(Random& random) {
    Settings settings;
    for (uint32_t id = 0; id < kParameters; ++id) {
        const Parameter& p = parameters()[id];
        settings[id] = random.chance(0.2f)
                           ? p.initial
                           : from_position(p, static_cast<double>(random.real(0.0f, 1.0f)));
    }
    return settings;
}

std::string text_of(const Settings& settings, ParameterMask left_out = 0) {
    char buffer[kLongestPreset];
    return std::string(write_preset(settings, left_out, "a comment", buffer));
}

TEST(LiveText, ParsesBackToTheValueThatItShows) {
    Random random(1);
    for (const Parameter& p : parameters()) {
        for (int k = 0; k < 2000; ++k) {
            const double value = k < 3 ? (k == 0   ? p.least
                                          : k == 1 ? p.most
                                                   : p.initial)
                                       : from_position(p, static_cast<double>(random.real(0, 1)));
            char first[kLongestText], second[kLongestText], exact[kLongestText];
            const std::string_view text = to_text(p, value, first);
            const auto shown = from_text(p, text);
            ASSERT_TRUE(shown) << p.key << " '" << text << "'";
            EXPECT_EQ(to_text(p, *shown, second), text) << p.key;
            EXPECT_EQ(from_text(p, second), shown) << p.key << " '" << text << "'";
            const double step = p.stepped() ? 0.0 : 1.01 * std::pow(10.0, -p.decimals);
            EXPECT_NEAR(*shown, value, p.unit == Unit::kMilliseconds ? step / 1000 : step);
            EXPECT_EQ(from_text(p, to_exact_text(p, value, exact), BareNumber::kBase), value)
                << p.key << " '" << exact << "'";
        }
        for (const char* refused : {"", " ", "ms", "much", "nan", "inf", "--1", "+-1", "1 parsec",
                                    "0x10", "1 2", "1,5", "K ="})
            EXPECT_FALSE(from_text(p, refused)) << p.key << " '" << refused << "'";
        for (double wild : {-1e300, 1e300, HUGE_VAL, -HUGE_VAL}) {
            const double held = clamp(p, wild);
            EXPECT_TRUE(held >= p.least && held <= p.most) << p.key;
        }
        EXPECT_EQ(clamp(p, NAN), p.initial);
        EXPECT_EQ(find_key(p.key), &p - parameters().data());
    }
    const auto typed = [](Id id, const char* text) { return *from_text(parameters()[id], text); };
    EXPECT_EQ(typed(kSize, "55"), 0.055);
    EXPECT_EQ(typed(kSize, " 0.055S"), 0.055);
    EXPECT_EQ(typed(kMix, "55"), 0.55);
    EXPECT_EQ(typed(kHighCut, "8 khz"), 8000.0);
    EXPECT_EQ(typed(kHighCut, "off"), 20000.0);
    EXPECT_EQ(typed(kPredelaySync, "1/16t"), 3.0);
    EXPECT_EQ(typed(kScattering, "K = 3"), 3.0);
    EXPECT_EQ(typed(kEqLow, "-90 dB"), -24.0);
    EXPECT_EQ(*from_text(parameters()[kMix], "0.55", BareNumber::kBase), 0.55);
}

TEST(LivePresets, ComeBackExactlyInAnyOrder) {
    Random random(2);
    for (int k = 0; k < 200; ++k) {
        const Settings settings = random_settings(random);
        std::string text = text_of(settings);
        Preset read;
        ASSERT_TRUE(read_preset(text, read));
        EXPECT_EQ(read.settings, settings) << text;
        EXPECT_EQ(read.given, kAllParameters);

        std::string reversed = "from-the-future = 12 furlongs\r\n\n";
        for (size_t end; !text.empty(); text.resize(end + 1)) {
            text.pop_back();
            end = text.rfind('\n');
            reversed += text.substr(end + 1) + "  # said\n";
            if (end == std::string::npos) break;
        }
        ASSERT_TRUE(read_preset(reversed, read));
        EXPECT_EQ(read.settings, settings) << reversed;
    }
    Preset read;
    ASSERT_TRUE(read_preset("size = 9 s\ndecay = banana\nmix = 35%\nmix = 0.25", read));
    EXPECT_EQ(read.settings[kSize], 0.5);
    EXPECT_EQ(read.settings[kDecay], 2.0);
    EXPECT_EQ(read.settings[kMix], 0.25);
    EXPECT_EQ(read.given, bit_of(kSize) | bit_of(kMix));
}

TEST(LivePresets, WhatIsNoneIsRefusedAndChangesNothing) {
    Random random(3);
    const Preset before = {random_settings(random), 5};
    const std::string good = text_of(before.settings);
    const std::string binary("QVB1\x01\0\0\0", 8);
    for (const std::string& text :
         {std::string(), std::string("# size = 3 ms\n"), std::string("other = 3\n"), good + '\0',
          good + "\x1b[2J", good + "half a line", "= 3\n" + good, binary + good,
          std::string("<plist>\n<dict/>\n</plist>"), good + std::string(kLongestPreset, ' ')}) {
        Preset preset = before;
        EXPECT_FALSE(read_preset(text, preset)) << text;
        EXPECT_EQ(preset.settings, before.settings);
        EXPECT_EQ(preset.given, before.given);
    }
    for (int k = 0; k < 20000; ++k) { // whatever is read is usable
        std::string text = good;
        for (uint32_t n = random.integer(1, 5); n > 0; --n)
            text[random.integer(0, static_cast<uint32_t>(text.size()) - 1)] =
                static_cast<char>(random.integer(0, 255));
        text.resize(random.integer(0, static_cast<uint32_t>(text.size())));
        Preset preset = before;
        if (!read_preset(text, preset)) continue;
        for (uint32_t id = 0; id < kParameters; ++id)
            ASSERT_EQ(preset.settings[id], clamp(parameters()[id], preset.settings[id]));
    }
}

TEST(LivePresets, OfTheProgramAreCompleteAndDistinct) {
    std::set<std::string_view> keys, names, categories;
    std::set<Settings> sounds;
    for (const FactoryPreset& preset : factory_presets()) {
        SCOPED_TRACE(preset.key);
        EXPECT_TRUE(keys.insert(preset.key).second);
        EXPECT_TRUE(names.insert(preset.name).second) << preset.name;
        categories.insert(preset.category);
        EXPECT_EQ(find_factory_preset(preset.key), &preset);
        EXPECT_GT(preset.description.size(), 20u);
        Preset read;
        ASSERT_TRUE(read_preset(preset.text, read));
        EXPECT_TRUE(sounds.insert(read.settings).second);
        EXPECT_EQ(read.given & kNotInPresets, 0u);
        // Every line counts: no key or value is passed over.
        const auto lines = std::ranges::count(preset.text, '=');
        EXPECT_EQ(std::popcount(read.given), lines);
    }
    EXPECT_GE(keys.size(), 24u);
    EXPECT_GE(categories.size(), 5u);
    for (const char* name :
         {"Room", "Hall", "Cathedral", "Plate", "Chamber", "Ambience", "Echoes", "Wash"})
        EXPECT_TRUE(names.contains(name)) << name;
}

} // namespace
