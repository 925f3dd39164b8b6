#include "live/engine/mixer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace brisel::live {

namespace {

constexpr double kBypassSeconds = 0.02, kClearSeconds = 0.008;

inline __m256 magnitude(__m256 x) {
    return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), x);
}

inline __m256 larger_magnitude(const float* const signal[2], uint32_t t) {
    return _mm256_max_ps(magnitude(_mm256_loadu_ps(signal[0] + t)),
                         magnitude(_mm256_loadu_ps(signal[1] + t)));
}

inline float largest(__m256 x) {
    __m128 m = _mm_max_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1));
    m = _mm_max_ps(m, _mm_movehl_ps(m, m));
    return _mm_cvtss_f32(_mm_max_ss(m, _mm_movehdup_ps(m)));
}

inline bool is_silent(__m256 magnitudes) {
    return _mm256_movemask_ps(_mm256_cmp_ps(magnitudes, _mm256_set1_ps(kSilence), _CMP_GE_OQ)) == 0;
}

} // namespace

void Mixer::prepare(double rate) {
    tile_share_ = share_of_tile(rate, kLevelSeconds);
    knot_share_ = share_of_knot(rate, kLevelSeconds);
    ducker_.prepare(rate);
    bypass_fade_.set_length(whole_tiles(rate, kBypassSeconds));
    clear_.set_length(whole_tiles(rate, kClearSeconds));
    clearing_ = false;
}

void Mixer::set(const MixerSettings& settings) {
    mix_.target = settings.mix;
    width_.target = settings.width;
    wet_gain_.target = settings.wet_gain;
    ducker_.set(settings.duck, settings.duck_release);
    if (settings.bypass != bypass_) {
        bypass_ = settings.bypass;
        bypass_fade_.reverse();
    }
}

void Mixer::reset() {
    for (Smoother* smoother : {&mix_, &width_, &wet_gain_}) smoother->snap();
    ducker_.reset();
    bypass_fade_.finish();
    cleared();
    quiet_ = 0;
}

void Mixer::fade_to_clear() {
    if (clearing_) return;
    clearing_ = true;
    clear_.start();
}

void Mixer::cleared() {
    clearing_ = false;
    clear_.finish();
    tile_ = 0;
    before_ = now_ = from_ = to_ = gains();
}

bool Mixer::moving() const {
    return tile_ != 0 || mix_.moving() || width_.moving() || wet_gain_.moving() ||
           ducker_.moving() || bypass_fade_.running() || clear_.running();
}

// Width w makes L' = w L + (1 - w) / sqrt(2) (L + R) of the signal at full width.
Mixer::Gains Mixer::gains() const {
    double wet = mix_.value * wet_gain_.value * static_cast<double>(ducker_.gain());
    double dry = 1.0 - mix_.value;
    const double faded = bypass_fade_.running() ? static_cast<double>(bypass_fade_.weight()) : 1.0;
    const double bypassed = bypass_ ? faded : 1.0 - faded;
    wet *= 1.0 - bypassed;
    dry += bypassed * (1.0 - dry);
    if (clearing_) wet *= 1.0 - static_cast<double>(clear_.weight());
    const double cross = (1.0 - width_.value) * (0.5 * std::numbers::sqrt2);
    return {static_cast<float>(dry), static_cast<float>(wet * (width_.value + cross)),
            static_cast<float>(wet * cross)};
}

void Mixer::step() {
    before_ = now_;
    if (!moving()) return;
    if (tile_ == 0) {
        from_ = to_;
        // The short fades are too steep for long straight lines.
        const bool fading = bypass_fade_.running() || clear_.running();
        knot_tiles_ = fading ? 1 : kLevelTiles;
        const double share = fading ? tile_share_ : knot_share_;
        for (Smoother* smoother : {&mix_, &width_, &wet_gain_})
            if (smoother->moving()) smoother->step(share);
        ducker_.step(share);
        bypass_fade_.advance(kTile);
        clear_.advance(kTile);
        to_ = gains();
    }
    ++tile_;
    const auto now = [this](float from, float to) {
        return between_knots(from, to, tile_, knot_tiles_);
    };
    now_ = {now(from_.dry, to_.dry), now(from_.own, to_.own), now(from_.cross, to_.cross)};
    tile_ %= knot_tiles_;
}

void Mixer::run_ahead(const float* const wet[2]) {
    step();
    const __m256 own = ramp(before_.own, now_.own), cross = ramp(before_.cross, now_.cross);
    const __m256 left = _mm256_loadu_ps(wet[0]), right = _mm256_loadu_ps(wet[1]);
    _mm256_store_ps(ahead_[0], _mm256_fmadd_ps(own, left, _mm256_mul_ps(cross, right)));
    _mm256_store_ps(ahead_[1], _mm256_fmadd_ps(own, right, _mm256_mul_ps(cross, left)));
}

void Mixer::run_asleep(const float* const in[2], float* const out[2], uint32_t frames) {
    const __m256 dry = _mm256_set1_ps(now_.dry);
    __m256 peak = _mm256_load_ps(peaks_[2]);
    for (uint32_t t = 0; t < frames; t += kTile)
        for (int c : {0, 1}) {
            const __m256 y = _mm256_fmadd_ps(dry, _mm256_loadu_ps(in[c] + t), _mm256_setzero_ps());
            _mm256_storeu_ps(out[c] + t, y);
            peak = _mm256_max_ps(peak, magnitude(y));
        }
    _mm256_store_ps(peaks_[2], peak);
}

void Mixer::run_ahead_asleep() {
    before_ = now_;
    for (auto& channel : ahead_) std::fill_n(channel, kTile, 0.0f);
}

void Mixer::deliver(const float* const in[2], float* const out[2], uint32_t from, uint32_t to) {
    alignas(32) float dry[kTile];
    _mm256_store_ps(dry, ramp(before_.dry, now_.dry));
    for (uint32_t t = from; t < to; ++t)
        for (int c : {0, 1}) {
            const float y = std::fma(dry[t], in[c][t], ahead_[c][t]);
            out[c][t - from] = y;
            peaks_[2][t] = std::max(peaks_[2][t], std::fabs(y));
        }
}

// Silence is counted from its first whole tile on; mostly the last tile already ends it.
void Mixer::count_quiet(const float* const in[2], const float* const wet[2], uint32_t frames) {
    for (uint32_t t = frames; t > 0; t -= kTile) {
        const __m256 peak =
            _mm256_max_ps(larger_magnitude(in, t - kTile), larger_magnitude(wet, t - kTile));
        if (is_silent(peak)) continue;
        quiet_ = frames - t;
        return;
    }
    quiet_ += frames;
}

void Mixer::finish_tile(const float* const in[2], const float* const wet[2]) {
    const __m256 heard = larger_magnitude(in, 0), reverberated = larger_magnitude(wet, 0);
    _mm256_store_ps(peaks_[0], _mm256_max_ps(_mm256_load_ps(peaks_[0]), heard));
    _mm256_store_ps(peaks_[1], _mm256_max_ps(_mm256_load_ps(peaks_[1]), reverberated));
    count_quiet(in, wet, kTile);
    if (ducker_.listening()) ducker_.hear(largest(heard));
}

void Mixer::run(const float* const in[2], const float* const wet[2], float* const out[2],
                uint32_t frames) {
    uint32_t t = 0;
    __m256 delivered = _mm256_load_ps(peaks_[2]);
    for (; t < frames && (moving() || ducker_.listening()); t += kTile) {
        const float* const tile_in[2] = {in[0] + t, in[1] + t};
        const float* const tile_wet[2] = {wet[0] + t, wet[1] + t};
        run_ahead(tile_wet);
        const __m256 dry = ramp(before_.dry, now_.dry);
        for (int c : {0, 1}) {
            const __m256 y =
                _mm256_fmadd_ps(dry, _mm256_loadu_ps(tile_in[c]), _mm256_load_ps(ahead_[c]));
            _mm256_storeu_ps(out[c] + t, y);
            delivered = _mm256_max_ps(delivered, magnitude(y));
        }
        finish_tile(tile_in, tile_wet);
    }
    before_ = now_;
    const uint32_t at_rest = t;
    const __m256 dry = _mm256_set1_ps(now_.dry), own = _mm256_set1_ps(now_.own);
    const __m256 cross = _mm256_set1_ps(now_.cross);
    __m256 heard = _mm256_load_ps(peaks_[0]), reverberated = _mm256_load_ps(peaks_[1]);
#pragma GCC unroll 2
    for (; t < frames; t += kTile) {
        const __m256 in_l = _mm256_loadu_ps(in[0] + t), in_r = _mm256_loadu_ps(in[1] + t);
        const __m256 wet_l = _mm256_loadu_ps(wet[0] + t), wet_r = _mm256_loadu_ps(wet[1] + t);
        heard = _mm256_max_ps(heard, _mm256_max_ps(magnitude(in_l), magnitude(in_r)));
        reverberated =
            _mm256_max_ps(reverberated, _mm256_max_ps(magnitude(wet_l), magnitude(wet_r)));
        const __m256 left =
            _mm256_fmadd_ps(dry, in_l, _mm256_fmadd_ps(own, wet_l, _mm256_mul_ps(cross, wet_r)));
        const __m256 right =
            _mm256_fmadd_ps(dry, in_r, _mm256_fmadd_ps(own, wet_r, _mm256_mul_ps(cross, wet_l)));
        _mm256_storeu_ps(out[0] + t, left);
        _mm256_storeu_ps(out[1] + t, right);
        delivered = _mm256_max_ps(delivered, _mm256_max_ps(magnitude(left), magnitude(right)));
    }
    _mm256_store_ps(peaks_[0], heard);
    _mm256_store_ps(peaks_[1], reverberated);
    _mm256_store_ps(peaks_[2], delivered);
    const float* const rest_in[2] = {in[0] + at_rest, in[1] + at_rest};
    const float* const rest_wet[2] = {wet[0] + at_rest, wet[1] + at_rest};
    count_quiet(rest_in, rest_wet, frames - at_rest);
}

Mixer::Peaks Mixer::take_peaks() {
    const auto gain = static_cast<float>(wet_gain_.value) * ducker_.gain();
    const Peaks peaks = {largest(_mm256_load_ps(peaks_[0])),
                         largest(_mm256_load_ps(peaks_[1])) * gain,
                         largest(_mm256_load_ps(peaks_[2]))};
    for (auto& lanes : peaks_) std::fill_n(lanes, 8, 0.0f);
    return peaks;
}

} // namespace brisel::live
