// What runs on the audio thread allocates nothing, makes no system call and meets no page it has
// not touched before: over random lives of the reverb, of every engine and of the plug-in.
#include "brisel/ffdn_defaults_n16.h"
#include "brisel/fwht_ref.h"
#include "tests/clap_host.h"
#include "tests/compare.h"
#include "tests/interposer.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace {

using compare::Random;
using compare::Signal;
using interposer::in_real_time;

// What the calls of one life did. The kernel may, seldom, take a page away and give it back by
// itself; memory that the library had not touched before would fault in every life.
struct Life {
    explicit Life(uint64_t stream) : random(stream) {}

    // `work` returns whether the library did what it was asked, which random arguments may prevent.
    template <typename Work>
    void call(const char* name, Work work) {
        bool did = false;
        const interposer::Report report = in_real_time([&] { did = work(); });
        EXPECT_EQ(report.forbidden, "") << "in " << name;
        if (report.page_faults > 0) faulty = name;
        ++(did ? done : refused);
    }

    Random random;
    int done = 0, refused = 0;
    const char* faulty = nullptr;
};

// `count` lives after one that touches code and tables.
void run_lives(int count, void (*run)(Life&)) {
    int useful = 0, faulty = 0;
    for (int k = 0; k <= count && !testing::Test::HasFailure(); ++k) {
        SCOPED_TRACE(testing::Message() << "life " << k);
        Life life(static_cast<uint64_t>(k));
        run(life);
        useful += life.done > life.refused;
        faulty += k > 0 && life.faulty;
    }
    EXPECT_GT(useful, count / 2);
#if !defined(BRISEL_SANITIZED) // shadow memory is touched in passing
    EXPECT_LE(faulty, count / 10) << "page faults";
#endif
}

} // namespace

TEST(RealTime, InterposerSeesAllocationsSystemCallsAndPages) {
    qv_reverb* rev = nullptr;
    const auto created = in_real_time([&] { rev = qv_reverb_create(48000, 256); });
    EXPECT_EQ(created.forbidden, "calloc");
    EXPECT_EQ(in_real_time([&] { qv_reverb_destroy(rev); }).forbidden, "free");
    void* volatile block = nullptr;
    EXPECT_EQ(in_real_time([&] { block = std::aligned_alloc(64, 64); }).forbidden, "aligned_alloc");
    std::free(block);
#if !defined(BRISEL_SANITIZED)
    EXPECT_GT(created.page_faults, 100);
#endif
    if (!interposer::sees_system_calls()) GTEST_SKIP() << "this kernel cannot trap system calls";
    EXPECT_EQ(in_real_time([] { usleep(1); }).forbidden, "system call 230"); // clock_nanosleep
    long parent = SYS_getppid; // without any function of libc
    EXPECT_EQ(in_real_time([&] {
                  asm volatile("syscall" : "+a"(parent) : : "rcx", "r11", "memory");
              }).forbidden,
              "system call 110");
}

TEST(RealTime, EnginesStayClearOfAllocatorAndKernel) {
    run_lives(30, [](Life& life) {
        ffdn_n16_params lines;
        ffdn_n16_default_params(lines.delays, lines.buffer_sizes);
        uint32_t sizes[16];
        std::copy_n(lines.buffer_sizes, 16, sizes);
        compare::Engine e;
        compare::Reference f;
        const uint32_t K = life.random.integer(0, 3);
        const compare::Reverb rev = compare::create(48000, 512);
        std::vector<float> tail(9000);
        ASSERT_EQ(ffdn_block_n16_init(&e, lines.delays, sizes, 900, 48000, 1), 0);
        ASSERT_EQ(ffdn_block_n16_set_vfm(&e, K, 7, 48000, 0.6f, 1.0f), 0);
        ASSERT_EQ(ffdn_n16_init(&f, lines.delays, lines.buffer_sizes, 48000, 1), 0);
        const auto x =
            compare::make(1024, life.random.pick({Signal::kNoise, Signal::kQuiet}), life.random);
        std::vector<float> left(1024), right(1024);
        float *l = left.data(), *r = right.data();
        life.call("the setters", [&] {
            return ffdn_block_n16_set_stereo_outputs(&e, nullptr, nullptr, 0.1f, 0.2f) == 0 &&
                   ffdn_block_n16_set_two_band_t60(&e, 48000, 1, 0.3f) == 0 &&
                   ffdn_block_n16_set_modulation(&e, 6, 48000, K, 0.1f, 4) == 0 &&
                   ffdn_n16_set_two_band_t60(&f, 48000, 1, 0.4f) == 0;
        });
        for (int step = 0; step < 10; ++step) {
            const qv_reverb_params params = compare::random_params(life.random);
            life.call("qv_reverb_set and flush", [&] {
                const bool set = qv_reverb_set(rev.get(), &params) == 0;
                return qv_reverb_flush(rev.get(), tail.data(), nullptr, 9000) > 0 && set;
            });
            const auto n = static_cast<int32_t>(8 * life.random.integer(1, 112));
            life.call("processing", [&] {
                for (size_t t = 0; t < 40; ++t) l[t] = ffdn_n16_process(&f, x[t]);
                fwht_ref(l, 256);
                return ffdn_block_n16_process(&e, x.data(), l, n) == 0 &&
                       ffdn_block_n16_process_stereo(&e, x.data(), l, r, n) == 0 &&
                       ffdn_block_n16_state_energy(&e) + ffdn_n16_state_energy(&f) >= 0.0;
            });
        }
    });
}

TEST(RealTime, PluginStaysClearOfThemWhateverItsHostSends) {
    run_lives(20, [](Life& life) {
        Random& random = life.random;
        host::Plugin p(clap_entry);
        for (int activation = 0; activation < 3; ++activation) {
            const uint32_t capacity = random.integer(1, 700);
            p.activate(random.pick({44100.0, 48000.0, 96000.0}), capacity);
            for (int step = 0; step < 40; ++step) {
                host::Events events;
                for (uint32_t k = random.chance(0.3f) ? random.integer(1, 5) : 0; k > 0; --k)
                    events.add(random.integer(0, 12),
                               double{random.chance(0.05f) ? compare::kNaN : random.real(-30, 30)});
                const uint32_t n = random.chance(0.8f) ? capacity : random.integer(0, capacity + 9);
                auto left = compare::make(n + 1, random.pick(compare::kSignals), random),
                     right = left;
                host::Stream saved;
                const clap_ostream_t to = saved.to();
                const clap_istream_t from = saved.from();
                const clap_plugin_t* plugin = p.plugin;
                switch (random.integer(0, 9)) {
                case 0:
                    life.call("flush", [&] { return p.flush(events), true; });
                    break;
                case 1:
                    life.call("save and load", [&] {
                        return p.state->save(plugin, &to) && p.state->load(plugin, &from);
                    });
                    break;
                case 2:
                    life.call("reset, stop, start, tail", [&] {
                        plugin->reset(plugin);
                        plugin->stop_processing(plugin);
                        return plugin->start_processing(plugin) && p.tail() > 0;
                    });
                    break;
                default:
                    life.call("process", [&] {
                        return p.process(n, {left.data(), right.data()},
                                         {left.data(), right.data()},
                                         &events) == CLAP_PROCESS_CONTINUE;
                    });
                }
            }
        }
    });
}
