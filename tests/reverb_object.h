// Reverb objects under test: ownership, comparison of their whole state, blocks of audio of every
// channel layout, random settings.
#ifndef BRISEL_TESTS_REVERB_OBJECT_H
#define BRISEL_TESTS_REVERB_OBJECT_H

#include <brisel/reverb.h>

#include <array>
#include <memory>

#include "tests/compare.h"

namespace reverb_object {

using compare::Guarded;
using compare::Random;
using compare::Signal;

struct Destroy {
    void operator()(qv_reverb* rev) const { qv_reverb_destroy(rev); }
};
using Reverb = std::unique_ptr<qv_reverb, Destroy>;

inline Reverb create(int32_t sample_rate, int32_t max_frames) {
    return Reverb(qv_reverb_create(sample_rate, max_frames));
}

inline testing::AssertionResult same_params(const qv_reverb_params& got,
                                            const qv_reverb_params& expected) {
    std::array<uint32_t, 13> a, b;
    static_assert(sizeof a == sizeof got);
    std::memcpy(a.data(), &got, sizeof a);
    std::memcpy(b.data(), &expected, sizeof b);
    return compare::same_all(std::span<const uint32_t>(a), std::span<const uint32_t>(b));
}

inline testing::AssertionResult same_reverb(const qv_reverb& got, const qv_reverb& expected) {
    compare::FieldCheck check(got, expected);
    check.note("engine", compare::same_state(got.engine, expected.engine))
        .note("eq", compare::same_state(got.eq, expected.eq))
        .note("params", same_params(got.params, expected.params))
        .field("sample_rate", &qv_reverb::sample_rate)
        .field("max_frames", &qv_reverb::max_frames)
        .field("longest_delay", &qv_reverb::longest_delay)
        .field("engine_ready", &qv_reverb::engine_ready)
        .field("er_active", &qv_reverb::er_active)
        .field("eq_ready", &qv_reverb::eq_ready);
    if (got.er_active != 0) check.note("er", compare::same_state(got.er, expected.er));
    for (int32_t t = 0; t < got.max_frames; ++t) {
        if (got.buf_aux[t] != 0.0f) check.note("buf_aux", testing::AssertionFailure() << "written");
    }
    return check.result();
}

// The first two channels are inputs, the other two outputs; in place they are the same buffers.
struct Block {
    Guarded in_l, in_r, out_l, out_r;
    bool stereo_in, stereo_out, in_place;

    Block(uint32_t n, Signal signal, Random& random)
        : in_l(compare::make(n, signal, random), random.integer(0, 7)),
          in_r(compare::make(n, signal, random), random.integer(0, 7)),
          out_l(compare::make(n, Signal::kNoise, random), random.integer(0, 7)),
          out_r(compare::make(n, Signal::kNoise, random), random.integer(0, 7)),
          stereo_in(random.chance(0.7f)), stereo_out(random.chance(0.7f)),
          in_place(random.chance(0.3f)) {}

    template <typename Process>
    int32_t render(Process process, qv_reverb* rev, int32_t n) {
        return process(rev, in_l.data(), stereo_in ? in_r.data() : nullptr, output_l().data(),
                       stereo_out ? output_r().data() : nullptr, n);
    }
    Guarded& output_l() { return in_place ? in_l : out_l; }
    Guarded& output_r() { return in_place ? in_r : out_r; }
    bool intact() const {
        return in_l.intact() && in_r.intact() && out_l.intact() && out_r.intact();
    }
};

// Settings of all kinds, mostly accepted.
inline qv_reverb_params random_params(Random& random) {
    const auto sometimes_zero = [&](float x) { return random.chance(0.4f) ? 0.0f : x; };
    return {.size = random.chance(0.1f)   ? 0.5f
                    : random.chance(0.1f) ? random.real(-0.01f, 0.02f)
                                          : random.real(0.01f, 0.06f),
            .t60 = random.real(-0.05f, 4.0f),
            .cascade_stages = static_cast<int32_t>(random.integer(0, 19)) % 5 % 4,
            .t60_high = sometimes_zero(random.real(0.01f, 3.0f)),
            .damp = sometimes_zero(random.real(0.0f, 1.02f)),
            .mix = random.chance(0.2f) ? 1.0f : sometimes_zero(random.real(0.0f, 1.0f)),
            .width = random.chance(0.2f) ? 1.0f : sometimes_zero(random.real(0.0f, 1.0f)),
            .modulate = random.integer(0, 2),
            .er_enable = random.integer(0, 1) * random.integer(1, 2),
            .er_size = random.chance(0.1f) ? 0.004f : random.real(0.006f, 0.1f),
            .er_level = sometimes_zero(random.real(0.0f, 1.5f)),
            .eq_low_db = sometimes_zero(random.real(-24.0f, 24.2f)),
            .eq_high_db = sometimes_zero(random.real(-24.0f, 24.2f))};
}

} // namespace reverb_object

#endif
