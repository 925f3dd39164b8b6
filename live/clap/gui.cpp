// Extension "clap.gui" and those that keep its window going, "clap.timer-support" and
// "clap.posix-fd-support": the window module, opened when a host asks for a window. Without the
// module, without X, or in a host that keeps no time, there is none, and all else works. All of it
// [main-thread].
#include <dlfcn.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "live/clap/plugin.h"

namespace brisel::live::clap {

namespace {

constexpr uint32_t kPeriod = 33; // ms between looks at the values

// The module in `folder` of the one that holds this library.
void* open_library(const char* folder) {
    Dl_info info;
    char own[PATH_MAX], path[PATH_MAX + 64];
    if (!dladdr(reinterpret_cast<const void*>(&open_library), &info) ||
        !realpath(info.dli_fname, own))
        return nullptr;
    char* const slash = std::strrchr(own, '/');
    if (!slash) return nullptr;
    *slash = '\0';
    std::snprintf(path, sizeof path, "%s/%s" BRISEL_UI_FILE, own, folder);
    // It stays when it is closed: its libraries are not made to be unloaded.
    return dlopen(path, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
}

void release_module(Gui& gui) {
    if (gui.library) dlclose(gui.library);
    gui.library = nullptr;
    gui.module = nullptr;
}

// Beside this library, as in a build folder, or where an installation has it.
bool take_module(Gui& gui) {
    if (gui.module) return true;
    gui.library = open_library("");
    if (!gui.library) gui.library = open_library("../brisel/");
    if (!gui.library) return false;
    const auto entry = reinterpret_cast<brisel_ui_entry>(dlsym(gui.library, BRISEL_UI_ENTRY));
    gui.module = entry ? entry(BRISEL_UI_VERSION) : nullptr;
    if (gui.module && gui.module->available()) return true;
    release_module(gui);
    return false;
}

// The plug-in as its window sees it.

Values& values_of(void* context) {
    return static_cast<Plugin*>(context)->reverb.values();
}

void edit(void* context, int kind, uint32_t id, double value) {
    constexpr Edit::Kind kKinds[] = {Edit::Kind::kBegin, Edit::Kind::kValue, Edit::Kind::kEnd};
    Plugin& p = *static_cast<Plugin*>(context);
    p.reverb.values().edit({kKinds[kind], static_cast<Id>(id), value});
    // While it processes, edits go out with the next block, unless the plug-in sleeps.
    if (p.host_params) p.host_params->request_flush(p.host);
}

void meters(void* context, brisel_ui_meters* meters) {
    const Meters now = static_cast<Plugin*>(context)->reverb.read_meters();
    *meters = {now.input, now.wet, now.output, now.duck};
}

brisel_ui_host host_of_window(Plugin& p) {
    return {
        .context = &p,
        .value = [](void* context,
                    uint32_t id) { return values_of(context).plain(static_cast<Id>(id)); },
        .sounding = [](void* context,
                       uint32_t id) { return values_of(context).sounding(static_cast<Id>(id)); },
        .edit = edit,
        .meters = meters,
        .sample_rate = [](void* context) { return static_cast<Plugin*>(context)->rate; },
        .memory = &p.gui.memory,
    };
}

void stop_watching(Plugin& p) {
    if (p.gui.timer != CLAP_INVALID_ID) p.host_timer->unregister_timer(p.host, p.gui.timer);
    if (p.gui.fd >= 0) p.host_fd->unregister_fd(p.host, p.gui.fd);
    p.gui.timer = CLAP_INVALID_ID;
    p.gui.fd = -1;
}

bool start_watching(Plugin& p) {
    Gui& gui = p.gui;
    if (!p.host_timer->register_timer(p.host, kPeriod, &gui.timer)) {
        gui.timer = CLAP_INVALID_ID;
        return false;
    }
    const int fd = gui.module->connection(gui.ui);
    if (p.host_fd && p.host_fd->register_fd(p.host, fd, CLAP_POSIX_FD_READ | CLAP_POSIX_FD_ERROR))
        gui.fd = fd;
    return true;
}

void close_window(Plugin& p) {
    stop_watching(p);
    if (p.gui.ui) p.gui.module->close(p.gui.ui);
    p.gui.ui = nullptr;
}

void update(Plugin& p) {
    if (!p.gui.ui || p.gui.module->update(p.gui.ui)) return;
    close_window(p);
    if (p.host_gui) p.host_gui->closed(p.host, true);
}

// The extension

bool is_api_supported(const clap_plugin_t* plugin, const char* api, bool is_floating) {
    Plugin& p = self(plugin);
    if (!same_text(api, CLAP_WINDOW_API_X11) || is_floating) return false;
    const bool in_use = p.gui.module;
    const bool supported = take_module(p.gui);
    if (!in_use) release_module(p.gui);
    return supported;
}

bool get_preferred_api(const clap_plugin_t* plugin, const char** api, bool* is_floating) {
    *api = CLAP_WINDOW_API_X11;
    *is_floating = false;
    return is_api_supported(plugin, *api, *is_floating);
}

bool create(const clap_plugin_t* plugin, const char* api, bool is_floating) {
    Plugin& p = self(plugin);
    // The host's time is asked for here and not above: some hosts ask what is supported without
    // offering anything themselves.
    if (p.gui.module || !p.host_timer || !same_text(api, CLAP_WINDOW_API_X11) || is_floating ||
        !take_module(p.gui))
        return false;
    p.gui.scale = 0.0;
    p.gui.module->default_size(p.gui.scale, &p.gui.width, &p.gui.height);
    return true;
}

void destroy(const clap_plugin_t* plugin) {
    Plugin& p = self(plugin);
    close_window(p);
    release_module(p.gui);
}

bool set_scale(const clap_plugin_t* plugin, double scale) {
    Gui& gui = self(plugin).gui;
    if (!gui.module || gui.ui || !(scale > 0.0) || !std::isfinite(scale)) return false;
    gui.scale = scale;
    gui.module->default_size(scale, &gui.width, &gui.height);
    return true;
}

bool get_size(const clap_plugin_t* plugin, uint32_t* width, uint32_t* height) {
    Gui& gui = self(plugin).gui;
    if (!gui.module) return false;
    if (gui.ui) gui.module->size(gui.ui, &gui.width, &gui.height);
    *width = gui.width;
    *height = gui.height;
    return true;
}

bool can_resize(const clap_plugin_t*) {
    return true;
}

bool get_resize_hints(const clap_plugin_t* plugin, clap_gui_resize_hints_t* hints) {
    const Gui& gui = self(plugin).gui;
    if (!gui.module) return false;
    uint32_t width = 0, height = 0;
    gui.module->default_size(1.0, &width, &height);
    *hints = {true, true, true, width, height};
    return true;
}

bool adjust_size(const clap_plugin_t* plugin, uint32_t* width, uint32_t* height) {
    const Gui& gui = self(plugin).gui;
    if (!gui.module) return false;
    gui.module->adjust(width, height);
    return true;
}

bool set_size(const clap_plugin_t* plugin, uint32_t width, uint32_t height) {
    Gui& gui = self(plugin).gui;
    if (!gui.module || width == 0 || height == 0) return false;
    gui.width = width;
    gui.height = height;
    if (gui.ui) gui.module->resize(gui.ui, width, height);
    return true;
}

bool set_parent(const clap_plugin_t* plugin, const clap_window_t* window) {
    Plugin& p = self(plugin);
    Gui& gui = p.gui;
    if (!gui.module || gui.ui || !window || !same_text(window->api, CLAP_WINDOW_API_X11))
        return false;
    gui.host = host_of_window(p);
    gui.ui = gui.module->open(&gui.host, static_cast<uint32_t>(window->x11), gui.scale);
    if (!gui.ui) return false;
    gui.module->resize(gui.ui, gui.width, gui.height);
    if (start_watching(p)) return true;
    close_window(p);
    return false;
}

bool set_transient(const clap_plugin_t*, const clap_window_t*) {
    return false; // of floating windows only
}

void suggest_title(const clap_plugin_t*, const char*) {}

bool show(const clap_plugin_t* plugin) {
    Plugin& p = self(plugin);
    if (!p.gui.ui) return false;
    p.gui.module->show(p.gui.ui);
    update(p);
    return true;
}

bool hide(const clap_plugin_t* plugin) {
    Gui& gui = self(plugin).gui;
    if (!gui.ui) return false;
    gui.module->hide(gui.ui);
    return true;
}

void on_timer(const clap_plugin_t* plugin, clap_id timer) {
    Plugin& p = self(plugin);
    if (timer == p.gui.timer) update(p);
}

void on_fd(const clap_plugin_t* plugin, int fd, clap_posix_fd_flags_t) {
    Plugin& p = self(plugin);
    if (fd == p.gui.fd) update(p);
}

} // namespace

constexpr clap_plugin_gui_t kGui = {
    .is_api_supported = is_api_supported,
    .get_preferred_api = get_preferred_api,
    .create = create,
    .destroy = destroy,
    .set_scale = set_scale,
    .get_size = get_size,
    .can_resize = can_resize,
    .get_resize_hints = get_resize_hints,
    .adjust_size = adjust_size,
    .set_size = set_size,
    .set_parent = set_parent,
    .set_transient = set_transient,
    .suggest_title = suggest_title,
    .show = show,
    .hide = hide,
};

constexpr clap_plugin_timer_support_t kTimerSupport = {on_timer};
constexpr clap_plugin_posix_fd_support_t kPosixFdSupport = {on_fd};

} // namespace brisel::live::clap
