// Draws the window as documentation shows it: with a preset, and while it sounds.
//
// usage: picture PRESET SCALE FILE.png     PRESET: the key of one in the program, "halls/hall"
#include <cstdio>
#include <cstdlib>

#include "live/ui/view.h"

using namespace brisel::live;

int main(int argc, char** argv) {
    const FactoryPreset* const found = argc == 4 ? find_factory_preset(argv[1]) : nullptr;
    const double scale = argc == 4 ? std::atof(argv[2]) : 0.0;
    Preset preset;
    if (!found || !read_preset(found->text, preset) || scale < 0.5 || scale > 4.0) {
        std::fputs("usage: picture PRESET SCALE FILE.png\n", stderr);
        return 2;
    }
    uint32_t memory = 0;
    const brisel_ui_host host = {
        .context = &preset.settings,
        .value = [](void* s, uint32_t id) { return (*static_cast<Settings*>(s))[id]; },
        .sounding = [](void* s, uint32_t id) { return (*static_cast<Settings*>(s))[id]; },
        .edit = [](void*, int, uint32_t, double) {},
        .meters =
            [](void*, brisel_ui_meters* m) {
                *m = {0.35f, 0.12f, 0.38f, 1.0f};
            },
        .sample_rate = [](void*) { return 48000.0; },
        .memory = &memory};
    ui::View view(host);
    const int width = static_cast<int>(ui::kViewWidth * scale);
    const int height = static_cast<int>(ui::kViewHeight * scale);
    view.resize(width, height);
    view.refresh(0);
    cairo_surface_t* const image = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    cairo_t* const cr = cairo_create(image);
    view.draw(cr);
    cairo_destroy(cr);
    const cairo_status_t status = cairo_surface_write_to_png(image, argv[3]);
    cairo_surface_destroy(image);
    if (status != CAIRO_STATUS_SUCCESS) std::perror(argv[3]);
    return status == CAIRO_STATUS_SUCCESS ? 0 : 1;
}
