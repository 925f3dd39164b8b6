// The order of things in a tile, the two networks and what goes into and comes out of them. The network
// itself is in network.cpp, what moves its lines in taps.cpp, its decay in loop_decay.cpp.
#include "live/engine/late.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numbers>

#include "live/engine/diffuser.h"
#include "live/engine/loop_decay.h"
#include "live/engine/motion.h"
#include "live/engine/network.h"
#include "live/engine/taps.h"

namespace brisel::live {

namespace {

// Time constants of each of two one-poles, seconds.
constexpr double kMuteSeconds = 0.01;
constexpr double kDiffusionSeconds = 0.02;
constexpr double kFeedSeconds = 0.01; // of the input to a diffuser that starts
constexpr double kEarlyLevelSeconds = 0.02;

constexpr double kHandOverSeconds = 0.02; // the input moves to another network
constexpr double kFadeOutSeconds = 0.03;  // a network that is needed again falls silent

constexpr float kSilence = 1e-7f; // a network whose outputs stay below that has rung out

constexpr LateSettings kDefaults = {.size = 0.04,
                                    .decay = 2.0,
                                    .damp = 0.3,
                                    .stages = 2,
                                    .modulate = true,
                                    .mod_depth = 2.0 / 48000.0,
                                    .mod_rate = 1.0,
                                    .diffusion = 0.0,
                                    .freeze = false};

// Two weights whose squares add up to 1, from (1, 0) to (0, 1).
struct Blend {
    float near;
    float far;

    explicit Blend(double x)
        : near(x == 1.0 ? 0.0f : static_cast<float>(std::cos(x * std::numbers::pi / 2.0))),
          far(static_cast<float>(std::sin(x * std::numbers::pi / 2.0))) {}
};

using Slice = std::array<float, kLongestSlice>;

} // namespace

// Tiles are run in slices. What must not depend on how a host cuts its blocks happens at the start of a
// slice that ends before the next such event, or, if it can wait, at knots, multiples of kKnot.
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
        return glide_.moving() || diffusion_.moving() || second_ ||
               settings_.stages != first().stages();
    }
    bool gains_move() const {
        return mute_.moving() || diffusion_.moving() || feed_.moving() || early_level_.moving() ||
               hand_over_.running() || fade_out_.running();
    }
    uint32_t slice_limit() const;
    void begin();
    void at_knot();
    void choose_network();
    void find_gains(uint32_t frames);
    void scale(const float* const in[2], const Slice& gain, uint32_t from, uint32_t count);
    void step(const float* const in[2], float* const out[2], uint32_t frames, bool ahead);
    void write_diffuser(const float* const in[2], uint32_t from, uint32_t count);
    void run_network(Network& network, const Slice& input, const Slice& row_gain,
                     const float* const in[2], float* const out[2], uint32_t frames, bool ahead);
    void inject_into(Network& network, const Slice& input, const Slice& row_gain,
                     const float* const in[2], uint32_t frames, uint32_t from, uint32_t count);
    void mix_early(Network& network, float* const out[2], uint32_t frames);
    void add_second(float* const out[2], uint32_t frames);

    Network& first() { return networks_[active_]; }
    const Network& first() const { return networks_[active_]; }
    Network& other() { return networks_[1 - active_]; }
    const Network& other() const { return networks_[1 - active_]; }

    double rate_ = 0.0;
    uint64_t clock_ = 0; // frames since the reset
    LateSettings settings_ = kDefaults;
    Taps taps_;
    DecayGlide glide_;
    std::array<Network, 2> networks_;
    Diffuser diffuser_;

    size_t active_ = 0;         // the network that takes the input
    bool second_ = false;       // the other one still rings
    uint32_t second_quiet_ = 0; // frames for which it has been silent
    float second_peak_ = 0.0f;  // since the last knot
    bool diffusing_ = false;

    Smoother mute_;        // 1: the input is heard
    Smoother diffusion_;   // 0 .. 1
    Smoother feed_;        // of the diffuser
    Smoother early_level_; // what the outputs behind the last stage are multiplied with
    Fade hand_over_;       // of the input, to the active network
    Fade fade_out_;        // of the other one's outputs
    bool fading_out_ = false;
    double mute_share_ = 0, diffusion_share_ = 0, feed_share_ = 0, early_level_share_ = 0;
    // Gains of the frames of a slice. `plain_`: all are 1 and there is nothing to add.
    bool plain_ = false;
    bool steady_ = false;                                       // the gains are those of any slice
    alignas(32) Slice feed_input_, first_input_, second_input_; // of the diffuser and the networks
    alignas(32) Slice first_rows_, second_rows_;                // of the diffuser
    alignas(32) Slice near_, early_;                            // of the two kinds of outputs
    alignas(32) Slice level_;                                   // of the second network

    alignas(32) Slice scaled_[2], y_[2], early_y_[2];
    alignas(32) Slice zeros_{};
    Diffuser::Rows rows_{};
};

bool Late::State::prepare(double rate) {
    rate_ = rate;
    taps_.prepare(rate);
    glide_.prepare(rate);
    mute_share_ = share_of_tile(rate, kMuteSeconds);
    diffusion_share_ = share_of_tile(rate, kDiffusionSeconds);
    feed_share_ = share_of_tile(rate, kFeedSeconds);
    early_level_share_ = share_of_tile(rate, kEarlyLevelSeconds);
    hand_over_.set_length(whole_tiles(rate, kHandOverSeconds));
    fade_out_.set_length(whole_tiles(rate, kFadeOutSeconds));
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
    feed_.target = 1.0;
    for (Smoother* smoother : {&mute_, &diffusion_, &feed_, &early_level_}) smoother->snap();
    hand_over_.finish();
    fade_out_.finish();
    diffusing_ = steady_ = false;
}

void Late::State::set(const LateSettings& settings) {
    settings_ = settings;
    taps_.set(settings);
    glide_.aim(target_times(), mean_loop());
    mute_.target = settings.freeze ? 0.0 : 1.0;
    diffusion_.target = settings.diffusion;
    early_level_.target = early_level();
    if (!diffusing_) early_level_.snap();
}

// The outputs behind the last stage lack what passes the filters for the first time. Steady white noise
// has the power sum over k >= 0 of g^2k in the lines' outputs and of g^2k, k >= 1, behind them, g^2 the
// power gain of a trip. With 1 / g^2 = 1 / low^2 + (1 / high^2 - 1 / low^2) sin^2(w / 2) the means over w
// are 1 + m and m, m = ((1 / low^2 - 1) (1 / high^2 - 1))^-1/2.
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
    if (gains_move()) limit = std::min(limit, kMovingSlice);
    if (waits_for_knots()) limit = std::min(limit, kKnot - static_cast<uint32_t>(clock_ % kKnot));
    return limit;
}

// At the start of a slice.
void Late::State::begin() {
    if (clock_ % kKnot == 0 && waits_for_knots()) at_knot();
    if (!diffusing_ && diffusion_.target > 0.0) {
        diffusing_ = true;
        diffuser_.start(settings_.size);
        // From silence: the inputs do not begin with a step in each of its many echoes.
        feed_.target = 0.0;
        feed_.snap();
        feed_.target = 1.0;
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
    if (diffusion_.target == 0.0 && !diffusion_.moving()) diffusing_ = false;
    if (second_) {
        second_quiet_ = second_peak_ < kSilence ? second_quiet_ + kKnot : 0;
        second_peak_ = 0.0f;
        if (second_quiet_ > longest_path() || (fading_out_ && !fade_out_.running()))
            second_ = false;
    }
    choose_network();
}

// Hands the input over to a network with as many stages as are set, as soon as there is one.
void Late::State::choose_network() {
    if (settings_.stages == first().stages() || hand_over_.running()) return;
    if (second_ && (fading_out_ || other().stages() != settings_.stages)) {
        if (!fading_out_) fade_out_.start();
        fading_out_ = true;
        return;
    }
    if (!second_) other().start(settings_.stages, taps_, glide_);
    active_ = 1 - active_;
    second_ = true;
    second_quiet_ = 0;
    second_peak_ = 0.0f;
    fading_out_ = false;
    hand_over_.start();
}

// Steps the smoothers through the tiles of a slice.
void Late::State::find_gains(uint32_t frames) {
    plain_ = !gains_move() && !second_ && !diffusing_ && mute_.value == 1.0;
    if (plain_) return;
    // Where nothing moves, what a whole slice's tiles have had stays right for the next ones.
    if (steady_ && !gains_move()) return;
    steady_ = !gains_move();
    if (steady_) frames = kLongestSlice;
    struct Ends {
        float mute, feed, first, second, near, rows, early, level;
    };
    const auto now = [&] {
        const Blend share(hand_over_.weight());
        const Blend diffusion(diffusion_.value);
        return Ends{.mute = static_cast<float>(mute_.value),
                    .feed = static_cast<float>(mute_.value * feed_.value),
                    .first = share.far,
                    .second = share.near,
                    .near = diffusion.near,
                    .rows = diffusion.far * Diffuser::kGain,
                    .early = diffusion.far * static_cast<float>(early_level_.value),
                    .level = fading_out_ ? 1.0f - fade_out_.weight() : 1.0f};
    };
    Ends end = now();
    for (uint32_t t = 0; t < frames; t += kTile) {
        const Ends begin = end;
        if (gains_move()) {
            mute_.step(mute_share_);
            diffusion_.step(diffusion_share_);
            feed_.step(feed_share_);
            early_level_.step(early_level_share_);
            hand_over_.advance(kTile);
            fade_out_.advance(kTile);
            end = now();
        }
        const __m256 first = ramp(begin.first, end.first);
        const __m256 second = ramp(begin.second, end.second);
        const __m256 near = ramp(begin.near, end.near);
        const __m256 rows = ramp(begin.rows, end.rows);
        const __m256 early = ramp(begin.early, end.early);
        const __m256 direct = _mm256_mul_ps(ramp(begin.mute, end.mute), near);
        _mm256_store_ps(&feed_input_[t], ramp(begin.feed, end.feed));
        _mm256_store_ps(&first_input_[t], _mm256_mul_ps(direct, first));
        _mm256_store_ps(&second_input_[t], _mm256_mul_ps(direct, second));
        _mm256_store_ps(&first_rows_[t], _mm256_mul_ps(rows, first));
        _mm256_store_ps(&second_rows_[t], _mm256_mul_ps(rows, second));
        _mm256_store_ps(&near_[t], near);
        _mm256_store_ps(&early_[t], early);
        _mm256_store_ps(&level_[t], ramp(begin.level, end.level));
    }
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
    find_gains(frames);
    if (plain_) {
        const auto knot = static_cast<uint32_t>(clock_ % kKnot);
        first().run(taps_, glide_, knot, in, out, frames);
    } else {
        if (diffusing_) {
            diffuser_.begin(frames);
            if (!ahead) write_diffuser(in, 0, frames);
            diffuser_.run(rows_, taps_.resize());
        }
        run_network(first(), first_input_, first_rows_, in, out, frames, ahead);
        if (second_) {
            float* const y[2] = {y_[0].data(), y_[1].data()};
            run_network(other(), second_input_, second_rows_, in, y, frames, ahead);
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
    if (steady_ && feed_input_[0] == 1.0f) {
        diffuser_.write(in, from, count);
        return;
    }
    const float* const x[2] = {scaled_[0].data(), scaled_[1].data()};
    scale(in, feed_input_, from, count);
    diffuser_.write(x, from, count);
}

// One network with its share of the inputs and of the diffuser's rows. The outputs behind the last stage
// are to be without these: where they are needed, the lines get their inputs later.
void Late::State::run_network(Network& network, const Slice& input, const Slice& row_gain,
                              const float* const in[2], float* const out[2], uint32_t frames,
                              bool ahead) {
    const auto knot = static_cast<uint32_t>(clock_ % kKnot);
    const float* const silence[2] = {zeros_.data(), zeros_.data()};
    if (!diffusing_) {
        const float* const x[2] = {scaled_[0].data(), scaled_[1].data()};
        if (!ahead) scale(in, input, 0, frames);
        network.run(taps_, glide_, knot, ahead ? silence : x, out, frames);
        return;
    }
    network.run(taps_, glide_, knot, silence, out, frames);
    mix_early(network, out, frames);
    if (!ahead) inject_into(network, input, row_gain, in, frames, 0, frames);
}

// What run_network() leaves to be done when the inputs are there, of frames from .. from + count - 1.
void Late::State::inject_into(Network& network, const Slice& input, const Slice& row_gain,
                              const float* const in[2], uint32_t frames, uint32_t from,
                              uint32_t count) {
    if (!steady_ || input[0] != 0.0f) {
        const float* const x[2] = {scaled_[0].data(), scaled_[1].data()};
        scale(in, input, from, count);
        network.inject(x, frames, from, count);
    }
    if (diffusing_) network.inject_rows(rows_, row_gain.data(), frames, from, count);
}

// out = near * out + early * (what the lines take in)
void Late::State::mix_early(Network& network, float* const out[2], uint32_t frames) {
    float* const early[2] = {early_y_[0].data(), early_y_[1].data()};
    network.early_outputs(early, frames);
    for (size_t c = 0; c < 2; ++c)
        for (uint32_t t = 0; t < frames; t += kTile) {
            const __m256 far_part =
                _mm256_mul_ps(_mm256_load_ps(&near_[t]), _mm256_loadu_ps(out[c] + t));
            const __m256 sum = _mm256_fmadd_ps(_mm256_load_ps(&early_[t]),
                                               _mm256_loadu_ps(early[c] + t), far_part);
            _mm256_storeu_ps(out[c] + t, sum);
        }
}

void Late::State::add_second(float* const out[2], uint32_t frames) {
    for (size_t c = 0; c < 2; ++c)
        for (uint32_t t = 0; t < frames; ++t) {
            const float y = level_[t] * y_[c][t];
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
    inject_into(first(), first_input_, first_rows_, in, kTile, from, count);
    if (second_) inject_into(other(), second_input_, second_rows_, in, kTile, from, count);
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
uint32_t Late::longest_slice() const {
    return kLongestSlice;
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
