#include "live/ui/graphs.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "live/ui/curves.h"

namespace brisel::live::ui {

namespace {

constexpr Type kTitle = {9.5, kDim};
constexpr Type kScale = {9, kDim, Align::kCentre};

// Where the curves are inside their panel.
constexpr Rect kCurves = {kCurvePanel.x + 34, kCurvePanel.y + 24, kCurvePanel.w - 66,
                          kCurvePanel.h - 44};
constexpr double kLowest = 20.0, kHighest = 20000.0; // Hz
constexpr double kShortest = 0.05, kLongest = 80.0;  // seconds
constexpr double kZeroDecibels = kCurves.y + 0.3 * kCurves.h;
constexpr double kDecibel = 1.7; // its height
constexpr double kLowestGain = -30.0, kHighestGain = 26.0;

double x_of(double hz) {
    return kCurves.x + kCurves.w * std::log(hz / kLowest) / std::log(kHighest / kLowest);
}
double hz_at(double x) {
    return kLowest * std::pow(kHighest / kLowest, (x - kCurves.x) / kCurves.w);
}
double y_of_time(double seconds) {
    seconds = std::clamp(seconds, kShortest, kLongest);
    return kCurves.bottom() -
           kCurves.h * std::log(seconds / kShortest) / std::log(kLongest / kShortest);
}
double time_at(double y) {
    return kShortest * std::pow(kLongest / kShortest, (kCurves.bottom() - y) / kCurves.h);
}
double y_of_gain(double decibels) {
    return kZeroDecibels - kDecibel * std::clamp(decibels, kLowestGain, kHighestGain);
}
double gain_at(double y) {
    return (kZeroDecibels - y) / kDecibel;
}

// Where the nodes are that move up and down: there each one's curve is all but its own.
double node_hz(Id id, const Settings& settings) {
    switch (id) {
    case kDecay:
        return 90.0;
    case kDamp:
        return 10000.0;
    case kEqLow:
        return 45.0;
    case kEqHigh:
        return 14000.0;
    default:
        return settings[id]; // of a cut its corner
    }
}

void grid_line(cairo_t* cr, Point from, Point to, double alpha) {
    cairo_move_to(cr, from.x, from.y);
    cairo_line_to(cr, to.x, to.y);
    set(cr, kLine, alpha);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
}

void draw_grid(cairo_t* cr) {
    for (double hz : {50.0, 100.0, 200.0, 500.0, 1000.0, 2000.0, 5000.0, 10000.0}) {
        grid_line(cr, {x_of(hz), kCurves.y}, {x_of(hz), kCurves.bottom()}, 0.55);
        char text[16];
        std::snprintf(text, sizeof text, hz < 1000.0 ? "%.0f" : "%.0fk",
                      hz < 1000.0 ? hz : hz / 1000.0);
        write(cr, x_of(hz), kCurves.bottom() + 13, text, kScale);
    }
    for (double seconds : {0.1, 0.3, 1.0, 3.0, 10.0, 30.0}) {
        grid_line(cr, {kCurves.x, y_of_time(seconds)}, {kCurves.right(), y_of_time(seconds)}, 0.55);
        char text[16];
        std::snprintf(text, sizeof text, "%g s", seconds);
        write(cr, kCurves.x - 5, y_of_time(seconds) + 3, text, {9, kDim, Align::kRight});
    }
    for (int decibels : {-20, 0, 20}) { // of the tone, at the other side
        char text[16];
        std::snprintf(text, sizeof text, decibels != 0 ? "%+d" : "%d dB", decibels);
        write(cr, kCurvePanel.right() - 5, y_of_gain(decibels) + 3, text,
              {8.5, kToneColour, Align::kRight});
    }
}

// A path over all frequencies.
template <typename Height>
void trace_over_frequency(cairo_t* cr, Height height) {
    constexpr int kPoints = 132;
    for (int i = 0; i <= kPoints; ++i) {
        const double x = kCurves.x + kCurves.w * i / kPoints;
        cairo_line_to(cr, x, height(hz_at(x)));
    }
}

void title(cairo_t* cr, const Rect& panel, const char* left, const Colour& colour) {
    fill(cr, panel, 6, kPanel);
    Type type = kTitle;
    type.colour = colour;
    write(cr, panel.x + 10, panel.y + 15, left, type);
}

// The plot inside one of the two small panels, and its axis of time.
constexpr Rect plot_of(const Rect& panel) {
    return {panel.x + 10, panel.y + 22, panel.w - 20, panel.h - 38};
}

void draw_time_axis(cairo_t* cr, const Rect& plot, double span) {
    for (int i = 0; i <= 4; ++i) {
        const double x = plot.x + plot.w * i / 4.0;
        grid_line(cr, {x, plot.y}, {x, plot.bottom()}, 0.55);
        char text[24];
        const double at = span * i / 4.0;
        std::snprintf(text, sizeof text, span <= 0.5 ? "%.0f ms" : "%g s",
                      span <= 0.5 ? at * 1000.0 : at);
        const Align align = i == 0 ? Align::kLeft : i == 4 ? Align::kRight : Align::kCentre;
        write(cr, x, plot.bottom() + 11, i == 0 ? "0" : text, {9, kDim, align});
    }
}

// A path of a function of time: the lowest value at the bottom, the highest at the top.
void trace_over_time(cairo_t* cr, const Rect& plot, const Response::Columns& columns, double least,
                     double most) {
    for (size_t i = 0; i < columns.size(); ++i) {
        const double share = (std::clamp(double{columns[i]}, least, most) - least) / (most - least);
        cairo_line_to(cr, plot.x + plot.w * double(i) / double(columns.size() - 1),
                      plot.bottom() - plot.h * share);
    }
}

void stroke(cairo_t* cr, const Colour& colour, double width) {
    set(cr, colour);
    cairo_set_line_width(cr, width);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_stroke(cr);
}

// Fills what is between the present path and the bottom of `plot`, and keeps the path.
void shade(cairo_t* cr, const Rect& plot, const Colour& colour) {
    cairo_path_t* const path = cairo_copy_path(cr);
    cairo_line_to(cr, plot.right(), plot.bottom());
    cairo_line_to(cr, plot.x, plot.bottom());
    set(cr, colour, 0.13);
    cairo_fill(cr);
    cairo_append_path(cr, path);
    cairo_path_destroy(path);
}

} // namespace

Point node_point(Id id, const Settings& settings, double rate) {
    const double hz = node_hz(id, settings);
    if (id == kDecay || id == kDamp) return {x_of(hz), y_of_time(decay_time(settings, rate, hz))};
    return {x_of(hz), y_of_gain(tone_gain(settings, rate, hz))};
}

double node_value(Id id, const Settings& settings, double rate, Point point) {
    const double hz = node_hz(id, settings);
    switch (id) {
    case kDecay: // the loss at one frequency is all but proportional to the loss at 0 Hz
        return settings[id] * time_at(point.y) / decay_time(settings, rate, hz);
    case kDamp:
        return damp_for(settings, rate, hz, time_at(point.y));
    case kEqLow: // and a shelf's gain near its end to the gain there
    case kEqHigh:
        return settings[id] + gain_at(point.y) - tone_gain(settings, rate, hz);
    default:
        return hz_at(point.x);
    }
}

void draw_curves(cairo_t* cr, const Settings& settings, double rate) {
    title(cr, kCurvePanel, "Decay time", kDecayColour);
    write(cr, kCurvePanel.x + 72, kCurvePanel.y + 15, "Tone", {9.5, kToneColour});
    draw_grid(cr);
    cairo_save(cr);
    cairo_rectangle(cr, kCurves.x, kCurves.y, kCurves.w, kCurves.h);
    cairo_clip(cr);
    cairo_new_path(cr);
    trace_over_frequency(cr, [&](double hz) { return y_of_time(decay_time(settings, rate, hz)); });
    shade(cr, kCurves, kDecayColour);
    stroke(cr, kDecayColour, 2.0);
    trace_over_frequency(cr, [&](double hz) { return y_of_gain(tone_gain(settings, rate, hz)); });
    stroke(cr, kToneColour, 1.5);
    cairo_restore(cr);
}

void draw_node(cairo_t* cr, Id id, Point point, bool lit) {
    const bool decay = id == kDecay || id == kDamp;
    const double radius = (decay ? 5.0 : 3.5) + (lit ? 1.0 : 0.0);
    cairo_new_path(cr);
    cairo_arc(cr, point.x, point.y, radius, 0.0, 2 * std::numbers::pi);
    set(cr, lit ? kText : decay ? kDecayColour : kToneColour);
    cairo_fill_preserve(cr);
    stroke(cr, kPanel, 1.5);
}

void draw_build_up(cairo_t* cr, const Response& response) {
    title(cr, kBuildUpPanel, "Echo density", kDecayColour);
    write(cr, kBuildUpPanel.x + 82, kBuildUpPanel.y + 15, "Echoes", kTitle);
    const Rect plot = plot_of(kBuildUpPanel);
    draw_time_axis(cr, plot, response.build_up_span());
    for (size_t i = 0; i < Response::kColumns; ++i) {
        const double height = std::clamp(1.0 + double{response.echoes()[i]} / 60.0, 0.0, 1.0);
        const double x = plot.x + plot.w * double(i) / (Response::kColumns - 1);
        cairo_move_to(cr, x, plot.bottom());
        cairo_line_to(cr, x, plot.bottom() - plot.h * height);
    }
    set(cr, kDim, 0.45);
    cairo_set_line_width(cr, 0.8);
    cairo_stroke(cr);
    trace_over_time(cr, plot, response.density(), 0.0, 1.2);
    stroke(cr, kDecayColour, 1.5);
}

void draw_decay(cairo_t* cr, const Response& response) {
    title(cr, kDecayPanel, "Energy left", kDecayColour);
    const Rect plot = plot_of(kDecayPanel);
    draw_time_axis(cr, plot, response.decay_span());
    for (int decibels : {-20, -40, -60}) {
        const double y = plot.y - plot.h * decibels / 60.0;
        grid_line(cr, {plot.x, y}, {plot.right(), y}, 0.55);
        char text[16];
        std::snprintf(text, sizeof text, "%d dB", decibels);
        write(cr, plot.right() - 2, y - 3, text, {8.5, kDim, Align::kRight});
    }
    cairo_new_path(cr);
    trace_over_time(cr, plot, response.decay(), -60.0, 0.0);
    shade(cr, plot, kDecayColour);
    stroke(cr, kDecayColour, 1.5);
}

} // namespace brisel::live::ui
