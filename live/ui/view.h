// The window's contents on any cairo surface: what people do comes in as plain events, what has to
// be drawn anew goes out as damage. Knows nothing of X.
#ifndef BRISEL_LIVE_UI_VIEW_H
#define BRISEL_LIVE_UI_VIEW_H

#include <string>

#include "live/ui/graphs.h"
#include "live/ui/menu.h"

namespace brisel::live::ui {

struct PointerEvent {
    enum class Kind : uint8_t { kMove, kPress, kRelease, kScroll, kLeave };
    Kind kind;
    double x, y;                      // pixels
    uint32_t time;                    // ms, of any clock
    int steps = 0;                    // of kScroll; up is positive
    bool fine = false, reset = false; // shift and control are held
};

enum class Key : uint8_t {
    kCharacter,
    kTab,
    kBackTab,
    kLeft,
    kRight,
    kUp,
    kDown,
    kPageUp,
    kPageDown,
    kHome,
    kEnd,
    kEnter,
    kEscape,
    kBackspace,
    kDelete,
};

class View {
public:
    explicit View(const brisel_ui_host& host);
    ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    // Of the surface, in pixels: everything is drawn as large as fits.
    void resize(int width, int height);

    void pointer(const PointerEvent& event);
    // Whether the key means something here. `character` is ASCII, of kCharacter only.
    bool key(Key key, char character, bool fine);
    // Ends what is under way: the window is hidden, or closed.
    void release();

    // Takes values and meters; to be called some thirty times a second with the time in ms, of any
    // clock.
    void refresh(uint32_t time);

    // What differs from what was drawn last, in pixels; draw() draws it and empties it.
    const cairo_region_t* damage() const { return damage_; }
    void draw(cairo_t* cr);

    // For tests: the items, and the parameter's value while it is typed, else null.
    const std::vector<Item>& items() const { return items_; }
    const std::string* typed() const { return typing_ ? &typed_ : nullptr; }
    bool refused() const { return refused_; }
    Point pixel_of(Point point) const {
        return {left_ + point.x * scale_, top_ + point.y * scale_};
    }

private:
    static constexpr int kNothing = -1;

    // view.cpp: behaviour
    int item_at(Point point) const;
    void move_nodes();
    void damage(const Rect& rect);
    void damage_item(int item);
    void damage_all() { damage({0, 0, kViewWidth, kViewHeight}); }
    void hover(int item, uint32_t time);
    void focus(int item);
    void press(Point point, const PointerEvent& event);
    void drag(Point point, bool fine);
    void end_drag();
    void nudge(const Item& item, double steps, bool fine);
    void set_position(const Item& item, double position);
    void activate(int index);
    void back_to_default(const Item& item);
    void open_menu(bool open);
    void choose_preset(int entry);
    bool menu_key(Key key);
    void start_typing(int index);
    bool typing_key(Key key, char character);
    void stop_typing(bool take);
    void refresh_meters();

    // draw.cpp
    void draw_header_item(cairo_t* cr, int index) const;
    void draw_knob(cairo_t* cr, int index) const;
    void draw_switch(cairo_t* cr, int index) const;
    void draw_cell_text(cairo_t* cr, int index) const;
    void draw_meters(cairo_t* cr) const;
    void draw_tip(cairo_t* cr) const;
    Rect tip_area() const;
    bool lit(int index) const { return index == hover_ || index == dragged_; }

    Model model_;
    Response response_;
    bool response_stale_ = true, response_shown_ = false;
    std::vector<Item> items_;
    cairo_region_t* const damage_ = cairo_region_create();
    double scale_ = 1.0, left_ = 0.0, top_ = 0.0; // of the view in its surface, pixels
    uint32_t time_ = 0;

    int hover_ = kNothing, focus_ = kNothing;
    bool focus_shown_ = false; // once the keyboard was used
    uint32_t hover_since_ = 0;
    bool tip_shown_ = false, tip_spent_ = false;

    int dragged_ = kNothing;
    Point drag_point_{};          // of the pointer, at its last move
    double drag_position_ = 0.0;  // of a knob, not yet rounded to steps
    Point drag_node_{};           // where the node would be
    int last_pressed_ = kNothing; // for double clicks
    uint32_t last_press_ = 0;

    bool clearing_ = false; // Clear is on, until clear_since_ is long enough ago
    uint32_t clear_since_ = 0;

    Menu menu_;

    bool typing_ = false, typed_fresh_ = false, refused_ = false; // into the item in focus
    std::string typed_;

    brisel_ui_meters shown_{0, 0, 0, 1}; // what the meters show
};

} // namespace brisel::live::ui

#endif
