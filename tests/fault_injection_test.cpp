// Memory runs out: every single allocation of every call that allocates fails once. The documented
// status comes back, nothing leaks, and the record is in its documented state.
#include "brisel/ffdn_defaults_n16.h"
#include "tests/clap_host.h"
#include "tests/compare.h"
#include "tests/interposer.h"

namespace {

// Lets each allocation of `call` in turn fail: the call then returns -1 and `check(outstanding)`
// looks at what it left. Returns how many allocations a call makes that succeeds.
template <typename Call, typename Check>
uint64_t fail_each(Call call, Check check) {
    for (uint64_t n = 1;; ++n) {
        SCOPED_TRACE(testing::Message() << "allocation " << n);
        int32_t status = 0;
        const auto made = interposer::with_failing_allocation(n, [&] { status = call(); });
        EXPECT_EQ(status, made.requested < n ? 0 : -1);
        if (made.requested < n || testing::Test::HasFailure()) return n - 1;
        check(made.outstanding);
    }
}

constexpr auto kNothingLeft = [](int64_t outstanding) { EXPECT_EQ(outstanding, 0); };

struct Lines : ffdn_n16_params {
    Lines() { ffdn_n16_default_params(delays, buffer_sizes); }
    const uint32_t* sizes() const { return reinterpret_cast<const uint32_t*>(buffer_sizes); }
} const kLines;

// A cascade setter that finds no memory leaves neither stages nor two-band decay, and all else as
// it was.
template <typename E, typename Cascade, typename Bands, typename Setter>
uint64_t fail_setter(E& e, Cascade cascade, Bands bands, Setter setter) {
    const auto start = [&] {
        EXPECT_EQ(cascade(&e, 2, nullptr, 48000, 1.5f), 0);
        EXPECT_EQ(bands(&e, 48000, 1.5f, 0.5f), 0);
    };
    start();
    const std::vector<float> gains(e.decay_gain, e.decay_gain + 16);
    return fail_each([&] { return setter(&e); },
                     [&](int64_t outstanding) {
                         EXPECT_EQ(outstanding, -2); // the rings of the two former stages are gone
                         EXPECT_TRUE(e.stage_count == 0 && !e.stages[0].ring && !e.stages[1].ring &&
                                     !e.two_band);
                         EXPECT_EQ(std::count(e.shelf_b0, e.shelf_b0 + 16, 0.0f), 16);
                         EXPECT_TRUE(std::equal(gains.begin(), gains.end(), e.decay_gain));
                         start();
                     });
}

} // namespace

TEST(OutOfMemory, ReverbAndEarlyReflectionsAreNotMade) {
    const auto create = [] {
        qv_reverb* rev = qv_reverb_create(48000, 512);
        qv_reverb_destroy(rev);
        return rev ? 0 : -1;
    };
    EXPECT_GT(fail_each(create, kNothingLeft),
              10u); // the object and its buffers are pieces of their own
    EXPECT_EQ(interposer::with_failing_allocation(0, create).outstanding, 0);
    compare::Early early;
    const auto init = [&] { return ffdn_er_init(&early, 12, 256, 48000, 1, 0.05f); };
    EXPECT_EQ(fail_each(init, kNothingLeft), 1u);
}

TEST(OutOfMemory, EnginesKeepNothingOrGoOnWithoutCascade) {
    compare::Engine e;
    const auto init = [&] {
        return ffdn_block_n16_init(&e, kLines.delays, kLines.sizes(), 512, 48000, 2);
    };
    EXPECT_EQ(fail_each(init,
                        [&](int64_t outstanding) {
                            EXPECT_EQ(outstanding, 0);
                            ffdn_block_n16 only_lines = {};
                            std::memcpy(&only_lines, static_cast<const ffdn_block_n16*>(&e), 256);
                            EXPECT_TRUE(compare::same<ffdn_block_n16>(e, only_lines));
                            EXPECT_TRUE(!e.ring && !e.tap_block && !e.work_block &&
                                        e.line_delay[15] == 1489u);
                        }),
              3u); // ring and two scratch blocks
    const auto stages = [&](auto setter) {
        return fail_setter<ffdn_block_n16>(e, ffdn_block_n16_set_cascade,
                                           ffdn_block_n16_set_two_band_t60, setter);
    };
    using B = ffdn_block_n16;
    const uint32_t delays[16] = {7};
    EXPECT_EQ(stages([](B* b) { return ffdn_block_n16_set_cascade(b, 3, nullptr, 48000, 1); }), 3u);
    EXPECT_EQ(stages([](B* b) { return ffdn_block_n16_set_vfm(b, 2, 9, 48000, 0.5f, 1); }), 2u);
    EXPECT_EQ(stages([&](B* b) { return ffdn_block_n16_set_post_delays(b, delays, 48000, 1); }),
              1u);

    compare::Reference f;
    const auto init_ref = [&] {
        return ffdn_n16_init(&f, kLines.delays, kLines.buffer_sizes, 48000, 1);
    };
    EXPECT_EQ(fail_each(init_ref, kNothingLeft), 16u);
    EXPECT_EQ(fail_setter<ffdn_n16>(
                  f, ffdn_n16_set_cascade, ffdn_n16_set_two_band_t60,
                  [](ffdn_n16* r) { return ffdn_n16_set_cascade(r, 3, nullptr, 48000, 1); }),
              3u);
}

// A plug-in whose activation finds no memory says so, renders nothing, and sounds like any other
// after the next activation.
TEST(OutOfMemory, PluginFailsToActivateAndRecovers) {
    EXPECT_EQ(fail_each([] { return host::Plugin(clap_entry).plugin ? 0 : -1; }, kNothingLeft), 1u);
    const auto render = [](host::Plugin& plugin) {
        std::vector<float> in = compare::noise(4096, 4);
        for (size_t t = 0; t < in.size(); t += 256)
            EXPECT_EQ(plugin.process(256, {&in[t]}, {&in[t]}), CLAP_PROCESS_CONTINUE);
        return in;
    };
    host::Plugin plugin(clap_entry), twin(clap_entry);
    ASSERT_TRUE(twin.activate(48000, 256) && plugin.activate(44100, 512));
    const std::vector<float> expected = render(twin);
    int64_t engine_blocks = 0; // of the engine that an activation gives up
    fail_each([&] { return plugin.activate(48000, 256) ? 0 : -1; },
              [&](int64_t outstanding) {
                  if (engine_blocks == 0) engine_blocks = outstanding;
                  EXPECT_EQ(outstanding, engine_blocks);
                  std::vector<float> out(256, 7.0f);
                  EXPECT_EQ(plugin.process(256, {out.data()}, {out.data()}), CLAP_PROCESS_ERROR);
                  EXPECT_EQ(std::count(out.begin(), out.end(), 7.0f), 256);
                  ASSERT_TRUE(plugin.activate(48000, 256));
                  EXPECT_EQ(render(plugin), expected);
              });
    EXPECT_LT(engine_blocks, -10);
    // A whole life leaves nothing behind.
    const auto lived = interposer::with_failing_allocation(0, [] {
        host::Plugin mortal(clap_entry);
        EXPECT_TRUE(mortal.activate(48000, 256) && mortal.activate(44100, 512));
    });
    EXPECT_EQ(lived.outstanding, 0);
}
