// The window as LV2 hosts ask for it: ui:X11UI with the idle interface. The plug-in is at the other
// end of its ports; values and meters are what the host last told of them.
#include <lv2/atom/atom.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/ui/ui.h>
#include <lv2/urid/urid.h>

#include <bit>
#include <cmath>
#include <cstring>

#include "live/lv2/ports.h"
#include "live/ui/window.h"

namespace brisel::live::ui {

namespace {

// What hosts offer, by URI.
struct Features {
    explicit Features(const LV2_Feature* const* features) {
        for (; features && *features; ++features) {
            const auto is = [uri = (*features)->URI](const char* name) {
                return std::strcmp(uri, name) == 0;
            };
            void* const data = (*features)->data;
            if (is(LV2_UI__parent)) parent = data;
            if (is(LV2_UI__resize)) resize = static_cast<const LV2UI_Resize*>(data);
            if (is(LV2_UI__touch)) touch = static_cast<const LV2UI_Touch*>(data);
            if (is(LV2_URID__map)) map = static_cast<const LV2_URID_Map*>(data);
            if (is(LV2_OPTIONS__options)) options = static_cast<const LV2_Options_Option*>(data);
        }
    }

    // A number among the options; 0 where it is not.
    double option(const char* uri) const {
        if (!map) return 0.0;
        const LV2_URID key = map->map(map->handle, uri);
        const LV2_URID number = map->map(map->handle, LV2_ATOM__Float);
        for (const LV2_Options_Option* o = options; o && o->key != 0; ++o)
            if (o->key == key && o->type == number && o->size == sizeof(float))
                return static_cast<double>(*static_cast<const float*>(o->value));
        return 0.0;
    }

    const void* parent = nullptr; // the X window's id
    const LV2UI_Resize* resize = nullptr;
    const LV2UI_Touch* touch = nullptr;
    const LV2_URID_Map* map = nullptr;
    const LV2_Options_Option* options = nullptr;
};

class Lv2Window {
public:
    Lv2Window(bool mono, LV2UI_Write_Function write, LV2UI_Controller controller,
              const Features& features)
        : mono_(mono), write_(write), controller_(controller), features_(features),
          rate_(features.option(LV2_PARAMETERS__sampleRate)) {}

    bool open(LV2UI_Widget* widget) {
        const auto parent = reinterpret_cast<uintptr_t>(features_.parent);
        window_ = Window::open(host_, static_cast<uint32_t>(parent),
                               features_.option(LV2_UI__scaleFactor));
        if (!window_) return false;
        window_->show();
        if (features_.resize)
            features_.resize->ui_resize(features_.resize->handle, int(window_->width()),
                                        int(window_->height()));
        *widget = std::bit_cast<LV2UI_Widget>(uintptr_t{window_->id()});
        return true;
    }

    void take(uint32_t index, float number) {
        const uint32_t port = lv2::port_at(index, mono_);
        if (std::isnan(number) || port >= lv2::kPorts) return;
        if (port >= lv2::kFirstParameter) {
            const Id id = static_cast<Id>(port - lv2::kFirstParameter);
            values_[id] = lv2::from_port(id, number);
        }
        const auto linear = [](float decibels) { return std::pow(10.0f, decibels / 20.0f); };
        if (port == lv2::kInputLevel) meters_.input = linear(number);
        if (port == lv2::kWetLevel) meters_.wet = linear(number);
        if (port == lv2::kOutputLevel) meters_.output = linear(number);
        if (port == lv2::kDucking) meters_.duck = linear(-number);
    }

    Window& window() { return *window_; }

private:
    static Lv2Window& self(void* context) { return *static_cast<Lv2Window*>(context); }

    void edit(int kind, Id id, double value) {
        const uint32_t index = lv2::index_of(uint32_t{lv2::kFirstParameter} + id, mono_);
        if (kind == BRISEL_UI_VALUE) {
            values_[id] = value;
            const float number = lv2::to_port(id, value);
            write_(controller_, index, sizeof number, 0, &number);
        } else if (const LV2UI_Touch* touch = features_.touch)
            touch->touch(touch->handle, index, kind == BRISEL_UI_BEGIN);
    }

    const bool mono_;
    const LV2UI_Write_Function write_;
    const LV2UI_Controller controller_;
    const Features features_;
    const double rate_; // Hz; 0 where the host does not tell
    Settings values_ = default_settings();
    brisel_ui_meters meters_ = {0, 0, 0, 1};
    uint32_t memory_ = 0;
    const brisel_ui_host host_ = {
        .context = this,
        .value = [](void* context, uint32_t id) { return self(context).values_[id]; },
        .sounding = [](void* context, uint32_t id) { return self(context).values_[id]; },
        .edit = [](void* context, int kind, uint32_t id,
                   double value) { self(context).edit(kind, static_cast<Id>(id), value); },
        .meters = [](void* context, brisel_ui_meters* meters) { *meters = self(context).meters_; },
        .sample_rate = [](void* context) { return self(context).rate_; },
        .memory = &memory_,
    };
    std::unique_ptr<Window> window_;
};

Lv2Window& self(LV2UI_Handle handle) {
    return *static_cast<Lv2Window*>(handle);
}

LV2UI_Handle instantiate(const LV2UI_Descriptor*, const char* plugin, const char*,
                         LV2UI_Write_Function write, LV2UI_Controller controller,
                         LV2UI_Widget* widget, const LV2_Feature* const* offered) {
    const Features features(offered);
    if (!features.parent) return nullptr;
    auto window = std::make_unique<Lv2Window>(std::strcmp(plugin, lv2::kMonoUri) == 0, write,
                                              controller, features);
    return window->open(widget) ? window.release() : nullptr;
}

// Once the window has gone, hosts are told so.
constexpr LV2UI_Idle_Interface kIdle = {
    [](LV2UI_Handle handle) { return self(handle).window().update() ? 0 : 1; }};

constexpr LV2UI_Resize kResize = {nullptr, [](LV2UI_Feature_Handle handle, int width, int height) {
                                      if (width < 1 || height < 1) return 1;
                                      self(handle).window().resize(uint32_t(width),
                                                                   uint32_t(height));
                                      return 0;
                                  }};

constexpr LV2UI_Descriptor kDescriptor = {
    lv2::kWindowUri, instantiate, [](LV2UI_Handle handle) { delete &self(handle); },
    [](LV2UI_Handle handle, uint32_t index, uint32_t size, uint32_t format, const void* buffer) {
        if (format == 0 && size == sizeof(float))
            self(handle).take(index, *static_cast<const float*>(buffer));
    },
    [](const char* uri) -> const void* {
        if (std::strcmp(uri, LV2_UI__idleInterface) == 0) return &kIdle;
        if (std::strcmp(uri, LV2_UI__resize) == 0) return &kResize;
        return nullptr;
    }};

} // namespace

} // namespace brisel::live::ui

LV2_SYMBOL_EXPORT const LV2UI_Descriptor* lv2ui_descriptor(uint32_t index) {
    return index == 0 ? &brisel::live::ui::kDescriptor : nullptr;
}
