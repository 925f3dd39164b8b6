#include "live/ui/view.h"

#include <algorithm>
#include <cmath>

namespace brisel::live::ui {

namespace {

constexpr double kPixelsForAll = 180.0; // a knob's whole way
constexpr double kFine = 0.1;
constexpr double kWheelStep = 0.02, kKeyStep = 0.01, kPageStep = 0.1;     // of a knob's whole way
constexpr uint32_t kDoubleClick = 400, kTipDelay = 700, kClearHold = 100; // ms
constexpr size_t kLongestTyped = 16;
constexpr double kMeterFall = 0.85; // per refresh

// What the response does not depend on.
constexpr ParameterMask kNotInResponse = bit_of(kMix) | bit_of(kDuck) | bit_of(kDuckRelease) |
                                         bit_of(kFreeze) | bit_of(kClear) | bit_of(kBypass);

} // namespace

View::View(const brisel_ui_host& host) : model_(host), items_(make_items()) {
    move_nodes();
}

View::~View() {
    release();
    cairo_region_destroy(damage_);
}

void View::resize(int width, int height) {
    scale_ = std::min(width / kViewWidth, height / kViewHeight);
    left_ = std::floor((width - kViewWidth * scale_) / 2);
    top_ = std::floor((height - kViewHeight * scale_) / 2);
    const cairo_rectangle_int_t all = {0, 0, width, height};
    cairo_region_union_rectangle(damage_, &all);
}

void View::release() {
    end_drag();
    stop_typing(false);
    open_menu(false);
    hover(kNothing, time_);
    if (clearing_) {
        model_.set(kClear, 0.0);
        model_.end(kClear);
        clearing_ = false;
    }
}

// What changes

void View::damage(const Rect& rect) {
    const double x = left_ + rect.x * scale_, y = top_ + rect.y * scale_;
    const int from_x = static_cast<int>(std::floor(x)) - 1;
    const int from_y = static_cast<int>(std::floor(y)) - 1;
    const cairo_rectangle_int_t pixels = {
        from_x, from_y, static_cast<int>(std::ceil(x + rect.w * scale_)) + 1 - from_x,
        static_cast<int>(std::ceil(y + rect.h * scale_)) + 1 - from_y};
    cairo_region_union_rectangle(damage_, &pixels);
}

void View::damage_item(int item) {
    if (item != kNothing) damage(items_[size_t(item)].area.grown(2));
}

void View::move_nodes() {
    for (Item& item : items_)
        if (item.kind == Kind::kNode) {
            const Point at = node_point(item.id, model_.settings(), model_.sample_rate());
            item.area = Rect{at.x, at.y, 0, 0}.grown(8);
        }
}

void View::refresh(uint32_t time) {
    time_ = time;
    if (clearing_ && time - clear_since_ >= kClearHold) {
        model_.set(kClear, 0.0);
        model_.end(kClear);
        clearing_ = false;
    }
    if (const ParameterMask changed = model_.refresh()) {
        for (const Item& item : items_)
            if (item.id != kParameters && changed >> item.id & 1) damage(item.area.grown(2));
        damage(items_[1].area); // the preset's name
        if (changed & ~kNotInResponse) {
            response_stale_ = true;
            move_nodes();
            damage(kCurvePanel);
        }
    }
    if (response_stale_) {
        response_shown_ = response_.measure(model_.settings(), model_.sample_rate());
        response_stale_ = false;
        damage(kBuildUpPanel);
        damage(kDecayPanel);
    }
    refresh_meters();
    if (!tip_spent_ && hover_ != kNothing && dragged_ == kNothing && !typing_ &&
        time - hover_since_ >= kTipDelay && *help_of(items_[size_t(hover_)])) {
        tip_spent_ = tip_shown_ = true;
        damage(tip_area());
    }
}

void View::refresh_meters() {
    const brisel_ui_meters now = model_.meters();
    brisel_ui_meters next = shown_;
    const auto follow = [](float& shown, float peak) {
        shown = std::max(peak, shown * float(kMeterFall));
        if (!(shown > 1e-4f)) shown = 0.0f; // -80 dB; NaN, too
    };
    follow(next.input, now.input);
    follow(next.wet, now.wet);
    follow(next.output, now.output);
    next.duck = now.duck;
    if (next.input == shown_.input && next.wet == shown_.wet && next.output == shown_.output &&
        next.duck == shown_.duck)
        return;
    shown_ = next;
    damage(kMeterPanel);
}

// Where the pointer is

int View::item_at(Point point) const {
    for (int i = static_cast<int>(items_.size()); i-- > 0;)
        if (items_[size_t(i)].kind == Kind::kNode &&
            items_[size_t(i)].area.contains(point.x, point.y))
            return i;
    for (int i = 0; i < static_cast<int>(items_.size()); ++i)
        if (items_[size_t(i)].area.contains(point.x, point.y)) return i;
    return kNothing;
}

void View::hover(int item, uint32_t time) {
    if (item == hover_) return;
    if (tip_shown_) damage(tip_area());
    tip_shown_ = tip_spent_ = false;
    damage_item(hover_);
    damage_item(item);
    hover_ = item;
    hover_since_ = time;
}

void View::focus(int item) {
    if (item == focus_) return;
    damage_item(focus_);
    damage_item(item);
    focus_ = item;
}

void View::pointer(const PointerEvent& event) {
    const Point point = {(event.x - left_) / scale_, (event.y - top_) / scale_};
    switch (event.kind) {
    case PointerEvent::Kind::kMove:
        if (dragged_ != kNothing)
            drag(point, event.fine);
        else if (menu_.is_open()) {
            if (menu_.light(menu_.entry_at(point.x, point.y))) damage(kMenu);
        } else
            hover(item_at(point), event.time);
        break;
    case PointerEvent::Kind::kPress:
        press(point, event);
        break;
    case PointerEvent::Kind::kRelease:
        end_drag();
        break;
    case PointerEvent::Kind::kScroll:
        if (menu_.is_open() || typing_ || dragged_ != kNothing) break;
        if (const int item = item_at(point); item != kNothing) {
            if (items_[size_t(item)].kind == Kind::kPreset)
                model_.step_preset(event.steps > 0 ? -1 : 1);
            else
                nudge(items_[size_t(item)], event.steps * kWheelStep, event.fine);
        }
        break;
    case PointerEvent::Kind::kLeave:
        if (dragged_ == kNothing) hover(kNothing, event.time);
        break;
    }
}

void View::press(Point point, const PointerEvent& event) {
    if (tip_shown_) damage(tip_area());
    tip_shown_ = false;
    tip_spent_ = true;
    end_drag();
    stop_typing(true);
    stop_typing(false); // what was refused
    focus_shown_ = false;
    if (menu_.is_open()) return choose_preset(menu_.entry_at(point.x, point.y));
    const int index = item_at(point);
    focus(index);
    if (index == kNothing) return;
    const Item& item = items_[size_t(index)];
    const bool twice = index == last_pressed_ && event.time - last_press_ <= kDoubleClick;
    last_pressed_ = twice ? kNothing : index;
    last_press_ = event.time;
    if (!item.turns()) return activate(index);
    if (event.reset || (twice && item.kind == Kind::kNode)) return back_to_default(item);
    if (twice) return start_typing(index);
    dragged_ = index;
    drag_point_ = point;
    drag_position_ = to_position(parameters()[item.id], model_.value(item.id));
    drag_node_ = {item.area.middle_x(), item.area.middle_y()};
    model_.begin(item.id);
}

void View::drag(Point point, bool fine) {
    const Item& item = items_[size_t(dragged_)];
    const double share = fine ? kFine : 1.0;
    const double dx = (point.x - drag_point_.x) * share, dy = (point.y - drag_point_.y) * share;
    drag_point_ = point;
    if (item.kind == Kind::kNode) {
        drag_node_ = {drag_node_.x + dx, drag_node_.y + dy};
        model_.set(item.id,
                   node_value(item.id, model_.settings(), model_.sample_rate(), drag_node_));
    } else {
        drag_position_ = std::clamp(drag_position_ - dy / kPixelsForAll, 0.0, 1.0);
        model_.set(item.id, from_position(parameters()[item.id], drag_position_));
    }
}

void View::end_drag() {
    if (dragged_ == kNothing) return;
    model_.end(items_[size_t(dragged_)].id);
    damage_item(dragged_);
    dragged_ = kNothing;
}

// What a click or a key does

void View::nudge(const Item& item, double steps, bool fine) {
    if (item.id == kParameters || item.kind == Kind::kButton) return;
    const Parameter& parameter = parameters()[item.id];
    const double value = model_.value(item.id);
    if (parameter.stepped())
        model_.choose(item.id, value + (steps > 0 ? 1.0 : -1.0));
    else
        model_.choose(item.id, from_position(parameter, to_position(parameter, value) +
                                                            steps * (fine ? kFine : 1.0)));
}

void View::back_to_default(const Item& item) {
    if (item.id != kParameters) model_.choose(item.id, parameters()[item.id].initial);
}

void View::activate(int index) {
    const Item& item = items_[size_t(index)];
    switch (item.kind) {
    case Kind::kPrevious:
        model_.step_preset(-1);
        break;
    case Kind::kNext:
        model_.step_preset(1);
        break;
    case Kind::kPreset:
        open_menu(true);
        break;
    case Kind::kLock:
        model_.toggle_mix_lock();
        damage(kMenu);
        damage({0, 0, kViewWidth, kMenu.y});
        break;
    case Kind::kNode:
    case Kind::kKnob:
        start_typing(index);
        break;
    case Kind::kButton:
    case Kind::kSwitch:
        if (item.id != kClear) {
            model_.choose(item.id, model_.value(item.id) > 0.5 ? 0.0 : 1.0);
        } else if (!clearing_) { // refresh() ends it
            clearing_ = true;
            clear_since_ = time_;
            model_.begin(kClear);
            model_.set(kClear, 1.0);
        }
    }
}

bool View::key(Key key, char character, bool fine) {
    if (dragged_ != kNothing) return false;
    if (menu_.is_open()) return menu_key(key);
    if (typing_) return typing_key(key, character);
    const int count = static_cast<int>(items_.size());
    if (key == Key::kTab || key == Key::kBackTab) {
        const int from = focus_ == kNothing && key == Key::kBackTab ? 0 : focus_;
        focus((from + (key == Key::kTab ? 1 : -1) + count) % count);
        focus_shown_ = true;
        return true;
    }
    if (focus_ == kNothing) return false;
    const Item& item = items_[size_t(focus_)];
    focus_shown_ = true;
    damage_item(focus_);
    if (key == Key::kEnter) return activate(focus_), true;
    if (key == Key::kEscape) return focus(kNothing), true;
    if (item.id == kParameters || item.kind == Kind::kButton) return false;
    switch (key) {
    case Key::kUp:
    case Key::kRight:
        return nudge(item, kKeyStep, fine), true;
    case Key::kDown:
    case Key::kLeft:
        return nudge(item, -kKeyStep, fine), true;
    case Key::kPageUp:
        return nudge(item, kPageStep, fine), true;
    case Key::kPageDown:
        return nudge(item, -kPageStep, fine), true;
    case Key::kHome:
        return model_.choose(item.id, parameters()[item.id].least), true;
    case Key::kEnd:
        return model_.choose(item.id, parameters()[item.id].most), true;
    case Key::kBackspace:
    case Key::kDelete:
        return back_to_default(item), true;
    default:
        break;
    }
    // A number begins to be typed; other characters, the space of hosts' transports above all, are
    // not ours.
    if (!item.turns() || !((character >= '0' && character <= '9') || character == '-' ||
                           character == '+' || character == '.'))
        return false;
    start_typing(focus_);
    return typing_key(key, character);
}

// Typing a value

void View::start_typing(int index) {
    focus(index);
    const Item& item = items_[size_t(index)];
    char text[kLongestText];
    typed_ = to_text(parameters()[item.id], model_.value(item.id), text);
    typing_ = typed_fresh_ = true;
    refused_ = false;
    damage_all();
}

bool View::typing_key(Key key, char character) {
    damage_all();
    switch (key) {
    case Key::kEnter:
        stop_typing(true);
        break;
    case Key::kEscape:
        stop_typing(false);
        break;
    case Key::kBackspace:
    case Key::kDelete:
        if (typed_fresh_) typed_.clear();
        if (!typed_.empty()) typed_.pop_back();
        typed_fresh_ = refused_ = false;
        break;
    case Key::kCharacter:
        if (typed_fresh_) typed_.clear();
        if (typed_.size() < kLongestTyped && character >= ' ' && character <= '~')
            typed_ += character;
        typed_fresh_ = refused_ = false;
        break;
    default:
        return false;
    }
    return true;
}

// A text that is no value is refused, and stays to be corrected.
void View::stop_typing(bool take) {
    if (!typing_) return;
    damage_all();
    const Item& item = items_[size_t(focus_)];
    if (take && !typed_fresh_) {
        const auto value = from_text(parameters()[item.id], typed_);
        refused_ = !value;
        if (!value) return;
        model_.choose(item.id, *value);
    }
    typing_ = refused_ = false;
}

// Presets

void View::open_menu(bool open) {
    if (open == menu_.is_open()) return;
    damage_all();
    hover(kNothing, time_);
    if (open)
        menu_.open(model_);
    else
        menu_.close();
}

void View::choose_preset(int entry) {
    open_menu(false);
    if (entry != Menu::kNothing) model_.load_preset(entry);
}

bool View::menu_key(Key key) {
    damage(kMenu);
    switch (key) {
    case Key::kUp:
        return menu_.step(-1), true;
    case Key::kDown:
        return menu_.step(1), true;
    case Key::kPageUp:
    case Key::kLeft:
        return menu_.step(-10), true;
    case Key::kPageDown:
    case Key::kRight:
        return menu_.step(10), true;
    case Key::kEnter:
        return choose_preset(menu_.lit()), true;
    case Key::kEscape:
        return open_menu(false), true;
    default:
        return false;
    }
}

} // namespace brisel::live::ui
