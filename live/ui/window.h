// The view in an X window of its own inside another program's.
#ifndef BRISEL_LIVE_UI_WINDOW_H
#define BRISEL_LIVE_UI_WINDOW_H

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <bitset>
#include <memory>

#include "live/ui/view.h"

namespace brisel::live::ui {

class Window {
public:
    // As module.h says.
    static bool available();
    static std::unique_ptr<Window> open(const brisel_ui_host& host, uint32_t parent, double scale);
    static void default_size(double scale, uint32_t* width, uint32_t* height);
    static void adjust(uint32_t* width, uint32_t* height);

    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    void show();
    void hide();
    bool update();
    int connection() const { return xcb_get_file_descriptor(connection_); }
    uint32_t id() const { return window_; }
    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }
    void resize(uint32_t width, uint32_t height);

private:
    Window(const brisel_ui_host& host, xcb_connection_t* connection, int screen, uint32_t parent);

    void take_size(uint32_t width, uint32_t height);
    void handle(const xcb_generic_event_t& event);
    void handle_button(const xcb_button_press_event_t& event, bool pressed);
    void handle_key(xcb_key_press_event_t event, bool pressed);
    void point(PointerEvent::Kind kind, int x, int y, uint16_t state, int steps = 0);
    void paint();

    View view_;
    xcb_connection_t* const connection_;
    const xcb_screen_t* screen_;
    const uint32_t parent_;
    uint32_t window_ = 0, width_ = 0, height_ = 0;
    xcb_key_symbols_t* keys_;
    std::bitset<256> keys_used_;         // pressed, and the view's own, by key code
    cairo_surface_t* surface_ = nullptr; // the window
    cairo_surface_t* image_ = nullptr;   // what it shows
    cairo_region_t* const exposed_ = cairo_region_create(); // to be copied from the image anew
    bool shown_ = false, covered_ = false, gone_ = false;
    uint32_t refreshed_ = 0; // ms
};

} // namespace brisel::live::ui

#endif
