// The reverb's clock: events, tiles with their input and ahead of it, sleep.
//
// A tile's wet signal never depends on its own input. Whole tiles run with their input; where fewer
// than eight frames are left of a host's block, the next tile runs ahead of its input, which is
// then handed in frame by frame. Both ways leave the same bits, provided that whatever changes does
// so at tiles' starts.
#include "live/engine/reverb.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <limits>
#include <new>

#include "core/flush_to_zero.h"
#include "live/engine/auto_level.h"
#include "live/engine/early.h"
#include "live/engine/late.h"
#include "live/engine/mixer.h"
#include "live/engine/predelay.h"
#include "live/engine/tone.h"

namespace brisel::live {

namespace {

// Sleep is decided at multiples of this on the clock, after this much silence at least; frames.
constexpr uint64_t kSleepGrid = kLongestSlice, kShortestWait = 4 * kSleepGrid;

// Quarter notes, of the steps of Predelay Sync.
constexpr double kNotes[] = {0.0,     1.0 / 16, 1.0 / 8, 1.0 / 6, 1.0 / 4,
                             3.0 / 8, 1.0 / 3,  1.0 / 2, 3.0 / 4, 1.0};

// NaN and infinities count as 0 and -0 as +0, so that a sum with it does not depend on its order.
// What is 180 dB above full scale is no sound, but squared and summed in the network it would
// overflow, and never leave it: it is held there.
inline __m256 clean(__m256 x) {
    const __m256i exponent = _mm256_set1_epi32(0x7f800000);
    const __m256i bits = _mm256_castps_si256(x);
    const __m256i unusable = _mm256_cmpeq_epi32(_mm256_and_si256(bits, exponent), exponent);
    const __m256 usable = _mm256_castsi256_ps(_mm256_andnot_si256(unusable, bits));
    const __m256 held =
        _mm256_max_ps(_mm256_min_ps(usable, _mm256_set1_ps(0x1p30f)), _mm256_set1_ps(-0x1p30f));
    return _mm256_add_ps(held, _mm256_setzero_ps());
}

void clean(float* to, const float* from, uint32_t frames) {
    if (!from) {
        std::fill_n(to, frames, 0.0f);
        return;
    }
    uint32_t t = 0;
#pragma GCC unroll 4
    for (; t + 8 <= frames; t += 8) _mm256_storeu_ps(to + t, clean(_mm256_loadu_ps(from + t)));
    for (; t < frames; ++t) to[t] = _mm256_cvtss_f32(clean(_mm256_set1_ps(from[t])));
}

// Whole tiles.
bool all_zero(const float* const host[2], uint32_t at, uint32_t frames) {
    __m256 any = _mm256_setzero_ps();
    for (int c : {0, 1}) {
        if (!host[c]) continue;
        for (uint32_t t = at; t < at + frames; t += kTile)
            any = _mm256_or_ps(any, _mm256_loadu_ps(host[c] + t));
    }
    const __m256i bits = _mm256_slli_epi32(_mm256_castps_si256(any), 1); // without the signs
    return _mm256_testz_si256(bits, bits) != 0;
}

// For the audio thread, the only one that raises it; a reader may set it to 0 at any time.
void raise(std::atomic<float>& peak, float value) {
    if (value > peak.load(std::memory_order_relaxed)) peak.store(value, std::memory_order_relaxed);
}

constexpr ParameterMask kOfLate = bit_of(kSize) | bit_of(kDecay) | bit_of(kScattering) |
                                  bit_of(kDamp) | bit_of(kModulation) | bit_of(kModDepth) |
                                  bit_of(kModRate) | bit_of(kDiffusion) | bit_of(kFreeze);
constexpr ParameterMask kOfLevel = bit_of(kSize) | bit_of(kDecay) | bit_of(kScattering) |
                                   bit_of(kDamp) | bit_of(kFreeze) | bit_of(kAutoLevel);
constexpr ParameterMask kOfPredelay = bit_of(kPredelay) | bit_of(kPredelaySync);
constexpr ParameterMask kOfEarly = bit_of(kEarlyReflections) | bit_of(kErSize) | bit_of(kErLevel);
constexpr ParameterMask kOfTone =
    bit_of(kLowCut) | bit_of(kEqLow) | bit_of(kEqHigh) | bit_of(kHighCut);
constexpr ParameterMask kOfMixer = bit_of(kMix) | bit_of(kWidth) | bit_of(kWetGain) |
                                   bit_of(kDuck) | bit_of(kDuckRelease) | bit_of(kBypass);

} // namespace

struct Reverb::State {
    Values values;
    std::atomic<double> rate{0.0};             // Hz; 0 while not prepared
    std::atomic<double> beats_per_minute{0.0}; // latest known; 0 before there was one

    Late late;
    Predelay predelay;
    Early early;
    AutoLevel auto_level;
    Tone tone;
    Mixer mixer;

    Settings settings = default_settings(); // what sounds, as of the start of the present tile
    uint64_t clock = 0;    // frames since the reset, at the start of the present tile
    uint32_t ahead = 0;    // frames of the present tile still to be delivered; 0: at a tile's start
    uint32_t injected = 0; // frames of that tile that have gone into the network
    bool asleep = false;   // nothing sounds: only the mixer's dry gain is in force
    ParameterMask stale = 0; // what has changed meanwhile
    bool tempo_changed = false;
    bool clear_pressed = false;

    alignas(32) float in[2][kLongestSlice] = {};
    alignas(32) float wet[2][kLongestSlice] = {};
    float* const wet_channels[2] = {wet[0], wet[1]};
    const float* const in_channels[2] = {in[0], in[1]};

    std::atomic<float> peak_in{0.0f}, peak_wet{0.0f}, peak_out{0.0f}, duck_gain{1.0f};

    bool on(Id id) const { return settings[id] >= 0.5; }
    double predelay_seconds(double plain, double sync) const;
    LateSettings late_settings() const;
    ParameterMask take_changed();

    bool prepare(double new_rate);
    void reset();
    void hear(const Event& event);
    void hear(const Tempo& tempo);
    void apply(ParameterMask changed);
    void silence();
    void wake();
    void begin_tile();
    uint32_t longest_slice() const;
    uint64_t longest_path() const;

    void read_input(const float* const host[2], uint32_t at, uint32_t from, uint32_t frames);
    uint32_t run(const float* const host[2], uint32_t at, uint32_t frames, float* const out[2]);
    uint32_t sleep_on(uint32_t frames, float* const out[2]);
    void run_ahead();
    uint32_t deliver(const float* const host[2], uint32_t at, uint32_t frames, float* const out[2]);
    uint32_t render(const float* const host[2], uint32_t at, uint32_t frames,
                    std::span<const Event>& events, float* const out[2]);
};

// What has changed since the last call, and in `settings` to what.
ParameterMask Reverb::State::take_changed() {
    const ParameterMask changed = values.take_changed();
    for (ParameterMask left = changed; left != 0; left &= left - 1) {
        const auto id = static_cast<Id>(std::countr_zero(left));
        settings[id] = values.sounding(id);
    }
    return changed;
}

// Of the values of Predelay and Predelay Sync, at the latest tempo known.
double Reverb::State::predelay_seconds(double plain, double sync) const {
    const double note = kNotes[static_cast<size_t>(sync)];
    const double tempo = beats_per_minute.load(std::memory_order_relaxed);
    if (note == 0.0 || tempo == 0.0) return plain;
    return std::min(note * 60.0 / tempo, Predelay::kLongest);
}

LateSettings Reverb::State::late_settings() const {
    return {
        .size = settings[kSize],
        .decay = settings[kDecay],
        .damp = settings[kDamp],
        .stages = static_cast<int>(settings[kScattering]),
        .modulate = on(kModulation),
        .mod_depth = settings[kModDepth],
        .mod_rate = settings[kModRate],
        .diffusion = settings[kDiffusion],
        .freeze = on(kFreeze),
    };
}

bool Reverb::State::prepare(double new_rate) {
    rate = 0.0;
    if (!late.prepare(new_rate) || !predelay.prepare(new_rate) || !early.prepare(new_rate))
        return false;
    auto_level.prepare(new_rate);
    tone.prepare(new_rate);
    mixer.prepare(new_rate);
    rate = new_rate;
    reset();
    return true;
}

void Reverb::State::reset() {
    take_changed();
    stale = kAllParameters;
    wake();
    clock = ahead = 0;
}

void Reverb::State::hear(const Event& event) {
    if (event.modulation)
        values.set_modulation(event.parameter, event.value);
    else
        values.set_plain(event.parameter, event.value);
}

void Reverb::State::hear(const Tempo& tempo) {
    const double now = tempo.beats_per_minute;
    if (!(now >= kSlowestTempo && now <= kFastestTempo)) return;
    if (now == beats_per_minute.load(std::memory_order_relaxed)) return;
    beats_per_minute.store(now, std::memory_order_relaxed);
    tempo_changed = true;
}

// New targets, from the present tile on.
void Reverb::State::apply(ParameterMask changed) {
    if (changed == 0) return;
    const auto gain_of = [](double db) { return std::pow(10.0, db / 20.0); };
    const LateSettings network = late_settings();
    if (changed & kOfLate) late.set(network);
    if (changed & kOfLevel) auto_level.set(network, on(kAutoLevel));
    if (changed & kOfPredelay)
        predelay.set_seconds(predelay_seconds(settings[kPredelay], settings[kPredelaySync]));
    if (changed & kOfEarly)
        early.set(settings[kErSize],
                  on(kEarlyReflections) ? static_cast<float>(settings[kErLevel]) : 0.0f);
    if (changed & kOfTone)
        tone.set({settings[kLowCut], settings[kEqLow], settings[kEqHigh], settings[kHighCut]});
    if (changed & kOfMixer)
        mixer.set({settings[kMix], settings[kWidth], gain_of(settings[kWetGain]), settings[kDuck],
                   settings[kDuckRelease], on(kBypass)});
    if (changed & bit_of(kClear)) {
        if (on(kClear) && !clear_pressed) mixer.fade_to_clear();
        clear_pressed = on(kClear);
    }
}

// Everything that still sounds, at once.
void Reverb::State::silence() {
    late.reset();
    predelay.reset();
    early.reset();
    auto_level.reset();
    tone.reset();
    mixer.cleared();
}

void Reverb::State::wake() {
    apply(stale);
    stale = 0;
    asleep = false;
    silence();
    mixer.reset();
}

uint64_t Reverb::State::longest_path() const {
    return late.longest_path() + predelay.longest() + early.longest();
}

void Reverb::State::begin_tile() {
    ParameterMask changed = take_changed();
    if (tempo_changed) changed |= bit_of(kPredelaySync);
    tempo_changed = false;
    if (asleep) {
        stale |= changed;
        if (changed & kOfMixer) { // nothing but the dry gain is to be heard, and that of silence
            apply(kOfMixer);
            mixer.reset();
        }
        return;
    }
    apply(changed);
    if (mixer.faded()) {
        silence();
        predelay.fade_in();
    }
    predelay.begin();
    early.begin();
    if (clock % kSleepGrid == 0 && mixer.quiet_frames() > std::max(longest_path(), kShortestWait)) {
        silence();
        mixer.reset();
        asleep = true;
    }
}

// Frames from here on in which nothing happens that a tile's start decides.
uint32_t Reverb::State::longest_slice() const {
    uint32_t frames =
        std::min({kLongestSlice, predelay.slice_limit(), early.slice_limit(), mixer.slice_limit()});
    // Sleep is decided at the grid's tiles, but never right behind a sound.
    if (mixer.quiet_frames() > 0)
        frames = std::min(frames, static_cast<uint32_t>(kSleepGrid - clock % kSleepGrid));
    return frames;
}

void Reverb::State::read_input(const float* const host[2], uint32_t at, uint32_t from,
                               uint32_t frames) {
    clean(in[0] + from, host[0] ? host[0] + at : nullptr, frames);
    if (host[1])
        clean(in[1] + from, host[1] + at, frames);
    else
        std::copy_n(in[0] + from, frames, in[1] + from);
}

// Whole tiles with their input, at most `frames`; returns how many.
uint32_t Reverb::State::run(const float* const host[2], uint32_t at, uint32_t frames,
                            float* const out[2]) {
    frames = std::min(frames & ~(kTile - 1), asleep ? kLongestSlice : longest_slice());
    if (asleep && all_zero(host, at, frames)) {
        for (int c : {0, 1}) std::fill_n(out[c], frames, 0.0f);
        clock += frames;
        return frames;
    }
    read_input(host, at, 0, frames);
    if (asleep) {
        const uint32_t slept = sleep_on(frames, out);
        if (slept > 0) return slept;
        wake();
        frames = std::min(frames, longest_slice());
    }
    predelay.run(in_channels, 0, frames);
    late.run(predelay.delayed(), wet_channels, frames);
    early.write(predelay.delayed(), 0, frames);
    auto_level.run(wet_channels, frames);
    early.add(wet_channels, frames);
    tone.run(wet_channels, frames);
    mixer.run(in_channels, wet_channels, out, frames);
    predelay.advance(frames);
    early.advance(frames);
    clock += frames;
    return frames;
}

// The tiles in front of the first one that is not silent.
uint32_t Reverb::State::sleep_on(uint32_t frames, float* const out[2]) {
    const __m256 limit = _mm256_set1_ps(kSilence), sign = _mm256_set1_ps(-0.0f);
    uint32_t t = 0;
    for (; t < frames; t += kTile) {
        const __m256 peak = _mm256_max_ps(_mm256_andnot_ps(sign, _mm256_load_ps(in[0] + t)),
                                          _mm256_andnot_ps(sign, _mm256_load_ps(in[1] + t)));
        if (_mm256_movemask_ps(_mm256_cmp_ps(peak, limit, _CMP_GE_OQ)) != 0) break;
    }
    mixer.run_asleep(in_channels, out, t);
    clock += t;
    return t;
}

// The outputs of one tile without its input.
void Reverb::State::run_ahead() {
    ahead = kTile;
    injected = 0;
    if (asleep) {
        mixer.run_ahead_asleep();
        return;
    }
    late.run_ahead(wet_channels);
    auto_level.run(wet_channels, kTile);
    early.add(wet_channels, kTile);
    tone.run(wet_channels, kTile);
    mixer.run_ahead(wet_channels);
}

// The next frames of the tile that was run ahead, at most `frames`; returns how many.
uint32_t Reverb::State::deliver(const float* const host[2], uint32_t at, uint32_t frames,
                                float* const out[2]) {
    frames = std::min(frames, ahead);
    const uint32_t from = kTile - ahead, to = from + frames;
    read_input(host, at, from, frames);
    mixer.deliver(in_channels, out, from, to);
    ahead -= frames;

    const auto loud = [from, to](const float* channel) {
        return std::any_of(channel + from, channel + to,
                           [](float x) { return std::fabs(x) >= kSilence; });
    };
    if (asleep && (loud(in[0]) || loud(in[1]))) {
        wake();
        late.run_ahead(wet_channels); // silence, as it was delivered
    }
    if (!asleep) {
        predelay.run(in_channels, injected, to);
        const float* const* delayed = predelay.delayed();
        const float* const rest[2] = {delayed[0] + injected, delayed[1] + injected};
        late.inject(rest, injected, to);
        early.write(delayed, injected, to);
        injected = to;
    }
    if (ahead > 0) return frames;
    if (!asleep) {
        mixer.finish_tile(in_channels, wet_channels);
        predelay.advance(kTile);
        early.advance(kTile);
    }
    clock += kTile;
    return frames;
}

// Some frames of a block of `frames`, from its frame `at` on; returns how many. Takes the events
// that act by then.
uint32_t Reverb::State::render(const float* const host[2], uint32_t at, uint32_t frames,
                               std::span<const Event>& events, float* const out[2]) {
    if (ahead > 0) return deliver(host, at, frames - at, out);
    for (; !events.empty() && events.front().frame <= at; events = events.subspan(1))
        hear(events.front());
    begin_tile();
    uint32_t left = frames - at;
    if (left < kTile) {
        run_ahead();
        return deliver(host, at, left, out);
    }
    // As far as the tile in which the next event acts.
    if (!events.empty() && events.front().frame < frames)
        left = std::min(left, (events.front().frame - at + kTile - 1) & ~(kTile - 1));
    return run(host, at, left, out);
}

Reverb::Reverb() : state_(new (std::nothrow) State()) {}
Reverb::~Reverb() = default;

Values& Reverb::values() {
    return state_->values;
}
const Values& Reverb::values() const {
    return state_->values;
}

bool Reverb::prepare(double rate, uint32_t longest_block) {
    state_->rate = 0.0;
    const bool usable = rate >= kLowestRate && rate <= kHighestRate && longest_block >= 1 &&
                        longest_block <= kLongestBlock;
    return usable && state_->prepare(rate);
}

void Reverb::reset() {
    if (state_->rate == 0.0) return;
    const FlushToZeroScope flush_to_zero;
    state_->reset();
}

Status Reverb::process(const float* const in[2], float* const out[2], uint32_t frames,
                       std::span<const Event> events, const Tempo* tempo) {
    State& s = *state_;
    if (!out[0]) return Status::kAsleep;
    if (s.rate == 0.0) {
        for (int c : {0, 1})
            if (out[c]) std::fill_n(out[c], frames, 0.0f);
        return Status::kAsleep;
    }
    const FlushToZeroScope flush_to_zero;
    if (tempo) s.hear(*tempo);
    bool slept = true;
    alignas(32) float spare[kLongestSlice]; // the right output of a host that has none
    for (uint32_t at = 0; at < frames;) {
        float* const to[2] = {out[0] + at, out[1] ? out[1] + at : spare};
        const uint32_t done = s.render(in, at, frames, events, to);
        if (!out[1])
            for (uint32_t t = 0; t < done; ++t) to[0][t] = (to[0][t] + spare[t]) * 0.5f;
        slept = slept && s.asleep;
        at += done;
    }
    for (const Event& event : events) s.hear(event);

    const Mixer::Peaks peaks = s.mixer.take_peaks();
    raise(s.peak_in, peaks.input);
    raise(s.peak_wet, peaks.wet);
    raise(s.peak_out, peaks.output);
    s.duck_gain.store(s.mixer.duck_gain(), std::memory_order_relaxed);
    if (slept && peaks.output == 0.0f) return Status::kAsleep;
    return peaks.input >= kSilence ? Status::kRunning : Status::kTail;
}

uint64_t Reverb::tail_frames() const {
    const State& s = *state_;
    const auto value = [&s](Id id) { return s.values.sounding(id); };
    if (value(kFreeze) >= 0.5) return std::numeric_limits<uint64_t>::max();
    const double early = value(kEarlyReflections) >= 0.5 ? value(kErSize) : 0.0;
    // 60 dB in one decay time, behind the first trip.
    const double late = 1.5 * value(kDecay) + 2.0 * value(kSize);
    const double predelay = s.predelay_seconds(value(kPredelay), value(kPredelaySync));
    return static_cast<uint64_t>(s.rate * (predelay + std::max(early, late)));
}

Meters Reverb::read_meters() {
    State& s = *state_;
    constexpr auto kRelaxed = std::memory_order_relaxed;
    return {s.peak_in.exchange(0.0f, kRelaxed), s.peak_wet.exchange(0.0f, kRelaxed),
            s.peak_out.exchange(0.0f, kRelaxed), s.duck_gain.load(kRelaxed)};
}

} // namespace brisel::live
