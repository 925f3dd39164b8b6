// Values as people write them, and the way from reported parameter names to options.
#include "render/errors.h"
#include "render/parameter.h"
#include "render/units.h"

#include <gtest/gtest.h>

#include <random>

using namespace brisel::render;

namespace {

TEST(RenderValues, AreReadInPeoplesUnits) {
    const struct {
        const char* text;
        Unit unit;
        double value;
    } cases[] = {
        {"40ms", Unit::milliseconds, 0.04},
        {"0.04s", Unit::milliseconds, 0.04},
        {" 40 MS ", Unit::seconds, 0.04},
        {"2.5", Unit::seconds, 2.5},
        {"+2.5 s", Unit::milliseconds, 2.5},
        {"1e-2", Unit::seconds, 0.01},
        {"35%", Unit::ratio, 0.35},
        {".35", Unit::ratio, 0.35},
        {"-2dB", Unit::decibels, -2.0},
        {"+3", Unit::decibels, 3.0},
        {"-0.5 db", Unit::decibels, -0.5},
        {"3", Unit::count, 3.0},
        {"on", Unit::on_off, 1.0},
        {"OFF", Unit::on_off, 0.0},
        {"0", Unit::on_off, 0.0},
        {"-7.25", Unit::number, -7.25},
    };
    for (const auto& c : cases) EXPECT_EQ(parse_value(c.text, c.unit), c.value) << c.text;
}

TEST(RenderValues, WithAnythingElseBehindThemAreRefused) {
    const struct {
        const char* text;
        Unit unit;
    } cases[] = {
        {"", Unit::seconds},       {"ms", Unit::seconds},   {"40msx", Unit::seconds},
        {"40 m s", Unit::seconds}, {"0,04", Unit::seconds}, {"40%", Unit::seconds},
        {"1 2", Unit::number},     {"35%%", Unit::ratio},   {"3dB", Unit::ratio},
        {"nan", Unit::number},     {"inf", Unit::decibels}, {"1e999", Unit::number},
        {"+-3", Unit::decibels},   {"++3", Unit::decibels}, {"1.5", Unit::count},
        {"0x10", Unit::count},     {"maybe", Unit::on_off}, {"2", Unit::on_off},
    };
    for (const auto& c : cases)
        EXPECT_THROW(parse_value(c.text, c.unit), ValueError) << "'" << c.text << "'";
}

TEST(RenderValues, ComeBackExactlyFromTheTextThatShowsThem) {
    EXPECT_EQ(show_value(0.04, Unit::milliseconds), "40 ms");
    EXPECT_EQ(show_value(0.1, Unit::seconds), "0.1 s");
    EXPECT_EQ(show_value(24.0, Unit::decibels), "+24 dB");
    EXPECT_EQ(show_value(0.0, Unit::decibels), "0 dB");
    EXPECT_EQ(show_value(0.35, Unit::ratio), "0.35");
    EXPECT_EQ(show_value(1.0, Unit::on_off), "on");
    std::mt19937_64 random(20);
    for (const Unit unit : {Unit::milliseconds, Unit::seconds, Unit::decibels, Unit::ratio}) {
        for (int i = 0; i < 2000; ++i) {
            // Values of few digits, of all digits, and tiny ones.
            double value = std::uniform_real_distribution(-24.0, 24.0)(random);
            if (i % 3 == 0) value = static_cast<float>(value / 50);
            if (i % 7 == 0) value *= 1e-12;
            const std::string text = show_value(value, unit);
            ASSERT_EQ(parse_value(text, unit), value) << text;
        }
    }
}

TEST(RenderParameters, TakeOptionNamesAndUnitsFromWhatIsReported) {
    EXPECT_EQ(option_name("EQ Low (dB)"), "eq-low");
    EXPECT_EQ(option_name("Early Reflections"), "early-reflections");
    EXPECT_EQ(option_name("eq-low"), "eq-low");
    EXPECT_EQ(unit_from_text("40.0 ms", 0.04, false, 0.005, 0.5), Unit::milliseconds);
    EXPECT_EQ(unit_from_text("2.00 s", 2.0, false, 0.1, 10.0), Unit::seconds);
    EXPECT_EQ(unit_from_text("+0.0 dB", 0.0, false, -24.0, 24.0), Unit::decibels);
    EXPECT_EQ(unit_from_text("K = 2", 2.0, true, 0.0, 3.0), Unit::count);
    EXPECT_EQ(unit_from_text("Off", 0.0, true, 0.0, 1.0), Unit::on_off);
    EXPECT_EQ(unit_from_text("0.300", 0.3, false, 0.0, 1.0), Unit::ratio);
    // A value that is in milliseconds itself is none that this program can scale.
    EXPECT_EQ(unit_from_text("40.0 ms", 40.0, false, 5.0, 500.0), Unit::number);
}

} // namespace
