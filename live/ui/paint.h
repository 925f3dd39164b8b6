// The look of the window: its colours, and the few shapes and texts that everything is drawn with.
// Lengths are in the window's own units, of which it is kViewWidth x kViewHeight at every scale.
#ifndef BRISEL_LIVE_UI_PAINT_H
#define BRISEL_LIVE_UI_PAINT_H

#include <cairo.h>

#include <string_view>

namespace brisel::live::ui {

inline constexpr double kViewWidth = 720.0, kViewHeight = 420.0;

struct Rect {
    double x, y, w, h;
    double right() const { return x + w; }
    double bottom() const { return y + h; }
    double middle_x() const { return x + w / 2; }
    double middle_y() const { return y + h / 2; }
    bool contains(double px, double py) const {
        return px >= x && px < right() && py >= y && py < bottom();
    }
    bool meets(const Rect& other) const {
        return x < other.right() && other.x < right() && y < other.bottom() && other.y < bottom();
    }
    Rect grown(double by) const { return {x - by, y - by, w + 2 * by, h + 2 * by}; }
};

struct Colour {
    double r, g, b;
};
inline constexpr Colour kGround = {0.078, 0.090, 0.110}, kPanel = {0.106, 0.122, 0.149},
                        kRaised = {0.157, 0.180, 0.216}, kLine = {0.204, 0.231, 0.271},
                        kText = {0.847, 0.871, 0.902}, kDim = {0.561, 0.608, 0.663},
                        kDecayColour = {0.420, 0.760, 0.780}, kToneColour = {0.890, 0.690, 0.440},
                        kAlert = {0.910, 0.430, 0.400};

enum class Align { kLeft, kCentre, kRight };
struct Type {
    double size;
    Colour colour = kText;
    Align align = Align::kLeft;
    bool bold = false;
};

void clip_to(cairo_t* cr, const cairo_region_t* region);

void set(cairo_t* cr, const Colour& colour, double alpha = 1.0);

// `x` is the left end, the middle or the right end, as `type` says, `y` the baseline.
void write(cairo_t* cr, double x, double y, std::string_view text, const Type& type);
double width_of(cairo_t* cr, std::string_view text, const Type& type);

void trace(cairo_t* cr, const Rect& rect, double radius); // a path of rounded corners
void fill(cairo_t* cr, const Rect& rect, double radius, const Colour& colour, double alpha = 1.0);
void outline(cairo_t* cr, const Rect& rect, double radius, const Colour& colour,
             double alpha = 1.0);

} // namespace brisel::live::ui

#endif
