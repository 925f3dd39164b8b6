#include "live/ui/layout.h"

#include <array>

namespace brisel::live::ui {

namespace {

struct Cell {
    Id id;
    const char* label;
};
constexpr Cell kSpace[] = {
    {kSize, "Size"},        {kDecay, "Decay"},         {kScattering, "Scattering"},
    {kDamp, "Damp"},        {kDiffusion, "Diffusion"}, {kPredelay, "Predelay"},
    {kPredelaySync, "Sync"}};
constexpr Cell kMotion[] = {{kModulation, "Active"}, {kModDepth, "Depth"}, {kModRate, "Rate"}};
constexpr Cell kOutput[] = {{kWidth, "Width"}, {kMix, "Mix"}};
constexpr Cell kEarly[] = {{kEarlyReflections, "Active"}, {kErSize, "Size"}, {kErLevel, "Level"}};
constexpr Cell kTone[] = {
    {kLowCut, "Low Cut"}, {kEqLow, "Low"}, {kEqHigh, "High"}, {kHighCut, "High Cut"}};
constexpr Cell kLevel[] = {
    {kWetGain, "Wet Gain"}, {kAutoLevel, "Auto Level"}, {kDuck, "Duck"}, {kDuckRelease, "Release"}};

constexpr std::span<const Cell> kCells[] = {kSpace, kMotion, kOutput, kEarly, kTone, kLevel};

// A row of panels shares its width out by their number of cells.
constexpr double kLeft = 12, kRight = 640, kGap = 8, kRowHeight = 80;
constexpr double kUpperRow = 246, kLowerRow = 332;
constexpr Rect panel(double y, int before, int gaps, int cells, int all) {
    const double cell = (kRight - kLeft - 2 * kGap) / all;
    return {kLeft + before * cell + gaps * kGap, y, cells * cell, kRowHeight};
}
constexpr Group kGroups[] = {
    {"SPACE", panel(kUpperRow, 0, 0, 7, 12)},
    {"MODULATION", panel(kUpperRow, 7, 1, 3, 12)},
    {"OUTPUT", panel(kUpperRow, 10, 2, 2, 12)},
    {"EARLY REFLECTIONS", panel(kLowerRow, 0, 0, 3, 11)},
    {"TONE", panel(kLowerRow, 3, 1, 4, 11)},
    {"LEVEL", panel(kLowerRow, 7, 2, 4, 11)},
};
static_assert(std::size(kGroups) == std::size(kCells));

constexpr double kHeaderY = 10, kHeaderHeight = 24;

constexpr std::array<const char*, kParameters> kHelp = {
    "How large the space is: the way of its shortest echo.",
    "The time in which low frequencies fall by 60 dB.",
    "Stages that scatter each echo: few for single echoes, more for a dense sound.",
    "How much sooner high frequencies die away: at 100 % ten times.",
    "From dry to wet.",
    "From mono to the full width of the stereo signal.",
    "Lets the delays drift, which keeps long tails from ringing.",
    "Adds a pattern of single echoes in front of the reverb.",
    "The time of the latest early reflection.",
    "Their level in the wet signal.",
    "Raises or lowers what is below 250 Hz in the wet signal.",
    "Raises or lowers what is above 4.5 kHz in the wet signal.",
    "Silence between the sound and its reverb.",
    "Predelay as a note of the host's tempo.",
    "Makes the onset dense: for drums and other short sounds.",
    "How far the delays drift.",
    "How fast the delays drift.",
    "Takes the lows from the wet signal, 12 dB an octave.",
    "Takes the highs from the wet signal, 12 dB an octave.",
    "The level of the wet signal.",
    "Keeps the wet level while Size, Decay, Damp and Scattering change.",
    "How far the reverb steps back while there is input.",
    "The time in which it comes back.",
    "Holds the present sound for ever and lets nothing new in.",
    "Silences the tail at once.",
    "Passes the dry sound only.",
};

} // namespace

std::vector<Item> make_items() {
    constexpr Id kNone = kParameters;
    std::vector<Item> items = {
        {Kind::kPrevious, kNone, {184, kHeaderY, 22, kHeaderHeight}, "Previous preset"},
        {Kind::kPreset, kNone, {208, kHeaderY, 216, kHeaderHeight}, "Presets"},
        {Kind::kNext, kNone, {426, kHeaderY, 22, kHeaderHeight}, "Next preset"},
        {Kind::kLock, kNone, {454, kHeaderY, 78, kHeaderHeight}, "Lock Mix"},
        {Kind::kButton, kFreeze, {544, kHeaderY, 54, kHeaderHeight}, "Freeze"},
        {Kind::kButton, kClear, {602, kHeaderY, 48, kHeaderHeight}, "Clear"},
        {Kind::kButton, kBypass, {654, kHeaderY, 54, kHeaderHeight}, "Bypass"},
        {Kind::kNode, kLowCut, {}, ""},
        {Kind::kNode, kEqLow, {}, ""},
        {Kind::kNode, kEqHigh, {}, ""},
        {Kind::kNode, kHighCut, {}, ""},
        {Kind::kNode, kDecay, {}, ""},
        {Kind::kNode, kDamp, {}, ""},
    };
    for (size_t group = 0; group < std::size(kGroups); ++group) {
        const Rect& area = kGroups[group].area;
        const double width = area.w / static_cast<double>(kCells[group].size());
        double x = area.x;
        for (const Cell& cell : kCells[group]) {
            const Kind kind = parameters()[cell.id].on_off() ? Kind::kSwitch : Kind::kKnob;
            items.push_back({kind, cell.id, {x, area.y, width, area.h}, cell.label});
            x += width;
        }
    }
    return items;
}

std::span<const Group> groups() {
    return kGroups;
}

const char* help_of(const Item& item) {
    if (item.id != kParameters) return kHelp[item.id];
    if (item.kind == Kind::kLock) return "Presets leave Mix as it is while this is on.";
    return item.kind == Kind::kPreset ? "Shows all presets." : "";
}

} // namespace brisel::live::ui
