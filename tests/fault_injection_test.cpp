// Memory runs out: every single allocation of every call that allocates fails once. The documented status
// comes back, nothing leaks, and the record is in its documented state: it goes on bit for bit like a twin
// that was put into that state on purpose.
#include <brisel/ffdn_ref_n16.h>

#include "tests/block_engine.h"
#include "tests/clap_host.h"
#include "tests/interposer.h"
#include "tests/reverb_object.h"

namespace {

using block_engine::Engine;
using compare::Random;
using compare::Signal;
using interposer::FailingAllocations;

struct Outcome {
    bool failed;         // an allocation was refused
    int32_t status;      // what the call returned
    int64_t outstanding; // blocks allocated less blocks released in the call
};

template <typename Call>
Outcome with_failing_allocation(uint64_t n, Call call) {
    const FailingAllocations failing(n);
    const int32_t status = call();
    return {failing.requested() >= n, status, failing.outstanding()};
}

// A network that has sounded for a while: two stages, two bands, modulation.
void build_sounding(Engine& engine) {
    block_engine::init_like_reverb(engine, 2, 1.5f);
    ASSERT_EQ(ffdn_block_n16_set_modulation(engine.get(), 4, 48000, 7, 0.5f, 3.0f), 0);
    Random random(1);
    const auto x = compare::make(512, Signal::kNoise, random);
    std::vector<float> y_l(512), y_r(512);
    for (int block = 0; block < 8; ++block)
        ASSERT_EQ(ffdn_block_n16_process_stereo_in(engine.get(), x.data(), x.data(), y_l.data(),
                                                   y_r.data(), 512),
                  0);
}

std::vector<float> sound_on(ffdn_block_n16* e) {
    Random random(2);
    const auto x = compare::make(512, Signal::kNoise, random);
    std::vector<float> y(3 * 1024);
    for (size_t block = 0; block < 3; ++block) {
        float* out = y.data() + block * 1024;
        EXPECT_EQ(ffdn_block_n16_process_stereo_in(e, x.data(), x.data(), out, out + 512, 512), 0);
    }
    return y;
}

void build_sounding(ffdn_n16& f) {
    const auto lines = block_engine::default_lines();
    ASSERT_EQ(ffdn_n16_init(&f, lines.delays.data(),
                            reinterpret_cast<const int32_t*>(lines.ring_sizes.data()), 48000, 1.5f),
              0);
    ASSERT_EQ(ffdn_n16_set_cascade(&f, 2, nullptr, 48000, 1.5f), 0);
    ASSERT_EQ(ffdn_n16_set_two_band_t60(&f, 48000, 1.5f, 0.5f), 0);
    for (int t = 0; t < 3000; ++t) ffdn_n16_process(&f, t % 7 == 0 ? 0.5f : -0.1f);
}

std::vector<float> sound_on(ffdn_n16& f) {
    std::vector<float> y(3000);
    for (size_t t = 0; t < y.size(); ++t) y[t] = ffdn_n16_process(&f, t % 5 == 0 ? 0.5f : -0.1f);
    return y;
}

// What a cascade setter leaves when it finds no memory.
template <typename Network>
void take_cascade_and_bands_away(Network& network) {
    network.two_band = 0;
    std::fill_n(network.shelf_b0, 16, 0.0f);
    std::fill_n(network.shelf_a1, 16, 0.0f);
    std::fill_n(network.shelf_state, 16, 0.0f);
}

} // namespace

TEST(OutOfMemory, ReverbIsNotCreatedAndNothingLeaks) {
    uint64_t n = 1;
    for (;; ++n) {
        const Outcome got = with_failing_allocation(n, [] {
            qv_reverb* rev = qv_reverb_create(48000, 512);
            qv_reverb_destroy(rev);
            return rev ? 0 : -1;
        });
        EXPECT_EQ(got.status, got.failed ? -1 : 0) << "allocation " << n;
        EXPECT_EQ(got.outstanding, 0) << "allocation " << n;
        if (!got.failed) break;
    }
    EXPECT_GT(n, 10u); // the object and its buffers are pieces of their own
}

TEST(OutOfMemory, ReverbSetProcessAndFlushNeedNone) {
    const auto rev = reverb_object::create(48000, 256), twin = reverb_object::create(48000, 256);
    Random random(3);
    for (int step = 0; step < 120; ++step) {
        const qv_reverb_params params = reverb_object::random_params(random);
        const auto in = compare::make(256, Signal::kNoise, random);
        std::vector<float> got(3000), expected(3000);
        const auto run = [&](qv_reverb* r, float* out) {
            if (step % 3 == 0) return qv_reverb_set(r, &params);
            if (step % 20 == 1) return qv_reverb_flush(r, out, nullptr, 3000);
            return qv_reverb_process(r, in.data(), nullptr, out, out + 256, 256);
        };
        int32_t status = 0;
        uint64_t requested = 0;
        {
            const FailingAllocations failing(1, true);
            status = run(rev.get(), got.data());
            requested = failing.requested();
        }
        EXPECT_EQ(requested, 0u);
        ASSERT_EQ(status, run(twin.get(), expected.data()));
        ASSERT_TRUE(compare::same_bits(got, expected)) << "step " << step;
    }
    EXPECT_TRUE(reverb_object::same_reverb(*rev, *twin));
}

TEST(OutOfMemory, BlockEngineInitLeavesOnlyTheLines) {
    const auto lines = block_engine::default_lines();
    for (uint64_t n = 1;; ++n) {
        Engine engine;
        const Outcome got = with_failing_allocation(
            n, [&] { return block_engine::init(engine, lines, 512, 2.0f); });
        EXPECT_EQ(got.status, got.failed ? -1 : 0);
        if (!got.failed) {
            EXPECT_EQ(n, 4u); // ring and two scratch blocks
            break;
        }
        EXPECT_EQ(got.outstanding, 0);
        ffdn_block_n16 expected = {};
        std::memcpy(expected.line_offset, engine->line_offset, 4 * sizeof expected.line_offset);
        EXPECT_TRUE(compare::same_state(engine.record, expected)) << "allocation " << n;
        EXPECT_FALSE(engine->ring || engine->tap_block || engine->work_block);
        EXPECT_EQ(engine->line_delay[15], 1489u);
    }
}

TEST(OutOfMemory, BlockEngineGoesOnWithoutCascade) {
    uint32_t delays[48];
    for (uint32_t k = 0; k < 48; ++k) delays[k] = 3 * k;
    using Setter = int32_t (*)(ffdn_block_n16*, const uint32_t*);
    const Setter setters[] = {
        [](ffdn_block_n16* e, const uint32_t* d) {
            return ffdn_block_n16_set_cascade(e, 3, d, 48000, 0.7f);
        },
        [](ffdn_block_n16* e, const uint32_t*) {
            return ffdn_block_n16_set_vfm(e, 2, 99, 48000, 0.5f, 0.7f);
        },
        [](ffdn_block_n16* e, const uint32_t* d) {
            return ffdn_block_n16_set_post_delays(e, d, 48000, 0.7f);
        },
    };
    const uint64_t allocations[] = {3, 2, 1};
    for (size_t k = 0; k < 3; ++k) {
        for (uint64_t n = 1; n <= allocations[k] + 1; ++n) {
            SCOPED_TRACE(testing::Message() << "setter " << k << ", allocation " << n);
            Engine engine, twin;
            build_sounding(engine);
            build_sounding(twin);
            const Outcome got =
                with_failing_allocation(n, [&] { return setters[k](engine.get(), delays); });
            ASSERT_EQ(got.failed, n <= allocations[k]);
            ASSERT_EQ(got.status, got.failed ? -1 : 0);
            if (!got.failed) continue;
            EXPECT_EQ(got.outstanding, -2); // the rings of the two former stages are gone
            ffdn_block_n16_clear_cascade(twin.get());
            take_cascade_and_bands_away(twin.record);
            EXPECT_TRUE(compare::same_state(engine.record, twin.record));
            EXPECT_TRUE(compare::same_bits(sound_on(engine.get()), sound_on(twin.get())));
            EXPECT_EQ(setters[k](engine.get(), delays), 0); // and it can be set again
        }
    }
}

TEST(OutOfMemory, ReferenceEngineKeepsNothingOrGoesOnWithoutCascade) {
    const auto lines = block_engine::default_lines();
    const auto* sizes = reinterpret_cast<const int32_t*>(lines.ring_sizes.data());
    for (uint64_t n = 1; n <= 17; ++n) {
        ffdn_n16 f;
        const Outcome got = with_failing_allocation(
            n, [&] { return ffdn_n16_init(&f, lines.delays.data(), sizes, 48000, 1.0f); });
        ASSERT_EQ(got.failed, n <= 16);
        EXPECT_EQ(got.status, got.failed ? -1 : 0);
        EXPECT_EQ(got.outstanding, got.failed ? 0 : 16);
        for (const float* ring : f.line_buf) EXPECT_EQ(ring == nullptr, got.failed);
        ffdn_n16_free(&f);
    }
    for (uint64_t n = 1; n <= 3; ++n) {
        ffdn_n16 f, twin;
        build_sounding(f);
        build_sounding(twin);
        const Outcome got = with_failing_allocation(
            n, [&] { return ffdn_n16_set_cascade(&f, 3, nullptr, 48000, 0.7f); });
        EXPECT_EQ(got.status, -1);
        EXPECT_EQ(got.outstanding, -2);
        ffdn_n16_clear_cascade(&twin);
        take_cascade_and_bands_away(twin);
        EXPECT_EQ(f.stage_count, 0);
        EXPECT_TRUE(compare::same_array(f.decay_gain, twin.decay_gain));
        EXPECT_TRUE(compare::same_bits(sound_on(f), sound_on(twin)));
        ffdn_n16_free(&f);
        ffdn_n16_free(&twin);
    }
}

TEST(OutOfMemory, EarlyReflectionsHaveNoRing) {
    ffdn_er early;
    const auto init = [&] { return ffdn_er_init(&early, 12, 256, 48000, 1, 0.05f); };
    const Outcome got = with_failing_allocation(1, init);
    EXPECT_EQ(got.status, -1);
    EXPECT_EQ(got.outstanding, 0);
    EXPECT_EQ(early.ring, nullptr);
    EXPECT_EQ(with_failing_allocation(2, init).status, 0);
    ffdn_er_free(&early);
}

// A plug-in whose activation finds no memory says so, renders nothing, and sounds like any other after the
// next activation.
TEST(OutOfMemory, PluginFailsToActivateAndRecovers) {
    using namespace test_host;
    const clap_plugin_factory_t* plugins = factory();
    const clap_plugin_t* none = nullptr;
    const Outcome created = with_failing_allocation(1, [&] {
        none = plugins->create_plugin(plugins, nullptr, "com.tamrockaudio.brisel");
        return 0;
    });
    EXPECT_TRUE(created.failed);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(created.outstanding, 0);

    const auto render = [](Plugin& plugin) {
        Random random(4);
        auto in = compare::make(4096, Signal::kNoise, random);
        std::vector<float> out(2 * in.size());
        for (size_t t = 0; t < in.size(); t += 256)
            EXPECT_EQ(plugin.process(256, {&in[t], &in[t]}, {&out[t], &out[4096 + t]}), 1);
        return out;
    };
    Plugin twin;
    twin.flush(Events(kDecay, 4.0));
    ASSERT_TRUE(twin.activate(48000, 256));
    const std::vector<float> expected = render(twin);

    Plugin plugin;
    plugin.flush(Events(kDecay, 4.0));
    ASSERT_TRUE(plugin.activate(44100, 512));
    int64_t engine_blocks = 0; // of the engine that an activation gives up
    for (uint64_t n = 1;; ++n) {
        SCOPED_TRACE(testing::Message() << "allocation " << n);
        const Outcome got =
            with_failing_allocation(n, [&] { return plugin.activate(48000, 256) ? 0 : -1; });
        ASSERT_EQ(got.status, got.failed ? -1 : 0);
        if (!got.failed) break;
        if (n == 1) engine_blocks = -got.outstanding;
        EXPECT_GT(engine_blocks, 10);
        EXPECT_EQ(got.outstanding, -engine_blocks);

        std::vector<float> out(256, 7.0f);
        EXPECT_EQ(plugin.process(256, {out.data()}, {out.data()}), CLAP_PROCESS_ERROR);
        EXPECT_EQ(std::count(out.begin(), out.end(), 7.0f), 256);
        EXPECT_EQ(plugin.value(kDecay), 4.0);
        ASSERT_TRUE(plugin.activate(48000, 256));
        EXPECT_TRUE(compare::same_bits(render(plugin), expected));
    }

    // A whole life leaves nothing behind.
    const Outcome lived = with_failing_allocation(0, [] {
        Plugin mortal;
        return mortal.activate(48000, 256) && mortal.activate(44100, 512) ? 0 : -1;
    });
    EXPECT_EQ(lived.status, 0);
    EXPECT_EQ(lived.outstanding, 0);

    // The state needs no memory at all.
    Stream saved;
    saved.bytes.reserve(104);
    uint64_t requested = 0;
    bool ok = false;
    {
        const FailingAllocations failing(1, true);
        const clap_ostream_t to = {&saved, Stream::write};
        const clap_istream_t from = {&saved, Stream::read};
        ok = plugin.state->save(plugin.plugin, &to) && plugin.state->load(plugin.plugin, &from);
        requested = failing.requested();
    }
    EXPECT_TRUE(ok);
    EXPECT_EQ(requested, 0u);
    EXPECT_TRUE(same_bits(plugin.values(), twin.values()));
}
