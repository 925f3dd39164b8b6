#include "live/ui/menu.h"

#include <algorithm>
#include <utility>

namespace brisel::live::ui {

namespace {

constexpr int kLeastRows = 6, kMostRows = 19, kColumns = 4;
constexpr double kRowHeight = 18.5, kMargin = 8;

bool begins_category(const std::vector<PresetEntry>& presets, size_t i) {
    return i == 0 || presets[i].category != presets[i - 1].category;
}

} // namespace

void Menu::open(Model& model) {
    model.scan_presets();
    open_ = true;
    lit_ = model.preset();
    // As few rows as four columns allow, or more columns where the menu is full.
    int rows = kLeastRows;
    int columns = place(model.presets(), rows);
    while (columns > kColumns && rows < kMostRows) columns = place(model.presets(), ++rows);
    const double width = (kMenu.w - 2 * kMargin) / std::max(columns, kColumns);
    for (Rect& cell : cells_)
        cell = {kMenu.x + kMargin + width * cell.x, kMenu.y + kMargin + kRowHeight * cell.y, width,
                kRowHeight};
}

// Fills columns from top to bottom, each category below its heading and, where it fits, in one
// column. The cells are numbers of columns and rows; returns how many columns there are.
int Menu::place(const std::vector<PresetEntry>& presets, int rows) {
    cells_.clear();
    int row = 0, column = 0;
    for (size_t i = 0; i < presets.size(); ++i) {
        int needed = 1;
        if (begins_category(presets, i)) {
            size_t end = i + 1;
            while (end < presets.size() && !begins_category(presets, end)) ++end;
            if (row > 0) ++row; // a gap
            needed = std::min(static_cast<int>(end - i), rows - 1) + 1;
        }
        if (row + needed > rows) {
            row = 0;
            ++column;
        }
        if (needed > 1) ++row; // the heading
        cells_.push_back({double(column), double(row++), 1, 1});
    }
    return column + 1;
}

bool Menu::light(int entry) {
    return std::exchange(lit_, entry) != entry;
}

void Menu::step(int by) {
    lit_ = std::clamp(lit_ + by, 0, static_cast<int>(cells_.size()) - 1);
}

int Menu::entry_at(double x, double y) const {
    const auto cell =
        std::ranges::find_if(cells_, [=](const Rect& rect) { return rect.contains(x, y); });
    return cell == cells_.end() ? kNothing : static_cast<int>(cell - cells_.begin());
}

void Menu::draw(cairo_t* cr, const Model& model) const {
    Rect area = kMenu;
    area.h = 0;
    for (const Rect& cell : cells_) area.h = std::max(area.h, cell.bottom() + kMargin - area.y);
    fill(cr, area, 8, kRaised);
    outline(cr, area, 8, kDim, 0.5);
    const auto& presets = model.presets();
    for (size_t i = 0; i < presets.size(); ++i) {
        const Rect& cell = cells_[i];
        if (begins_category(presets, i))
            write(cr, cell.x + 8, cell.y - 5, presets[i].category, {9.5, kDecayColour});
        if (static_cast<int>(i) == lit_) fill(cr, cell, 4, kLine);
        const bool present = static_cast<int>(i) == model.preset();
        write(cr, cell.x + 8, cell.y + 13, presets[i].name,
              {11, present ? kDecayColour : kText, Align::kLeft, present});
    }
}

} // namespace brisel::live::ui
