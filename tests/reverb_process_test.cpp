// The reverb at work: random lives against one built and run by the definition alone, bit for bit with
// all state, in every channel layout and with non-finite input; refusals, the floating-point mode, the
// flush.
#include <xmmintrin.h>

#include "tests/plain_reverb.h"
#include "tests/reverb_object.h"

namespace {

using namespace reverb_object;
using compare::Guarded;
using compare::Random;
using compare::Signal;

} // namespace

TEST(ReverbProcess, EqualsTheDefinitionOverRandomLives) {
    int refused_sets = 0, accepted_sets = 0;
    for (uint64_t life = 0; life < 40 && !HasFailure(); ++life) {
        SCOPED_TRACE(testing::Message() << "life " << life);
        Random random(life);
        const int32_t rate = random.pick({9008, 44100, 48000, 96000});
        const int32_t max_frames = random.pick({8, 64, 256, 344});
        const Reverb rev = create(rate, max_frames);
        ASSERT_TRUE(rev);
        plain::Reverb expected(rate, max_frames);
        ASSERT_TRUE(same_reverb(*rev, *expected.get()));
        for (int step = 0; step < 60 && !HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "step " << step);
            if (random.chance(0.12f)) {
                const qv_reverb_params params = random_params(random);
                const int32_t status = qv_reverb_set(rev.get(), &params);
                EXPECT_EQ(status, plain::reverb_set(expected.get(), &params));
                ++(status == 0 ? accepted_sets : refused_sets);
            }
            if (random.chance(0.03f)) {
                rev->params.mix = expected->params.mix = random.real(0, 1);
                EXPECT_EQ(qv_reverb_set(rev.get(), &rev->params), 0);
                EXPECT_EQ(plain::reverb_set(expected.get(), &expected->params), 0);
            }
            if (random.chance(0.03f)) {
                const uint32_t room = random.integer(1, 3000);
                Guarded left(room), right(room);
                std::vector<float> plain_left(room), plain_right(room);
                const bool stereo = random.chance(0.7f);
                EXPECT_EQ(qv_reverb_flush(rev.get(), left.data(), stereo ? right.data() : nullptr,
                                          static_cast<int32_t>(room)),
                          plain::reverb_flush(expected.get(), plain_left.data(),
                                              stereo ? plain_right.data() : nullptr,
                                              static_cast<int32_t>(room)));
                EXPECT_TRUE(compare::same_bits(left.span(), plain_left));
                EXPECT_TRUE(compare::same_bits(right.span(), plain_right));
                EXPECT_TRUE(left.intact() && right.intact());
            }
            const uint32_t n = random.chance(0.4f)
                                   ? static_cast<uint32_t>(max_frames)
                                   : 8 * random.integer(1, static_cast<uint32_t>(max_frames) / 8);
            const Signal signal = random.chance(0.2f)
                                      ? random.pick({Signal::kDenormal, Signal::kQuiet})
                                  : random.chance(0.2f) ? Signal::kNonFinite
                                  : random.chance(0.2f) ? Signal::kImpulses
                                                        : Signal::kNoise;
            Block got(n, signal, random), model = got;
            const auto frames = static_cast<int32_t>(random.chance(0.03f) ? n + 4 : n);
            EXPECT_EQ(got.render(qv_reverb_process, rev.get(), frames),
                      model.render(plain::reverb_process, expected.get(), frames));
            EXPECT_TRUE(compare::same_bits(got.in_l.span(), model.in_l.span()));
            EXPECT_TRUE(compare::same_bits(got.in_r.span(), model.in_r.span()));
            EXPECT_TRUE(compare::same_bits(got.out_l.span(), model.out_l.span()));
            EXPECT_TRUE(compare::same_bits(got.out_r.span(), model.out_r.span()));
            EXPECT_TRUE(got.intact());
            EXPECT_TRUE(same_reverb(*rev, *expected.get()));
        }
    }
    EXPECT_GT(refused_sets, 20);
    EXPECT_GT(accepted_sets, 50);
}

// Default settings at 48 kHz: line 2 takes 2047 samples in a ring of 2048, and modulation adds 2.
TEST(ReverbProcess, EqualsTheDefinitionWithLongBlocksUntilTheTailIsGone) {
    for (int32_t max_frames : {1024, 1912}) {
        for (int32_t K : {0, 1, 2, 3}) {
            const Reverb rev = create(48000, max_frames);
            plain::Reverb expected(48000, max_frames);
            qv_reverb_params params = rev->params;
            params.cascade_stages = K;
            params.t60 = 0.1f;
            params.damp = 0.05f; // more, and the filters' own poles would outlast the loops
            params.mix = 1.0f;
            params.er_enable = K % 2 == 0;
            params.eq_low_db = K >= 2 ? 3.0f : 0.0f;
            ASSERT_EQ(qv_reverb_set(rev.get(), &params), 0);
            ASSERT_EQ(plain::reverb_set(expected.get(), &params), 0);
            Random random(static_cast<uint64_t>(max_frames + K));
            uint32_t past_ring = 0;
            bool sound = false;
            for (int block = 0; block < 240 && !HasFailure(); ++block) {
                SCOPED_TRACE(testing::Message() << "K " << K << " block " << block);
                // 3 s of silence after 0.5 s of noise: 1800 dB, past the denormal range.
                Block got(static_cast<uint32_t>(max_frames),
                          block < 30 ? Signal::kNoise : Signal::kImpulses, random);
                if (block >= 30) {
                    std::ranges::fill(got.in_l.span(), 0.0f);
                    std::ranges::fill(got.in_r.span(), 0.0f);
                }
                Block model = got;
                const int32_t n = block % 3 == 0
                                      ? max_frames
                                      : 8 * static_cast<int32_t>(random.integer(
                                                1, static_cast<uint32_t>(max_frames) / 8));
                ASSERT_EQ(got.render(qv_reverb_process, rev.get(), n), 0);
                ASSERT_EQ(model.render(plain::reverb_process, expected.get(), n), 0);
                EXPECT_TRUE(compare::same_bits(got.output_l().span(), model.output_l().span()));
                EXPECT_TRUE(compare::same_bits(got.output_r().span(), model.output_r().span()));
                EXPECT_TRUE(same_reverb(*rev, *expected.get()));
                for (size_t i = 0; i < 16; ++i) {
                    past_ring += rev->engine.line_delay[i] > rev->engine.line_mask[i] + 1;
                }
                sound = ffdn_block_n16_state_energy(&rev->engine) != 0.0;
            }
            EXPECT_GT(past_ring, 0u);
            EXPECT_FALSE(sound) << "the tail has not reached silence";
        }
    }
}

TEST(ReverbProcess, RefusalsWriteAndChangeNothing) {
    const Reverb rev = create(48000, 256), untouched = create(48000, 256);
    std::vector<float> in(4096, 0.5f), out(4096, 7.0f);
    for (const Reverb* r : {&rev, &untouched}) {
        std::vector<float> warm(256);
        ASSERT_EQ(qv_reverb_process(r->get(), in.data(), in.data(), warm.data(), warm.data(), 256),
                  0);
    }
    for (int32_t frames : {-8, 0, 4, 12, 255, 264, 4096}) {
        EXPECT_EQ(
            qv_reverb_process(rev.get(), in.data(), in.data(), out.data(), out.data(), frames), -1)
            << frames;
    }
    EXPECT_EQ(qv_reverb_process(nullptr, in.data(), in.data(), out.data(), out.data(), 64), -1);
    EXPECT_EQ(qv_reverb_process(rev.get(), nullptr, in.data(), out.data(), out.data(), 64), -1);
    EXPECT_EQ(qv_reverb_process(rev.get(), in.data(), in.data(), nullptr, out.data(), 64), -1);
    EXPECT_EQ(qv_reverb_flush(nullptr, out.data(), out.data(), 64), -1);
    EXPECT_EQ(qv_reverb_flush(rev.get(), nullptr, out.data(), 64), -1);
    EXPECT_EQ(qv_reverb_flush(rev.get(), out.data(), out.data(), 0), -1);
    EXPECT_EQ(qv_reverb_flush(rev.get(), out.data(), out.data(), -1), -1);
    EXPECT_EQ(qv_reverb_flush(rev.get(), out.data(), out.data(), 7), 0);
    EXPECT_EQ(out, std::vector<float>(4096, 7.0f));
    EXPECT_TRUE(same_reverb(*rev, *untouched));
}

// The control word, rounding mode and sticky exception flags included, on every way out.
TEST(ReverbProcess, RestoresTheFloatingPointControlWord) {
    const Reverb rev = create(48000, 64);
    std::vector<float> in(64, 1e-30f), out_l(64), out_r(64);
    const uint32_t before = _mm_getcsr();
    constexpr uint32_t kWords[] = {0x1f80, 0x1fbf, 0x9fc0, 0x7f80, 0x1f80 | 0x20, 0x1f80 | 0x01};
    for (uint32_t word : kWords) {
        _mm_setcsr(word);
        const int32_t status =
            qv_reverb_process(rev.get(), in.data(), in.data(), out_l.data(), out_r.data(), 64);
        const uint32_t after_process = _mm_getcsr();
        _mm_setcsr(word);
        const int32_t frames = qv_reverb_flush(rev.get(), out_l.data(), out_r.data(), 64);
        const uint32_t after_flush = _mm_getcsr();
        _mm_setcsr(word);
        const int32_t refused =
            qv_reverb_process(rev.get(), in.data(), in.data(), out_l.data(), out_r.data(), 60);
        const uint32_t after_refusal = _mm_getcsr();
        // A network that refuses: a line shorter than the block.
        const uint32_t delay = rev->engine.line_delay[3], mod = rev->engine.mod_enabled;
        rev->engine.line_delay[3] = 32;
        rev->engine.mod_enabled = 0;
        _mm_setcsr(word);
        const int32_t failed =
            qv_reverb_process(rev.get(), in.data(), in.data(), out_l.data(), out_r.data(), 64);
        const uint32_t after_failure = _mm_getcsr();
        rev->engine.line_delay[3] = delay;
        rev->engine.mod_enabled = mod;
        _mm_setcsr(before);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(frames, 64);
        EXPECT_EQ(refused, -1);
        EXPECT_EQ(failed, -1);
        EXPECT_EQ(after_process, word);
        EXPECT_EQ(after_flush, word);
        EXPECT_EQ(after_refusal, word);
        EXPECT_EQ(after_failure, word);
    }
}

TEST(ReverbFlush, CountsItsFrames) {
    constexpr int32_t F = 256, L = 2867;
    std::vector<float> left(20000), right(20000);
    const auto flushed = [&](qv_reverb* rev, int32_t room) {
        left.assign(20000, 7.0f);
        right = left;
        const int32_t frames = qv_reverb_flush(rev, left.data(), right.data(), room);
        const auto unwritten = std::span(left).subspan(static_cast<size_t>(std::max(frames, 0)));
        EXPECT_TRUE(std::ranges::all_of(unwritten, [](float y) { return y == 7.0f; }));
        return frames;
    };
    const Reverb rev = create(48000, F);
    for (const auto& [room, frames] :
         {std::pair{1, 0}, {7, 0}, {8, 8}, {15, 8}, {F, F}, {F + 5, F}, {2 * F + 20, 2 * F + 16}}) {
        EXPECT_EQ(flushed(rev.get(), room), frames) << "room " << room;
    }
    // Silence is looked for once F + L frames have passed, in whole blocks.
    constexpr int32_t kSilent = (F + L + F - 1) / F * F;
    EXPECT_EQ(flushed(create(48000, F).get(), 20000), kSilent);

    // The gain does not decide about silence, and the dry signal is silence.
    for (float mix : {0.0f, 1.0f}) {
        const Reverb sounding = create(48000, F);
        qv_reverb_params params = sounding->params;
        params.t60 = 0.05f;
        params.damp = 0.0f;
        params.mix = mix;
        ASSERT_EQ(qv_reverb_set(sounding.get(), &params), 0);
        std::vector<float> in(F, 1.0f), out(F);
        for (int block = 0; block < 20; ++block) {
            ASSERT_EQ(qv_reverb_process(sounding.get(), in.data(), nullptr, out.data(), nullptr, F),
                      0);
        }
        const int32_t frames = flushed(sounding.get(), 20000);
        // -200 dB takes a good 0.16 s.
        EXPECT_GT(frames, 7500);
        EXPECT_LT(frames, 15000);
        EXPECT_EQ(frames % F, 0);
        const float loudest = *std::ranges::max_element(std::span(left).first(size_t(frames)));
        EXPECT_EQ(loudest == 0.0f, mix == 0.0f);
        EXPECT_EQ(flushed(sounding.get(), 20000), kSilent); // the tail is over, and counted anew
    }
}
