// The order of things in a tile, the two networks and what goes into and comes out of them. The
// network itself is in network.cpp, what moves its lines in taps.cpp, its decay in loop_decay.cpp,
// the gains between all of them in late_gains.cpp.
#include "live/engine/late.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numbers>

#include "live/engine/diffuser.h"
#include "live/engine/late_gains.h"
#include "live/engine/loop_decay.h"
#include "live/engine/network.h"
#include "live/engine/taps.h"

namespace brisel::live {

namespace {

constexpr float kSilence = 1e-7f; // a network whose outputs stay below that has rung out

} // namespace

// Tiles are run in slices. What must not depend on how a host cuts its blocks happens at the start
// of a slice that ends before the next such event, or, if it can wait, at knots, multiples of
// kKnot.
struct Late::State {
    bool prepare(double rate);
    void reset();
    void set(const LateSettings& settings);
    void run(const float* const in[2], float* const out[2], uint32_t frames);
    void run_ahead(float* const out[2]);
    void inject(const float* const in[2], uint32_t from, uint32_t to);
    uint64_t longest_path() const;

private:
    DecayTimes target_times() const;
    double mean_loop() const;
    double early_level() const;
    bool waits_for_knots() const {
        return glide_.moving() || gains_.diffusion_moving() || second_ ||
               settings_.stages != first().stages();
    }
    uint32_t slice_limit() const;
    void begin();
    void at_knot();
    void choose_network();
    void scale(const float* const in[2], const Slice& gain, uint32_t from, uint32_t count);
    void step(const float* const in[2], float* const out[2], uint32_t frames, bool ahead);
    void write_diffuser(const float* const in[2], uint32_t from, uint32_t count);
    void run_network(size_t k, const float* const in[2], float* const out[2], uint32_t frames,
                     bool ahead);
    void inject_into(size_t k, const float* const in[2], uint32_t frames, uint32_t from,
                     uint32_t count);
    void add_second(float* const out[2], uint32_t frames);

    // The network that takes the input, k = 0, and the other one.
    Network& network(size_t k) { return networks_[k ^ active_]; }
    const Network& network(size_t k) const { return networks_[k ^ active_]; }
    Network& first() { return network(0); }
    const Network& first() const { return network(0); }
    Network& other() { return network(1); }
    const Network& other() const { return network(1); }

    double rate_ = 0.0;
    uint64_t clock_ = 0; // frames since the reset
    LateSettings settings_;
    Taps taps_;
    DecayGlide glide_;
    std::array<Network, 2> networks_;
    Diffuser diffuser_;

    LateGains gains_;

    size_t active_ = 0;         // of networks_
    bool second_ = false;       // the other one still rings
    uint32_t second_quiet_ = 0; // frames for which it has been silent
    float second_peak_ = 0.0f;  // since the last knot
    bool diffusing_ = false;
    bool plain_ = false; // in the present slice all gains are 1 and there is nothing to add

    alignas(32) Slice scaled_[2]{}, y_[2]{};
    alignas(32) Slice zeros_{};
    Diffuser::Rows rows_{};
};

bool Late::State::prepare(double rate) {
    rate_ = rate;
    taps_.prepare(rate);
    glide_.prepare(rate);
    gains_.prepare(rate);
    for (Network& network : networks_)
        if (!network.prepare(rate, taps_)) return false;
    if (!diffuser_.prepare(rate)) return false;
    reset();
    return true;
}

void Late::State::reset() {
    clock_ = 0;
    taps_.reset(settings_);
    second_ = false;
    set(settings_);
    active_ = 0;
    glide_.jump(target_times());
    first().start(settings_.stages, taps_, glide_);
    gains_.snap();
    diffusing_ = false;
}

void Late::State::set(const LateSettings& settings) {
    settings_ = settings;
    taps_.set(settings);
    glide_.aim(target_times(), mean_loop());
    gains_.aim(settings.freeze, settings.diffusion, early_level());
    if (!diffusing_) gains_.snap_early_level();
}

// The outputs behind the last stage lack what passes the filters for the first time. Steady white
// noise has the power sum over k >= 0 of g^2k in the lines' outputs and of g^2k, k >= 1, behind
// them, g^2 the power gain of a trip. With 1 / g^2 = 1 / low^2 + (1 / high^2 - 1 / low^2)
// sin^2(w / 2) the means over w are 1 + m and m, m = ((1 / low^2 - 1) (1 / high^2 - 1))^-1/2.
double Late::State::early_level() const {
    constexpr double kMost = 4.0;
    const DecayTimes times = target_times();
    const auto loss = [&](double time) {
        return std::expm1(6.0 * std::numbers::ln10 * mean_loop() / time); // 1 / g^2 - 1
    };
    return std::min(std::sqrt(1.0 + std::sqrt(loss(times.low) * loss(times.high))), kMost);
}

// Seconds; of the settings' size and stages.
double Late::State::mean_loop() const {
    double stages = 0.0;
    for (int s = 0, spacing = 1; s < settings_.stages; ++s, spacing *= 16) stages += 7.5 * spacing;
    constexpr double kMeanRatio = 1.243; // of the lines to the shortest one
    return kMeanRatio * settings_.size + stages / rate_;
}

DecayTimes Late::State::target_times() const {
    constexpr double kNever = std::numeric_limits<double>::infinity();
    if (settings_.freeze) return {kNever, kNever};
    // As the exact reverb rounds them.
    const auto decay = static_cast<float>(settings_.decay);
    const auto damp = static_cast<float>(settings_.damp);
    return {decay, damp > 0.0f ? std::pow(0.1f, damp) * decay : decay};
}

uint32_t Late::State::slice_limit() const {
    uint32_t limit = taps_.slice_limit();
    if (gains_.moving()) limit = std::min(limit, kMovingSlice);
    if (waits_for_knots()) limit = std::min(limit, kKnot - static_cast<uint32_t>(clock_ % kKnot));
    return limit;
}

// At the start of a slice.
void Late::State::begin() {
    if (clock_ % kKnot == 0 && waits_for_knots()) at_knot();
    if (!diffusing_ && gains_.wants_diffusion()) {
        diffusing_ = true;
        diffuser_.start(settings_.size);
        gains_.fade_in_diffuser();
    }
    if (!taps_.begin()) return;
    first().start_resize(taps_, glide_);
    if (second_) other().start_resize(taps_, glide_);
    diffuser_.start_resize(settings_.size);
}

void Late::State::at_knot() {
    if (glide_.moving()) {
        glide_.step();
        first().step_decay(glide_);
        if (second_) other().step_decay(glide_);
    }
    if (!gains_.wants_diffusion() && !gains_.diffusion_moving()) diffusing_ = false;
    if (second_) {
        second_quiet_ = second_peak_ < kSilence ? second_quiet_ + kKnot : 0;
        second_peak_ = 0.0f;
        if (second_quiet_ > longest_path() || gains_.faded_out()) second_ = false;
    }
    choose_network();
}

// Hands the input over to a network with as many stages as are set, as soon as there is one.
void Late::State::choose_network() {
    if (settings_.stages == first().stages() || gains_.handing_over()) return;
    if (second_ && (gains_.fading_out() || other().stages() != settings_.stages)) {
        gains_.fade_out_second();
        return;
    }
    if (!second_) other().start(settings_.stages, taps_, glide_);
    active_ = 1 - active_;
    second_ = true;
    second_quiet_ = 0;
    second_peak_ = 0.0f;
    gains_.hand_over();
}

// The products are never -0, which would let two ways of adding nothing differ.
void Late::State::scale(const float* const in[2], const Slice& gain, uint32_t from,
                        uint32_t count) {
    for (size_t c = 0; c < 2; ++c) {
        const float* x = in[c];
        const float* g = gain.data() + from;
        float* y = scaled_[c].data();
        for (uint32_t t = 0; t < count; ++t) y[t] = x[t] * g[t] + 0.0f;
    }
}

void Late::State::step(const float* const in[2], float* const out[2], uint32_t frames, bool ahead) {
    taps_.plan(frames);
    plain_ = !gains_.moving() && gains_.heard() && !second_ && !diffusing_;
    if (plain_) {
        const auto knot = static_cast<uint32_t>(clock_ % kKnot);
        first().run(taps_, glide_, knot, in, out, frames);
    } else {
        gains_.find(frames);
        if (diffusing_) {
            diffuser_.begin(frames);
            if (!ahead) write_diffuser(in, 0, frames);
            diffuser_.run(rows_, taps_.resize());
        }
        run_network(0, in, out, frames, ahead);
        if (second_) {
            float* const y[2] = {y_[0].data(), y_[1].data()};
            run_network(1, in, y, frames, ahead);
            add_second(out, frames);
        }
    }
    clock_ += frames;
    if (!taps_.advance(frames)) return;
    first().finish_resize();
    if (second_) other().finish_resize();
    diffuser_.finish_resize();
}

void Late::State::write_diffuser(const float* const in[2], uint32_t from, uint32_t count) {
    if (gains_.steady() && gains_.feed[0] == 1.0f) {
        diffuser_.write(in, from, count);
        return;
    }
    const float* const x[2] = {scaled_[0].data(), scaled_[1].data()};
    scale(in, gains_.feed, from, count);
    diffuser_.write(x, from, count);
}

// One network with its share of the inputs and of the diffuser's rows. The outputs behind the last
// stage are to be without these: where they are needed, the lines get their inputs later.
void Late::State::run_network(size_t k, const float* const in[2], float* const out[2],
                              uint32_t frames, bool ahead) {
    const auto knot = static_cast<uint32_t>(clock_ % kKnot);
    const float* const silence[2] = {zeros_.data(), zeros_.data()};
    if (!diffusing_) {
        const float* const x[2] = {scaled_[0].data(), scaled_[1].data()};
        if (!ahead) scale(in, gains_.inputs[k], 0, frames);
        network(k).run(taps_, glide_, knot, ahead ? silence : x, out, frames);
        return;
    }
    network(k).run(taps_, glide_, knot, silence, out, frames);
    network(k).mix_early_outputs(out, gains_.near.data(), gains_.early.data(), frames);
    if (!ahead) inject_into(k, in, frames, 0, frames);
}

// What run_network() leaves to be done when the inputs are there, of frames
// from .. from + count - 1.
void Late::State::inject_into(size_t k, const float* const in[2], uint32_t frames, uint32_t from,
                              uint32_t count) {
    if (!gains_.steady() || gains_.inputs[k][0] != 0.0f) {
        const float* const x[2] = {scaled_[0].data(), scaled_[1].data()};
        scale(in, gains_.inputs[k], from, count);
        network(k).inject(x, frames, from, count);
    }
    if (diffusing_) network(k).inject_rows(rows_, gains_.rows[k].data(), frames, from, count);
}

void Late::State::add_second(float* const out[2], uint32_t frames) {
    for (size_t c = 0; c < 2; ++c)
        for (uint32_t t = 0; t < frames; ++t) {
            const float y = gains_.second[t] * y_[c][t];
            out[c][t] += y;
            second_peak_ = std::max(second_peak_, std::fabs(y));
        }
}

void Late::State::run(const float* const in[2], float* const out[2], uint32_t frames) {
    for (uint32_t t = 0; t < frames;) {
        begin();
        const uint32_t slice = std::min(frames - t, slice_limit());
        const float* const from[2] = {in[0] + t, in[1] + t};
        float* const to[2] = {out[0] + t, out[1] + t};
        step(from, to, slice, false);
        t += slice;
    }
}

void Late::State::run_ahead(float* const out[2]) {
    const float* const silence[2] = {zeros_.data(), zeros_.data()};
    begin();
    step(silence, out, kTile, true);
}

void Late::State::inject(const float* const in[2], uint32_t from, uint32_t to) {
    const uint32_t count = to - from;
    if (plain_) {
        first().inject(in, kTile, from, count);
        return;
    }
    if (diffusing_) write_diffuser(in, from, count);
    inject_into(0, in, kTile, from, count);
    if (second_) inject_into(1, in, kTile, from, count);
}

uint64_t Late::State::longest_path() const {
    uint64_t frames = taps_.longest() + first().stage_frames() + kLongestSlice;
    if (second_) frames += other().stage_frames();
    if (diffusing_) frames += diffuser_.longest_path();
    return frames;
}

Late::Late() : state_(new (std::nothrow) State) {}
Late::~Late() = default;

bool Late::prepare(double rate) {
    return state_ && state_->prepare(rate);
}
void Late::reset() {
    state_->reset();
}
void Late::set(const LateSettings& settings) {
    state_->set(settings);
}
void Late::run(const float* const in[2], float* const out[2], uint32_t frames) {
    state_->run(in, out, frames);
}
void Late::run_ahead(float* const out[2]) {
    state_->run_ahead(out);
}
void Late::inject(const float* const in[2], uint32_t from, uint32_t to) {
    state_->inject(in, from, to);
}
uint64_t Late::longest_path() const {
    return state_->longest_path();
}

} // namespace brisel::live
