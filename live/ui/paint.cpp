#include "live/ui/paint.h"

#include <algorithm>
#include <cstring>
#include <numbers>

namespace brisel::live::ui {

namespace {

// Cairo takes texts with a null at their end.
struct Terminated {
    explicit Terminated(std::string_view text) {
        const size_t length = std::min(text.size(), sizeof chars - 1);
        std::memcpy(chars, text.data(), length);
        chars[length] = '\0';
    }
    char chars[160];
};

void choose(cairo_t* cr, const Type& type) {
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           type.bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, type.size);
}

} // namespace

void clip_to(cairo_t* cr, const cairo_region_t* region) {
    for (int i = 0; i < cairo_region_num_rectangles(region); ++i) {
        cairo_rectangle_int_t r;
        cairo_region_get_rectangle(region, i, &r);
        cairo_rectangle(cr, r.x, r.y, r.width, r.height);
    }
    cairo_clip(cr);
}

void set(cairo_t* cr, const Colour& colour, double alpha) {
    cairo_set_source_rgba(cr, colour.r, colour.g, colour.b, alpha);
}

double width_of(cairo_t* cr, std::string_view text, const Type& type) {
    choose(cr, type);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, Terminated(text).chars, &extents);
    return extents.x_advance;
}

void write(cairo_t* cr, double x, double y, std::string_view text, const Type& type) {
    choose(cr, type);
    if (type.align != Align::kLeft)
        x -= width_of(cr, text, type) * (type.align == Align::kCentre ? 0.5 : 1.0);
    cairo_move_to(cr, x, y);
    set(cr, type.colour);
    cairo_show_text(cr, Terminated(text).chars);
}

void trace(cairo_t* cr, const Rect& rect, double radius) {
    constexpr double kQuarter = std::numbers::pi / 2;
    const double r = std::min(radius, std::min(rect.w, rect.h) / 2);
    cairo_new_sub_path(cr);
    cairo_arc(cr, rect.right() - r, rect.y + r, r, -kQuarter, 0.0);
    cairo_arc(cr, rect.right() - r, rect.bottom() - r, r, 0.0, kQuarter);
    cairo_arc(cr, rect.x + r, rect.bottom() - r, r, kQuarter, 2 * kQuarter);
    cairo_arc(cr, rect.x + r, rect.y + r, r, 2 * kQuarter, 3 * kQuarter);
    cairo_close_path(cr);
}

void fill(cairo_t* cr, const Rect& rect, double radius, const Colour& colour, double alpha) {
    trace(cr, rect, radius);
    set(cr, colour, alpha);
    cairo_fill(cr);
}

void outline(cairo_t* cr, const Rect& rect, double radius, const Colour& colour, double alpha) {
    trace(cr, rect.grown(-0.5), radius);
    set(cr, colour, alpha);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
}

} // namespace brisel::live::ui
