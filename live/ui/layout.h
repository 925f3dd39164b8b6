// Where everything is, in the window's own units, and what it is called.
#ifndef BRISEL_LIVE_UI_LAYOUT_H
#define BRISEL_LIVE_UI_LAYOUT_H

#include <span>
#include <vector>

#include "live/engine/parameters.h"
#include "live/ui/paint.h"

namespace brisel::live::ui {

enum class Kind : uint8_t { kPrevious, kPreset, kNext, kLock, kButton, kNode, kKnob, kSwitch };

// Something to point at and to focus, in the order of the tabulator key.
struct Item {
    Kind kind;
    Id id;             // the parameter; kParameters for none
    Rect area;         // a node's moves with its values
    const char* label; // of a parameter shorter than the name where its group says the rest

    bool turns() const { return kind == Kind::kKnob || kind == Kind::kNode; }
    bool sideways() const { return kind == Kind::kNode && (id == kLowCut || id == kHighCut); }
};
std::vector<Item> make_items();

// A panel of knobs with its heading.
struct Group {
    const char* name;
    Rect area;
};
std::span<const Group> groups();

// What the parameter, or an item without one, is for, in a line.
const char* help_of(const Item& item);

inline constexpr Rect kCurvePanel = {12, 46, 440, 194}, kBuildUpPanel = {460, 46, 248, 94},
                      kDecayPanel = {460, 146, 248, 94}, kMeterPanel = {648, 246, 60, 166},
                      kMenu = {12, 40, 696, 372};

// Parts of a knob's or a switch's area.
inline double knob_y(const Rect& area) {
    return area.y + 33;
}
inline double label_y(const Rect& area) {
    return area.y + 61;
} // baselines
inline double value_y(const Rect& area) {
    return area.y + 74;
}

} // namespace brisel::live::ui

#endif
