#include "live/engine/late_gains.h"

#include <cmath>
#include <numbers>

#include "live/engine/diffuser.h"

namespace brisel::live {

namespace {

// Time constants of each of two one-poles, seconds.
constexpr double kMuteSeconds = 0.01;
constexpr double kDiffusionSeconds = 0.02;
constexpr double kFeedSeconds = 0.01;
constexpr double kEarlyLevelSeconds = 0.02;

constexpr double kHandOverSeconds = 0.02; // the input moves to another network
constexpr double kFadeOutSeconds = 0.03;  // a network that is needed again falls silent

// Two weights whose squares add up to 1, from (1, 0) to (0, 1).
struct Blend {
    float near;
    float far;

    explicit Blend(double x)
        : near(x == 1.0 ? 0.0f : static_cast<float>(std::cos(x * std::numbers::pi / 2.0))),
          far(static_cast<float>(std::sin(x * std::numbers::pi / 2.0))) {}
};

} // namespace

// The gains between two tiles.
struct LateGains::Ends {
    float mute, feed, first, second, near, rows, early, level;
};

void LateGains::prepare(double rate) {
    mute_share_ = share_of_tile(rate, kMuteSeconds);
    diffusion_share_ = share_of_tile(rate, kDiffusionSeconds);
    feed_share_ = share_of_tile(rate, kFeedSeconds);
    early_level_share_ = share_of_tile(rate, kEarlyLevelSeconds);
    hand_over_.set_length(whole_tiles(rate, kHandOverSeconds));
    fade_out_.set_length(whole_tiles(rate, kFadeOutSeconds));
}

void LateGains::snap() {
    feed_.target = 1.0;
    for (Smoother* smoother : {&mute_, &diffusion_, &feed_, &early_level_}) smoother->snap();
    hand_over_.finish();
    fade_out_.finish();
    fading_out_ = steady_ = false;
}

void LateGains::aim(bool mute, double diffusion, double early_level) {
    mute_.target = mute ? 0.0 : 1.0;
    diffusion_.target = diffusion;
    early_level_.target = early_level;
}

void LateGains::fade_in_diffuser() {
    feed_.target = 0.0;
    feed_.snap();
    feed_.target = 1.0;
}

void LateGains::hand_over() {
    hand_over_.start();
    fading_out_ = false;
}

void LateGains::fade_out_second() {
    if (!fading_out_) fade_out_.start();
    fading_out_ = true;
}

LateGains::Ends LateGains::now() const {
    const Blend share(hand_over_.weight());
    const Blend diffusion(diffusion_.value);
    return {.mute = static_cast<float>(mute_.value),
            .feed = static_cast<float>(mute_.value * feed_.value),
            .first = share.far,
            .second = share.near,
            .near = diffusion.near,
            .rows = diffusion.far * Diffuser::kGain,
            .early = diffusion.far * static_cast<float>(early_level_.value),
            .level = fading_out_ ? 1.0f - fade_out_.weight() : 1.0f};
}

void LateGains::find(uint32_t frames) {
    // Where nothing moves, what a whole slice has had stays right for the next ones.
    if (steady_ && !moving()) return;
    steady_ = !moving();
    if (steady_) frames = kLongestSlice;
    Ends end = now();
    for (uint32_t t = 0; t < frames; t += kTile) {
        const Ends begin = end;
        if (moving()) {
            mute_.step(mute_share_);
            diffusion_.step(diffusion_share_);
            feed_.step(feed_share_);
            early_level_.step(early_level_share_);
            hand_over_.advance(kTile);
            fade_out_.advance(kTile);
            end = now();
        }
        const __m256 shares[2] = {ramp(begin.first, end.first), ramp(begin.second, end.second)};
        const __m256 lines = ramp(begin.near, end.near);
        const __m256 direct = _mm256_mul_ps(ramp(begin.mute, end.mute), lines);
        const __m256 diffused = ramp(begin.rows, end.rows);
        for (size_t k = 0; k < 2; ++k) {
            _mm256_store_ps(&inputs[k][t], _mm256_mul_ps(direct, shares[k]));
            _mm256_store_ps(&rows[k][t], _mm256_mul_ps(diffused, shares[k]));
        }
        _mm256_store_ps(&feed[t], ramp(begin.feed, end.feed));
        _mm256_store_ps(&near[t], lines);
        _mm256_store_ps(&early[t], ramp(begin.early, end.early));
        _mm256_store_ps(&second[t], ramp(begin.level, end.level));
    }
}

} // namespace brisel::live
