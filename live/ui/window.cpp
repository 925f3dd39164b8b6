#include "live/ui/window.h"

#include <cairo-xcb.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace brisel::live::ui {

namespace {

constexpr double kLeastScale = 0.75, kMostScale = 4.0;
constexpr uint32_t kMostPixels = 8192;
constexpr uint32_t kShortestPause = 16; // ms between refreshes, however many events there are

template <class Reply>
using Owned = std::unique_ptr<Reply, decltype(&std::free)>;

uint32_t now() {
    using std::chrono::steady_clock, std::chrono::milliseconds;
    const auto since =
        std::chrono::duration_cast<milliseconds>(steady_clock::now().time_since_epoch());
    return static_cast<uint32_t>(since.count());
}

const xcb_screen_t* screen_of(xcb_connection_t* connection, int number) {
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; screens.rem > 1 && number > 0; --number) xcb_screen_next(&screens);
    return screens.data;
}

const xcb_visualtype_t* visual_of(const xcb_screen_t* screen) {
    auto depths = xcb_screen_allowed_depths_iterator(screen);
    for (; depths.rem; xcb_depth_next(&depths)) {
        auto visuals = xcb_depth_visuals_iterator(depths.data);
        for (; visuals.rem; xcb_visualtype_next(&visuals))
            if (visuals.data->visual_id == screen->root_visual) return visuals.data;
    }
    return nullptr;
}

// What desktops set for all programs: dots an inch, 96 at 100 %.
double desktop_scale(xcb_connection_t* connection, const xcb_screen_t* screen) {
    const auto cookie = xcb_get_property(connection, 0, screen->root, XCB_ATOM_RESOURCE_MANAGER,
                                         XCB_ATOM_STRING, 0, 65536);
    const Owned<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection, cookie, nullptr),
                                                &std::free);
    if (!reply) return 1.0;
    const std::string resources(static_cast<const char*>(xcb_get_property_value(reply.get())),
                                size_t(xcb_get_property_value_length(reply.get())));
    constexpr std::string_view kKey = "Xft.dpi:";
    const size_t at = resources.find(kKey);
    if (at == std::string::npos) return 1.0;
    const double dots = std::strtod(resources.c_str() + at + kKey.size(), nullptr);
    return dots >= 24.0 ? dots / 96.0 : 1.0;
}

template <class Record>
const Record& as(const xcb_generic_event_t& event) {
    return reinterpret_cast<const Record&>(event);
}

// What a key means: `character` for kCharacter. False for keys that mean nothing here.
bool meaning_of(xcb_keysym_t symbol, Key& key, char& character) {
    struct Row {
        xcb_keysym_t symbol;
        Key key;
    };
    // From X11/keysymdef.h: main keys, and those of the number pad.
    constexpr Row kRows[] = {
        {0xff08, Key::kBackspace}, {0xff09, Key::kTab},    {0xfe20, Key::kBackTab},
        {0xff0d, Key::kEnter},     {0xff8d, Key::kEnter},  {0xff1b, Key::kEscape},
        {0xffff, Key::kDelete},    {0xff9f, Key::kDelete}, {0xff50, Key::kHome},
        {0xff95, Key::kHome},      {0xff51, Key::kLeft},   {0xff96, Key::kLeft},
        {0xff52, Key::kUp},        {0xff97, Key::kUp},     {0xff53, Key::kRight},
        {0xff98, Key::kRight},     {0xff54, Key::kDown},   {0xff99, Key::kDown},
        {0xff55, Key::kPageUp},    {0xff9a, Key::kPageUp}, {0xff56, Key::kPageDown},
        {0xff9b, Key::kPageDown},  {0xff57, Key::kEnd},    {0xff9c, Key::kEnd},
    };
    for (const Row& row : kRows)
        if (row.symbol == symbol) return key = row.key, true;
    key = Key::kCharacter;
    if (symbol >= 0xffaa && symbol <= 0xffb9) symbol -= 0xff80; // the pad's * to 9
    character = symbol >= ' ' && symbol <= '~' ? static_cast<char>(symbol) : '\0';
    return character != '\0';
}

} // namespace

bool Window::available() {
    xcb_connection_t* const connection = xcb_connect(nullptr, nullptr);
    const bool good = !xcb_connection_has_error(connection);
    xcb_disconnect(connection);
    return good;
}

void Window::default_size(double scale, uint32_t* width, uint32_t* height) {
    if (!(scale > 0.0)) {
        int number = 0;
        xcb_connection_t* const connection = xcb_connect(nullptr, &number);
        scale = xcb_connection_has_error(connection)
                    ? 1.0
                    : desktop_scale(connection, screen_of(connection, number));
        xcb_disconnect(connection);
    }
    scale = std::clamp(scale, kLeastScale, kMostScale);
    *width = static_cast<uint32_t>(std::lround(kViewWidth * scale));
    *height = static_cast<uint32_t>(std::lround(kViewHeight * scale));
}

void Window::adjust(uint32_t* width, uint32_t* height) {
    // 0 would stand for the desktop's scale
    const double scale = std::min(*width / kViewWidth, *height / kViewHeight);
    default_size(std::max(scale, kLeastScale), width, height);
}

std::unique_ptr<Window> Window::open(const brisel_ui_host& host, uint32_t parent, double scale) {
    int screen = 0;
    xcb_connection_t* const connection = xcb_connect(nullptr, &screen);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return nullptr;
    }
    std::unique_ptr<Window> window(new Window(host, connection, screen, parent));
    uint32_t width = 0, height = 0;
    default_size(scale, &width, &height);
    window->resize(width, height);
    return window->gone_ ? nullptr : std::move(window);
}

Window::Window(const brisel_ui_host& host, xcb_connection_t* connection, int screen,
               uint32_t parent)
    : view_(host), connection_(connection), screen_(screen_of(connection, screen)), parent_(parent),
      window_(xcb_generate_id(connection)), keys_(xcb_key_symbols_alloc(connection)) {
    // No background: nothing flickers before the picture comes. Border and colour map are the
    // window's own, since the parent may be of another depth.
    const uint32_t events = XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY |
                            XCB_EVENT_MASK_VISIBILITY_CHANGE | XCB_EVENT_MASK_BUTTON_PRESS |
                            XCB_EVENT_MASK_BUTTON_RELEASE | XCB_EVENT_MASK_POINTER_MOTION |
                            XCB_EVENT_MASK_LEAVE_WINDOW | XCB_EVENT_MASK_KEY_PRESS |
                            XCB_EVENT_MASK_KEY_RELEASE;
    const uint32_t values[] = {0, 0, events, screen_->default_colormap};
    const auto cookie = xcb_create_window_checked(
        connection_, screen_->root_depth, window_, parent_, 0, 0, uint16_t(kViewWidth),
        uint16_t(kViewHeight), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen_->root_visual,
        XCB_CW_BACK_PIXMAP | XCB_CW_BORDER_PIXEL | XCB_CW_EVENT_MASK | XCB_CW_COLORMAP, values);
    const Owned<xcb_generic_error_t> error(xcb_request_check(connection_, cookie), &std::free);
    gone_ = error != nullptr;
}

Window::~Window() {
    view_.release();
    cairo_region_destroy(exposed_);
    cairo_surface_destroy(image_);
    if (surface_) { // what cairo keeps of a connection has to go before it
        cairo_device_t* const device = cairo_device_reference(cairo_surface_get_device(surface_));
        cairo_surface_finish(surface_);
        cairo_surface_destroy(surface_);
        cairo_device_finish(device);
        cairo_device_destroy(device);
    }
    xcb_key_symbols_free(keys_);
    if (!gone_) xcb_destroy_window(connection_, window_);
    xcb_flush(connection_);
    xcb_disconnect(connection_);
}

void Window::show() {
    shown_ = true;
    xcb_map_window(connection_, window_);
    xcb_flush(connection_);
}

void Window::hide() {
    view_.release();
    shown_ = false;
    xcb_unmap_window(connection_, window_);
    xcb_flush(connection_);
}

void Window::resize(uint32_t width, uint32_t height) {
    width = std::clamp(width, 1u, kMostPixels);
    height = std::clamp(height, 1u, kMostPixels);
    const uint32_t values[] = {width, height};
    xcb_configure_window(connection_, window_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         values);
    xcb_flush(connection_);
    take_size(width, height);
}

void Window::take_size(uint32_t width, uint32_t height) {
    if (width == width_ && height == height_) return;
    width_ = width;
    height_ = height;
    const int w = static_cast<int>(width), h = static_cast<int>(height);
    if (surface_)
        cairo_xcb_surface_set_size(surface_, w, h);
    else
        surface_ = cairo_xcb_surface_create(
            connection_, window_, const_cast<xcb_visualtype_t*>(visual_of(screen_)), w, h);
    cairo_surface_destroy(image_);
    image_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, w, h);
    view_.resize(w, h);
}

bool Window::update() {
    while (xcb_generic_event_t* const event = xcb_poll_for_event(connection_)) {
        handle(*event);
        std::free(event);
    }
    if (xcb_connection_has_error(connection_)) gone_ = true;
    if (gone_ || !shown_ || covered_) return !gone_;
    const uint32_t time = now();
    if (time - refreshed_ >= kShortestPause) {
        refreshed_ = time;
        view_.refresh(time);
    }
    paint();
    return true;
}

void Window::paint() {
    cairo_region_union(exposed_, view_.damage());
    if (cairo_region_is_empty(exposed_)) return;
    cairo_t* cr = cairo_create(image_);
    view_.draw(cr);
    cairo_destroy(cr);
    cr = cairo_create(surface_);
    clip_to(cr, exposed_);
    cairo_set_source_surface(cr, image_, 0, 0);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_flush(surface_);
    xcb_flush(connection_);
    cairo_region_subtract(exposed_, exposed_);
}

void Window::handle(const xcb_generic_event_t& event) {
    switch (event.response_type & 0x7f) { // without the mark of events that programs send
    case XCB_EXPOSE: {
        const auto& e = as<xcb_expose_event_t>(event);
        const cairo_rectangle_int_t rect = {e.x, e.y, e.width, e.height};
        cairo_region_union_rectangle(exposed_, &rect);
        break;
    }
    case XCB_CONFIGURE_NOTIFY: {
        const auto& e = as<xcb_configure_notify_event_t>(event);
        take_size(e.width, e.height);
        break;
    }
    case XCB_VISIBILITY_NOTIFY:
        covered_ = as<xcb_visibility_notify_event_t>(event).state == XCB_VISIBILITY_FULLY_OBSCURED;
        break;
    case XCB_DESTROY_NOTIFY:
        gone_ = true;
        break;
    case XCB_MOTION_NOTIFY: {
        const auto& e = as<xcb_motion_notify_event_t>(event);
        point(PointerEvent::Kind::kMove, e.event_x, e.event_y, e.state);
        break;
    }
    case XCB_LEAVE_NOTIFY:
        point(PointerEvent::Kind::kLeave, -1, -1, 0);
        break;
    case XCB_BUTTON_PRESS:
    case XCB_BUTTON_RELEASE:
        handle_button(as<xcb_button_press_event_t>(event),
                      (event.response_type & 0x7f) == XCB_BUTTON_PRESS);
        break;
    case XCB_KEY_PRESS:
    case XCB_KEY_RELEASE:
        handle_key(as<xcb_key_press_event_t>(event), (event.response_type & 0x7f) == XCB_KEY_PRESS);
        break;
    case XCB_MAPPING_NOTIFY: {
        auto mapping = as<xcb_mapping_notify_event_t>(event);
        xcb_refresh_keyboard_mapping(keys_, &mapping);
        break;
    }
    default:
        break; // errors, too: of a window whose parent has gone
    }
}

void Window::point(PointerEvent::Kind kind, int x, int y, uint16_t state, int steps) {
    view_.pointer({kind, double(x), double(y), now(), steps, (state & XCB_MOD_MASK_SHIFT) != 0,
                   (state & XCB_MOD_MASK_CONTROL) != 0});
}

void Window::handle_button(const xcb_button_press_event_t& event, bool pressed) {
    const auto kind = pressed ? PointerEvent::Kind::kPress : PointerEvent::Kind::kRelease;
    if (pressed && event.detail == 1)
        xcb_set_input_focus(connection_, XCB_INPUT_FOCUS_PARENT, window_, event.time);
    if (event.detail == 1)
        point(kind, event.event_x, event.event_y, event.state);
    else if (pressed && (event.detail == 4 || event.detail == 5)) // the wheel
        point(PointerEvent::Kind::kScroll, event.event_x, event.event_y, event.state,
              event.detail == 4 ? 1 : -1);
}

// Keys that the view has no use for go on to the parent: a host's space bar starts its transport.
void Window::handle_key(xcb_key_press_event_t event, bool pressed) {
    if (pressed) {
        const bool shift = event.state & XCB_MOD_MASK_SHIFT;
        const int group = event.state >> 13 & 3; // the layout in force
        xcb_keysym_t symbol = xcb_key_symbols_get_keysym(keys_, event.detail, 2 * group + shift);
        const auto number = xcb_key_symbols_get_keysym(keys_, event.detail, 1);
        const bool pad = number >= 0xffaa && number <= 0xffb9;
        if (pad && event.state & XCB_MOD_MASK_2) symbol = number; // Num Lock
        if (symbol == 0) symbol = xcb_key_symbols_get_keysym(keys_, event.detail, shift);
        Key key = Key::kCharacter;
        char character = '\0';
        const bool command = event.state & (XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1);
        bool used = !command && meaning_of(symbol, key, character);
        if (used && key == Key::kTab && shift) key = Key::kBackTab;
        used = used && view_.key(key, character, shift);
        keys_used_[event.detail] = used;
    }
    const bool sent = event.response_type & 0x80; // by the host itself: it would come back for ever
    if (!keys_used_[event.detail] && !sent) {
        event.event = parent_;
        xcb_send_event(connection_, 1, parent_,
                       pressed ? XCB_EVENT_MASK_KEY_PRESS : XCB_EVENT_MASK_KEY_RELEASE,
                       reinterpret_cast<const char*>(&event));
        xcb_flush(connection_);
    }
}

} // namespace brisel::live::ui
