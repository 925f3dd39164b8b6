// The window's contents on images: what people do reaches the host as gestures, what the host does
// is drawn, and the curves are the engine's.
#include "live/ui/view.h"

#include <complex>
#include <functional>
#include <map>
#include <numbers>
#include <numeric>
#include <set>
#include <utility>

#include "live/ui/curves.h"
#include "tests/compare.h"

// What fontconfig keeps of its configuration until a program ends is none of the window's.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig";
}

namespace {

using namespace brisel::live;
using namespace brisel::live::ui;
using compare::Random;

// A host that keeps values, and an image to draw on.
struct Desk {
    explicit Desk(double scale = 1.0, uint32_t remembered = 0) : memory(remembered) {
        const int width = static_cast<int>(kViewWidth * scale);
        const int height = static_cast<int>(kViewHeight * scale);
        image = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
        view.resize(width, height);
        show();
    }
    ~Desk() { cairo_surface_destroy(image); }
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    void show(uint32_t milliseconds = 33) {
        view.refresh(now += milliseconds);
        cairo_t* cr = cairo_create(image);
        view.draw(cr);
        cairo_destroy(cr);
    }
    std::vector<uint8_t> pixels() const { // their colours
        cairo_surface_flush(image);
        const uint8_t* data = cairo_image_surface_get_data(image);
        return {data, data + cairo_image_surface_get_stride(image) *
                                 cairo_image_surface_get_height(image)};
    }
    // Whether the picture is what all of it drawn anew gives, but for the rounding of one colour.
    bool up_to_date() {
        const auto before = pixels();
        view.resize(cairo_image_surface_get_width(image), cairo_image_surface_get_height(image));
        show(0);
        return std::ranges::equal(before, pixels(),
                                  [](int a, int b) { return std::abs(a - b) <= 2; });
    }

    void at(Point unit, PointerEvent::Kind kind, bool fine = false, bool reset = false,
            int steps = 0) {
        const Point pixel = view.pixel_of(unit);
        view.pointer({kind, pixel.x, pixel.y, now, steps, fine, reset});
    }
    Point middle(Kind kind, Id id) const {
        for (const Item& item : view.items())
            if (item.kind == kind && item.id == id)
                return {item.area.middle_x(), item.area.middle_y()};
        ADD_FAILURE() << "no such item";
        return {};
    }
    void drag(Point from, double x, double y, bool fine = false) {
        at(from, PointerEvent::Kind::kPress);
        at({from.x + x / 2, from.y + y / 2}, PointerEvent::Kind::kMove, fine);
        at({from.x + x, from.y + y}, PointerEvent::Kind::kMove, fine);
        at({from.x + x, from.y + y}, PointerEvent::Kind::kRelease);
        show(1000); // no double click
    }
    void click(Point point) { drag(point, 0, 0); }
    void type(const char* text) {
        for (; *text; ++text) view.key(Key::kCharacter, *text, false);
        view.key(Key::kEnter, 0, false);
    }

    void edit(int kind, uint32_t id, double value) {
        ASSERT_LT(id, kParameters);
        if (kind == BRISEL_UI_VALUE) {
            EXPECT_TRUE(held[id]) << parameters()[id].name;
            EXPECT_EQ(value, clamp(parameters()[id], value));
            values.set_plain(id, value);
            ++edits;
        } else {
            EXPECT_EQ(held[id], kind == BRISEL_UI_END) << parameters()[id].name;
            held[id] = kind == BRISEL_UI_BEGIN;
            gestures[id] += kind == BRISEL_UI_BEGIN;
        }
    }
    double value(Id id) const { return values.plain(id); }

    Values values;
    std::array<bool, kParameters> held{};
    std::map<uint32_t, int> gestures;
    int edits = 0;
    uint32_t memory, now = 1000;
    brisel_ui_meters peaks = {0, 0, 0, 1};
    brisel_ui_host host = {
        this,
        [](void* desk, uint32_t id) { return static_cast<Desk*>(desk)->value(Id(id)); },
        [](void* desk, uint32_t id) { return static_cast<Desk*>(desk)->values.sounding(Id(id)); },
        [](void* desk, int kind, uint32_t id, double value) {
            static_cast<Desk*>(desk)->edit(kind, id, value);
        },
        [](void* desk, brisel_ui_meters* to) { *to = static_cast<Desk*>(desk)->peaks; },
        [](void*) { return 48000.0; },
        &memory};
    View view{host};
    cairo_surface_t* image;
};

TEST(LiveView, DrawsAnewWhatChangesAndNothingElse) {
    for (const double scale : {1.0, 1.37, 2.0}) {
        Desk desk(scale);
        EXPECT_TRUE(desk.up_to_date());
        desk.view.refresh(desk.now += 33);
        EXPECT_TRUE(cairo_region_is_empty(desk.view.damage()));
        const std::function<void()> changes[] = {
            [&] { desk.values.set_plain(kDecay, 7.0); },
            [&] { desk.values.set_plain(kBypass, 1.0); },
            [&] { desk.values.set_modulation(kMix, 0.3); },
            [&] {
                desk.peaks = {0.5f, 0.1f, 2.0f, 0.5f};
            },
            [&] { desk.at(desk.middle(Kind::kKnob, kDuck), PointerEvent::Kind::kMove); },
            [&] { desk.view.key(Key::kTab, 0, false); },
            [&] { desk.click(desk.middle(Kind::kPreset, kParameters)); },
            [&] { desk.view.key(Key::kDown, 0, false); },
            [&] { desk.view.key(Key::kEnter, 0, false); },
            [&] { desk.view.key(Key::kTab, 0, false); },
        };
        for (const auto& change : changes) {
            const auto before = desk.pixels();
            change();
            desk.show();
            EXPECT_NE(desk.pixels(), before) << &change - changes;
            desk.show(1000); // tooltips
            EXPECT_TRUE(desk.up_to_date()) << &change - changes << " at " << scale;
        }
    }
}

TEST(LiveView, EveryControlTurnsAndComesBackToItsDefault) {
    Desk desk(1.5);
    for (const Item item : desk.view.items()) {
        if (item.id == kParameters || item.kind == Kind::kButton) continue;
        const Parameter& p = parameters()[item.id];
        SCOPED_TRACE(p.name);
        const Point at = desk.middle(item.kind, item.id); // nodes move with others' values
        const double start = desk.value(item.id), middle = to_position(p, start) > 0.5 ? 1 : -1;
        if (item.kind == Kind::kSwitch) {
            desk.click(at);
            EXPECT_EQ(desk.value(item.id), 1.0 - start);
            desk.click(at);
            EXPECT_EQ(desk.value(item.id), start);
            continue;
        }
        // Short enough that no node comes to lie on another.
        const double length = item.kind == Kind::kNode ? 25 : 40;
        const double way = length * (item.sideways() ? -middle : middle);
        const auto pull = [&](bool fine) {
            const double before = to_position(p, desk.value(item.id));
            const Point from = desk.middle(item.kind, item.id);
            desk.drag(from, item.sideways() ? way : 0, item.sideways() ? 0 : way, fine);
            return std::fabs(to_position(p, desk.value(item.id)) - before);
        };
        const int gestures = desk.gestures[item.id];
        const double coarse = pull(false);
        EXPECT_GT(coarse, 0.02);
        EXPECT_EQ(desk.gestures[item.id], gestures + 1);
        const double fine = p.stepped() ? 0.0 : pull(true);
        EXPECT_LT(fine, 0.5 * coarse);
        const double turned = desk.value(item.id);
        desk.at(desk.middle(item.kind, item.id), PointerEvent::Kind::kScroll, false, false,
                to_position(p, turned) > 0.5 ? -1 : 1);
        EXPECT_NE(desk.value(item.id), turned);
        desk.at(desk.middle(item.kind, item.id), PointerEvent::Kind::kPress, false, true);
        desk.show(1000);
        EXPECT_EQ(desk.value(item.id), p.initial);
    }
}

TEST(LiveView, TakesTypedValuesAndRefusesOtherTexts) {
    Desk desk;
    const Point decay = desk.middle(Kind::kKnob, kDecay);
    const auto open = [&] {
        for (int i = 0; i < 2; ++i) {
            desk.at(decay, PointerEvent::Kind::kPress);
            desk.at(decay, PointerEvent::Kind::kRelease);
        }
        ASSERT_TRUE(desk.view.typed());
    };
    open();
    desk.type("450 ms");
    EXPECT_EQ(desk.value(kDecay), 0.45);
    EXPECT_FALSE(desk.view.typed());
    open();
    desk.type("4 Hz");
    EXPECT_TRUE(desk.view.refused());
    EXPECT_EQ(desk.value(kDecay), 0.45);
    desk.show();
    for (int i = 0; i < 3; ++i) desk.view.key(Key::kBackspace, 0, false);
    desk.type("");
    EXPECT_EQ(desk.value(kDecay), 4.0);
    // A focused knob takes digits at once; the host's space bar stays the host's.
    EXPECT_FALSE(desk.view.key(Key::kCharacter, ' ', false));
    desk.type("7");
    EXPECT_EQ(desk.value(kDecay), 7.0);
}

TEST(LiveView, PresetsLeaveALockedMixAlone) {
    Desk desk;
    desk.values.set_plain(kMix, 0.77);
    desk.values.set_plain(kBypass, 1.0);
    desk.click(desk.middle(Kind::kLock, kParameters));
    std::set<std::array<double, 3>> sounds;
    for (size_t i = 0; i < factory_presets().size(); ++i) {
        desk.click(desk.middle(Kind::kNext, kParameters));
        sounds.insert({desk.value(kSize), desk.value(kDecay), desk.value(kDamp)});
        EXPECT_EQ(desk.value(kMix), 0.77);
        EXPECT_EQ(desk.value(kBypass), 1.0);
    }
    EXPECT_GT(sounds.size(), factory_presets().size() / 2);
    Desk reopened(1.0, desk.memory); // lock and preset are remembered
    reopened.click(reopened.middle(Kind::kPrevious, kParameters));
    EXPECT_EQ(reopened.value(kMix), parameters()[kMix].initial);
}

TEST(LiveView, SurvivesAnyEventsAndEndsEveryGesture) {
    Random random(1);
    Desk desk(1.25);
    for (int i = 0; i < 10000; ++i) {
        const Point point = {double(random.real(-20, 740)), double(random.real(-20, 440))};
        if (random.chance(0.6f)) {
            desk.at(point, static_cast<PointerEvent::Kind>(random.integer(0, 4)),
                    random.chance(0.2f), random.chance(0.1f), random.chance(0.5f) ? 1 : -1);
        } else {
            const auto key = static_cast<Key>(random.integer(0, uint32_t(Key::kDelete)));
            desk.view.key(key, static_cast<char>(random.integer(' ', '~')), random.chance(0.3f));
        }
        if (random.chance(0.02f)) desk.values.set_plain(random.integer(0, 25), random.real(0, 30));
        if (random.chance(0.02f)) desk.show(random.integer(0, 900));
        if (random.chance(0.002f)) desk.view.release();
        for (const Item& item : desk.view.items())
            ASSERT_TRUE(Rect({0, 0, kViewWidth, kViewHeight})
                            .contains(item.area.middle_x(), item.area.middle_y()))
                << i;
    }
    desk.view.release();
    for (const bool held : desk.held) EXPECT_FALSE(held);
    EXPECT_GT(desk.edits, 1000);
}

// A constant-peak band-pass of the second order, four times.
struct Octave {
    static constexpr int kPasses = 4;
    double cosine, alpha;
    explicit Octave(double hz)
        : cosine(std::cos(2 * std::numbers::pi * hz / kRate)),
          alpha(std::sin(2 * std::numbers::pi * hz / kRate) / 2 / 1.2) {}

    void add_energies(std::vector<float>& signal, std::vector<double>& energies) const {
        std::vector<double> x(signal.begin(), signal.end());
        for (int pass = 0; pass < kPasses; ++pass) {
            double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
            for (double& sample : x) {
                const double y =
                    (alpha * (sample - x2) + 2 * cosine * y1 - (1 - alpha) * y2) / (1 + alpha);
                x2 = std::exchange(x1, sample);
                y2 = std::exchange(y1, y);
                sample = y;
            }
        }
        for (size_t t = 0; t < x.size(); ++t) energies[t / kStep] += x[t] * x[t];
    }
    double power(double hz) const {
        const double w = 2 * std::numbers::pi * hz / kRate;
        const std::complex<double> z1 = std::polar(1.0, -w), z2 = z1 * z1;
        return std::pow(
            std::norm(alpha * (1.0 - z2) / (1 + alpha - 2 * cosine * z1 + (1 - alpha) * z2)),
            kPasses);
    }
    static constexpr double kRate = 48000;
    static constexpr size_t kStep = 480;
};

// Seconds from the energy left being 5 dB down to its being 35 dB down, times two: a steady fall's
// T60.
double fall_time(const std::vector<double>& energies, double step) {
    std::vector<double> left(energies.size());
    std::partial_sum(energies.rbegin(), energies.rend(), left.rbegin());
    const auto reaches = [&](double decibels) {
        const double goal = left[0] * std::pow(10.0, decibels / 10);
        const auto at = std::ranges::find_if(left, [=](double energy) { return energy < goal; });
        const double within = std::log(at[-1] / goal) / std::log(at[-1] / at[0]);
        return (double(at - left.begin()) - 1 + within) * step;
    };
    return 2 * (reaches(-35) - reaches(-5));
}

TEST(LiveView, DrawsTheDecayTimesOfTheEngine) {
    const double cases[][4] = {// size, decay, damp, stages
                               {0.04, 2.0, 0.3, 2},
                               {0.02, 0.8, 0.8, 1},
                               {0.12, 3.0, 0.5, 0},
                               {0.06, 1.5, 0.6, 3}};
    for (const auto& [size, decay, damp, stages] : cases) {
        Reverb reverb;
        ASSERT_TRUE(reverb.prepare(Octave::kRate, 512));
        Settings settings = default_settings();
        settings[kMix] = 1.0;
        settings[kSize] = size;
        settings[kDecay] = decay;
        settings[kDamp] = damp;
        settings[kScattering] = stages;
        reverb.values().load(settings);
        // What follows bursts of noise, over both channels.
        constexpr size_t kBurst = 48 * Octave::kStep;
        const size_t steps = size_t(decay * Octave::kRate) / Octave::kStep;
        std::map<double, std::vector<double>> energies;
        for (uint64_t burst = 0; burst < 6; ++burst) {
            reverb.reset();
            std::vector<float> sound[2] = {compare::noise(kBurst, 2 * burst),
                                           compare::noise(kBurst, 2 * burst + 1)};
            for (auto& channel : sound) channel.resize(kBurst + steps * Octave::kStep);
            float* const channels[2] = {sound[0].data(), sound[1].data()};
            reverb.process(channels, channels, uint32_t(sound[0].size()), {}, nullptr);
            for (auto& channel : sound) {
                channel.erase(channel.begin(), channel.begin() + kBurst);
                for (double hz : {125.0, 250.0, 500.0, 1000.0, 2000.0, 4000.0, 8000.0}) {
                    energies[hz].resize(steps);
                    Octave(hz).add_energies(channel, energies[hz]);
                }
            }
        }
        for (const auto& [hz, measured] : energies) {
            // The curve over all of the octave.
            std::vector<double> drawn(steps);
            for (double f = hz / 8; f < std::min(hz * 8, 23000.0); f *= 1.01) {
                const double fall = -6 / decay_time(settings, Octave::kRate, f);
                for (size_t t = 0; t < steps; ++t)
                    drawn[t] += f * Octave(hz).power(f) *
                                std::pow(10.0, fall * double(t * Octave::kStep) / Octave::kRate);
            }
            EXPECT_NEAR(fall_time(drawn, 0.01) / fall_time(measured, 0.01), 1.0, 0.05)
                << hz << " Hz, " << size << ' ' << decay << ' ' << damp << ' ' << stages;
        }
    }
}

} // namespace
