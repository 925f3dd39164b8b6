// brisel-live.clap under a strict host: what a validator demands of a plug-in, and what it leaves
// out.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "tests/live/strict_host.h"

namespace {

namespace fs = std::filesystem;
using namespace strict_host;
using compare::Random;
using compare::Signal;

constexpr auto kFile = CLAP_PRESET_DISCOVERY_LOCATION_FILE;
constexpr auto kProgram = CLAP_PRESET_DISCOVERY_LOCATION_PLUGIN;
const Stereo kSilence = {Frames(2048), Frames(2048)};

Stereo stereo(Signal signal, size_t frames, Random& random) {
    return {compare::make(frames, signal, random), compare::make(frames, signal, random)};
}

double any_value(const Parameter& p, Random& random) {
    return clamp(p, p.least + (p.most - p.least) * random.real(0, 1));
}

// A value of each parameter that is not the one it has.
Settings other_settings(Random& random) {
    Settings settings = default_settings();
    for (uint32_t id = 0; id < kParameters; ++id)
        while (settings[id] == parameters()[id].initial)
            settings[id] = any_value(parameters()[id], random);
    return settings;
}

void set(Instance& instance, const Settings& settings) {
    Events events;
    for (uint32_t id = 0; id < kParameters; ++id) events.value(id, settings[id]);
    instance.flush(events);
}

std::string exact_state(double size, double decay) {
    const auto bytes = host::state_of({size, decay, 1, 0.5, 0.6, 0.7, 0, 1, 0.09, 0.25, -6, 3});
    return {bytes.begin(), bytes.end()};
}

} // namespace

TEST(LiveClap, FactoriesKnowTheirIdsOnly) {
    ASSERT_TRUE(entry().init("/anywhere") && entry().init(nullptr));
    entry().deinit();
    EXPECT_EQ(entry().get_factory("clap.plugin-factoryx"), nullptr);
    EXPECT_EQ(entry().get_factory(nullptr), nullptr);
    const auto* plugins = host::factory(entry());
    ASSERT_EQ(plugins->get_plugin_count(plugins), 1u);
    EXPECT_EQ(plugins->get_plugin_descriptor(plugins, 1), nullptr);
    for (const char* id : {"com.tamrockaudio.brisel", "com.tamrockaudio.brisel-livex1", ""})
        EXPECT_EQ(plugins->create_plugin(plugins, nullptr, id), nullptr) << id;
    Instance instance;
    EXPECT_EQ(instance.plugin->desc, plugins->get_plugin_descriptor(plugins, 0));
    EXPECT_STREQ(instance.plugin->desc->name, "Brisel Live");
    EXPECT_EQ(instance.extension<void>("clap.latency"), nullptr);
    EXPECT_EQ(instance.extension<void>(nullptr), nullptr);
}

TEST(LiveClap, ParametersAreTheTableAndTheirTextsParseBack) {
    Instance instance;
    const auto* params = instance.params;
    const clap_plugin_t* p = instance.plugin;
    ASSERT_EQ(params->count(p), kParameters);
    clap_param_info_t info;
    EXPECT_FALSE(params->get_info(p, kParameters, &info));
    for (uint32_t id = 0; id < kParameters; ++id) {
        const Parameter& row = parameters()[id];
        ASSERT_TRUE(params->get_info(p, id, &info));
        SCOPED_TRACE(info.name);
        EXPECT_EQ(info.id, id);
        EXPECT_STREQ(info.name, row.name);
        EXPECT_STREQ(info.module, row.group);
        EXPECT_TRUE(info.min_value == row.least && info.max_value == row.most);
        EXPECT_EQ(info.default_value, instance.value(id));
        EXPECT_EQ((info.flags & CLAP_PARAM_IS_STEPPED) != 0, row.stepped());
        EXPECT_EQ((info.flags & CLAP_PARAM_IS_BYPASS) != 0, id == kBypass);
        for (int step = 0; step <= 150; ++step) {
            double parsed = -1, again = -2;
            const auto text = instance.text(id, row.least + (row.most - row.least) * step / 150);
            ASSERT_TRUE(params->text_to_value(p, id, text.c_str(), &parsed)) << text;
            const auto shown = instance.text(id, parsed);
            EXPECT_EQ(shown, text);
            EXPECT_TRUE(params->text_to_value(p, id, shown.c_str(), &again) && again == parsed);
        }
        double untouched = 7;
        EXPECT_FALSE(params->text_to_value(p, id, "loud", &untouched));
        EXPECT_EQ(untouched, 7);
        char narrow[] = "####";
        EXPECT_TRUE(params->value_to_text(p, id, row.most, narrow, 3));
        EXPECT_EQ(narrow[2], '\0');
        EXPECT_EQ(narrow[3], '#');
    }
}

TEST(LiveClap, ValuesFollowEventsAsFlushedAndAsProcessed) {
    Random random(1);
    const Settings wanted = other_settings(random);
    Instance flushed, processed, idle;
    set(flushed, wanted);
    Events events;
    for (uint32_t id = 0; id < kParameters; ++id) events.value(id, wanted[id], id * 15);
    ASSERT_TRUE(processed.start());
    processed.render(kSilence, 0, 512, &events);
    EXPECT_EQ(flushed.settings(), wanted);
    EXPECT_EQ(processed.settings(), wanted);

    // What changes no value: foreign spaces, single notes, records cut short, numbers that are
    // none, unknown ids; and modulation, which is apart from the value and ends with the
    // activation.
    Events odd;
    clap_event_param_value_t event = {{}, kDecay, nullptr, -1, -1, -1, -1, 9.0}, note = event;
    note.note_id = 3;
    odd.add(event, CLAP_EVENT_PARAM_VALUE, 0, 0xB33F).add(note, CLAP_EVENT_PARAM_VALUE, 0);
    odd.add(event, CLAP_EVENT_PARAM_VALUE, 0, 0, 24).add_missing().value(kDecay, std::nan(""));
    odd.value(kParameters, 1).value(CLAP_INVALID_ID, 1).modulation(kDecay, 3.0);
    idle.flush(odd);
    ASSERT_TRUE(idle.start());
    idle.render(kSilence, 0, 64, &odd);
    EXPECT_EQ(idle.settings(), default_settings());
    EXPECT_EQ(idle.window().sounding(kDecay), 5.0);
    idle.start();
    EXPECT_EQ(idle.window().sounding(kDecay), 2.0);
}

TEST(LiveClap, EditsInTheWindowReachTheHostInOrder) {
    Instance instance;
    instance.room = 2;
    instance.window().edit({Edit::Kind::kBegin, kMix, 0});
    instance.window().edit({Edit::Kind::kValue, kMix, 0.75});
    instance.window().edit({Edit::Kind::kEnd, kMix, 0});
    EXPECT_EQ(instance.value(kMix), 0.75);
    instance.flush(Events()); // the host's list is full before the end
    instance.room = 10;
    ASSERT_TRUE(instance.start());
    instance.render(kSilence, 0, 64);
    EXPECT_EQ(instance.said, (std::vector<Said>{{CLAP_EVENT_PARAM_GESTURE_BEGIN, kMix, 0},
                                                {CLAP_EVENT_PARAM_VALUE, kMix, 0.75},
                                                {CLAP_EVENT_PARAM_GESTURE_END, kMix, 0}}));
}

TEST(LiveClap, StatesAreReproducedAndTellTheHost) {
    Random random(2);
    const Settings wanted = other_settings(random);
    Instance first, second;
    set(first, wanted);
    for (const size_t chunk : {size_t{1}, size_t{23}, size_t{100000}}) {
        const std::string saved = first.saved(0, chunk);
        const int rescans = second.rescans;
        ASSERT_TRUE(second.loads(saved, 0, chunk));
        EXPECT_EQ(second.rescans, rescans + 1);
        EXPECT_EQ(second.settings(), wanted);
        EXPECT_EQ(second.saved(), saved);
    }
    // The contexts exchange their states; a preset leaves Mix and the moment's switches to the
    // session.
    Settings preset = wanted;
    for (const Id kept : {kMix, kBypass, kClear}) preset[kept] = parameters()[kept].initial;
    constexpr uint32_t kPreset = CLAP_STATE_CONTEXT_FOR_PRESET;
    for (const auto& [saved_for, loaded_for] :
         {std::pair(kPreset, 0u), {0u, kPreset}, {kPreset, kPreset}}) {
        Instance other;
        ASSERT_TRUE(other.loads(first.saved(saved_for), loaded_for));
        EXPECT_EQ(other.settings(), preset) << saved_for << loaded_for;
    }
}

TEST(LiveClap, StatesAreReadAsFarAsTheyMakeSenseOrRefused) {
    Instance instance;
    EXPECT_TRUE(
        instance.loads("# mine\nnew = 3\nmix=200%\r\n decay = 500 ms \nsize = 9 ms\nsize = 30 ms"));
    Settings expected = default_settings();
    expected[kMix] = 1.0;
    expected[kDecay] = 0.5;
    expected[kSize] = 0.03;
    EXPECT_EQ(instance.settings(), expected);

    EXPECT_TRUE(instance.loads(exact_state(0.05, 99))); // of the exact plug-in
    const double exact[12] = {0.05, 60, 1, 0.5, 0.6, 0.7, 0, 1, 0.09, 0.25, -6, 3};
    expected = default_settings();
    std::ranges::copy(exact, expected.begin());
    EXPECT_EQ(instance.settings(), expected);

    const int rescans = instance.rescans;
    Random random(3);
    std::string noise(1 << 20, '\0');
    for (char& byte : noise) byte = static_cast<char>(random.integer(0, 255));
    for (const std::string& bad :
         {std::string(), noise, exact_state(0.1, 1).substr(0, 103),
          "decay = 3 s\nnot a line\n" + noise, std::string("{\"decay\": 3}"),
          "decay = 3 s\n" + std::string(20000, '\n')})
        EXPECT_FALSE(instance.loads(bad)) << bad.substr(0, 20);
    EXPECT_FALSE(instance.state->load(instance.plugin, nullptr));
    EXPECT_FALSE(instance.state->save(instance.plugin, nullptr));
    EXPECT_EQ(instance.settings(), expected);
    EXPECT_EQ(instance.rescans, rescans);
}

TEST(LiveClap, AnyRateBlockAndSampleGivesFiniteSound) {
    Random random(4);
    const Stereo wild = stereo(Signal::kNonFinite, 16384, random);
    const Stereo tiny = stereo(Signal::kDenormal, 16384, random);
    Instance instance;
    for (const double rate : {1000.0, 1234.5678, 44100.0, 123456.78, 768000.0})
        for (const uint32_t block : {1u, 10u, 17u, 1536u, 16384u}) {
            ASSERT_TRUE(instance.start(rate, block)) << rate;
            Events events;
            for (const Parameter& p : parameters())
                events.value(find_key(p.key), random.chance(0.5f) ? p.most : p.least);
            const auto rendered = instance.render(wild, 0, block, &events, random.chance(0.5f));
            EXPECT_NE(rendered.status, CLAP_PROCESS_ERROR);
            instance.render(tiny, 0, block, &Events().value(kBypass, 0));
            instance.render(tiny, 0, 2000); // longer than announced
        }
}

// The adapter hands a block on in pieces: hundreds of events, tempo changes among them, sound as
// they do in blocks that end in other places.
TEST(LiveClap, EventsSoundTheSameHoweverBlocksAreCut) {
    constexpr uint32_t kFrames = 6000;
    Random random(5);
    const Stereo input = stereo(Signal::kNoise, kFrames, random);
    struct Change {
        uint32_t time, id;
        double value;
    };
    std::vector<Change> changes;
    for (uint32_t time = 0; time < kFrames - 100;
         time += random.chance(0.7f) ? 0 : random.integer(1, 200)) {
        const uint32_t id = random.integer(0, kParameters); // the last stands for the tempo
        const bool tempo = id == kParameters;
        changes.push_back(
            {time, id, tempo ? random.real(40, 480) : any_value(parameters()[id], random)});
    }
    changes.insert(changes.end(), 300, {kFrames - 100, kMix, 0.25});
    const auto render = [&](uint32_t longest) {
        Instance instance;
        EXPECT_TRUE(instance.start(48000, longest));
        Stereo heard;
        size_t next = 0;
        for (uint32_t at = 0, frames; at < kFrames; at += frames) {
            frames = std::min(random.integer(1, longest), kFrames - at);
            Events events;
            for (; next < changes.size() && changes[next].time < at + frames; ++next) {
                const auto& [time, id, value] = changes[next];
                if (id == kParameters) // one without its flag holds anything
                    events.tempo(value, time - at).tempo(std::nan(""), time - at, 0);
                else
                    events.value(id, value, time - at);
            }
            const auto block = instance.render(input, at, frames, &events, random.chance(0.5f));
            for (const size_t c : {size_t{0}, size_t{1}})
                heard[c].insert(heard[c].end(), block.out[c].begin(), block.out[c].end());
        }
        EXPECT_EQ(instance.value(kMix), 0.25);
        return heard;
    };
    const Stereo whole = render(kFrames);
    for (const uint32_t longest : {3u, 100u, 1000u})
        EXPECT_TRUE(render(longest) == whole) << longest;
}

TEST(LiveClap, SleepsInSilenceAndWakes) {
    Random random(6);
    const Stereo noise = stereo(Signal::kNoise, 512, random), none = {Frames(512), Frames(512)};
    Instance instance;
    instance.flush(Events().value(kDecay, 0.3));
    ASSERT_TRUE(instance.start());
    for (int round = 0; round < 2; ++round) {
        auto block = instance.render(noise, 0, 512);
        EXPECT_EQ(block.status, CLAP_PROCESS_CONTINUE);
        uint32_t silent = 0;
        for (; block.status != CLAP_PROCESS_SLEEP && silent < 48000 * 5; silent += 512) {
            EXPECT_EQ(block.mask, 0u);
            block = instance.render(kSilence, 0, 512);
        }
        EXPECT_GT(silent, 9600u); // the tail's 60 dB alone take 0.3 s
        EXPECT_EQ(block.status, CLAP_PROCESS_SLEEP);
        EXPECT_EQ(block.mask, 3u);
        EXPECT_EQ(block.out, none);
        EXPECT_EQ(instance.render(kSilence, 0, 64, nullptr, false, 1, 1).mask, 1u);
    }
    instance.render(noise, 0, 512);
    instance.plugin->reset(instance.plugin); // silence at once
    EXPECT_EQ(instance.render(kSilence, 0, 512).out, none);
}

TEST(LiveClap, TellsHowLongTheTailIs) {
    Instance instance;
    ASSERT_TRUE(instance.start());
    instance.render(kSilence, 0, 64);
    EXPECT_EQ(instance.tail_changes, 0);
    const uint32_t tail = instance.tail();
    EXPECT_GE(tail, 3 * 48000u); // 90 dB of 2 s
    instance.render(kSilence, 0, 64, &Events().value(kDecay, 4));
    EXPECT_EQ(instance.tail_changes, 1);
    EXPECT_GT(instance.tail(), tail);
    instance.audio_thread = std::this_thread::get_id();
    instance.flush(Events().value(kFreeze, 1));
    EXPECT_EQ(instance.tail_changes, 2);
    EXPECT_EQ(instance.tail(), uint32_t{INT32_MAX});
}

TEST(LiveClap, LayoutsOfPortsAgreeAndSound) {
    Random random(7);
    const Stereo noise = stereo(Signal::kNoise, 512, random);
    Instance instance;
    const clap_plugin_t* p = instance.plugin;
    const auto* ports = instance.ports;
    const auto* configs =
        instance.extension<clap_plugin_audio_ports_config_t>(CLAP_EXT_AUDIO_PORTS_CONFIG);
    const auto* infos = instance.extension<clap_plugin_audio_ports_config_info_t>(
        CLAP_EXT_AUDIO_PORTS_CONFIG_INFO_COMPAT);
    const auto* configurable = instance.extension<clap_plugin_configurable_audio_ports_t>(
        CLAP_EXT_CONFIGURABLE_AUDIO_PORTS);
    clap_audio_port_info_t in, out, info;
    std::map<std::pair<uint32_t, uint32_t>, clap_id> layouts;
    for (uint32_t index = 0; index < configs->count(p); ++index) {
        clap_audio_ports_config_t config;
        ASSERT_TRUE(configs->get(p, index, &config) && configs->select(p, config.id));
        EXPECT_EQ(infos->current_config(p), config.id);
        ASSERT_TRUE(ports->get(p, 0, true, &in) && ports->get(p, 0, false, &out));
        ASSERT_TRUE(infos->get(p, config.id, 0, true, &info));
        EXPECT_EQ(std::memcmp(&info, &in, sizeof in), 0);
        EXPECT_EQ(config.main_input_channel_count, in.channel_count);
        EXPECT_EQ(config.main_output_channel_count, out.channel_count);
        EXPECT_STREQ(in.port_type, in.channel_count == 1 ? "mono" : "stereo");
        const bool paired = in.channel_count == out.channel_count;
        EXPECT_EQ(in.in_place_pair, paired ? out.id : CLAP_INVALID_ID);
        EXPECT_EQ(out.in_place_pair, paired ? in.id : CLAP_INVALID_ID);
        layouts[{in.channel_count, out.channel_count}] = config.id;
        ASSERT_TRUE(instance.start());
        EXPECT_FALSE(configs->select(p, 0)); // not while active
        instance.render(noise, 0, 512, nullptr, paired, in.channel_count, out.channel_count);
        instance.stop();
    }
    EXPECT_EQ(layouts.size(), 3u);
    EXPECT_FALSE(configs->select(p, 3));
    EXPECT_FALSE(ports->get(p, 1, true, &info));

    // Asked for port by port: all or nothing, and both calls agree.
    int accepted = 0;
    for (int run = 0; run < 500; ++run) {
        ports->get(p, 0, true, &in);
        ports->get(p, 0, false, &out);
        uint32_t wanted[] = {out.channel_count, in.channel_count};
        std::vector<clap_audio_port_configuration_request_t> requests;
        bool sane = true;
        for (const bool is_input : {true, false}) {
            if (random.chance(0.2f)) continue;
            const std::string_view type = random.pick({"mono", "stereo", "", "surround"});
            const uint32_t index = random.chance(0.1f), channels = random.integer(0, 3);
            requests.push_back({is_input, index, channels, type.data(), nullptr});
            wanted[is_input] = channels;
            sane &= index == 0 && (type.empty() || (type == "mono" && channels == 1) ||
                                   (type == "stereo" && channels == 2));
        }
        sane &= layouts.contains({wanted[1], wanted[0]});
        const auto count = static_cast<uint32_t>(requests.size());
        EXPECT_EQ(configurable->can_apply_configuration(p, requests.data(), count), sane);
        EXPECT_EQ(configurable->apply_configuration(p, requests.data(), count), sane);
        accepted += sane;
        ports->get(p, 0, true, &in);
        ports->get(p, 0, false, &out);
        EXPECT_EQ(sane, sane && in.channel_count == wanted[1] && out.channel_count == wanted[0]);
    }
    EXPECT_GT(accepted, 20);
    EXPECT_FALSE(configurable->can_apply_configuration(p, nullptr, 1));
}

namespace {

// A host that indexes presets: what each location declares, and each file in it.
struct Crawler {
    struct Found {
        std::string path, name, key; // path "": in the program
    };
    std::vector<std::string> locations;
    std::vector<Found> presets;
    int plugin_ids = 0, errors = 0;
    std::string path;

    using Receiver = clap_preset_discovery_metadata_receiver_t;
    static Crawler& of(const Receiver* r) { return *static_cast<Crawler*>(r->receiver_data); }
    static bool begin(const Receiver* r, const char* name, const char* key) {
        of(r).presets.push_back({of(r).path, name, key ? key : ""});
        return true;
    }
    static void add_id(const Receiver* r, const clap_universal_plugin_id_t* id) {
        EXPECT_STREQ(id->abi, "clap");
        EXPECT_STREQ(id->id, "com.tamrockaudio.brisel-live");
        ++of(r).plugin_ids;
    }
    static void check_text(const Receiver*, const char* text) { EXPECT_TRUE(*text); }
    const Receiver receiver = {this,    [](auto* r, int32_t, const char*) { ++of(r).errors; },
                               begin,   add_id,
                               nullptr, nullptr,
                               nullptr, check_text,
                               nullptr, check_text,
                               nullptr};
    const clap_preset_discovery_indexer_t indexer = {
        {1, 2, 8},
        "strict",
        "",
        "",
        "1",
        this,
        [](auto*, auto* type) { return std::string_view(type->file_extension) == "preset"; },
        [](auto* i, auto* location) {
            static_cast<Crawler*>(i->indexer_data)
                ->locations.emplace_back(location->location ? location->location : "");
            return true;
        },
        nullptr,
        nullptr};

    Crawler() {
        const auto* discovery = static_cast<const clap_preset_discovery_factory_t*>(
            entry().get_factory(CLAP_PRESET_DISCOVERY_FACTORY_ID));
        EXPECT_EQ(discovery->count(discovery), 1u);
        EXPECT_EQ(discovery->create(discovery, &indexer, "other"), nullptr);
        const auto* provider =
            discovery->create(discovery, &indexer, discovery->get_descriptor(discovery, 0)->id);
        EXPECT_TRUE(provider && provider->init(provider));
        EXPECT_TRUE(provider->get_metadata(provider, kProgram, nullptr, &receiver));
        EXPECT_EQ(presets.size(), factory_presets().size());
        for (const std::string& location : locations)
            for (const auto& file : fs::recursive_directory_iterator(location)) {
                if (file.path().extension() != ".preset") continue;
                path = file.path();
                const size_t before = presets.size();
                const bool taken = provider->get_metadata(provider, kFile, path.c_str(), &receiver);
                EXPECT_EQ(presets.size(), before + taken); // one preset a file, and without a key
                EXPECT_TRUE(!taken || presets.back().key.empty());
            }
        provider->destroy(provider);
    }
};

} // namespace

TEST(LiveClap, PresetsAreFoundAndLoaded) {
    const fs::path home =
        fs::path(testing::TempDir()) / ("brisel-home-" + std::to_string(getpid()));
    const fs::path folder = home / "brisel/presets", own = folder / "my-own.preset";
    fs::create_directories(folder);
    std::ofstream(own) << "# Mine.\ndecay = 7 s\nbypass = on\n";
    std::ofstream(folder / "foreign.preset") << "<xml/>";
    setenv("XDG_DATA_HOME", home.c_str(), 1);
    const Crawler crawler;
    unsetenv("XDG_DATA_HOME");
    ASSERT_EQ(crawler.locations.size(), 2u);
    EXPECT_EQ(crawler.errors, 1); // the foreign file
    EXPECT_EQ(crawler.presets.size(), 2 * factory_presets().size() + 1);
    EXPECT_EQ(crawler.plugin_ids, static_cast<int>(crawler.presets.size()));
    EXPECT_EQ(crawler.presets.back().name, "My Own");

    Instance instance;
    instance.flush(Events().value(kBypass, 1));
    const auto* preset_load = instance.extension<clap_plugin_preset_load_t>(CLAP_EXT_PRESET_LOAD);
    const auto load = [&](uint32_t kind, const char* location, const char* key) {
        return preset_load->from_location(instance.plugin, kind, location, key);
    };
    for (const auto& [path, name, key] : crawler.presets)
        EXPECT_TRUE(path.empty() ? load(kProgram, nullptr, key.c_str())
                                 : load(kFile, path.c_str(), nullptr))
            << path << key;
    EXPECT_EQ(instance.value(kDecay), 7);
    EXPECT_EQ(instance.value(kBypass), 1); // the moment's, not the preset's
    EXPECT_EQ(instance.loaded, static_cast<int>(crawler.presets.size()));
    EXPECT_EQ(instance.rescans, instance.loaded);
    EXPECT_EQ(instance.errors, 0);

    const Settings before = instance.settings();
    fs::remove_all(home);
    for (const char* path : {own.c_str(), "/dev/zero", "/tmp", "relative.preset", ""})
        EXPECT_FALSE(load(kFile, path, nullptr)) << path;
    EXPECT_FALSE(load(kFile, nullptr, nullptr));
    EXPECT_FALSE(load(kProgram, nullptr, "halls/nowhere"));
    EXPECT_FALSE(load(kProgram, nullptr, nullptr));
    EXPECT_FALSE(load(7, nullptr, nullptr));
    EXPECT_EQ(instance.errors, 9);
    EXPECT_EQ(instance.settings(), before);
}

TEST(LiveClap, RemoteControlsAreThreePagesOfDifferentParameters) {
    Instance instance;
    const auto* remote =
        instance.extension<clap_plugin_remote_controls_t>(CLAP_EXT_REMOTE_CONTROLS);
    ASSERT_EQ(remote->count(instance.plugin), 3u);
    clap_remote_controls_page_t page;
    EXPECT_FALSE(remote->get(instance.plugin, 3, &page));
    ParameterMask seen = 0;
    for (uint32_t index = 0; index < 3; ++index) {
        ASSERT_TRUE(remote->get(instance.plugin, index, &page));
        EXPECT_STREQ(page.page_name, pages()[index].name);
        for (const clap_id id : page.param_ids) {
            ASSERT_LT(id, kParameters);
            EXPECT_EQ(seen & bit_of(static_cast<Id>(id)), 0u);
            seen |= bit_of(static_cast<Id>(id));
        }
    }
}

TEST(LiveClap, BadHostsGetARefusal) {
    Instance instance;
    const clap_plugin_t* p = instance.plugin;
    EXPECT_FALSE(p->start_processing(p));
    EXPECT_EQ(p->process(p, nullptr), CLAP_PROCESS_ERROR);
    for (const double rate : {999.0, 768001.0, std::nan(""), -1.0})
        EXPECT_FALSE(instance.start(rate));
    EXPECT_FALSE(instance.start(48000, 0));
    const auto refused = instance.render(kSilence, 0, 64); // written all the same
    EXPECT_EQ(refused.status, CLAP_PROCESS_ERROR);
    EXPECT_EQ(refused.mask, 0u);
    ASSERT_TRUE(instance.start(48000, UINT32_MAX));
    EXPECT_FALSE(p->activate(p, 44100, 1, 64)); // twice
    instance.params->flush(p, nullptr, nullptr);

    // No input at all, no channels, no 32-bit samples, no lists.
    float samples[64] = {};
    float* channels[] = {samples, samples + 32};
    clap_audio_buffer_t stereo_port = {channels, nullptr, 2, 0, 0}, empty = {};
    clap_process_t call = {-1, 32, nullptr, nullptr, &stereo_port, 0, 1, nullptr, nullptr};
    EXPECT_NE(p->process(p, &call), CLAP_PROCESS_ERROR);
    call.audio_inputs = &empty;
    call.audio_inputs_count = 1;
    EXPECT_NE(p->process(p, &call), CLAP_PROCESS_ERROR);
    call.audio_outputs = &empty;
    EXPECT_EQ(p->process(p, &call), CLAP_PROCESS_ERROR);
    call.audio_outputs = nullptr;
    EXPECT_EQ(p->process(p, &call), CLAP_PROCESS_ERROR);

    char text[9];
    EXPECT_FALSE(instance.params->get_value(p, 0, nullptr));
    EXPECT_FALSE(instance.params->get_info(p, 0, nullptr));
    EXPECT_FALSE(instance.params->value_to_text(p, 0, std::nan(""), text, sizeof text));
    EXPECT_FALSE(instance.params->value_to_text(p, 0, 1, text, 0));
    EXPECT_FALSE(instance.params->text_to_value(p, 0, nullptr, nullptr));
}

TEST(LiveClap, TwoHundredInstancesLeaveNothing) {
    Random random(8);
    const Stereo noise = stereo(Signal::kNoise, 300, random);
    std::vector<std::unique_ptr<Instance>> alive;
    for (int life = 0; life < 200; ++life) {
        Instance& instance = *alive.emplace_back(std::make_unique<Instance>());
        if (life % 4) {
            ASSERT_TRUE(instance.start(random.pick({8000.0, 44100.0})));
            instance.render(noise, 0, 300);
            EXPECT_TRUE(instance.loads(instance.saved()));
        }
        if (alive.size() > 8) alive.erase(alive.begin() + random.integer(0, 8));
    }
}
