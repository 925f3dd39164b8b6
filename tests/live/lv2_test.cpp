// brisel-live.lv2, loaded from the build folder through lilv, as most hosts do it.
#include <gtest/gtest.h>
#include <lilv/lilv.h>
#include <lv2/atom/forge.h>
#include <lv2/time/time.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "live/engine/presets.h"
#include "live/lv2/ports.h"
#include "tests/live/strict_host.h"

namespace {

using namespace brisel::live;
using namespace brisel::live::lv2;

constexpr uint32_t kMostFrames = 5000;

std::map<std::string, LV2_URID> numbers;
LV2_URID number_of(LV2_URID_Map_Handle, const char* uri) {
    return numbers.try_emplace(uri, static_cast<LV2_URID>(numbers.size() + 1)).first->second;
}
LV2_URID_Map map = {nullptr, number_of};
const LV2_Feature kMap = {LV2_URID__map, &map};
const LV2_Feature* const kFeatures[] = {&kMap, nullptr};

// What lilv knows: the bundle alone.
LilvWorld* world() {
    static const std::unique_ptr<LilvWorld, decltype(&lilv_world_free)> world = [] {
        LilvWorld* made = lilv_world_new();
        LilvNode* bundle = lilv_new_file_uri(made, nullptr, BRISEL_LV2_BUNDLE);
        lilv_world_load_bundle(made, bundle);
        lilv_node_free(bundle);
        return std::unique_ptr<LilvWorld, decltype(&lilv_world_free)>(made, lilv_world_free);
    }();
    return world.get();
}

// An instance whose ports are connected by their symbols.
class Instance {
public:
    Instance(const char* uri, double rate, const LV2_Feature* const* features = kFeatures) {
        LilvNode* node = lilv_new_uri(world(), uri);
        plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world()), node);
        lilv_node_free(node);
        if (plugin) instance = lilv_plugin_instantiate(plugin, rate, features);
        if (!instance) return;
        controls.resize(lilv_plugin_get_num_ports(plugin));
        lilv_plugin_get_port_ranges_float(plugin, nullptr, nullptr, controls.data());
        for (uint32_t port = 0; port < controls.size(); ++port) {
            const LilvPort* about = lilv_plugin_get_port_by_index(plugin, port);
            indices[lilv_node_as_string(lilv_port_get_symbol(plugin, about))] = port;
        }
        for (const auto& [symbol, index] : indices)
            if (std::isfinite(controls[index])) connect(symbol, &controls[index]);
        lilv_instance_activate(instance);
    }
    ~Instance() { lilv_instance_free(instance); }
    void connect(const std::string& symbol, void* data) {
        lilv_instance_connect_port(instance, indices.at(symbol), data);
    }
    float& operator[](const std::string& symbol) { return controls[indices.at(symbol)]; }
    void run(uint32_t frames) { lilv_instance_run(instance, frames); }

    const LilvPlugin* plugin;
    LilvInstance* instance = nullptr;
    std::map<std::string, uint32_t> indices;
    std::vector<float> controls;
};

std::string symbol_of(Id id) {
    std::string symbol = id == kBypass ? "enabled" : parameters()[id].key;
    std::ranges::replace(symbol, '-', '_');
    return symbol;
}

// A port's events: one that tells a tempo, in the middle of a block.
struct TimePort {
    LV2_Atom_Sequence* tell(uint32_t frame, float beats_per_minute, int beat_unit) {
        LV2_Atom_Forge forge;
        LV2_Atom_Forge_Frame sequence, object;
        lv2_atom_forge_init(&forge, &map);
        lv2_atom_forge_set_buffer(&forge, buffer, sizeof buffer);
        lv2_atom_forge_sequence_head(&forge, &sequence, 0);
        lv2_atom_forge_frame_time(&forge, frame);
        lv2_atom_forge_object(&forge, &object, 0, number_of(nullptr, LV2_TIME__Position));
        lv2_atom_forge_key(&forge, number_of(nullptr, LV2_TIME__beatUnit));
        lv2_atom_forge_int(&forge, beat_unit);
        lv2_atom_forge_key(&forge, number_of(nullptr, LV2_TIME__beatsPerMinute));
        lv2_atom_forge_float(&forge, beats_per_minute);
        lv2_atom_forge_pop(&forge, &object);
        lv2_atom_forge_pop(&forge, &sequence);
        return reinterpret_cast<LV2_Atom_Sequence*>(buffer);
    }
    alignas(8) uint8_t buffer[256];
};

// Every parameter moves, in blocks of any length, some in place with the sides crossed; the tempo
// changes inside of blocks. The plug-in for CLAP hosts, given the same values, gives the same bits;
// a mono input sounds as the same signal on both sides.
void compare_with_clap(const char* uri, bool mono) {
    Instance lv2(uri, 48000.0);
    ASSERT_TRUE(lv2.instance);
    strict_host::Instance clap;
    ASSERT_TRUE(clap.start(48000.0, kMostFrames));
    std::mt19937 random(mono);
    std::normal_distribution<float> noise(0.0f, 0.1f);
    const auto chance = [&] { return std::uniform_real_distribution<>(0.0, 1.0)(random); };
    TimePort time;
    for (size_t block = 0; block < 300; ++block) {
        const auto frames = static_cast<uint32_t>(std::pow(chance(), 3.0) * kMostFrames) + 1;
        strict_host::Events events;
        for (uint16_t number = 0; number < kParameters; ++number) {
            if (chance() > 0.04) continue;
            const auto id = static_cast<Id>(number);
            const double value = from_position(parameters()[id], chance());
            lv2[symbol_of(id)] = to_port(id, value);
            const double heard = from_port(id, to_port(id, value));
            EXPECT_NEAR(heard, value, 1e-6 * parameters()[id].most) << parameters()[id].key;
            events.value(id, heard);
        }
        const bool told = block == 5 || chance() < 0.1;
        const auto at = static_cast<uint32_t>(chance() * frames);
        const float bpm = 60.0f + std::round(static_cast<float>(chance()) * 120.0f);
        lv2.connect("time", told ? time.tell(at, bpm, 8) : nullptr);
        if (told) events.tempo(bpm, at);

        strict_host::Stereo sides;
        for (auto& side : sides) {
            side.resize(frames);
            for (float& x : side) x = noise(random);
        }
        if (mono) sides[1] = sides[0];
        const auto expected = clap.render(sides, 0, frames, &events);
        const size_t crossed = block % 2;
        lv2.connect(mono ? "in" : "in_left", sides[0].data());
        if (!mono) lv2.connect("in_right", sides[1].data());
        lv2.connect("out_left", sides[crossed].data());
        lv2.connect("out_right", sides[1 - crossed].data());
        lv2.run(frames);
        ASSERT_EQ(sides[crossed], expected.out[0]) << "block " << block;
        ASSERT_EQ(sides[1 - crossed], expected.out[1]) << "block " << block;
    }
}

TEST(Lv2, GivesTheBitsOfClapUnderAutomation) {
    compare_with_clap(kStereoUri, false);
    compare_with_clap(kMonoUri, true);
}

void take(const char* symbol, void* data, const void* value, uint32_t, uint32_t type) {
    ASSERT_EQ(type, number_of(nullptr, LV2_ATOM__Float)) << symbol;
    (*static_cast<std::map<std::string, float>*>(data))[symbol] = *static_cast<const float*>(value);
}
const void* give(const char* symbol, void* data, uint32_t* size, uint32_t* type) {
    *size = sizeof(float);
    *type = number_of(nullptr, LV2_ATOM__Float);
    return &(*static_cast<Instance*>(data))[symbol];
}

// Each preset, found as hosts find them, set, saved as a host's state, and read again from its
// files.
TEST(Lv2, PresetsAndSavedStatesKeepEveryValue) {
    Instance lv2(kStereoUri, 48000.0);
    ASSERT_TRUE(lv2.instance);
    const std::string folder = testing::TempDir() + "brisel-live-lv2-state";
    LV2_URID_Unmap unmap = {nullptr, [](LV2_URID_Unmap_Handle, LV2_URID number) {
                                for (const auto& [uri, other] : numbers)
                                    if (other == number) return uri.c_str();
                                return static_cast<const char*>(nullptr);
                            }};
    for (const FactoryPreset& preset : factory_presets()) {
        Preset read;
        ASSERT_TRUE(read_preset(preset.text, read));
        const std::string uri = kStereoUri + ("/presets/" + std::string(preset.key));
        LilvNode* node = lilv_new_uri(world(), uri.c_str());
        ASSERT_EQ(lilv_world_load_resource(world(), node), 1) << uri;
        LilvState* state = lilv_state_new_from_world(world(), &map, node);
        lilv_node_free(node);
        ASSERT_TRUE(state) << uri;
        EXPECT_EQ(lilv_state_get_label(state), preset.name);
        std::map<std::string, float> values;
        lilv_state_emit_port_values(state, take, &values);
        lilv_state_free(state);
        for (uint16_t id = 0; id < kParameters; ++id) {
            if (kNotInPresets >> id & 1) continue;
            const std::string symbol = symbol_of(static_cast<Id>(id));
            ASSERT_TRUE(values.contains(symbol)) << symbol;
            EXPECT_EQ(from_port(static_cast<Id>(id), values[symbol]), read.settings[id])
                << uri << ' ' << symbol;
            lv2[symbol] = values[symbol];
        }
        EXPECT_FALSE(values.contains("enabled") || values.contains("clear"));

        state = lilv_state_new_from_instance(lv2.plugin, lv2.instance, &map, nullptr, nullptr,
                                             nullptr, nullptr, give, &lv2, 0, nullptr);
        lilv_state_save(world(), &map, &unmap, state, nullptr, folder.c_str(), "state.ttl");
        LilvState* again =
            lilv_state_new_from_file(world(), &map, nullptr, (folder + "/state.ttl").c_str());
        ASSERT_TRUE(again) << uri;
        values.clear();
        lilv_state_emit_port_values(again, take, &values);
        for (uint16_t id = 0; id < kParameters; ++id) {
            const std::string symbol = symbol_of(static_cast<Id>(id));
            EXPECT_EQ(from_port(static_cast<Id>(id), values.at(symbol)),
                      from_port(static_cast<Id>(id), lv2[symbol]))
                << uri << ' ' << symbol;
        }
        lilv_state_free(state);
        lilv_state_free(again);
        std::filesystem::remove_all(folder);
    }
}

TEST(Lv2, BearsWhatHostsShouldNotDo) {
    for (double rate : {0.0, -48000.0, 999.0, 1e6, std::nan(""), HUGE_VAL})
        EXPECT_FALSE(Instance(kStereoUri, rate).instance) << rate;
    for (double rate : {1000.0, 7350.5, 48000.0, 768000.0}) {
        Instance lv2(kStereoUri, rate, nullptr);
        ASSERT_TRUE(lv2.instance) << rate;
        std::vector<float> left(777, 0.5f), right(777, -0.5f);
        left[5] = NAN;
        right[6] = HUGE_VALF;
        for (const char* symbol :
             {"time", "input_level", "wet_level", "output_level", "ducking", "size"})
            lv2.connect(symbol, nullptr);
        lv2.run(0);
        lv2.connect("in_left", left.data());
        lv2.connect("in_right", right.data());
        lv2.connect("out_left", left.data());
        lv2.connect("out_right", right.data());
        for (float number : {NAN, HUGE_VALF, -HUGE_VALF, 1e30f, -1e30f, 1e-42f, 0.0f}) {
            for (uint16_t id = 0; id < kParameters; ++id)
                lv2[symbol_of(static_cast<Id>(id))] = number;
            for (uint32_t frames : {777u, 0u, 1u, 63u}) {
                lv2.run(frames);
                for (const auto& side : {left, right})
                    for (float y : side) ASSERT_TRUE(std::isfinite(y)) << rate << ' ' << number;
            }
        }
        lv2.connect("in_right", nullptr);
        lv2.run(64);
    }
}

// The meters tell peaks in dBFS, also between two looks of the host.
TEST(Lv2, MetersHoldPeaks) {
    Instance lv2(kStereoUri, 48000.0);
    std::vector<float> left(64), right(64);
    for (const char* symbol : {"in_left", "out_left"}) lv2.connect(symbol, left.data());
    for (const char* symbol : {"in_right", "out_right"}) lv2.connect(symbol, right.data());
    lv2["mix"] = 0.0f;
    lv2.run(64);
    EXPECT_EQ(lv2["input_level"], kLeastLevel);
    left[3] = 0.5f;
    lv2.run(64);
    EXPECT_NEAR(lv2["input_level"], -6.02f, 0.01f);
    EXPECT_NEAR(lv2["output_level"], -6.02f, 0.01f);
    for (int block = 0; block < 750; ++block) { // a second
        std::ranges::fill(left, 0.0f);
        lv2.run(64);
    }
    EXPECT_NEAR(lv2["input_level"], -6.02f - 24.0f, 0.1f);
}

} // namespace
