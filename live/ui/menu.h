// The list of all presets, which covers the window while one is chosen.
#ifndef BRISEL_LIVE_UI_MENU_H
#define BRISEL_LIVE_UI_MENU_H

#include <vector>

#include "live/ui/layout.h"
#include "live/ui/model.h"

namespace brisel::live::ui {

class Menu {
public:
    static constexpr int kNothing = -1;

    bool is_open() const { return open_; }
    void open(Model& model); // reads the user's folder anew
    void close() { open_ = false; }

    // The preset to be chosen: under the pointer, or reached with keys. light() tells whether it
    // changed.
    int lit() const { return lit_; }
    bool light(int entry);
    void step(int by);
    int entry_at(double x, double y) const;

    void draw(cairo_t* cr, const Model& model) const;

private:
    int place(const std::vector<PresetEntry>& presets, int rows);

    bool open_ = false;
    int lit_ = kNothing;
    std::vector<Rect> cells_; // by preset
};

} // namespace brisel::live::ui

#endif
