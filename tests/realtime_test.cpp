// What runs on the audio thread allocates nothing, takes no lock, makes no system call and meets no page
// it has not touched before: over random lives of the reverb, of every engine and of the plug-in.
#include <brisel/ffdn_ref_n16.h>
#include <brisel/fwht_ref.h>

#include "tests/block_engine.h"
#include "tests/clap_host.h"
#include "tests/forbidden_calls.h"
#include "tests/interposer.h"
#include "tests/reverb_object.h"

namespace {

using compare::Random;
using compare::Signal;
using interposer::in_real_time;
using interposer::Report;
using reverb_object::Block;

#if defined(BRISEL_SANITIZED)
constexpr bool kSanitized = true; // shadow memory is touched in passing
#else
constexpr bool kSanitized = false;
#endif

// What the calls of one life did. The kernel may, seldom, take a page away and give it back by itself;
// memory that the library had not touched before would fault in every life.
class Life {
public:
    explicit Life(uint64_t stream) : random(stream) {}

    // `work` returns whether the library did what it was asked, which random arguments may prevent.
    template <typename Work>
    void call(const char* name, Work work) {
        bool done = false;
        const Report report = in_real_time([&] { done = work(); });
        EXPECT_EQ(report.forbidden, "") << "in " << name;
        if (report.page_faults > 0 && faulty_call_.empty()) faulty_call_ = name;
        ++calls_;
        done_ += done;
    }
    bool mostly_did_something() const { return done_ > calls_ / 2; }
    const std::string& faulty_call() const { return faulty_call_; }

    Random random;

private:
    int calls_ = 0, done_ = 0;
    std::string faulty_call_;
};

// `count` lives after one that touches code and tables.
void run_lives(int count, void (*run)(Life&)) {
    int useful = 0, faulty = 0;
    std::string first;
    for (int k = 0; k <= count && !testing::Test::HasFailure(); ++k) {
        SCOPED_TRACE(testing::Message() << "life " << k << ", seed " << compare::seed());
        Life life(static_cast<uint64_t>(k));
        run(life);
        useful += life.mostly_did_something();
        if (k == 0 || life.faulty_call().empty()) continue;
        ++faulty;
        first = life.faulty_call();
    }
    EXPECT_GT(useful, count / 2);
    if (!kSanitized) {
        EXPECT_LE(faulty, count / 10) << "page faults in " << first;
    }
}

void reverb_life(Life& life) {
    Random& random = life.random;
    const int32_t rate = random.pick({22050, 44100, 48000, 96000});
    const int32_t frames = random.pick({64, 256, 512});
    const auto rev = reverb_object::create(rate, frames);
    ASSERT_TRUE(rev);
    std::vector<float> tail_l(20000), tail_r(20000);
    for (int step = 0; step < 60; ++step) {
        const qv_reverb_params params = reverb_object::random_params(random);
        const uint32_t n = 8 * random.integer(0, static_cast<uint32_t>(frames) / 8 + 1);
        Block block(n, random.pick(compare::kAllSignals), random);
        const auto capacity = static_cast<int32_t>(random.integer(0, 20000));
        float* const right = random.chance(0.5f) ? tail_r.data() : nullptr;
        if (random.chance(0.2f))
            life.call("qv_reverb_set", [&] { return qv_reverb_set(rev.get(), &params) == 0; });
        else if (random.chance(0.05f))
            life.call("qv_reverb_flush", [&] {
                return qv_reverb_flush(rev.get(), tail_l.data(), right, capacity) > 0;
            });
        else
            life.call("qv_reverb_process", [&] {
                return block.render(qv_reverb_process, rev.get(), static_cast<int32_t>(n)) == 0;
            });
    }
}

void block_engine_life(Life& life) {
    Random& random = life.random;
    const auto lines =
        random.chance(0.5f)
            ? block_engine::default_lines()
            : block_engine::equal_lines(static_cast<int32_t>(random.integer(40, 3000)));
    block_engine::Engine engine;
    ASSERT_EQ(block_engine::init(engine, lines, 1024, random.real(0.0f, 3.0f)), 0);
    ffdn_block_n16* e = engine.get();
    const uint32_t K = random.integer(0, 3), seed = random.integer(0, 1000);
    const float density = random.real(0.3f, 1.0f);
    ASSERT_EQ(random.chance(0.5f) ? ffdn_block_n16_set_cascade(e, K, nullptr, 48000, 1.0f)
                                  : ffdn_block_n16_set_vfm(e, K, seed, 48000, density, 1.0f),
              0);
    const auto x_l = compare::make(1024, random.pick(compare::kFiniteSignals), random);
    const auto x_r = compare::make(1024, random.pick(compare::kFiniteSignals), random);
    std::vector<float> y_l(1024), y_r(1024);
    life.call("the setters", [&] {
        return ffdn_block_n16_set_stereo_outputs(e, nullptr, nullptr, 0.1f, 0.2f) == 0 &&
               ffdn_block_n16_set_stereo_inputs(e, nullptr, nullptr) == 0 &&
               (K % 2 == 0 || ffdn_block_n16_set_two_band_t60(e, 48000, 1.0f, 0.3f) == 0) &&
               (seed % 2 == 0 || ffdn_block_n16_set_modulation(e, 6, 48000, seed, 0.1f, 4.0f) == 0);
    });
    for (int step = 0; step < 10; ++step) {
        const auto n = static_cast<int32_t>(8 * random.integer(1, 128));
        life.call("ffdn_block_n16_process",
                  [&] { return ffdn_block_n16_process(e, x_l.data(), y_l.data(), n) == 0; });
        life.call("ffdn_block_n16_process_stereo", [&] {
            return ffdn_block_n16_process_stereo(e, x_l.data(), y_l.data(), y_r.data(), n) == 0;
        });
        life.call("ffdn_block_n16_process_stereo_in", [&] {
            return ffdn_block_n16_process_stereo_in(e, x_l.data(), x_r.data(), y_l.data(),
                                                    y_r.data(), n) == 0;
        });
        life.call("ffdn_block_n16_apply_modulation",
                  [&] { return ffdn_block_n16_apply_modulation(e, 8) == 0; });
        life.call("ffdn_block_n16_state_energy",
                  [&] { return ffdn_block_n16_state_energy(e) >= 0.0; });
    }
}

void other_engines_life(Life& life) {
    Random& random = life.random;
    ffdn_n16_params lines;
    ffdn_n16_default_params(lines.delays, lines.buffer_sizes);
    ffdn_n16 reference;
    ffdn_er early;
    ffdn_eq eq;
    ASSERT_EQ(ffdn_n16_init(&reference, lines.delays, lines.buffer_sizes, 48000, 1.0f), 0);
    ASSERT_EQ(ffdn_n16_set_cascade(&reference, 2, nullptr, 48000, 1.0f), 0);
    ASSERT_EQ(ffdn_er_init(&early, 12, 256, 48000, random.integer(0, 1000), 0.05f), 0);
    ASSERT_EQ(ffdn_eq_init(&eq, 48000, 250.0f, 4500.0f), 0);
    const float low = random.real(-24.0f, 24.0f), high = random.real(-24.0f, 24.0f);
    const auto x = compare::make(256, random.pick(compare::kFiniteSignals), random);
    std::vector<float> y_l(256), y_r(256);
    life.call("the setters", [&] {
        ffdn_eq_set_gains(&eq, low, high);
        return ffdn_n16_set_two_band_t60(&reference, 48000, 1.0f, 0.4f) == 0 &&
               ffdn_n16_set_stereo_outputs(&reference, nullptr, nullptr, 0.0f, 0.0f) == 0 &&
               ffdn_n16_set_stereo_inputs(&reference, nullptr, nullptr) == 0;
    });
    for (int step = 0; step < 4; ++step) {
        life.call("ffdn_n16_process and its siblings", [&] {
            for (size_t t = 0; t < 256; ++t) {
                y_l[t] = ffdn_n16_process(&reference, x[t]);
                ffdn_n16_process_stereo(&reference, &y_l[t], &y_r[t], x[t]);
                ffdn_n16_process_stereo_in(&reference, &y_l[t], &y_r[t], x[t], x[255 - t]);
            }
            return ffdn_n16_state_energy(&reference) >= 0.0;
        });
        life.call("ffdn_er_process_stereo", [&] {
            return ffdn_er_process_stereo(&early, x.data(), y_l.data(), y_r.data(), 256) == 0;
        });
        life.call("ffdn_eq_process_stereo, fwht_ref", [&] {
            ffdn_eq_process_stereo(&eq, y_l.data(), y_r.data(), 256);
            fwht_ref(y_l.data(), 256);
            return true;
        });
    }
    ffdn_n16_free(&reference);
    ffdn_er_free(&early);
}

void plugin_life(Life& life) {
    using namespace test_host;
    Random& random = life.random;
    Plugin instance;
    const clap_plugin_t* plugin = instance.plugin;
    for (int activation = 0; activation < 3; ++activation) {
        const uint32_t capacity = random.integer(1, 700);
        instance.activate(random.pick({44100.0, 48000.0, 96000.0}), capacity);
        for (int step = 0; step < 40; ++step) {
            Events events;
            for (uint32_t k = random.chance(0.3f) ? random.integer(1, 5) : 0; k > 0; --k)
                events.add(random.integer(0, 12),
                           random.chance(0.05f) ? kNaN : random.real(-30.0f, 30.0f));
            const uint32_t n = random.chance(0.8f) ? capacity : random.integer(0, capacity + 9);
            Block block(n, random.pick(compare::kAllSignals), random);
            float* in[] = {block.in_l.data(), block.in_r.data()};
            float* out[] = {block.output_l().data(), block.output_r().data()};
            const clap_audio_buffer_t input = {in, nullptr, block.stereo_in ? 2u : 1u, 0, 0};
            clap_audio_buffer_t output = {out, nullptr, block.stereo_out ? 2u : 1u, 0, 0};
            const clap_process_t process = {-1, n, nullptr,       &input, &output,
                                            1,  1, events.list(), nullptr};
            Stream saved;
            saved.bytes.reserve(104);
            const clap_ostream_t to = {&saved, Stream::write};
            const clap_istream_t from = {&saved, Stream::read};
            switch (random.integer(0, 9)) {
            case 0:
                life.call("flush", [&] {
                    instance.params->flush(plugin, events.list(), nullptr);
                    return true;
                });
                break;
            case 1:
                life.call("save and load", [&] {
                    return instance.state->save(plugin, &to) && instance.state->load(plugin, &from);
                });
                break;
            case 2:
                life.call("reset, stop, start, tail", [&] {
                    plugin->reset(plugin);
                    plugin->stop_processing(plugin);
                    return plugin->start_processing(plugin) && instance.tail_ext->get(plugin) > 0;
                });
                break;
            default:
                life.call("process", [&] {
                    return plugin->process(plugin, &process) == CLAP_PROCESS_CONTINUE;
                });
            }
        }
    }
}

} // namespace

TEST(RealTime, InterposerSeesEveryForbiddenCallOfASharedLibrary) {
    for (const ForbiddenCall& forbidden : forbidden_functions())
        EXPECT_TRUE(in_real_time(forbidden.call).forbidden.starts_with(forbidden.reported))
            << forbidden.reported;
    // Creation takes the object, its eight scratch buffers and seven pieces of storage.
    qv_reverb* rev = nullptr;
    const Report created = in_real_time([&] { rev = qv_reverb_create(48000, 256); });
    EXPECT_TRUE(created.forbidden.starts_with("calloc")) << created.forbidden;
    if (!kSanitized) {
        EXPECT_GT(created.page_faults, 100);
    }
    EXPECT_TRUE(in_real_time([&] { qv_reverb_destroy(rev); }).forbidden.starts_with("free"));

    if (!interposer::sees_system_calls()) GTEST_SKIP() << "this kernel cannot trap system calls";
    for (const ForbiddenCall& forbidden : forbidden_system_calls()) {
        const std::string got = in_real_time(forbidden.call).forbidden;
        EXPECT_TRUE(got.starts_with(forbidden.reported)) << got << " for " << forbidden.reported;
    }
}

TEST(RealTime, ReverbStaysClearOfAllocatorLocksAndKernel) {
    run_lives(20, reverb_life);
}

TEST(RealTime, BlockEngineStaysClearOfThem) {
    run_lives(40, block_engine_life);
}

TEST(RealTime, ReferenceEngineEarlyReflectionsAndEqStayClearOfThem) {
    run_lives(10, other_engines_life);
}

TEST(RealTime, PluginStaysClearOfThemWhateverItsHostSends) {
    run_lives(20, plugin_life);
}
