// The window in X, in a tiny host of each format, played by xdotool. Needs a display;
// window_test.sh gives one.
#include <lv2/ui/ui.h>
#include <poll.h>
#include <xcb/xcb.h>

#include <bit>
#include <chrono>
#include <filesystem>
#include <functional>

#include "live/lv2/ports.h"
#include "live/ui/layout.h"
#include "tests/live/strict_host.h"

// What fontconfig keeps of its configuration until a program ends is none of the window's.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig";
}

namespace {

using strict_host::Frames;
using strict_host::Instance;
using strict_host::Said;
using strict_host::Stereo;
using namespace brisel::live;

// A window on the screen, for plug-ins' windows.
struct Frame {
    explicit Frame(int16_t x = 0, int16_t y = 0) {
        const xcb_screen_t* s = xcb_setup_roots_iterator(xcb_get_setup(display)).data;
        const uint32_t events = XCB_EVENT_MASK_KEY_PRESS;
        xcb_create_window(display, s->root_depth, id, s->root, x, y, 720, 420, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, s->root_visual, XCB_CW_EVENT_MASK,
                          &events);
        xcb_map_window(display, id);
        sync();
    }
    ~Frame() { xcb_disconnect(display); }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;
    void sync() const {
        std::free(xcb_get_input_focus_reply(display, xcb_get_input_focus(display), nullptr));
    }
    int keys() const { // that have come since the last time
        int count = 0;
        while (xcb_generic_event_t* event = xcb_poll_for_event(display)) {
            count += (event->response_type & 0x7f) == XCB_KEY_PRESS;
            std::free(event);
        }
        return count;
    }
    xcb_connection_t* display = xcb_connect(nullptr, nullptr);
    uint32_t id = xcb_generate_id(display);
};

void xdotool(const std::string& commands) {
    ASSERT_EQ(std::system(("xdotool " + commands).c_str()), 0);
}
std::string to(double x, double y) {
    return " mousemove " + std::to_string(int(x)) + ' ' + std::to_string(int(y));
}

// Where a knob is drawn at 100 %.
struct Place {
    double x, y;
};
Place knob(Id id) {
    for (const ui::Item& item : ui::make_items())
        if (item.kind == ui::Kind::kKnob && item.id == id)
            return {item.area.middle_x(), ui::knob_y(item.area)};
    ADD_FAILURE();
    return {};
}

void wait_ticks(int ticks, const std::function<void()>& tick) {
    for (int i = 0; i < ticks; ++i) {
        poll(nullptr, 0, 33);
        tick();
    }
}

struct ClapWindow {
    explicit ClapWindow(Instance& its, const Frame& frame) : instance(its) {
        EXPECT_TRUE(gui->is_api_supported(its.plugin, "x11", false));
        EXPECT_FALSE(gui->is_api_supported(its.plugin, "x11", true));
        EXPECT_FALSE(gui->is_api_supported(its.plugin, "wayland", false));
        EXPECT_TRUE(gui->create(its.plugin, "x11", false));
        EXPECT_TRUE(gui->set_scale(its.plugin, 1.0));
        uint32_t width = 0, height = 0;
        EXPECT_TRUE(gui->get_size(its.plugin, &width, &height));
        EXPECT_EQ(width, 720u);
        EXPECT_EQ(height, 420u);
        const clap_window_t parent = {"x11", {.x11 = frame.id}};
        EXPECT_TRUE(gui->set_parent(its.plugin, &parent));
        EXPECT_TRUE(gui->show(its.plugin));
        tick();
    }
    void tick() const {
        for (clap_id timer : std::set(instance.timers)) timers->on_timer(instance.plugin, timer);
        for (int fd : std::set(instance.fds)) fds->on_fd(instance.plugin, fd, CLAP_POSIX_FD_READ);
    }
    void close() const { gui->destroy(instance.plugin); }
    Instance& instance;
    const clap_plugin_gui_t* gui = instance.extension<clap_plugin_gui_t>(CLAP_EXT_GUI);
    const clap_plugin_timer_support_t* timers =
        instance.extension<clap_plugin_timer_support_t>(CLAP_EXT_TIMER_SUPPORT);
    const clap_plugin_posix_fd_support_t* fds =
        instance.extension<clap_plugin_posix_fd_support_t>(CLAP_EXT_POSIX_FD_SUPPORT);
};

TEST(ClapWindow, IsDraggedAndTheSoundFollows) {
    Instance instance, other;
    const Frame frame, beside(800, 0);
    ASSERT_TRUE(instance.start() && other.start());
    const ClapWindow window(instance, frame), second(other, beside);
    const Place mix = knob(kMix);
    xdotool(to(mix.x, mix.y) + " mousedown 1" + to(mix.x, mix.y - 40) + to(mix.x, mix.y - 400) +
            " mouseup 1");
    wait_ticks(2, [&] { window.tick(), second.tick(); });
    EXPECT_EQ(instance.value(kMix), 1.0);
    EXPECT_EQ(other.value(kMix), parameters()[kMix].initial);
    // Once the smoothing is over, nothing of the dry signal is left.
    const Stereo silence = {Frames(48000), Frames(48000)};
    Stereo click = silence;
    click[0][0] = click[1][0] = 1.0f;
    for (int block = 0; block < 60; ++block) instance.render(silence, 0, 512);
    EXPECT_EQ(instance.render(click, 0, 512).out[0][0], 0.0f);
    // The host hears of one gesture, in which the value rose.
    ASSERT_GE(instance.said.size(), 3u);
    EXPECT_EQ(instance.said.front(), (Said{CLAP_EVENT_PARAM_GESTURE_BEGIN, kMix, 0.0}));
    EXPECT_EQ(instance.said.back(), (Said{CLAP_EVENT_PARAM_GESTURE_END, kMix, 0.0}));
    for (size_t i = 1; i + 1 < instance.said.size(); ++i) {
        EXPECT_EQ(instance.said[i].type, CLAP_EVENT_PARAM_VALUE);
        EXPECT_GT(instance.said[i].value, i > 1 ? instance.said[i - 1].value : 0.3);
    }
    // Keys: a typed value.
    const Place decay = knob(kDecay);
    xdotool(to(decay.x, decay.y) + " click --repeat 2 --delay 30 1");
    wait_ticks(3, [&] { window.tick(); });
    xdotool("key 7 period 5 Return");
    wait_ticks(3, [&] { window.tick(); });
    EXPECT_EQ(instance.value(kDecay), 7.5);
    // A key that means nothing here is the host's.
    EXPECT_EQ(frame.keys(), 0);
    xdotool("key space");
    wait_ticks(2, [&] { window.tick(); });
    EXPECT_EQ(frame.keys(), 1);
    window.close();
    second.close();
    EXPECT_TRUE(instance.timers.empty() && instance.fds.empty());
}

size_t open_files() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

TEST(ClapWindow, OpensAndClosesWithoutLeavingAnythingBehind) {
    const Frame frame;
    Instance instance;
    size_t files = 0;
    for (int i = 0; i < 200; ++i) {
        const ClapWindow window(instance, frame);
        if (i % 3 == 0) window.gui->hide(instance.plugin);
        window.close();
        if (i == 0) files = open_files();
    }
    EXPECT_EQ(open_files(), files);
    EXPECT_TRUE(instance.timers.empty() && instance.fds.empty());
}

TEST(ClapWindow, OutlivesItsParentAndIsRefusedWithoutADisplay) {
    Instance instance;
    const Frame frame;
    const ClapWindow window(instance, frame);
    xcb_destroy_window(frame.display, frame.id);
    frame.sync();
    wait_ticks(2, [&] { window.tick(); });
    EXPECT_EQ(instance.windows_closed, 1);
    EXPECT_TRUE(instance.timers.empty() && instance.fds.empty());
    window.close();
    EXPECT_TRUE(window.gui->create(instance.plugin, "x11", false));
    const clap_window_t gone = {"x11", {.x11 = frame.id}};
    EXPECT_FALSE(window.gui->set_parent(instance.plugin, &gone));
    window.close();
    const std::string display = std::getenv("DISPLAY");
    unsetenv("DISPLAY");
    EXPECT_FALSE(window.gui->is_api_supported(instance.plugin, "x11", false));
    EXPECT_FALSE(window.gui->create(instance.plugin, "x11", false));
    setenv("DISPLAY", display.c_str(), 1);
}

TEST(Lv2Window, IsDraggedAndWritesItsPorts) {
    void* const library = dlopen(BRISEL_LIVE_UI_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_TRUE(library) << dlerror();
    const auto* d =
        reinterpret_cast<LV2UI_DescriptorFunction>(dlsym(library, "lv2ui_descriptor"))(0);
    struct Host {
        std::vector<std::pair<uint32_t, float>> written;
        std::vector<std::pair<uint32_t, bool>> touched;
        int width = 0, height = 0;
    } host;
    const Frame frame;
    LV2UI_Touch touch = {&host, [](void* h, uint32_t port, bool grabbed) {
                             static_cast<Host*>(h)->touched.emplace_back(port, grabbed);
                         }};
    LV2UI_Resize resize = {&host, [](void* h, int width, int height) {
                               static_cast<Host*>(h)->width = width;
                               static_cast<Host*>(h)->height = height;
                               return 0;
                           }};
    const LV2_Feature parent_feature = {LV2_UI__parent, std::bit_cast<void*>(size_t{frame.id})},
                      touch_feature = {LV2_UI__touch, &touch},
                      resize_feature = {LV2_UI__resize, &resize};
    const LV2_Feature* const features[] = {&parent_feature, &touch_feature, &resize_feature,
                                           nullptr};
    LV2UI_Widget widget = nullptr;
    const auto write = [](void* h, uint32_t port, uint32_t size, uint32_t format,
                          const void* data) {
        EXPECT_TRUE(size == sizeof(float) && format == 0);
        static_cast<Host*>(h)->written.emplace_back(port, *static_cast<const float*>(data));
    };
    EXPECT_FALSE(d->instantiate(d, lv2::kMonoUri, "", write, &host, &widget, features + 1));
    LV2UI_Handle ui = d->instantiate(d, lv2::kMonoUri, "", write, &host, &widget, features);
    ASSERT_TRUE(ui && widget);
    EXPECT_EQ(host.width * 420, host.height * 720);
    const double scale = host.width / 720.0;
    const auto* idle =
        static_cast<const LV2UI_Idle_Interface*>(d->extension_data(LV2_UI__idleInterface));
    // The host's value comes first; a drag starts from it.
    const uint32_t port = lv2::index_of(lv2::kFirstParameter + uint32_t{kMix}, true);
    const float full = 100.0f;
    d->port_event(ui, port, sizeof full, 0, &full);
    wait_ticks(2, [&] { EXPECT_EQ(idle->idle(ui), 0); });
    const Place mix = knob(kMix);
    xdotool(to(mix.x * scale, mix.y * scale) + " mousedown 1" +
            to(mix.x * scale, (mix.y + 45) * scale) + " mouseup 1");
    wait_ticks(2, [&] { EXPECT_EQ(idle->idle(ui), 0); });
    using Touches = decltype(host.touched);
    EXPECT_EQ(host.touched, (Touches{{port, true}, {port, false}}));
    ASSERT_FALSE(host.written.empty());
    EXPECT_EQ(host.written.back().first, port);
    EXPECT_NEAR(host.written.back().second, 75.0f, 1.0f); // 45 of 180 units
    xcb_destroy_window(frame.display, frame.id);
    frame.sync();
    EXPECT_EQ(idle->idle(ui), 1);
    d->cleanup(ui);
}

} // namespace
