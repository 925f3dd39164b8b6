// The reverb object: the network that its settings build, random lives against plain loops on a
// second object, the restart from silence, the floating-point mode, the flush.
#include <malloc.h>
#include <xmmintrin.h>

#include <array>

#include "tests/compare.h"
#include "tests/plain.h"

namespace {

using compare::create;
using compare::Guarded;
using compare::Random;
using compare::Reverb;
using compare::Signal;

} // namespace

TEST(Reverb, HasTheDocumentedDefaultsAndTheirNetwork) {
    const Reverb rev = create(48000, 256);
    const qv_reverb_params defaults = {0.04f, 2.0f, 2,     0.0f, 0.3f, 0.3f, 0.8f,
                                       1,     0,    0.06f, 0.5f, 0.0f, 0.0f};
    EXPECT_TRUE(compare::same(rev->params, defaults));
    // 40 ms and its multiples by 997, 1031 .. 1489 over 997; the ring of each is the next power of
    // two.
    const uint32_t delays[] = {1920, 1985, 2047, 2113, 2174, 2240, 2297, 2367,
                               2425, 2486, 2544, 2621, 2694, 2752, 2798, 2867};
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(rev->engine.line_delay[i], delays[i]) << i;
        EXPECT_EQ(rev->engine.line_mask[i], std::bit_ceil(delays[i] + 1) - 1) << i;
    }
    EXPECT_EQ(rev->longest_delay, 2867);
    EXPECT_STREQ(qv_dsp_version(), "0.1.0");
    EXPECT_EQ(qv_dsp_cpu_features() & 1, 1u); // the tests could not run without AVX2
}

// Every setting reaches its part of the object: the same parts, built by the engines' own setters.
TEST(Reverb, SettingsBuildWhatTheEnginesSettersBuild) {
    Random random(1);
    for (int k = 0; k < 60 && !HasFailure(); ++k) {
        const int32_t rate = random.pick({9008, 44100, 48000, 96000});
        const Reverb rev = create(rate, 256);
        qv_reverb_params p = compare::random_params(random);
        if (qv_reverb_set(rev.get(), &p) != 0) continue;
        SCOPED_TRACE(testing::Message() << "settings " << k << " at " << rate << " Hz");
        int32_t delays[16];
        uint32_t sizes[16];
        const int32_t primes[] = {997,  1031, 1063, 1097, 1129, 1163, 1193, 1229,
                                  1259, 1291, 1321, 1361, 1399, 1429, 1453, 1489};
        const float scale = static_cast<float>(rate) * p.size / 997.0f;
        for (size_t i = 0; i < 16; ++i) {
            delays[i] = static_cast<int32_t>(std::round(static_cast<float>(primes[i]) * scale));
            sizes[i] = std::bit_ceil(static_cast<uint32_t>(delays[i]) + 1);
        }
        compare::Engine e;
        const auto K = static_cast<uint32_t>(p.cascade_stages);
        const float high = p.damp > 0 ? std::pow(0.1f, p.damp) * p.t60 : p.t60_high;
        const auto hz = static_cast<uint32_t>(rate);
        ASSERT_EQ(ffdn_block_n16_init(&e, delays, sizes, 256, hz, p.t60), 0);
        ASSERT_EQ(ffdn_block_n16_set_cascade(&e, K, nullptr, hz, p.t60), 0);
        if (high > 0) ffdn_block_n16_set_two_band_t60(&e, rate, p.t60, high);
        if (p.modulate) ffdn_block_n16_set_modulation(&e, 2, rate, 0xC0DECAFE12345678, 0.3f, 1.2f);
        ffdn_block_n16_set_stereo_inputs(&e, nullptr, nullptr);
        ffdn_block_n16_set_stereo_outputs(&e, rev->engine.out_left, rev->engine.out_right, 0, 0);
        EXPECT_TRUE(compare::same<ffdn_block_n16>(rev->engine, e));
        compare::Early er;
        if (p.er_enable) {
            ASSERT_EQ(ffdn_er_init(&er, 12, 256, rate, 0xE2C0FFEE12345678, p.er_size), 0);
            EXPECT_TRUE(compare::same<ffdn_er>(rev->er, er));
        } else {
            er.ring = nullptr;
        }
        ffdn_eq eq;
        ASSERT_EQ(ffdn_eq_init(&eq, rate, 250, 4500), 0);
        ffdn_eq_set_gains(&eq, p.eq_low_db, p.eq_high_db);
        EXPECT_TRUE(compare::same(rev->eq, eq));

        // Width moves the odd lines from the left output, the even ones from the right. A side's
        // own lines get more by width / sqrt(8); its energy is 1 at both ends.
        double energy[2] = {}, difference[2] = {};
        for (size_t i = 0; i < 16; ++i) {
            const double gains[2] = {rev->engine.out_left[i], rev->engine.out_right[i]};
            for (const size_t side : {size_t{0}, size_t{1}}) {
                energy[side] += gains[side] * gains[side];
                difference[side] += (i % 2 == side ? gains[side] : -gains[side]) / 8;
            }
        }
        const double w = double{p.width}, base = (1 - w) / 4, own = base + w / std::sqrt(8.0);
        constexpr double kRounding = 16 * 0x1p-24; // of sixteen gains below 1
        for (const size_t side : {size_t{0}, size_t{1}}) {
            EXPECT_NEAR(energy[side], 8 * (own * own + base * base), kRounding);
            EXPECT_NEAR(difference[side], own - base, kRounding);
        }
    }
}

namespace {

// The object and, built alike, the second one, which the plain loops work on.
class Life {
public:
    Life(uint64_t stream, int32_t rate, int32_t frames)
        : random(stream), rate_(rate), frames_(frames), got(create(rate, frames)),
          expected(create(rate, frames)) {}

    // An accepted set leaves the object, however long it has sounded, like a new one with the same
    // settings, but for the EQ's memories.
    bool set(const qv_reverb_params& params) {
        Reverb fresh = create(rate_, frames_);
        const int32_t status = qv_reverb_set(got.get(), &params);
        EXPECT_EQ(qv_reverb_set(fresh.get(), &params), status);
        if (status == 0) {
            std::copy_n(expected->eq.state, 8, fresh->eq.state);
            expected = std::move(fresh);
        }
        check_state();
        return status == 0;
    }

    // Every channel layout, in place or not.
    void process(int32_t n, Signal signal) {
        const auto size = static_cast<size_t>(n);
        const bool stereo_in = random.chance(0.7f), stereo_out = random.chance(0.7f);
        std::vector<Guarded> in, out;
        for (int side = 0; side < 2; ++side)
            in.emplace_back(compare::make(size, signal, random), random.integer(0, 7));
        out = in; // in place
        std::vector<float> plain_l(size), plain_r(out[1].span().begin(), out[1].span().end());
        const bool in_place = random.chance(0.3f);
        auto& from = in_place ? out : in;
        const int32_t status =
            qv_reverb_process(got.get(), from[0].data(), stereo_in ? from[1].data() : nullptr,
                              out[0].data(), stereo_out ? out[1].data() : nullptr, n);
        EXPECT_EQ(plain::reverb_process(expected.get(), in[0].data(),
                                        stereo_in ? in[1].data() : nullptr, plain_l.data(),
                                        stereo_out ? plain_r.data() : nullptr, n),
                  status);
        check(out[0], plain_l);
        check(out[1], plain_r);
        EXPECT_TRUE(in[0].intact() && in[1].intact());
        if (random.chance(0.1f)) check_state();
    }

    void flush(uint32_t room, bool stereo) {
        Guarded left(room), right(room);
        std::vector<float> plain_l(room), plain_r(room);
        const auto n = static_cast<int32_t>(room);
        EXPECT_EQ(qv_reverb_flush(got.get(), left.data(), stereo ? right.data() : nullptr, n),
                  plain::reverb_flush(expected.get(), plain_l.data(),
                                      stereo ? plain_r.data() : nullptr, n));
        check(left, plain_l);
        check(right, plain_r);
    }

    void check_state() { EXPECT_TRUE(compare::same(*got, *expected)); }

    Random random;

private:
    static void check(Guarded& got, const std::vector<float>& expected) {
        EXPECT_TRUE(compare::same<std::span<const float>>(got.span(), expected));
        EXPECT_TRUE(got.intact());
    }
    const int32_t rate_, frames_;

public:
    Reverb got, expected;
};

} // namespace

TEST(Reverb, EqualsThePlainLoopsOverRandomLivesAndRestartsFromSilence) {
    int refused = 0, accepted = 0;
    for (uint64_t k = 0; k < 50 && !HasFailure(); ++k) {
        Random choice(100 + k);
        const int32_t frames = choice.pick({8, 64, 256, 344});
        Life life(k, choice.pick({9008, 44100, 48000, 64000, 96000}), frames);
        for (int step = 0; step < 60 && !HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "life " << k << ", step " << step);
            if (choice.chance(0.12f)) {
                qv_reverb_params params = compare::random_params(choice);
                if (choice.chance(0.2f)) params = life.got->params; // these restart it, too
                if (choice.chance(0.2f)) params.er_enable = 1, params.er_size = 0.5f;
                ++(life.set(params) ? accepted : refused);
            }
            if (choice.chance(0.03f)) life.flush(choice.integer(1, 3000), choice.chance(0.7f));
            const int32_t n =
                choice.chance(0.4f)
                    ? frames
                    : 8 * static_cast<int32_t>(choice.integer(1, uint32_t(frames) / 8));
            const Signal signal = choice.chance(0.5f)
                                      ? Signal::kNoise
                                      : choice.pick({Signal::kDenormal, Signal::kQuiet,
                                                     Signal::kNonFinite, Signal::kImpulses});
            // Sometimes several turns of the longest ring.
            for (uint32_t repeat = choice.chance(0.01f) ? 300 : 1; repeat > 1; --repeat)
                life.process(n, Signal::kNoise);
            life.process(n, signal);
        }
        life.check_state();
    }
    EXPECT_GT(refused, 20);
    EXPECT_GT(accepted, 100);
}

// Whatever is set later, the storage was taken at creation.
TEST(Reverb, StorageHoldsTheLongestLinesAndReflectionsAndABlock) {
    for (const int32_t rate : {9008, 44100, 48000, 64000, 96000, 128000}) {
        for (const int32_t frames : {8, 1024}) {
            const Reverb rev = create(rate, rate > 40000 ? frames : 8);
            qv_reverb_params params = rev->params;
            params.size = params.er_size = 0.5f;
            params.er_enable = 1;
            ASSERT_EQ(qv_reverb_set(rev.get(), &params), 0);
            const auto room = [](float* from) { return malloc_usable_size(from) / sizeof(float); };
            EXPECT_GE(room(rev->er.ring), static_cast<size_t>(rev->er.ring_len)) << rate;
            EXPECT_GE(room(rev->engine.ring), rev->engine.ring_len) << rate;
        }
    }
}

// The control word, rounding mode and sticky exception flags included, on every way out.
TEST(Reverb, RestoresTheFloatingPointControlWord) {
    const Reverb rev = create(48000, 64);
    std::vector<float> in(64, 1e-30f), left(64), right(64);
    const auto process = [&](int32_t n) {
        return qv_reverb_process(rev.get(), in.data(), in.data(), left.data(), right.data(), n);
    };
    const uint32_t before = _mm_getcsr();
    for (const uint32_t word : {0x1f80u, 0x1fbfu, 0x9fc0u, 0x7f80u, 0x1fa0u, 0x1f81u}) {
        int32_t status[4];
        uint32_t after[4];
        const auto run = [&](size_t which, auto call) {
            _mm_setcsr(word);
            status[which] = call();
            after[which] = _mm_getcsr();
            _mm_setcsr(before);
        };
        run(0, [&] { return process(64); });
        run(1, [&] { return qv_reverb_flush(rev.get(), left.data(), right.data(), 64); });
        run(2, [&] { return process(60); });
        std::swap(rev->engine.line_mask[3], rev->engine.mod_enabled); // a network that refuses
        run(3, [&] { return process(64); });
        std::swap(rev->engine.line_mask[3], rev->engine.mod_enabled);
        EXPECT_TRUE(std::ranges::equal(status, std::array{0, 64, -1, -1}));
        for (const uint32_t got : after) EXPECT_EQ(got, word);
    }
}

TEST(Reverb, FlushEndsWithTheTailOrTheRoom) {
    constexpr int32_t kF = 256, kL = 2867;
    std::vector<float> left(20000), right(20000);
    const auto flushed = [&](const Reverb& rev, int32_t room) {
        left.assign(20000, 7.0f);
        right = left;
        const int32_t frames = qv_reverb_flush(rev.get(), left.data(), right.data(), room);
        EXPECT_EQ(std::count(left.begin() + frames, left.end(), 7.0f), 20000 - frames);
        return frames;
    };
    const Reverb rev = create(48000, kF);
    for (const auto& [room, frames] :
         {std::pair{1, 0}, {7, 0}, {15, 8}, {kF, kF}, {kF + 5, kF}, {2 * kF + 20, 2 * kF + 16}})
        EXPECT_EQ(flushed(rev, room), frames) << "room " << room;
    // Silence is looked for once kF + kL frames have passed, in whole blocks.
    constexpr int32_t kSilent = (kF + kL + kF - 1) / kF * kF;
    EXPECT_EQ(flushed(create(48000, kF), 20000), kSilent);

    // The gain does not decide about silence, and the dry signal is silence.
    for (const float mix : {0.0f, 1.0f}) {
        const Reverb sounding = create(48000, kF), twin = create(48000, kF);
        for (const Reverb* r : {&sounding, &twin}) {
            qv_reverb_params params = (*r)->params;
            params.t60 = 0.05f;
            params.damp = 0.0f;
            params.mix = mix;
            params.width = 1.0f; // the right side hears of a left input only by the matrix
            ASSERT_EQ(qv_reverb_set(r->get(), &params), 0);
            std::vector<float> in(kF, 1.0f), out(kF);
            for (int block = 0; block < 20; ++block)
                ASSERT_EQ(qv_reverb_process(r->get(), in.data(), nullptr, out.data(), nullptr, kF),
                          0);
        }
        const int32_t frames = flushed(sounding, 20000);
        EXPECT_GT(frames, 7500); // -200 dB takes a good 0.16 s
        EXPECT_EQ(*std::max_element(left.begin(), left.begin() + frames) == 0.0f, mix == 0.0f);
        EXPECT_EQ(plain::reverb_flush(twin.get(), left.data(), right.data(), 20000), frames);
        EXPECT_EQ(flushed(sounding, 20000), kSilent); // the tail is over, and counted anew
    }
}
