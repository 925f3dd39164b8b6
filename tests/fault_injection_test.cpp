// Memory runs out: every single allocation of every call that allocates fails once. The documented status
// comes back, nothing leaks, and the record is in its documented state: the one that it has when it was
// brought there on purpose.
#include "brisel/ffdn_defaults_n16.h"
#include "tests/clap_host.h"
#include "tests/compare.h"
#include "tests/interposer.h"

namespace {

// Lets each allocation of `call` in turn fail: the call then returns -1 and `check(outstanding)` looks at what it
// left. Returns how many allocations a call makes that succeeds.
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

constexpr auto nothing = [](int64_t outstanding) { EXPECT_EQ(outstanding, 0); };

// A sounding network: two stages, two bands.
template <typename Record, typename Size, typename Init, typename Cascade, typename Bands>
void build(Record& e, Size* sizes, int32_t* delays, Init init, Cascade cascade, Bands bands) {
    ffdn_n16_default_params(delays, reinterpret_cast<int32_t*>(sizes));
    ASSERT_EQ(init(), 0);
    ASSERT_EQ(cascade(&e, 2, nullptr, 48000, 1.5f), 0);
    ASSERT_EQ(bands(&e, 48000, 1.5f, 0.5f), 0);
}

void build(ffdn_block_n16& e) {
    int32_t delays[16];
    uint32_t sizes[16];
    build(
        e, sizes, delays, [&] { return ffdn_block_n16_init(&e, delays, sizes, 512, 48000, 2); },
        ffdn_block_n16_set_cascade, ffdn_block_n16_set_two_band_t60);
    std::vector<float> x(512, 0.5f), y(512);
    for (int block = 0; block < 8; ++block)
        ASSERT_EQ(ffdn_block_n16_process(&e, x.data(), y.data(), 512), 0);
}

void build(ffdn_n16& f) {
    int32_t delays[16], sizes[16];
    build(
        f, sizes, delays, [&] { return ffdn_n16_init(&f, delays, sizes, 48000, 2); },
        ffdn_n16_set_cascade, ffdn_n16_set_two_band_t60);
    for (int t = 0; t < 3000; ++t) ffdn_n16_process(&f, 0.5f);
}

// What a cascade setter leaves when it finds no memory: neither stages nor two-band decay.
template <typename Record>
compare::State without_cascade(Record& e, void (*clear)(Record*)) {
    clear(&e);
    e.two_band = 0;
    for (auto* values : {e.shelf_b0, e.shelf_a1, e.shelf_state}) std::fill_n(values, 16, 0.0f);
    return compare::state(e);
}

template <typename Owned, typename Record, typename Setter>
uint64_t fail_setter(void (*clear)(Record*), Setter setter) {
    Owned e, twin;
    build(twin);
    const compare::State expected = without_cascade<Record>(twin, clear);
    build(e);
    return fail_each([&] { return setter(&e); },
                     [&](int64_t outstanding) {
                         EXPECT_EQ(outstanding, -2); // the rings of the two former stages are gone
                         EXPECT_EQ(compare::state(static_cast<Record&>(e)), expected);
                         e.~Owned();
                         build(*new (&e) Owned);
                     });
}

} // namespace

TEST(OutOfMemory, ReverbIsNotCreatedAndNeedsNoneLater) {
    const auto create = [] {
        qv_reverb* rev = qv_reverb_create(48000, 512);
        qv_reverb_destroy(rev);
        return rev ? 0 : -1;
    };
    EXPECT_GT(fail_each(create, nothing),
              10u); // the object and its buffers are pieces of their own
    const auto made = interposer::with_failing_allocation(0, create);
    EXPECT_EQ(made.outstanding, 0);
}

TEST(OutOfMemory, EnginesKeepNothingOrGoOnWithoutCascade) {
    ffdn_n16_params lines;
    ffdn_n16_default_params(lines.delays, lines.buffer_sizes);
    uint32_t sizes[16];
    std::copy_n(lines.buffer_sizes, 16, sizes);
    compare::Engine e;
    const auto init = [&] { return ffdn_block_n16_init(&e, lines.delays, sizes, 512, 48000, 2); };
    EXPECT_EQ(fail_each(init,
                        [&](int64_t outstanding) {
                            EXPECT_EQ(outstanding, 0);
                            ffdn_block_n16 only_lines = {};
                            std::memcpy(&only_lines, &e, 256);
                            EXPECT_TRUE(compare::same<ffdn_block_n16>(e, only_lines));
                            EXPECT_TRUE(!e.ring && !e.tap_block && !e.work_block &&
                                        e.line_delay[15] == 1489u);
                        }),
              3u); // ring and two scratch blocks
    using B = ffdn_block_n16;
    const auto stages = [](auto setter) {
        return fail_setter<compare::Engine, B>(ffdn_block_n16_clear_cascade, setter);
    };
    EXPECT_EQ(stages([](B* b) { return ffdn_block_n16_set_cascade(b, 3, nullptr, 48000, 0.7f); }),
              3u);
    EXPECT_EQ(stages([](B* b) { return ffdn_block_n16_set_vfm(b, 2, 99, 48000, 0.5f, 0.7f); }), 2u);
    const uint32_t delays[16] = {7};
    EXPECT_EQ(stages([&](B* b) { return ffdn_block_n16_set_post_delays(b, delays, 48000, 0.7f); }),
              1u);

    compare::Reference f;
    EXPECT_EQ(
        fail_each([&] { return ffdn_n16_init(&f, lines.delays, lines.buffer_sizes, 48000, 1); },
                  [&](int64_t outstanding) {
                      EXPECT_EQ(outstanding, 0);
                      EXPECT_EQ(std::count(f.line_buf, f.line_buf + 16, nullptr), 16);
                  }),
        16u);
    EXPECT_EQ((fail_setter<compare::Reference, ffdn_n16>(
                  ffdn_n16_clear_cascade,
                  [](ffdn_n16* r) { return ffdn_n16_set_cascade(r, 3, nullptr, 48000, 0.7f); })),
              3u);

    compare::Early early;
    EXPECT_EQ(fail_each([&] { return ffdn_er_init(&early, 12, 256, 48000, 1, 0.05f); },
                        [&](int64_t outstanding) {
                            EXPECT_EQ(outstanding, 0);
                            EXPECT_EQ(early.ring, nullptr);
                        }),
              1u);
}

// A plug-in whose activation finds no memory says so, renders nothing, and sounds like any other after the
// next activation.
TEST(OutOfMemory, PluginFailsToActivateAndRecovers) {
    EXPECT_EQ(fail_each([] { return host::Plugin(clap_entry).plugin ? 0 : -1; }, nothing), 1u);
    const auto render = [](host::Plugin& plugin) {
        std::vector<float> in = compare::noise(4096, 4);
        for (size_t t = 0; t < in.size(); t += 256)
            EXPECT_EQ(plugin.process(256, {&in[t]}, {&in[t]}), CLAP_PROCESS_CONTINUE);
        return in;
    };
    host::Plugin plugin(clap_entry), twin(clap_entry);
    ASSERT_TRUE(twin.activate(48000, 256));
    const std::vector<float> expected = render(twin);
    ASSERT_TRUE(plugin.activate(44100, 512));
    int64_t engine_blocks = 0; // of the engine that an activation gives up
    EXPECT_GT(fail_each([&] { return plugin.activate(48000, 256) ? 0 : -1; },
                        [&](int64_t outstanding) {
                            if (engine_blocks == 0) engine_blocks = outstanding;
                            EXPECT_EQ(outstanding, engine_blocks);
                            std::vector<float> out(256, 7.0f);
                            EXPECT_EQ(plugin.process(256, {out.data()}, {out.data()}),
                                      CLAP_PROCESS_ERROR);
                            EXPECT_EQ(std::count(out.begin(), out.end(), 7.0f), 256);
                            ASSERT_TRUE(plugin.activate(48000, 256));
                            EXPECT_EQ(render(plugin), expected);
                        }),
              10u);
    EXPECT_LT(engine_blocks, -10);
    // A whole life leaves nothing behind.
    const auto lived = interposer::with_failing_allocation(0, [] {
        host::Plugin mortal(clap_entry);
        EXPECT_TRUE(mortal.activate(48000, 256) && mortal.activate(44100, 512));
    });
    EXPECT_EQ(lived.outstanding, 0);
}
