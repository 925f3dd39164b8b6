// The three pictures: decay time and tone over frequency with nodes to drag, and what the engine
// makes of a click.
#ifndef BRISEL_LIVE_UI_GRAPHS_H
#define BRISEL_LIVE_UI_GRAPHS_H

#include "live/ui/layout.h"
#include "live/ui/response.h"

namespace brisel::live::ui {

struct Point {
    double x, y;
};

// Where the node of a parameter is, and the value for which it would be nearest to `point`.
Point node_point(Id id, const Settings& settings, double rate);
double node_value(Id id, const Settings& settings, double rate, Point point);

void draw_curves(cairo_t* cr, const Settings& settings, double rate);
void draw_node(cairo_t* cr, Id id, Point point, bool lit);
void draw_build_up(cairo_t* cr, const Response& response);
void draw_decay(cairo_t* cr, const Response& response);

} // namespace brisel::live::ui

#endif
