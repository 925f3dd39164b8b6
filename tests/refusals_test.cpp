// What every function of the library refuses: it says so, and nothing has changed.
#include <cstring>
#include <functional>

#include "brisel/fdn_delay_stage_ref.h"
#include "tests/compare.h"

namespace {

using compare::kInfinity;
using compare::kNaN;

constexpr int32_t kRate = 48000;

struct Lines {
    int32_t delays[16];
    int32_t sizes[16];
    const uint32_t* unsigned_sizes() const { return reinterpret_cast<const uint32_t*>(sizes); }
};

Lines lines(int32_t delay_of_5 = 1023, int32_t size_of_5 = 1024) {
    Lines all;
    std::fill_n(all.delays, 16, 1023); // the longest that there can be
    std::fill_n(all.sizes, 16, 1024);
    all.delays[5] = delay_of_5;
    all.sizes[5] = size_of_5;
    return all;
}

// Line 5 of each is unusable.
const Lines kUnusable[] = {lines(1024, 1024), lines(10, 1000), lines(0, 0), lines(-1, 1024),
                           lines(1, -1024)};

struct Call {
    const char* text;
    std::function<int64_t()> call;
};
#define CALL(expression)                                                                           \
    Call {                                                                                         \
#expression, [&] { return expression; }                                                    \
    }

template <typename Record>
void expect_refused(std::initializer_list<Call> calls, const Record& record, int64_t status = -1) {
    const compare::State before = compare::state(record);
    for (const Call& c : calls) {
        EXPECT_EQ(c.call(), status) << c.text;
        EXPECT_EQ(compare::state(record), before) << c.text;
    }
}

std::vector<float> sound(2048, 0.25f), out(2048, 7.0f);
float *x = sound.data(), *y = out.data();

bool nothing_written() {
    return std::count(out.begin(), out.end(), 7.0f) == std::ssize(out);
}

// What the setters of both engines refuse alike; the functions in the order of their declarations.
template <typename E, typename Cascade, typename Vfm, typename Post, typename Bands, typename Out,
          typename In, typename Delays>
void expect_setters_refuse(E* e, Cascade cascade, Vfm vfm, Post post, Bands bands, Out outputs,
                           In inputs, Delays too_long) {
    E* none = nullptr;
    expect_refused({CALL(cascade(e, 4, nullptr, kRate, 1)), CALL(cascade(e, 2, too_long, kRate, 1)),
                    CALL(cascade(none, 1, nullptr, kRate, 1)), CALL(vfm(e, 4, 0, kRate, 0.5f, 1)),
                    CALL(vfm(e, 2, 0, kRate, 0.0f, 1)), CALL(vfm(e, 2, 0, kRate, 1.01f, 1)),
                    CALL(vfm(e, 3, 0, kRate, 0.0001f, 1)), // delays above 65536
                    CALL(vfm(none, 1, 0, kRate, 0.5f, 1)), CALL(post(e, too_long, kRate, 1)),
                    CALL(post(none, nullptr, kRate, 1)), CALL(bands(e, kRate, 0, 1)),
                    CALL(bands(e, kRate, 1, -1)), CALL(bands(e, kRate, kNaN, 1)),
                    CALL(bands(e, 0, 1, 1)), CALL(bands(none, kRate, 1, 1)),
                    CALL(outputs(none, nullptr, nullptr, 0, 0)),
                    CALL(inputs(none, nullptr, nullptr))},
                   *e);
}

} // namespace

TEST(Refusals, OfTheReverb) {
    // Lengths are multiples of 8; 4500 Hz must lie below half the rate, the shortest line has 1920
    // samples.
    for (const auto& [rate, frames] : {std::pair{kRate, 100},
                                       {kRate, 0},
                                       {kRate, -8},
                                       {0, 64},
                                       {-kRate, 64},
                                       {9000, 64},
                                       {kRate, 1928}})
        EXPECT_FALSE(compare::create(rate, frames)) << rate << ' ' << frames;
    EXPECT_TRUE(compare::create(9001, 64) && compare::create(kRate, 1920));

    const compare::Reverb owned = compare::create(kRate, 256);
    qv_reverb* rev = owned.get();
    qv_reverb_params good = rev->params;
    good.er_enable = 1;
    good.eq_low_db = 4.0f;
    ASSERT_EQ(qv_reverb_set(rev, &good), 0);
    std::vector<float> wet(256);
    for (int block = 0; block < 20; ++block)
        ASSERT_EQ(qv_reverb_process(rev, x, x, wet.data(), wet.data(), 256), 0);
    using P = qv_reverb_params;
    const auto with = [&](auto P::*field, auto value) {
        P params = good;
        params.mix = 0.5f; // a change that must not come through
        params.*field = value;
        return qv_reverb_set(rev, &params);
    };
    struct Range {
        float P::*field;
        std::initializer_list<float> refused;
    };
    for (const Range& range : {
             // At 48 kHz a size below 256 samples cannot hold a block.
             Range{&P::size, {0.0f, -0.04f, 0.501f, 0.005f, kInfinity, kNaN}},
             {&P::t60, {0.0f, -1.0f, kNaN}},
             {&P::t60_high, {-0.1f, kNaN}},
             {&P::damp, {-0.01f, 1.01f, kNaN}},
             {&P::mix, {-0.01f, 1.01f, kNaN}},
             {&P::width, {-0.01f, 1.01f, kNaN}},
             // From 0.001 s on the range allows it, yet the taps need more than 0.005 s.
             {&P::er_size, {0.0005f, 0.003f, 0.005f, 0.51f, kNaN}},
             {&P::er_level, {-0.1f, kNaN}},
             {&P::eq_low_db, {-24.1f, 24.1f, kNaN}},
             {&P::eq_high_db, {-24.1f, 30.0f, kNaN}},
         })
        for (const float value : range.refused)
            expect_refused({CALL(with(range.field, value))}, *rev);
    expect_refused({CALL(with(&P::cascade_stages, -1)), CALL(with(&P::cascade_stages, 4)),
                    CALL(qv_reverb_set(rev, nullptr)), CALL(qv_reverb_set(nullptr, &good)),
                    CALL(qv_reverb_process(nullptr, x, x, y, y, 64)),
                    CALL(qv_reverb_process(rev, nullptr, x, y, y, 64)),
                    CALL(qv_reverb_process(rev, x, x, nullptr, y, 64)),
                    CALL(qv_reverb_flush(nullptr, y, y, 64)),
                    CALL(qv_reverb_flush(rev, nullptr, y, 64)), CALL(qv_reverb_flush(rev, y, y, 0)),
                    CALL(qv_reverb_flush(rev, y, y, -1))},
                   *rev);
    for (const int32_t n : {-8, 0, 4, 255, 264, 2048})
        expect_refused({CALL(qv_reverb_process(rev, x, x, y, y, n))}, *rev);
    EXPECT_TRUE(nothing_written());

    // Without early reflections their settings may be any numbers, and a size may just hold the
    // block.
    good.er_enable = 0;
    ASSERT_EQ(qv_reverb_set(rev, &good), 0);
    expect_refused({CALL(with(&P::er_size, kNaN)), CALL(with(&P::er_level, kNaN))}, *rev);
    good.er_level = -99.0f;
    EXPECT_EQ(with(&P::size, 256.0f / 48000.0f), 0);
}

TEST(Refusals, OfTheBlockEngine) {
    compare::Engine engine;
    ffdn_block_n16* e = &engine;
    const Lines good = lines();
    const auto* sizes = good.unsigned_sizes();
    const std::vector<unsigned char> garbage(sizeof engine, 0xA5);
    EXPECT_EQ(ffdn_block_n16_init(nullptr, good.delays, sizes, 64, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_init(e, nullptr, sizes, 64, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_init(e, good.delays, nullptr, 64, kRate, 1), -1);
    EXPECT_EQ(ffdn_block_n16_init(e, good.delays, sizes, 0, kRate, 1), -1);
    EXPECT_EQ(std::memcmp(e, garbage.data(), sizeof engine), 0);
    for (const Lines& bad : kUnusable) {
        EXPECT_EQ(ffdn_block_n16_init(e, bad.delays, bad.unsigned_sizes(), 64, kRate, 1), -1);
        ffdn_block_n16 expected{}; // but for the lines before the fault
        EXPECT_EQ(e->line_offset[4], 4096u);
        std::memcpy(&expected, e, 256);
        EXPECT_EQ(compare::state(*e), compare::state(expected));
        EXPECT_FALSE(e->ring || e->tap_block || e->work_block);
    }
    ASSERT_EQ(ffdn_block_n16_init(e, good.delays, sizes, 64, kRate, 1), 0);
    ASSERT_EQ(ffdn_block_n16_process(e, x, std::vector<float>(64).data(), 64), 0);
    expect_refused({CALL(ffdn_block_n16_process_stereo(e, x, y, y, 64)),
                    CALL(ffdn_block_n16_process_stereo_in(e, x, x, y, y, 64))},
                   *e);
    ASSERT_EQ(ffdn_block_n16_set_stereo_outputs(e, nullptr, nullptr, 0, 0), 0);
    expect_refused({CALL(ffdn_block_n16_process_stereo_in(e, x, x, y, y, 64))}, *e);
    ASSERT_EQ(ffdn_block_n16_set_cascade(e, 2, nullptr, kRate, 1), 0);
    ASSERT_EQ(ffdn_block_n16_set_two_band_t60(e, kRate, 1, 0.5f), 0);
    uint32_t delays[32] = {65537};
    expect_setters_refuse(e, ffdn_block_n16_set_cascade, ffdn_block_n16_set_vfm,
                          ffdn_block_n16_set_post_delays, ffdn_block_n16_set_two_band_t60,
                          ffdn_block_n16_set_stereo_outputs, ffdn_block_n16_set_stereo_inputs,
                          delays);
    const auto modulate = ffdn_block_n16_set_modulation;
    expect_refused(
        {CALL(modulate(e, 0, kRate, 0, 1, 2)), CALL(modulate(e, 1023 - 31, kRate, 0, 1, 2)),
         CALL(modulate(e, 2, 0, 0, 1, 2)), CALL(modulate(e, 2, kRate, 0, 0, 2)),
         CALL(modulate(e, 2, kRate, 0, 2, 1)), CALL(modulate(nullptr, 2, kRate, 0, 1, 2)),
         CALL(ffdn_block_n16_process(nullptr, x, y, 64)), CALL(ffdn_block_n16_process(e, x, y, 72)),
         CALL(ffdn_block_n16_process(e, x, y, 60))},
        *e);
    EXPECT_TRUE(nothing_written());
    EXPECT_EQ(ffdn_block_n16_set_modulation(e, 1023 - 32, kRate, 0, 1, 2), 0);
    delays[0] = 65536; // just not too long
    EXPECT_EQ(ffdn_block_n16_set_cascade(e, 2, delays, kRate, 1), 0);
    EXPECT_EQ(e->stages[0].size, 131072u);
    for (int twice = 0; twice < 2; ++twice) ffdn_block_n16_free(e);
    EXPECT_FALSE(e->ring || e->stages[0].ring);
    ffdn_block_n16_free(nullptr);
}

TEST(Refusals, OfTheReferenceEngine) {
    for (const Lines& bad : kUnusable) {
        compare::Reference f; // a used record's remains must not be freed
        EXPECT_EQ(ffdn_n16_init(&f, bad.delays, bad.sizes, kRate, 1), -1);
        EXPECT_TRUE(f.line_buf[4] && !f.line_buf[5]);
    }
    compare::Reference f;
    const Lines good = lines();
    EXPECT_EQ(ffdn_n16_init(nullptr, good.delays, good.sizes, kRate, 1), -1);
    ASSERT_EQ(ffdn_n16_init(&f, good.delays, good.sizes, kRate, 1), 0);
    int32_t delays[48] = {65536}, negative[16] = {-1}; // just not too long
    ASSERT_EQ(ffdn_n16_set_cascade(&f, 3, delays, kRate, 1), 0);
    for (int t = 0; t < 2000; ++t) ffdn_n16_process(&f, 0.5f);
    delays[0] = 65537;
    ffdn_n16* plain = &f;
    expect_setters_refuse(plain, ffdn_n16_set_cascade, ffdn_n16_set_vfm, ffdn_n16_set_post_delays,
                          ffdn_n16_set_two_band_t60, ffdn_n16_set_stereo_outputs,
                          ffdn_n16_set_stereo_inputs, delays);
    expect_refused<ffdn_n16>({CALL(ffdn_n16_set_cascade(&f, -1, nullptr, kRate, 1)),
                              CALL(ffdn_n16_set_cascade(&f, 1, negative, kRate, 1)),
                              CALL(ffdn_n16_set_post_delays(&f, negative, kRate, 1))},
                             f);
    for (int twice = 0; twice < 2; ++twice) ffdn_n16_free(&f);
    EXPECT_EQ(f.line_buf[0], nullptr);
    ffdn_n16_free(nullptr);
}

TEST(Refusals, OfEarlyReflectionsEqAndDelayLines) {
    compare::Early er;
    const std::vector<unsigned char> garbage(sizeof er, 0xA5);
    EXPECT_EQ(ffdn_er_init(nullptr, 12, 64, kRate, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&er, 3, 64, kRate, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&er, 25, 64, kRate, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&er, 12, 0, kRate, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&er, 12, 64, 0, 1, 0.06f), -1);
    EXPECT_EQ(ffdn_er_init(&er, 12, 64, kRate, 1, 0.005f), -1);
    EXPECT_EQ(ffdn_er_init(&er, 12, 64, kRate, 1, kNaN), -1);
    EXPECT_EQ(std::memcmp(&er, garbage.data(), sizeof er), 0);
    ASSERT_EQ(ffdn_er_init(&er, 12, 64, kRate, 1, 0.06f), 0);
    expect_refused<ffdn_er>({CALL(ffdn_er_process_stereo(&er, x, y, y, 65)),
                             CALL(ffdn_er_process_stereo(&er, x, y, y, 0)),
                             CALL(ffdn_er_process_stereo(nullptr, x, y, y, 64)),
                             CALL(ffdn_er_process_stereo(&er, nullptr, y, y, 64)),
                             CALL(ffdn_er_process_stereo(&er, x, nullptr, y, 64)),
                             CALL(ffdn_er_process_stereo(&er, x, y, nullptr, 64))},
                            er);
    for (int twice = 0; twice < 2; ++twice) ffdn_er_free(&er);
    EXPECT_EQ(er.ring, nullptr);
    ffdn_er_free(nullptr);

    ffdn_eq eq;
    ASSERT_EQ(ffdn_eq_init(&eq, kRate, 250, 4500), 0);
    ffdn_eq_set_gains(&eq, 6, 3);
    ffdn_eq_process_stereo(&eq, std::vector<float>(64, 1.0f).data(), std::vector<float>(64).data(),
                           64);
    expect_refused(
        {CALL(ffdn_eq_init(nullptr, kRate, 250, 4500)), CALL(ffdn_eq_init(&eq, 0, 250, 4500)),
         CALL(ffdn_eq_init(&eq, kRate, 0, 4500)), CALL(ffdn_eq_init(&eq, kRate, 250, 24000)),
         CALL(ffdn_eq_init(&eq, 9000, 250, 4500)), CALL(ffdn_eq_init(&eq, kRate, 4500, 4500)),
         CALL(ffdn_eq_init(&eq, kRate, kNaN, 4500)),
         CALL((ffdn_eq_process_stereo(&eq, y, y, 0), -1)),
         CALL((ffdn_eq_process_stereo(nullptr, y, y, 64), -1)),
         CALL((ffdn_eq_set_gains(nullptr, 1, 1), -1))},
        eq);
    EXPECT_TRUE(nothing_written());

    for (const Lines& bad : kUnusable) {
        uint32_t got[64];
        std::fill_n(got, 64, 77u);
        EXPECT_EQ(delay_lines_init(got, bad.unsigned_sizes(),
                                   reinterpret_cast<const uint32_t*>(bad.delays)),
                  0u);
        EXPECT_EQ(got[4], 4096u);
        for (size_t field = 0; field < 64; field += 16) EXPECT_EQ(got[field + 5], 77u);
    }
}
