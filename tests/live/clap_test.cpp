// brisel-live.clap under a strict host: what a validator demands of a plug-in, and what it leaves out.
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include <unistd.h>

#include "tests/live/strict_host.h"

namespace {

namespace fs = std::filesystem;
using namespace strict_host;
using compare::Random;
using compare::Signal;

std::array<Frames, 2> stereo(Signal signal, size_t frames, Random& random) {
    return {compare::make(frames, signal, random), compare::make(frames, signal, random)};
}
const std::array<Frames, 2> kSilence = {Frames(65536), Frames(65536)};

double any_value(const Parameter& p, Random& random) {
    return clamp(p, p.least + (p.most - p.least) * random.real(0, 1));
}

// A value of each parameter that is not the one it has.
Settings other_values(Random& random) {
    Settings settings = default_settings();
    for (const Parameter& p : parameters()) {
        double& value = settings[find_key(p.key)];
        while (value == p.initial) value = any_value(p, random);
    }
    return settings;
}

void set(Instance& instance, const Settings& settings) {
    Events events;
    for (uint32_t id = 0; id < kParameters; ++id) events.value(id, settings[id]);
    instance.flush(events);
}

std::string exact_state(double size, double decay) {
    const double values[12] = {size, decay, 1, 0.5, 0.6, 0.7, 0, 1, 0.09, 0.25, -6, 3};
    std::string bytes("QVB1\1\0\0\0", 8);
    return bytes.append(reinterpret_cast<const char*>(values), sizeof values);
}

} // namespace

TEST(LiveClap, FactoriesKnowTheirIdsOnly) {
    ASSERT_TRUE(entry().init("/anywhere") && entry().init(nullptr));
    entry().deinit();
    EXPECT_EQ(entry().get_factory("clap.plugin-factoryx"), nullptr);
    EXPECT_EQ(entry().get_factory(nullptr), nullptr);
    const auto* plugins = factory<clap_plugin_factory_t>(CLAP_PLUGIN_FACTORY_ID);
    ASSERT_EQ(plugins->get_plugin_count(plugins), 1u);
    EXPECT_EQ(plugins->get_plugin_descriptor(plugins, 1), nullptr);
    for (const char* id : {"com.tamrockaudio.brisel", "com.tamrockaudio.brisel-livex1", ""})
        EXPECT_EQ(plugins->create_plugin(plugins, nullptr, id), nullptr) << id;
    const auto* d = plugins->get_plugin_descriptor(plugins, 0);
    Instance instance;
    EXPECT_EQ(instance.plugin->desc, d);
    EXPECT_STREQ(d->id, "com.tamrockaudio.brisel-live");
    EXPECT_STREQ(d->name, "Brisel Live");
    EXPECT_EQ(instance.plugin->get_extension(instance.plugin, "clap.latency"), nullptr);
    EXPECT_EQ(instance.plugin->get_extension(instance.plugin, nullptr), nullptr);
}

TEST(LiveClapParams, AreTheTableAndTheirTextsParseBack) {
    Instance instance;
    ASSERT_EQ(instance.params->count(instance.plugin), kParameters);
    clap_param_info_t info;
    EXPECT_FALSE(instance.params->get_info(instance.plugin, kParameters, &info));
    for (uint32_t id = 0; id < kParameters; ++id) {
        const Parameter& p = parameters()[id];
        ASSERT_TRUE(instance.params->get_info(instance.plugin, id, &info));
        SCOPED_TRACE(info.name);
        EXPECT_EQ(info.id, id);
        EXPECT_EQ(std::string(info.name) + info.module, std::string(p.name) + p.group);
        EXPECT_TRUE(info.min_value == p.least && info.max_value == p.most);
        EXPECT_EQ(info.default_value, instance.value(id));
        EXPECT_EQ((info.flags & CLAP_PARAM_IS_STEPPED) != 0, p.stepped());
        EXPECT_EQ((info.flags & CLAP_PARAM_IS_BYPASS) != 0, id == kBypass);
        for (int step = 0; step <= 150; ++step) {
            const double value = p.least + (p.most - p.least) * step / 150;
            double parsed = -1, again = -2;
            const std::string text = instance.text(id, value);
            ASSERT_TRUE(instance.params->text_to_value(instance.plugin, id, text.c_str(), &parsed));
            EXPECT_EQ(instance.text(id, parsed), text);
            instance.params->text_to_value(instance.plugin, id, text.c_str(), &again);
            EXPECT_EQ(again, parsed);
        }
        double untouched = 7;
        EXPECT_FALSE(instance.params->text_to_value(instance.plugin, id, "loud", &untouched));
        EXPECT_EQ(untouched, 7);
        char narrow[4] = "###";
        EXPECT_TRUE(instance.params->value_to_text(instance.plugin, id, p.most, narrow, 3));
        EXPECT_EQ(std::strlen(narrow) <= 2 && narrow[3] == '\0', true);
    }
}

TEST(LiveClapParams, FollowEventsAsFlushedAndAsProcessed) {
    Random random(1);
    const Settings wanted = other_values(random);
    Instance flushed, processed, idle;
    set(flushed, wanted);
    Events events;
    for (uint32_t id = 0; id < kParameters; ++id) events.value(id, wanted[id], id * 15);
    ASSERT_TRUE(processed.activate());
    processed.process(kSilence, 0, 512, &events);
    EXPECT_EQ(flushed.values(), wanted);
    EXPECT_EQ(processed.values(), wanted);

    // What changes nothing: foreign spaces, notes, records cut short, numbers that are none, unknown ids;
    // and modulation, which is apart from the value.
    Events odd;
    clap_event_param_value_t event = {};
    event.header = Events::header<clap_event_param_value_t>(CLAP_EVENT_PARAM_VALUE, 0);
    event.param_id = kDecay;
    event.value = 9;
    auto foreign = event, note = event, short_one = event;
    foreign.header.space_id = 0xB33F;
    note.note_id = 3;
    short_one.header.size = 24;
    odd.add(foreign).add(note).add(short_one).add_missing().modulation(kDecay, 3.0);
    odd.value(kDecay, std::nan("")).value(kParameters, 1).value(CLAP_INVALID_ID, 1);
    idle.flush(odd);
    ASSERT_TRUE(idle.activate());
    idle.process(kSilence, 0, 64, &odd);
    EXPECT_EQ(idle.values(), default_settings());
    EXPECT_EQ(idle.window().sounding(kDecay), 5.0);
    idle.activate();
    EXPECT_EQ(idle.window().sounding(kDecay), 2.0); // a new activation starts without modulation
}

TEST(LiveClapParams, EditsInTheWindowReachTheHostInOrder) {
    Instance instance;
    instance.room = 2;
    Values& window = instance.window();
    window.edit({Edit::Kind::kBegin, kMix, 0});
    window.edit({Edit::Kind::kValue, kMix, 0.75});
    window.edit({Edit::Kind::kEnd, kMix, 0});
    EXPECT_EQ(instance.value(kMix), 0.75);
    instance.flush(Events());
    ASSERT_TRUE(instance.activate());
    instance.room = 10;
    instance.process(kSilence, 0, 64);
    EXPECT_EQ(instance.said, (std::vector<Said>{{CLAP_EVENT_PARAM_GESTURE_BEGIN, kMix, 0},
                                                {CLAP_EVENT_PARAM_VALUE, kMix, 0.75},
                                                {CLAP_EVENT_PARAM_GESTURE_END, kMix, 0}}));
}

TEST(LiveClapState, IsReproducedAndTellsTheHost) {
    Random random(2);
    const Settings wanted = other_values(random);
    Instance first, second;
    set(first, wanted);
    for (const size_t chunk : {size_t{1}, size_t{23}, size_t{100000}}) {
        const std::string saved = first.save(0, chunk);
        const int rescans = second.rescans;
        ASSERT_TRUE(second.load(saved, 0, chunk));
        EXPECT_EQ(second.rescans, rescans + 1);
        EXPECT_EQ(second.values(), wanted);
        EXPECT_EQ(second.save(), saved);
    }
    // The contexts exchange their states; a preset leaves Mix and the moment's switches to the session.
    constexpr uint32_t kPreset = CLAP_STATE_CONTEXT_FOR_PRESET;
    for (const auto& [saved_for, loaded_for] :
         {std::pair(kPreset, 0u), {0u, kPreset}, {kPreset, kPreset}}) {
        Instance other;
        ASSERT_TRUE(other.load(first.save(saved_for), loaded_for));
        Settings expected = wanted;
        for (const Id kept : {kMix, kBypass, kClear}) expected[kept] = parameters()[kept].initial;
        EXPECT_EQ(other.values(), expected) << saved_for << loaded_for;
    }
}

TEST(LiveClapState, TakesWhatItCanReadAndRefusesTheRest) {
    Instance instance;
    EXPECT_TRUE(instance.load(
        "# mine\nfuture = 3\nmix=200%\r\n  decay = 500 ms \nsize = 20 ms\nsize = 30 ms"));
    EXPECT_EQ(instance.value(kMix), 1.0);
    EXPECT_EQ(instance.value(kDecay), 0.5);
    EXPECT_EQ(instance.value(kSize), 0.03);
    EXPECT_EQ(instance.value(kDamp), 0.3);

    EXPECT_TRUE(instance.load(exact_state(0.05, 99)));
    EXPECT_EQ(instance.value(kSize), 0.05);
    EXPECT_EQ(instance.value(kDecay), 60);
    EXPECT_EQ(instance.value(kEqHigh), 3);
    EXPECT_EQ(instance.value(kDiffusion), 0);

    const Settings before = instance.values();
    const int rescans = instance.rescans;
    Random random(3);
    std::string noise(1 << 20, '\0');
    for (char& byte : noise) byte = static_cast<char>(random.integer(0, 255));
    for (const std::string& bad :
         {std::string(), noise, exact_state(0.1, 1).substr(0, 103),
          std::string("decay = 3 s\nnot a line\n"), std::string("{\"decay\": 3}"),
          "decay = 3 s\n" + std::string(20000, '\n')})
        EXPECT_FALSE(instance.load(bad)) << bad.substr(0, 20);
    EXPECT_FALSE(instance.state->load(instance.plugin, nullptr));
    EXPECT_FALSE(instance.state->save(instance.plugin, nullptr));
    EXPECT_EQ(instance.values(), before);
    EXPECT_EQ(instance.rescans, rescans);
}

TEST(LiveClapProcess, AnyRateAndAnyBlockIsFinite) {
    Random random(4);
    const auto input = stereo(Signal::kNonFinite, 16384, random);
    const auto tiny = stereo(Signal::kDenormal, 16384, random);
    Instance instance;
    for (const double rate : {1000.0, 1234.5678, 8000.0, 44100.0, 123456.78, 768000.0})
        for (const uint32_t block : {1u, 10u, 17u, 1536u, 16384u}) {
            ASSERT_TRUE(instance.activate(rate, block)) << rate;
            Events events;
            for (uint32_t id = 0; id < kParameters; ++id)
                events.value(id,
                             random.chance(0.5f) ? parameters()[id].most : parameters()[id].least);
            EXPECT_NE(instance.process(input, 0, block, &events, random.chance(0.5f)).status,
                      CLAP_PROCESS_ERROR);
            instance.process(tiny, 0, block);
            instance.process(tiny, 0, 2000); // longer than announced
            instance.process(input, 0, block, nullptr, true, 2, 2);
        }
    for (const double rate : {999.0, 768001.0, std::nan(""), -1.0})
        EXPECT_FALSE(instance.activate(rate));
    EXPECT_FALSE(instance.activate(48000, 0));
    // Not started: an error, and silence.
    const auto refused = instance.process(input, 0, 64);
    EXPECT_EQ(refused.status, CLAP_PROCESS_ERROR);
    EXPECT_EQ(refused.left, Frames(64));
}

// The adapter hands a block on in pieces: hundreds of events, tempo changes among them, sound as they do
// in blocks that end at each of them.
TEST(LiveClapProcess, EventsSoundTheSameHoweverBlocksAreCut) {
    constexpr uint32_t kFrames = 6000;
    Random random(5);
    const auto input = stereo(Signal::kNoise, kFrames, random);
    struct Change {
        uint32_t time, id;
        double value;
    };
    std::vector<Change> changes;
    for (uint32_t time = 0; time < kFrames - 100;
         time += random.chance(0.7f) ? 0 : random.integer(1, 200)) {
        const uint32_t id = random.integer(0, kParameters); // the last stands for the tempo
        changes.push_back(
            {time, id,
             id < kParameters ? any_value(parameters()[id], random) : random.real(40, 480)});
    }
    changes.insert(changes.end(), 300, {kFrames - 100, kMix, 0.25});
    const auto render = [&](uint32_t longest) {
        Instance instance;
        EXPECT_TRUE(instance.activate(48000, longest));
        std::array<Frames, 2> heard;
        size_t next = 0;
        for (uint32_t at = 0, frames; at < kFrames; at += frames) {
            frames = std::min(random.integer(1, longest), kFrames - at);
            Events events;
            for (; next < changes.size() && changes[next].time < at + frames; ++next) {
                const auto& [time, id, value] = changes[next];
                if (id == kParameters)
                    events.tempo(value, time - at).tempo(std::nan(""), time - at, 0);
                else
                    events.value(id, value, time - at);
            }
            const auto block = instance.process(input, at, frames, &events, random.chance(0.5f));
            heard[0].insert(heard[0].end(), block.left.begin(), block.left.end());
            heard[1].insert(heard[1].end(), block.right.begin(), block.right.end());
        }
        EXPECT_EQ(instance.value(kMix), 0.25);
        return heard;
    };
    const auto whole = render(kFrames);
    for (const uint32_t longest : {3u, 100u, 1000u}) {
        const auto cut = render(longest);
        for (const size_t c : {0, 1}) ASSERT_TRUE(compare::same_bits(cut[c], whole[c])) << longest;
    }
}

TEST(LiveClapProcess, SleepsInSilenceAndWakes) {
    Random random(6);
    const auto noise = stereo(Signal::kNoise, 512, random);
    Instance instance;
    set(instance, [] {
        Settings s = default_settings();
        s[kDecay] = 0.3;
        return s;
    }());
    ASSERT_TRUE(instance.activate());
    for (int round = 0; round < 2; ++round) {
        auto block = instance.process(noise, 0, 512);
        EXPECT_EQ(block.status, CLAP_PROCESS_CONTINUE);
        EXPECT_EQ(block.mask, 0u);
        uint32_t silent = 0;
        for (; block.status != CLAP_PROCESS_SLEEP && silent < 48000 * 5; silent += 512) {
            EXPECT_EQ(block.mask, 0u);
            block = instance.process(kSilence, 0, 512);
        }
        EXPECT_GT(silent, 4096u); // the tail was heard as such
        EXPECT_EQ(block.status, CLAP_PROCESS_SLEEP);
        EXPECT_EQ(block.mask, 3u);
        EXPECT_EQ(block.left, Frames(512));
        EXPECT_EQ(block.right, Frames(512));
        EXPECT_EQ(instance.process(kSilence, 0, 64, nullptr, false, 1, 1).mask, 1u);
    }
    // A reset is silence at once.
    instance.process(noise, 0, 512);
    instance.plugin->reset(instance.plugin);
    EXPECT_EQ(instance.process(kSilence, 0, 512).left, Frames(512));
}

TEST(LiveClapProcess, TellsHowLongTheTailIs) {
    Instance instance;
    ASSERT_TRUE(instance.activate());
    instance.process(kSilence, 0, 64);
    EXPECT_EQ(instance.tail_changes, 0);
    const uint32_t tail = instance.tail->get(instance.plugin);
    EXPECT_GE(tail, 3 * 48000u); // 90 dB of 2 s
    instance.process(kSilence, 0, 64, &Events().value(kDecay, 4));
    EXPECT_EQ(instance.tail_changes, 1);
    EXPECT_GT(instance.tail->get(instance.plugin), tail);
    instance.on_audio_thread = true;
    instance.flush(Events().value(kFreeze, 1));
    instance.on_audio_thread = false;
    EXPECT_EQ(instance.tail_changes, 2);
    EXPECT_EQ(instance.tail->get(instance.plugin), uint32_t{INT32_MAX});
}

TEST(LiveClapPorts, LayoutsAgreeAndSound) {
    Random random(7);
    const auto noise = stereo(Signal::kNoise, 512, random);
    Instance instance;
    const clap_plugin_t* p = instance.plugin;
    const auto* ports = instance.extension<clap_plugin_audio_ports_t>(CLAP_EXT_AUDIO_PORTS);
    const auto* configs =
        instance.extension<clap_plugin_audio_ports_config_t>(CLAP_EXT_AUDIO_PORTS_CONFIG);
    const auto* infos = instance.extension<clap_plugin_audio_ports_config_info_t>(
        CLAP_EXT_AUDIO_PORTS_CONFIG_INFO_COMPAT);
    const auto* configurable = instance.extension<clap_plugin_configurable_audio_ports_t>(
        CLAP_EXT_CONFIGURABLE_AUDIO_PORTS);
    std::map<std::pair<uint32_t, uint32_t>, clap_id> layouts;
    for (uint32_t index = 0; index < configs->count(p); ++index) {
        clap_audio_ports_config_t config;
        ASSERT_TRUE(configs->get(p, index, &config) && configs->select(p, config.id));
        EXPECT_EQ(infos->current_config(p), config.id);
        clap_audio_port_info_t in, out, info;
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
        ASSERT_TRUE(instance.activate());
        EXPECT_FALSE(configs->select(p, 0)); // not while active
        instance.process(noise, 0, 512, nullptr, paired, in.channel_count, out.channel_count);
        instance.deactivate();
    }
    EXPECT_EQ(layouts.size(), 3u);
    EXPECT_FALSE(configs->select(p, 3));
    clap_audio_port_info_t none;
    EXPECT_FALSE(ports->get(p, 1, true, &none));

    int accepted = 0;
    for (int run = 0; run < 500; ++run) {
        clap_audio_port_info_t port[2];
        ports->get(p, 0, false, &port[0]);
        ports->get(p, 0, true, &port[1]);
        uint32_t wanted[2] = {port[0].channel_count, port[1].channel_count};
        std::vector<clap_audio_port_configuration_request_t> requests;
        bool sane = true;
        for (const bool is_input : {true, false}) {
            if (random.chance(0.2f)) continue;
            const char* type = random.pick({"mono", "stereo", "", "surround"});
            const uint32_t index = random.chance(0.1f), channels = random.integer(0, 3);
            requests.push_back({is_input, index, channels, *type ? type : nullptr, nullptr});
            wanted[is_input] = channels;
            const std::string_view t = type;
            sane &= index == 0 && (t.empty() || (t == "mono" && channels == 1) ||
                                   (t == "stereo" && channels == 2));
        }
        sane &= layouts.contains({wanted[1], wanted[0]});
        const auto count = static_cast<uint32_t>(requests.size());
        EXPECT_EQ(configurable->can_apply_configuration(p, requests.data(), count), sane);
        EXPECT_EQ(configurable->apply_configuration(p, requests.data(), count), sane);
        accepted += sane;
        if (!sane) continue;
        for (const bool is_input : {true, false}) {
            ports->get(p, 0, is_input, &port[is_input]);
            EXPECT_EQ(port[is_input].channel_count, wanted[is_input]);
        }
    }
    EXPECT_GT(accepted, 20);
    EXPECT_FALSE(configurable->can_apply_configuration(p, nullptr, 1));
}

namespace {

// A host that indexes presets: what each location and file declares.
struct Crawler {
    struct Found {
        std::string path, name, key;
    };
    std::vector<std::string> locations; // "" stands for the plug-in itself
    std::vector<Found> presets;
    int plugin_ids = 0, errors = 0;
    std::string path;

    static Crawler& of(const clap_preset_discovery_metadata_receiver_t* r) {
        return *static_cast<Crawler*>(r->receiver_data);
    }
    const clap_preset_discovery_metadata_receiver_t receiver = {
        this,
        [](auto* r, int32_t, const char*) { ++of(r).errors; },
        [](auto* r, const char* name, const char* key) {
            of(r).presets.push_back({of(r).path, name, key ? key : ""});
            return true;
        },
        [](auto* r, const clap_universal_plugin_id_t* id) {
            EXPECT_STREQ(id->abi, "clap");
            EXPECT_STREQ(id->id, "com.tamrockaudio.brisel-live");
            ++of(r).plugin_ids;
        },
        nullptr,
        nullptr,
        nullptr,
        [](auto*, const char* text) { EXPECT_TRUE(*text); },
        nullptr,
        [](auto*, const char* text) { EXPECT_TRUE(*text); },
        nullptr};
    const clap_preset_discovery_indexer_t indexer = {
        {1, 2, 8},
        "test",
        "",
        "",
        "1",
        this,
        [](auto*, const clap_preset_discovery_filetype_t* type) {
            EXPECT_STREQ(type->file_extension, "preset");
            return true;
        },
        [](auto* i, const clap_preset_discovery_location_t* location) {
            auto& self = *static_cast<Crawler*>(i->indexer_data);
            self.locations.emplace_back(location->location ? location->location : "");
            return true;
        },
        nullptr,
        nullptr};

    void crawl() {
        const auto* discovery =
            factory<clap_preset_discovery_factory_t>(CLAP_PRESET_DISCOVERY_FACTORY_ID);
        ASSERT_EQ(discovery->count(discovery), 1u);
        const auto* d = discovery->get_descriptor(discovery, 0);
        EXPECT_EQ(discovery->create(discovery, &indexer, "other"), nullptr);
        const auto* provider = discovery->create(discovery, &indexer, d->id);
        ASSERT_TRUE(provider && provider->init(provider));
        for (const std::string& location : locations) {
            if (location.empty()) {
                path.clear();
                EXPECT_TRUE(provider->get_metadata(provider, CLAP_PRESET_DISCOVERY_LOCATION_PLUGIN,
                                                   nullptr, &receiver));
                continue;
            }
            for (const auto& file : fs::recursive_directory_iterator(location)) {
                if (file.path().extension() != ".preset") continue;
                path = file.path();
                const size_t before = presets.size();
                const bool taken = provider->get_metadata(
                    provider, CLAP_PRESET_DISCOVERY_LOCATION_FILE, path.c_str(), &receiver);
                EXPECT_EQ(presets.size(), before + taken); // one preset a file, and without a key
                EXPECT_TRUE(!taken || presets.back().key.empty());
            }
        }
        provider->destroy(provider);
    }
};

} // namespace

TEST(LiveClapPresets, AreFoundAndLoaded) {
    const fs::path home =
        fs::path(testing::TempDir()) / ("brisel-home-" + std::to_string(getpid()));
    fs::create_directories(home / "brisel/presets");
    std::ofstream(home / "brisel/presets/my-own.preset") << "# Mine.\ndecay = 7 s\nbypass = on\n";
    std::ofstream(home / "brisel/presets/foreign.preset") << "<xml/>";
    setenv("XDG_DATA_HOME", home.c_str(), 1);
    Crawler crawler;
    crawler.crawl();
    unsetenv("XDG_DATA_HOME");
    ASSERT_EQ(crawler.locations.size(), 2u);
    EXPECT_EQ(crawler.errors, 1); // the foreign file
    EXPECT_GE(crawler.presets.size(), factory_presets().size() + 1);
    EXPECT_EQ(crawler.plugin_ids, static_cast<int>(crawler.presets.size()));
    EXPECT_EQ(crawler.presets.back().name, "My Own");

    Instance instance;
    const auto* load = instance.extension<clap_plugin_preset_load_t>(CLAP_EXT_PRESET_LOAD);
    instance.flush(Events().value(kBypass, 1));
    for (const auto& [path, name, key] : crawler.presets) {
        const bool file = !path.empty();
        EXPECT_TRUE(load->from_location(instance.plugin, !file, file ? path.c_str() : nullptr,
                                        key.empty() ? nullptr : key.c_str()))
            << path << key;
    }
    EXPECT_EQ(instance.value(kDecay), 7);
    EXPECT_EQ(instance.value(kBypass), 1);
    for (const FactoryPreset& preset : factory_presets()) {
        const std::string key(preset.key);
        EXPECT_TRUE(load->from_location(instance.plugin, CLAP_PRESET_DISCOVERY_LOCATION_PLUGIN,
                                        nullptr, key.c_str()));
    }
    EXPECT_EQ(instance.rescans, instance.loaded);
    EXPECT_EQ(instance.errors, 0);

    const Settings before = instance.values();
    fs::remove_all(home);
    const std::string gone = home / "brisel/presets/my-own.preset";
    for (const char* path :
         {gone.c_str(), "/dev/zero", "/tmp", "relative.preset", (const char*)nullptr})
        EXPECT_FALSE(load->from_location(instance.plugin, CLAP_PRESET_DISCOVERY_LOCATION_FILE, path,
                                         nullptr));
    EXPECT_FALSE(load->from_location(instance.plugin, CLAP_PRESET_DISCOVERY_LOCATION_PLUGIN,
                                     nullptr, "halls/nowhere"));
    EXPECT_FALSE(load->from_location(instance.plugin, 7, nullptr, nullptr));
    EXPECT_EQ(instance.errors, 7);
    EXPECT_EQ(instance.values(), before);
}

TEST(LiveClap, RemoteControlsAreThreeFullPages) {
    Instance instance;
    const auto* remote =
        instance.extension<clap_plugin_remote_controls_t>(CLAP_EXT_REMOTE_CONTROLS);
    ASSERT_EQ(remote->count(instance.plugin), 3u);
    clap_remote_controls_page_t page;
    EXPECT_FALSE(remote->get(instance.plugin, 3, &page));
    std::vector<bool> seen(kParameters);
    for (uint32_t index = 0; index < 3; ++index) {
        ASSERT_TRUE(remote->get(instance.plugin, index, &page));
        EXPECT_STREQ(page.page_name, pages()[index].name);
        for (const clap_id id : page.param_ids) {
            ASSERT_LT(id, kParameters);
            EXPECT_FALSE(seen[id]);
            seen[id] = true;
        }
    }
}

TEST(LiveClap, BadHostsGetARefusal) {
    Instance instance;
    const clap_plugin_t* p = instance.plugin;
    EXPECT_FALSE(p->start_processing(p));
    EXPECT_EQ(p->process(p, nullptr), CLAP_PROCESS_ERROR);
    ASSERT_TRUE(instance.activate());
    EXPECT_FALSE(p->activate(p, 44100, 1, 64)); // twice
    instance.params->flush(p, nullptr, nullptr);
    float samples[64] = {};
    float* channels[] = {samples, samples};
    clap_audio_buffer_t buffer = {channels, nullptr, 2, 0, 0}, empty = {};
    // No input at all, no channels, no 32-bit samples, no lists.
    clap_process_t call = {-1, 64, nullptr, nullptr, &buffer, 0, 1, nullptr, nullptr};
    EXPECT_NE(p->process(p, &call), CLAP_PROCESS_ERROR);
    call.audio_inputs = &empty;
    call.audio_inputs_count = 1;
    EXPECT_NE(p->process(p, &call), CLAP_PROCESS_ERROR);
    call.audio_outputs = &empty;
    EXPECT_EQ(p->process(p, &call), CLAP_PROCESS_ERROR);
    call.audio_outputs_count = 0;
    call.audio_outputs = nullptr;
    EXPECT_EQ(p->process(p, &call), CLAP_PROCESS_ERROR);
    EXPECT_FALSE(instance.params->get_value(p, 0, nullptr));
    EXPECT_FALSE(instance.params->get_info(p, 0, nullptr));
    EXPECT_FALSE(
        instance.params->value_to_text(p, 0, std::nan(""), reinterpret_cast<char*>(samples), 9));
    EXPECT_FALSE(instance.params->value_to_text(p, 0, 1, reinterpret_cast<char*>(samples), 0));
    EXPECT_FALSE(instance.params->text_to_value(p, 0, nullptr, nullptr));
}

TEST(LiveClap, TwoHundredInstancesLeaveNothing) {
    Random random(8);
    const auto noise = stereo(Signal::kNoise, 300, random);
    std::vector<std::unique_ptr<Instance>> alive;
    for (int life = 0; life < 200; ++life) {
        auto& instance = *alive.emplace_back(std::make_unique<Instance>());
        if (life % 4) {
            ASSERT_TRUE(instance.activate(random.pick({8000.0, 44100.0})));
            instance.process(noise, 0, 300);
            EXPECT_TRUE(instance.load(instance.save()));
        }
        if (alive.size() > 8) alive.erase(alive.begin() + random.integer(0, 8));
    }
}
