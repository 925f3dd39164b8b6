// Writes what hosts read about brisel-live.lv2: manifest.ttl, brisel-live.ttl, and a file for each
// preset. All of it comes from the table of the parameters, the ports and the presets; run while
// building.
//
// usage: write_ttl FOLDER VERSION [WINDOW]
//   VERSION   1.2.3
//   WINDOW    file name of the window's library
#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/port-groups/port-groups.h>
#include <lv2/port-props/port-props.h>
#include <lv2/presets/presets.h>
#include <lv2/time/time.h>
#include <lv2/ui/ui.h>
#include <lv2/units/units.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "live/engine/presets.h"
#include "live/lv2/ports.h"

namespace brisel::live::lv2 {

namespace {

const std::string kPrefixes = "@prefix atom: <" LV2_ATOM_PREFIX "> .\n"
                              "@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
                              "@prefix foaf: <http://xmlns.com/foaf/0.1/> .\n"
                              "@prefix lv2: <" LV2_CORE_PREFIX "> .\n"
                              "@prefix opts: <" LV2_OPTIONS_PREFIX "> .\n"
                              "@prefix param: <" LV2_PARAMETERS_PREFIX "> .\n"
                              "@prefix pg: <" LV2_PORT_GROUPS_PREFIX "> .\n"
                              "@prefix pprops: <" LV2_PORT_PROPS_PREFIX "> .\n"
                              "@prefix pset: <" LV2_PRESETS_PREFIX "> .\n"
                              "@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .\n"
                              "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
                              "@prefix time: <" LV2_TIME_PREFIX "> .\n"
                              "@prefix ui: <" LV2_UI_PREFIX "> .\n"
                              "@prefix units: <" LV2_UNITS_PREFIX "> .\n"
                              "@prefix urid: <" LV2_URID_PREFIX "> .\n\n";

constexpr const char* kProject = "https://tamrockaudio.com/brisel";

// The shortest decimal that gives this number again, never with an exponent; with a point, since
// hosts take "20" for an integer and not all of them expect one.
std::string decimal(float number) {
    char text[64];
    const std::to_chars_result result =
        std::to_chars(text, std::end(text), number + 0.0f, std::chars_format::fixed);
    const std::string digits(text, static_cast<size_t>(result.ptr - text));
    return digits.find('.') == std::string::npos ? digits + ".0" : digits;
}

std::string literal(std::string_view text) {
    std::string result = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result + '"';
}

std::string uri(std::string_view name) {
    return '<' + std::string(name) + '>';
}

// "ER Size" and "er-size" are er_size.
std::string symbol_of(std::string_view name) {
    std::string result(name);
    std::ranges::transform(result, result.begin(), [](char c) {
        const bool upper = c >= 'A' && c <= 'Z';
        return c == '-' || c == ' ' ? '_' : upper ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return result;
}

// One thing and what is said of it: "thing a b ; c d ." over lines.
class Subject {
public:
    Subject(std::string name, std::string_view indent) : text_(std::move(name)), indent_(indent) {}
    Subject& say(std::string_view property, std::string_view object) {
        text_ += first_ ? "\n" : " ;\n";
        text_ += indent_ + std::string(property) + ' ' + std::string(object);
        first_ = false;
        return *this;
    }
    std::string end(std::string_view mark) const { return text_ + std::string(mark); }

private:
    std::string text_, indent_;
    bool first_ = true;
};

Subject subject(std::string name) {
    return {std::move(name), "    "};
}

// A node without a name, in square brackets, inside of another.
Subject node() {
    return {"[", "        "};
}
std::string closed(const Subject& inner) {
    return inner.end("\n    ]");
}

std::string joined(const std::vector<std::string>& parts, std::string_view between) {
    std::string all;
    for (const std::string& part : parts) {
        if (&part != &parts.front()) all += between;
        all += part;
    }
    return all;
}

std::string unit_of(Unit unit) {
    switch (unit) {
    case Unit::kMilliseconds:
        return "units:ms";
    case Unit::kSeconds:
        return "units:s";
    case Unit::kPercent:
        return "units:pc";
    case Unit::kDecibels:
        return "units:db";
    case Unit::kHertz:
        return "units:hz";
    case Unit::kFactor:
        return "[ a units:Unit ; rdfs:label \"factor\" ; units:symbol \"x\" ; units:render \"%.2f "
               "x\" ]";
    case Unit::kStep:
    case Unit::kCount:
        break;
    }
    return "";
}

std::string scale_point(std::string_view word, float number) {
    return "[ rdfs:label " + literal(word) + " ; rdf:value " + decimal(number) + " ]";
}

std::string group(std::string_view plugin, std::string_view name) {
    return uri(std::string(plugin) + '#' + symbol_of(name));
}

// The ports, each as a node with its index.

struct Channel {
    Port port;
    const char *symbol, *name, *group, *designation;
};
constexpr Channel kChannels[] = {{kInLeft, "in_left", "In Left", "input", "pg:left"},
                                 {kInRight, "in_right", "In Right", "input", "pg:right"},
                                 {kOutLeft, "out_left", "Out Left", "output", "pg:left"},
                                 {kOutRight, "out_right", "Out Right", "output", "pg:right"}};

struct Meter {
    Port port;
    const char *symbol, *name;
    float least, most;
};
constexpr Meter kMeters[] = {
    {kInputLevel, "input_level", "Input Level", kLeastLevel, kMostLevel},
    {kWetLevel, "wet_level", "Wet Level", kLeastLevel, kMostLevel},
    {kOutputLevel, "output_level", "Output Level", kLeastLevel, kMostLevel},
    {kDucking, "ducking", "Ducking", 0.0f, kMostDucking}};

Subject port(uint32_t which, bool mono, std::string_view types, std::string_view symbol,
             std::string_view name) {
    return node()
        .say("a", types)
        .say("lv2:index", std::to_string(index_of(which, mono)))
        .say("lv2:symbol", literal(symbol))
        .say("lv2:name", literal(name));
}

std::string channel_port(const Channel& channel, const char* plugin, bool mono) {
    const bool input = channel.port < kOutLeft, only = input && mono;
    Subject result =
        port(channel.port, mono,
             input ? "lv2:AudioPort , lv2:InputPort" : "lv2:AudioPort , lv2:OutputPort",
             only ? "in" : channel.symbol, only ? "In" : channel.name);
    result.say("pg:group", group(plugin, channel.group));
    result.say("lv2:designation", only ? "pg:center" : channel.designation);
    return closed(result);
}

std::string time_port(bool mono) {
    return closed(port(kTime, mono, "atom:AtomPort , lv2:InputPort", "time", "Time")
                      .say("atom:bufferType", "atom:Sequence")
                      .say("atom:supports", "time:Position")
                      .say("lv2:designation", "lv2:control")
                      .say("lv2:portProperty", "lv2:connectionOptional"));
}

std::string meter_port(const Meter& meter, bool mono) {
    return closed(
        port(meter.port, mono, "lv2:ControlPort , lv2:OutputPort", meter.symbol, meter.name)
            .say("lv2:minimum", decimal(meter.least))
            .say("lv2:maximum", decimal(meter.most))
            .say("lv2:default", decimal(meter.least))
            .say("units:unit", "units:db")
            .say("lv2:portProperty", "lv2:connectionOptional"));
}

std::string parameter_port(Id id, const char* plugin, bool mono) {
    const Parameter& p = parameters()[id];
    const bool enabled = id == kBypass;
    // Of Bypass the other way about: its port is 0 where the parameter is most.
    const auto [least, most] = std::minmax({to_port(id, p.least), to_port(id, p.most)});
    Subject result = port(uint32_t{kFirstParameter} + id, mono, "lv2:ControlPort , lv2:InputPort",
                          enabled ? "enabled" : symbol_of(p.key), enabled ? "Enabled" : p.name);
    result.say("lv2:minimum", decimal(least))
        .say("lv2:maximum", decimal(most))
        .say("lv2:default", decimal(to_port(id, p.initial)));
    if (const std::string unit = unit_of(p.unit); !unit.empty()) result.say("units:unit", unit);
    if (*p.group) result.say("pg:group", group(plugin, p.group));
    if (enabled) result.say("lv2:designation", "lv2:enabled");

    std::vector<std::string> properties, points;
    if (p.on_off()) {
        properties.emplace_back("lv2:toggled");
    } else if (p.stepped()) {
        properties.insert(properties.end(), {"lv2:integer", "lv2:enumeration"});
        for (const char* word : p.words)
            points.push_back(scale_point(word, static_cast<float>(points.size())));
    }
    if (p.skew == Skew::kLogarithmic) properties.emplace_back("pprops:logarithmic");
    if (id == kClear) properties.emplace_back("pprops:trigger");
    if (p.off) points.push_back(scale_point(p.off, to_port(id, p.off_at)));
    if (!properties.empty()) result.say("lv2:portProperty", joined(properties, " , "));
    if (!points.empty()) result.say("lv2:scalePoint", joined(points, " ,\n            "));
    return closed(result);
}

std::string ports(const char* plugin, bool mono) {
    std::vector<std::string> all;
    for (const Channel& channel : kChannels)
        if (!mono || channel.port != kInRight) all.push_back(channel_port(channel, plugin, mono));
    all.push_back(time_port(mono));
    for (const Meter& meter : kMeters) all.push_back(meter_port(meter, mono));
    for (uint32_t id = 0; id < kParameters; ++id)
        all.push_back(parameter_port(static_cast<Id>(id), plugin, mono));
    return joined(all, " , ");
}

std::string groups(const char* plugin, bool mono) {
    const auto named = [&](std::string_view types, std::string_view name) {
        return subject(group(plugin, name))
            .say("a", types)
            .say("lv2:symbol", literal(symbol_of(name)));
    };
    std::string all =
        named(mono ? "pg:MonoGroup , pg:InputGroup" : "pg:StereoGroup , pg:InputGroup", "input")
            .say("lv2:name", literal("Input"))
            .end(" .\n\n");
    all += named("pg:StereoGroup , pg:OutputGroup", "output")
               .say("lv2:name", literal("Output"))
               .say("pg:source", group(plugin, "input"))
               .end(" .\n\n");
    for (const Page& page : pages())
        all += named("pg:InputGroup", page.name).say("lv2:name", literal(page.name)).end(" .\n\n");
    return all;
}

// "1.2.3" as the two numbers of which hosts load the largest; odd ones would be development's.
struct Version {
    int minor, micro;
};
Version lv2_version(const char* text) {
    int major = 0, minor = 0, patch = 0;
    if (std::sscanf(text, "%d.%d.%d", &major, &minor, &patch) != 3) {
        std::cerr << "write_ttl: '" << text << "' is no version\n";
        std::exit(2);
    }
    return {2 * (100 * major + minor), 2 * patch};
}

// Who makes it.
std::string project() {
    return subject(uri(kProject))
        .say("a", "doap:Project")
        .say("doap:name", literal("Brisel"))
        .say("doap:homepage", "<https://tamrockaudio.com>")
        .say("doap:maintainer", "[ a foaf:Organization ; foaf:name \"Tamrock Audio\" ; "
                                "foaf:homepage <https://tamrockaudio.com> ]")
        .end(" .\n\n");
}

std::string plugin_text(const char* plugin, bool mono, Version version) {
    return subject(uri(plugin))
               .say("a", "lv2:Plugin , lv2:ReverbPlugin")
               .say("doap:name", literal(mono ? "Brisel Live (mono to stereo)" : "Brisel Live"))
               .say("doap:license", "<https://opensource.org/licenses/MIT>")
               .say("lv2:project", uri(kProject))
               .say("lv2:minorVersion", std::to_string(version.minor))
               .say("lv2:microVersion", std::to_string(version.micro))
               .say("rdfs:comment",
                    literal("A reverb whose tail goes on whatever is turned: 16 delay "
                            "lines that feed back through a matrix of filters."))
               .say("lv2:optionalFeature", "lv2:hardRTCapable , urid:map")
               .say("pg:mainInput", group(plugin, "input"))
               .say("pg:mainOutput", group(plugin, "output"))
               .say("lv2:port", ports(plugin, mono))
               .end(" .\n\n") +
           groups(plugin, mono);
}

std::string window_text(const std::string& binary) {
    return subject(uri(kWindowUri))
        .say("a", "ui:X11UI")
        .say("lv2:binary", uri(binary))
        .say("lv2:requiredFeature", "ui:idleInterface , ui:parent")
        .say("lv2:optionalFeature", "opts:options , ui:resize , ui:touch , urid:map")
        .say("opts:supportedOption", "param:sampleRate , ui:scaleFactor")
        .say("lv2:extensionData", "ui:idleInterface , ui:resize")
        .end(" .\n\n");
}

// Presets

std::string preset_uri(const FactoryPreset& preset) {
    return uri(std::string(kStereoUri) + "/presets/" + std::string(preset.key));
}
std::string preset_file(const FactoryPreset& preset) {
    return "presets/" + std::string(preset.key) + ".ttl";
}
std::string bank_uri(const FactoryPreset& preset) {
    return uri(std::string(kStereoUri) + "/banks/" + symbol_of(preset.category));
}

std::string preset_text(const FactoryPreset& preset) {
    Preset values;
    if (!read_preset(preset.text, values)) {
        std::cerr << "write_ttl: cannot read the preset " << preset.key << '\n';
        std::exit(1);
    }
    std::vector<std::string> settings;
    for (uint16_t number = 0; number < kParameters; ++number) {
        const auto id = static_cast<Id>(number);
        if (kNotInPresets & bit_of(id)) continue;
        settings.push_back("[ lv2:symbol " + literal(symbol_of(parameters()[id].key)) +
                           " ; pset:value " + decimal(to_port(id, values.settings[id])) + " ]");
    }
    Subject result =
        subject(preset_uri(preset)).say("a", "pset:Preset").say("rdfs:label", literal(preset.name));
    if (!preset.description.empty()) result.say("rdfs:comment", literal(preset.description));
    return result.say("lv2:port", joined(settings, " ,\n        ")).end(" .\n");
}

std::string manifest(const std::string& window) {
    std::string all;
    for (const char* plugin : {kStereoUri, kMonoUri}) {
        Subject about = subject(uri(plugin))
                            .say("a", "lv2:Plugin , lv2:ReverbPlugin")
                            .say("lv2:binary", "<brisel-live.so>")
                            .say("rdfs:seeAlso", "<brisel-live.ttl>");
        if (!window.empty()) about.say("ui:ui", uri(kWindowUri));
        all += about.end(" .\n\n");
    }
    if (!window.empty()) all += window_text(window);
    std::string_view category;
    for (const FactoryPreset& preset : factory_presets()) {
        if (preset.category != category)
            all += subject(bank_uri(preset))
                       .say("a", "pset:Bank")
                       .say("rdfs:label", literal(preset.category))
                       .end(" .\n\n");
        category = preset.category;
        all += subject(preset_uri(preset))
                   .say("a", "pset:Preset")
                   .say("lv2:appliesTo", uri(kStereoUri) + " , " + uri(kMonoUri))
                   .say("pset:bank", bank_uri(preset))
                   .say("rdfs:label", literal(preset.name))
                   .say("rdfs:seeAlso", uri(preset_file(preset)))
                   .end(" .\n\n");
    }
    return all;
}

void write(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream << kPrefixes << text;
    if (!stream.flush()) {
        std::cerr << "write_ttl: cannot write " << file << '\n';
        std::exit(1);
    }
}

} // namespace

void write_bundle(const std::filesystem::path& folder, const char* version, const char* window) {
    std::filesystem::remove_all(folder / "presets"); // one may have left
    const Version numbers = lv2_version(version);
    write(folder / "manifest.ttl", manifest(window));
    write(folder / "brisel-live.ttl", project() + plugin_text(kStereoUri, false, numbers) +
                                          plugin_text(kMonoUri, true, numbers));
    for (const FactoryPreset& preset : factory_presets())
        write(folder / preset_file(preset), preset_text(preset));
}

} // namespace brisel::live::lv2

int main(int argc, char** argv) {
    if (argc != 3 && argc != 4) {
        std::cerr << "usage: write_ttl FOLDER VERSION [WINDOW]\n";
        return 2;
    }
    brisel::live::lv2::write_bundle(argv[1], argv[2], argc == 4 ? argv[3] : "");
}
