// How the window looks.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "live/ui/view.h"

namespace brisel::live::ui {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kKnobRadius = 13.0;
constexpr double kFloor = -60.0, kCeiling = 6.0; // dB, of the meters

// A knob's pointer goes from lower left to lower right, clockwise.
double angle_of(double position) {
    return kPi * (0.75 + 1.5 * position);
}

void arc(cairo_t* cr, Point centre, double radius, double from, double to, const Colour& colour,
         double width) {
    cairo_new_path(cr);
    cairo_arc(cr, centre.x, centre.y, radius, angle_of(std::min(from, to)),
              angle_of(std::max(from, to)));
    set(cr, colour);
    cairo_set_line_width(cr, width);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_stroke(cr);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_BUTT);
}

void dot(cairo_t* cr, Point at, double radius, const Colour& colour) {
    cairo_new_path(cr);
    cairo_arc(cr, at.x, at.y, radius, 0.0, 2 * kPi);
    set(cr, colour);
    cairo_fill(cr);
}

void triangle(cairo_t* cr, Point a, Point b, Point c, const Colour& colour) {
    cairo_new_path(cr);
    cairo_move_to(cr, a.x, a.y);
    cairo_line_to(cr, b.x, b.y);
    cairo_line_to(cr, c.x, c.y);
    set(cr, colour);
    cairo_fill(cr);
}

void padlock(cairo_t* cr, double x, double y, bool closed, const Colour& colour) {
    fill(cr, {x, y - 1, 9, 7}, 1.5, colour);
    cairo_new_path(cr);
    cairo_arc(cr, x + (closed ? 4.5 : 7.5), y - 2, 3, kPi, 2 * kPi);
    set(cr, colour);
    cairo_set_line_width(cr, 1.4);
    cairo_stroke(cr);
}

} // namespace

void View::draw(cairo_t* cr) {
    cairo_save(cr);
    clip_to(cr, damage_);
    set(cr, kGround);
    cairo_paint(cr);
    cairo_translate(cr, left_, top_);
    cairo_scale(cr, scale_, scale_);

    // Whatever lies outside the damage is left out.
    double x1, y1, x2, y2;
    cairo_clip_extents(cr, &x1, &y1, &x2, &y2);
    const Rect seen = {x1, y1, x2 - x1, y2 - y1};
    if (seen.meets({0, 0, kViewWidth, kMenu.y})) {
        write(cr, 14, 27, "Brisel", {16, kText, Align::kLeft, true});
        write(cr, 72, 27, "Live", {16, kDecayColour});
    }
    if (seen.meets(kCurvePanel)) draw_curves(cr, model_.settings(), model_.sample_rate());
    if (response_shown_ && seen.meets(kBuildUpPanel)) draw_build_up(cr, response_);
    if (response_shown_ && seen.meets(kDecayPanel)) draw_decay(cr, response_);
    for (const Group& group : groups())
        if (seen.meets(group.area)) {
            fill(cr, group.area, 6, kPanel);
            write(cr, group.area.x + 10, group.area.y + 13, group.name, {8.5, kDim});
        }
    for (int i = 0; i < static_cast<int>(items_.size()); ++i) {
        const Item& item = items_[size_t(i)];
        if (!seen.meets(item.area.grown(2))) continue;
        if (item.kind == Kind::kNode)
            draw_node(cr, item.id, {item.area.middle_x(), item.area.middle_y()}, lit(i));
        else if (item.kind == Kind::kKnob)
            draw_knob(cr, i);
        else if (item.kind == Kind::kSwitch)
            draw_switch(cr, i);
        else
            draw_header_item(cr, i);
        if (i == focus_ && focus_shown_) outline(cr, item.area.grown(-1), 4, kText, 0.5);
    }
    if (seen.meets(kMeterPanel)) draw_meters(cr);
    if (menu_.is_open()) menu_.draw(cr, model_);
    if (tip_shown_ || refused_) draw_tip(cr);
    cairo_restore(cr);
    cairo_region_subtract(damage_, damage_);
}

void View::draw_header_item(cairo_t* cr, int index) const {
    const Item& item = items_[size_t(index)];
    const Rect& area = item.area;
    const double x = area.middle_x(), y = area.middle_y();
    const bool on = item.kind == Kind::kLock     ? model_.mix_locked()
                    : item.kind == Kind::kButton ? model_.value(item.id) > 0.5
                                                 : false;
    const Colour& on_colour = item.id == kBypass ? kToneColour : kDecayColour;
    fill(cr, area, 5, on ? on_colour : lit(index) ? kLine : kRaised);
    const Colour& ink = on ? kGround : kText;
    if (item.kind == Kind::kPrevious)
        return triangle(cr, {x - 4, y}, {x + 3, y - 5}, {x + 3, y + 5}, ink);
    if (item.kind == Kind::kNext)
        return triangle(cr, {x + 4, y}, {x - 3, y - 5}, {x - 3, y + 5}, ink);
    if (item.kind == Kind::kButton)
        return write(cr, x, y + 3.8, item.label, {10.5, ink, Align::kCentre});
    if (item.kind == Kind::kLock) {
        padlock(cr, area.x + 9, y, on, ink);
        return write(cr, area.x + 25, y + 3.8, item.label, {10.5, ink});
    }
    const bool known = model_.preset() >= 0;
    std::string name = known ? model_.presets()[size_t(model_.preset())].name : "Own settings";
    if (known && !model_.preset_unchanged()) name += " *";
    write(cr, x - 6, y + 4, name, {11.5, ink, Align::kCentre});
    const double right = area.right() - 12;
    triangle(cr, {right - 4, y - 2}, {right + 4, y - 2}, {right, y + 3}, kDim);
}

void View::draw_knob(cairo_t* cr, int index) const {
    const Item& item = items_[size_t(index)];
    const Parameter& parameter = parameters()[item.id];
    const Point centre = {item.area.middle_x(), knob_y(item.area)};
    const double position = to_position(parameter, model_.value(item.id));
    // From the middle where values go both ways, or else from the end that does the least.
    const double from = parameter.least < 0.0 ? to_position(parameter, 0.0)
                        : parameter.off && parameter.off_at == parameter.most ? 1.0
                                                                              : 0.0;
    arc(cr, centre, kKnobRadius, 0.0, 1.0, kRaised, 3.0);
    if (position != from) arc(cr, centre, kKnobRadius, from, position, kDecayColour, 3.0);
    dot(cr, centre, kKnobRadius - 4.0, lit(index) ? kLine : kRaised);
    const double angle = angle_of(position);
    cairo_move_to(cr, centre.x + 3 * std::cos(angle), centre.y + 3 * std::sin(angle));
    cairo_line_to(cr, centre.x + 8 * std::cos(angle), centre.y + 8 * std::sin(angle));
    set(cr, kText);
    cairo_set_line_width(cr, 2.0);
    cairo_stroke(cr);
    if (model_.sounding(item.id) != model_.value(item.id)) {
        const double heard = angle_of(to_position(parameter, model_.sounding(item.id)));
        dot(cr,
            {centre.x + kKnobRadius * std::cos(heard), centre.y + kKnobRadius * std::sin(heard)},
            2.5, kToneColour);
    }
    draw_cell_text(cr, index);
}

void View::draw_switch(cairo_t* cr, int index) const {
    const Item& item = items_[size_t(index)];
    const bool on = model_.value(item.id) > 0.5;
    const double x = item.area.middle_x(), y = knob_y(item.area);
    fill(cr, {x - 14, y - 8, 28, 16}, 8, on ? kDecayColour : lit(index) ? kLine : kRaised);
    dot(cr, {on ? x + 6 : x - 6, y}, 5.5, on ? kGround : kDim);
    draw_cell_text(cr, index);
}

void View::draw_cell_text(cairo_t* cr, int index) const {
    const Item& item = items_[size_t(index)];
    const double x = item.area.middle_x();
    write(cr, x, label_y(item.area), item.label, {10, kDim, Align::kCentre});
    if (typing_ && index == focus_) {
        const Rect box = {item.area.x + 1, value_y(item.area) - 11, item.area.w - 2, 15};
        fill(cr, box, 3, typed_fresh_ ? kLine : kGround);
        outline(cr, box, 3, refused_ ? kAlert : kDecayColour);
        const Type type = {10, refused_ ? kAlert : kText, Align::kCentre};
        write(cr, x, value_y(item.area), typed_, type);
        const double caret = x + width_of(cr, typed_, type) / 2 + 1;
        if (!typed_fresh_) fill(cr, {caret, box.y + 3, 1, 9}, 0, kText);
        return;
    }
    char text[kLongestText];
    write(cr, x, value_y(item.area), to_text(parameters()[item.id], model_.value(item.id), text),
          {10, kText, Align::kCentre});
}

void View::draw_meters(cairo_t* cr) const {
    fill(cr, kMeterPanel, 6, kPanel);
    const float levels[] = {shown_.input, shown_.wet, shown_.output};
    constexpr const char* kNames[] = {"In", "Wet", "Out"};
    const Rect bars = {kMeterPanel.x + 4, kMeterPanel.y + 10, kMeterPanel.w - 8,
                       kMeterPanel.h - 28};
    for (int i = 0; i < 3; ++i) {
        const double decibels = 20.0 * std::log10(std::max(double{levels[i]}, 1e-9));
        const double share = std::clamp((decibels - kFloor) / (kCeiling - kFloor), 0.0, 1.0);
        const double pitch = bars.w / 3, x = bars.x + i * pitch;
        const Rect bar = {x + 3, bars.y, pitch - 6, bars.h};
        fill(cr, bar, 2, kRaised);
        const Colour& colour = decibels > 0.0 ? kAlert : i == 0 ? kDim : kDecayColour;
        if (share > 0.0)
            fill(cr, {bar.x, bar.bottom() - bar.h * share, bar.w, bar.h * share}, 2, colour);
        if (i == 1 && shown_.duck < 1.0f) { // what the ducker takes away
            const double taken = -20.0 * std::log10(std::max(double{shown_.duck}, 1e-3));
            fill(cr, {bar.x, bar.y, bar.w, bar.h * taken / (kCeiling - kFloor)}, 2, kToneColour);
        }
        write(cr, x + pitch / 2, kMeterPanel.bottom() - 7, kNames[i], {7.5, kDim, Align::kCentre});
    }
}

Rect View::tip_area() const {
    const Item& item = items_[size_t(refused_ ? focus_ : hover_)];
    constexpr double kTipWidth = 340, kTipHeight = 38;
    const double x =
        std::clamp(item.area.middle_x() - kTipWidth / 2, 6.0, kViewWidth - kTipWidth - 6);
    const double above = item.area.y - kTipHeight - 4;
    return {x, above >= 4 ? above : item.area.bottom() + 4, kTipWidth, kTipHeight};
}

void View::draw_tip(cairo_t* cr) const {
    const Item& item = items_[size_t(refused_ ? focus_ : hover_)];
    const Rect area = tip_area();
    fill(cr, area, 6, kRaised);
    outline(cr, area, 6, refused_ ? kAlert : kDim, 0.7);
    const char* const name = item.id == kParameters ? item.label : parameters()[item.id].name;
    if (!refused_) {
        write(cr, area.x + 10, area.y + 15, name, {10, kText, Align::kLeft, true});
        return write(cr, area.x + 10, area.y + 29, help_of(item), {9.5, kText});
    }
    const Parameter& parameter = parameters()[item.id];
    char least[kLongestText], most[kLongestText];
    const std::string range = std::string(name) + " takes " +
                              std::string(to_text(parameter, parameter.least, least)) + " to " +
                              std::string(to_text(parameter, parameter.most, most));
    write(cr, area.x + 10, area.y + 15, "This is not a value.", {10, kAlert, Align::kLeft, true});
    write(cr, area.x + 10, area.y + 29, range, {9.5, kText});
}

} // namespace brisel::live::ui
