// The module's entry: the window behind the C interface of module.h.
#include "live/ui/window.h"

struct brisel_ui {
    std::unique_ptr<brisel::live::ui::Window> window;
};

namespace {

using brisel::live::ui::Window;

constexpr brisel_ui_module kModule = {
    .available = Window::available,
    .open = [](const brisel_ui_host* host, uint32_t parent, double scale) -> brisel_ui* {
        auto window = Window::open(*host, parent, scale);
        return window ? new brisel_ui{std::move(window)} : nullptr;
    },
    .close = [](brisel_ui* ui) { delete ui; },
    .show = [](brisel_ui* ui) { ui->window->show(); },
    .hide = [](brisel_ui* ui) { ui->window->hide(); },
    .update = [](brisel_ui* ui) { return ui->window->update(); },
    .connection = [](const brisel_ui* ui) { return ui->window->connection(); },
    .window = [](const brisel_ui* ui) { return ui->window->id(); },
    .size =
        [](const brisel_ui* ui, uint32_t* width, uint32_t* height) {
            *width = ui->window->width();
            *height = ui->window->height();
        },
    .resize = [](brisel_ui* ui, uint32_t width,
                 uint32_t height) { ui->window->resize(width, height); },
    .default_size = Window::default_size,
    .adjust = Window::adjust,
};

} // namespace

extern "C" __attribute__((visibility("default"))) const brisel_ui_module*
brisel_live_ui(uint32_t version) {
    return version == BRISEL_UI_VERSION ? &kModule : nullptr;
}
