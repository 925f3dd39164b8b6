// The reverb object: creation, the mapping of settings onto a network, destruction. Processing is
// in reverb_process.cpp.
#include "brisel/reverb.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "brisel/fdn_delay_stage_ref.h"
#include "brisel/ffdn_defaults_n16.h"
#include "core/aligned_memory.h"
#include "core/ffdn_defaults_n16.h"
#include "core/ffdn_er.h"
#include "core/network_math.h"
#include "core/reverb.h"

namespace {

using brisel::kLinePrimes;
using brisel::object_of;
using brisel::ReverbObject;

constexpr float kLongestSize = 0.5f; // seconds
constexpr float kEqLowHz = 250.0f;
constexpr float kEqHighHz = 4500.0f;
constexpr float kEqLimitDb = 24.0f;
constexpr int32_t kErTaps = 12;       // a channel
constexpr float kErShortest = 0.001f; // seconds
constexpr float kErLongest = 0.5f;
constexpr uint64_t kErSeed = 0xE2C0FFEE12345678;
constexpr int32_t kModulationDepth = 2; // samples
constexpr uint64_t kModulationSeed = 0xC0DECAFE12345678;
constexpr float kModulationSlowest = 0.3f; // Hz
constexpr float kModulationFastest = 1.2f; // Hz

constexpr qv_reverb_params kDefaults = {
    .size = 0.04f,
    .t60 = 2.0f,
    .cascade_stages = 2,
    .t60_high = 0.0f,
    .damp = 0.3f,
    .mix = 0.3f,
    .width = 0.8f,
    .modulate = 1,
    .er_enable = 0,
    .er_size = 0.06f,
    .er_level = 0.5f,
    .eq_low_db = 0.0f,
    .eq_high_db = 0.0f,
};

// NaN lies in no range.
bool within(float x, float lowest, float highest) {
    return x >= lowest && x <= highest;
}

bool early_in_range(const qv_reverb_params& p) {
    if (!p.er_enable) return !std::isnan(p.er_size) && !std::isnan(p.er_level);
    return within(p.er_size, kErShortest, kErLongest) && p.er_level >= 0.0f;
}

bool in_range(const qv_reverb_params& p) {
    return p.size > 0.0f && p.size <= kLongestSize && p.t60 > 0.0f && p.cascade_stages >= 0 &&
           p.cascade_stages <= BRISEL_MAX_STAGES && p.t60_high >= 0.0f &&
           within(p.damp, 0.0f, 1.0f) && within(p.mix, 0.0f, 1.0f) && within(p.width, 0.0f, 1.0f) &&
           early_in_range(p) && within(p.eq_low_db, -kEqLimitDb, kEqLimitDb) &&
           within(p.eq_high_db, -kEqLimitDb, kEqLimitDb);
}

struct LineLengths {
    uint32_t delays[BRISEL_LINES];
    uint32_t ring_sizes[BRISEL_LINES];
};

// Line 0 takes `size` seconds, the others grow with the primes.
LineLengths line_lengths(int32_t sample_rate, float size) {
    const float scale =
        (static_cast<float>(sample_rate) * size) / static_cast<float>(kLinePrimes[0]);
    LineLengths lines{};
    for (int line = 0; line < BRISEL_LINES; ++line) {
        // Rounded half up, in operations that the compiler turns into vector code. Below 2^31: the
        // longest line takes 0.75 s.
        const float length = static_cast<float>(kLinePrimes[line]) * scale;
        const float whole = std::floor(length);
        const int32_t samples = static_cast<int32_t>(whole) + (length - whole >= 0.5f);
        lines.delays[line] = static_cast<uint32_t>(std::max(samples, 1));
        lines.ring_sizes[line] = brisel::ring_size_above(lines.delays[line]);
    }
    return lines;
}

uint64_t total_floats(const LineLengths& lines) {
    uint64_t total = 0;
    for (uint32_t size : lines.ring_sizes) total += size;
    return total;
}

// Every line has to hold a whole block; line 0 is the shortest.
bool holds_block(const LineLengths& lines, int32_t max_frames) {
    return lines.delays[0] >= static_cast<uint32_t>(max_frames);
}

// High-band decay time in seconds, 0 for none.
float high_band_t60(const qv_reverb_params& p) {
    return p.damp > 0.0f ? std::pow(0.1f, p.damp) * p.t60 : p.t60_high;
}

bool allocate_storage(ReverbObject& object) {
    qv_reverb& rev = object.pub;
    const auto frames = static_cast<uint64_t>(rev.max_frames);
    for (float** buffer : {&rev.buf_wet_l, &rev.buf_wet_r, &rev.buf_er_in, &rev.buf_er_l,
                           &rev.buf_er_r, &rev.buf_aux, &rev.buf_in_l, &rev.buf_in_r})
        if (!(*buffer = brisel::allocate_floats(frames))) return false;

    object.ring =
        brisel::allocate_floats(total_floats(line_lengths(rev.sample_rate, kLongestSize)));
    object.tap_block = brisel::allocate_floats(BRISEL_LINES * frames);
    object.work_block = brisel::allocate_floats(BRISEL_LINES * frames);
    if (!object.ring || !object.tap_block || !object.work_block) return false;

    ffdn_n16_cascade_params cascade;
    ffdn_n16_default_cascade_params(BRISEL_MAX_STAGES, cascade.stage_delays[0]);
    for (int s = 0; s < BRISEL_MAX_STAGES; ++s) {
        ffdn_block_stage& stage = object.stages[s];
        brisel::lay_out_stage(stage, reinterpret_cast<uint32_t*>(cascade.stage_delays[s]));
        stage.ring = brisel::allocate_floats(uint64_t{BRISEL_LINES} * stage.size);
        if (!stage.ring) return false;
    }

    // The latest early reflection there is, and a block.
    const auto latest = static_cast<uint32_t>(brisel::latest_tap(rev.sample_rate, kErLongest));
    object.er_ring = brisel::allocate_floats(
        brisel::ring_size_above(latest + static_cast<uint32_t>(frames), 32));
    return object.er_ring != nullptr;
}

void clear(float* from, uint64_t count) {
    std::memset(from, 0, count * sizeof *from);
}

// Clears what the network in force has written: all rings started at position 0.
void silence_storage(ReverbObject& object) {
    const ffdn_block_n16& e = object.pub.engine;
    const uint64_t written = object.frames_written;
    if (written == 0) return; // there may be no network yet
    for (int line = 0; line < BRISEL_LINES; ++line)
        clear(e.ring + e.line_offset[line], std::min(uint64_t{e.line_mask[line]} + 1, written));
    for (int32_t s = 0; s < e.stage_count; ++s) {
        const ffdn_block_stage& stage = e.stages[s];
        if (written >= stage.size) {
            clear(stage.ring, uint64_t{BRISEL_LINES} * stage.size);
        } else {
            for (size_t line = 0; line < BRISEL_LINES; ++line)
                clear(stage.ring + line * stage.size, written);
        }
    }
    if (object.pub.er_active)
        clear(object.er_ring, std::min(static_cast<uint64_t>(object.pub.er.ring_len), written));
    object.frames_written = 0;
}

// Gains of one side: its own lines get base + w / sqrt(8), the others base. The energy is 1 at both
// ends of w.
void width_gains(float* left, float* right, float width) {
    const float base = (1.0f - width) * 0.25f;
    const float own = std::fma(width, brisel::kInvSqrt8, base);
    for (int line = 0; line < BRISEL_LINES; ++line) {
        left[line] = line % 2 == 0 ? own : base;
        right[line] = line % 2 == 0 ? base : own;
    }
}

// Lays the network of checked settings out in silent storage.
void build_network(ReverbObject& object, const qv_reverb_params& p, const LineLengths& lines) {
    const qv_reverb& rev = object.pub;
    ffdn_block_n16& e = object.pub.engine;
    e = {};
    brisel::lay_out_lines(e, lines.delays, lines.ring_sizes, rev.max_frames);
    e.ring = object.ring;
    e.tap_block = object.tap_block;
    e.work_block = object.work_block;

    std::copy_n(object.stages, p.cascade_stages, e.stages);
    e.stage_count = p.cascade_stages;
    brisel::set_decay_gains(e, rev.sample_rate, p.t60);
    const float t60_high = high_band_t60(p);
    if (t60_high > 0.0f) ffdn_block_n16_set_two_band_t60(&e, rev.sample_rate, p.t60, t60_high);

    float left[BRISEL_LINES];
    float right[BRISEL_LINES];
    width_gains(left, right, p.width);
    ffdn_block_n16_set_stereo_outputs(&e, left, right, 0.0f, 0.0f);
    ffdn_block_n16_set_stereo_inputs(&e, nullptr, nullptr);
    // Lines too short to be modulated stay still.
    if (p.modulate) brisel::start_modulation(e, kModulationDepth, object.modulation);
}

// Puts the taps of early reflections of `size` seconds into object.taps, unless they are there.
// Returns false when there are none.
bool prepare_taps(ReverbObject& object, float size) {
    if (object.taps_size == size) return true;
    const qv_reverb& rev = object.pub;
    ffdn_er taps{};
    if (!brisel::lay_out_taps(&taps, kErTaps, rev.max_frames, rev.sample_rate, kErSeed, size))
        return false;
    object.taps = taps;
    object.taps_size = size;
    return true;
}

} // namespace

qv_reverb* qv_reverb_create(int32_t sample_rate, int32_t max_frames) {
    if (sample_rate <= 0 || max_frames <= 0 || max_frames % 8 != 0) return nullptr;
    // Before any allocation, whose size a hopeless block length would decide.
    if (!holds_block(line_lengths(sample_rate, kDefaults.size), max_frames)) return nullptr;
    auto* object = static_cast<ReverbObject*>(std::calloc(1, sizeof(ReverbObject)));
    if (!object) return nullptr;
    qv_reverb& rev = object->pub;
    rev.max_frames = max_frames;
    rev.sample_rate = sample_rate;
    rev.params = kDefaults;
    object->modulation = brisel::draw_modulation(sample_rate, kModulationSeed, kModulationSlowest,
                                                 kModulationFastest);
    if (allocate_storage(*object) && ffdn_eq_init(&rev.eq, sample_rate, kEqLowHz, kEqHighHz) == 0) {
        rev.eq_ready = 1;
        if (qv_reverb_set(&rev, &rev.params) == 0) return &rev;
    }
    qv_reverb_destroy(&rev);
    return nullptr;
}

int32_t qv_reverb_set(qv_reverb* rev, const qv_reverb_params* params) {
    if (!rev || !params || !in_range(*params)) return -1;
    const qv_reverb_params p = *params; // `params` may be the record that is written below

    // Everything that can be refused comes before the first change.
    const LineLengths lines = line_lengths(rev->sample_rate, p.size);
    if (!holds_block(lines, rev->max_frames)) return -1;
    ReverbObject& object = object_of(rev);
    if (p.er_enable && !prepare_taps(object, p.er_size)) return -1;

    silence_storage(object);
    build_network(object, p, lines);
    rev->er = {};
    if (p.er_enable) {
        rev->er = object.taps;
        rev->er.ring = object.er_ring;
    }
    rev->engine_ready = 1;
    rev->er_active = p.er_enable ? 1 : 0;
    rev->params = p;
    rev->longest_delay = static_cast<int32_t>(lines.delays[BRISEL_LINES - 1]);
    ffdn_eq_set_gains(&rev->eq, p.eq_low_db, p.eq_high_db);
    return 0;
}

void qv_reverb_destroy(qv_reverb* rev) {
    if (!rev) return;
    ReverbObject& object = object_of(rev);
    for (float* buffer : {rev->buf_wet_l, rev->buf_wet_r, rev->buf_er_in, rev->buf_er_l,
                          rev->buf_er_r, rev->buf_aux, rev->buf_in_l, rev->buf_in_r, object.ring,
                          object.tap_block, object.work_block, object.stages[0].ring,
                          object.stages[1].ring, object.stages[2].ring, object.er_ring})
        std::free(buffer);
    std::free(&object);
}
