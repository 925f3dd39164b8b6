// brisel-render, run as a user runs it in a folder of its own: samples, lengths, formats, levels,
// settings, refusals. And the values that people write.
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "render/errors.h"
#include "render/parameter.h"
#include "render/units.h"
#include "tests/compare.h"

using namespace brisel::render;

namespace {

namespace fs = std::filesystem;

struct Sound {
    int sample_rate = 48000;
    int channels = 2;
    std::vector<float> samples = {}; // interleaved
    int format = 0;                  // as read

    size_t frames() const { return samples.size() / static_cast<size_t>(channels); }
};

Sound noise(size_t frames, int channels, int sample_rate = 48000) {
    Sound sound{sample_rate, channels, compare::noise(frames * static_cast<size_t>(channels), 1)};
    for (float& x : sound.samples) x *= 0.5f;
    return sound;
}

float peak(const Sound& sound) {
    float most = 0.0f;
    for (const float s : sound.samples) most = std::max(most, std::fabs(s));
    return most;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

struct Result {
    int exit_code;
    std::string out, err;
};

class Render : public testing::Test {
protected:
    Render() {
        std::string name = (fs::temp_directory_path() / "render-test-XXXXXX").string();
        folder_ = mkdtemp(name.data());
        fs::current_path(folder_);
    }
    ~Render() override {
        fs::current_path("/");
        fs::remove_all(folder_);
    }

    // Runs `program arguments` as the shell reads them.
    static Result run(const std::string& arguments, const std::string& program = BRISEL_RENDER) {
        const int status =
            std::system(("'" + program + "' " + arguments + " >.stdout 2>.stderr").c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(".stdout"),
                contents(".stderr")};
    }
    static void run_well(const std::string& arguments) {
        const Result result = run(arguments);
        ASSERT_EQ(result.exit_code, 0) << arguments << "\n" << result.err;
    }
    static std::string contents(const std::string& name) {
        std::ostringstream text;
        text << std::ifstream(name, std::ios::binary).rdbuf();
        return text.str();
    }
    static void write_text(const std::string& name, const std::string& text) {
        std::ofstream(name, std::ios::binary) << text;
    }
    static void write_sound(const std::string& name, const Sound& sound) {
        SF_INFO info{};
        info.samplerate = sound.sample_rate;
        info.channels = sound.channels;
        info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        SNDFILE* file = sf_open(name.c_str(), SFM_WRITE, &info);
        const auto frames = static_cast<sf_count_t>(sound.frames());
        EXPECT_EQ(sf_writef_float(file, sound.samples.data(), frames), frames);
        sf_close(file);
    }
    static Sound read_sound(const std::string& name) {
        SF_INFO info{};
        SNDFILE* file = sf_open(name.c_str(), SFM_READ, &info);
        EXPECT_NE(file, nullptr) << name << ": " << sf_strerror(nullptr);
        if (!file) return {};
        Sound sound{info.samplerate, info.channels, {}, info.format};
        sound.samples.resize(static_cast<size_t>(info.frames * info.channels));
        EXPECT_EQ(sf_readf_float(file, sound.samples.data(), info.frames), info.frames) << name;
        sf_close(file);
        return sound;
    }
    // Neither half-written files nor results.
    static void expect_only(std::vector<std::string> names) {
        std::vector<std::string> found;
        for (const fs::directory_entry& entry : fs::directory_iterator("."))
            if (const auto name = entry.path().filename(); name != ".stdout" && name != ".stderr")
                found.push_back(name);
        std::ranges::sort(found);
        std::ranges::sort(names);
        EXPECT_EQ(found, names);
    }

private:
    fs::path folder_;
};

// What the renderer shall write: the input in whole blocks with silence behind it, cut to `frames`.
std::vector<float> engine_output(const Sound& in, const qv_reverb_params& params, size_t frames) {
    constexpr size_t kBlock = 256;
    const auto reverb = compare::create(in.sample_rate, kBlock);
    EXPECT_EQ(qv_reverb_set(reverb.get(), &params), 0);
    std::vector<float> out;
    for (size_t start = 0; start < frames; start += kBlock) {
        float left[kBlock] = {}, right[kBlock] = {};
        const auto channels = static_cast<size_t>(in.channels);
        for (size_t i = 0; i < kBlock && start + i < in.frames(); ++i) {
            left[i] = in.samples[(start + i) * channels];
            right[i] = in.samples[(start + i) * channels + channels - 1];
        }
        EXPECT_EQ(qv_reverb_process(reverb.get(), left, right, left, right, kBlock), 0);
        for (size_t i = 0; i < kBlock && start + i < frames; ++i)
            out.insert(out.end(), {left[i], right[i]});
    }
    return out;
}

} // namespace

TEST_F(Render, SamplesAndLengthAreThoseOfTheEngineFedInWholeBlocks) {
    const qv_reverb_params params = {0.031f, 0.7f, 3,      0.0f,  0.45f, 0.35f, 0.6f,
                                     1,      1,    0.055f, 0.25f, 3.0f,  -2.5f};
    const std::string options =
        " --size 31ms --decay 0.7 --brisel 3 --damp 45% --mix 35% --width .6 --modulate on"
        " --early-reflections on --er-size 0.055s --er-level 25% --eq-low +3 --eq-high -2.5dB"
        " --block 256";
    for (const int rate : {9001, 48000}) {
        for (const int channels : {1, 2}) {
            for (const size_t frames : {size_t{0}, size_t{256}, size_t{1003}}) {
                const Sound in = noise(frames, channels, rate);
                write_sound("in.wav", in);
                run_well("in.wav out.wav --tail 300ms" +
                         (rate == 9001 ? options + " --block 64" : options));
                const Sound out = read_sound("out.wav");
                EXPECT_EQ(out.format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
                EXPECT_EQ(out.sample_rate, rate);
                const auto tail = static_cast<size_t>(std::lround(0.3 * rate));
                ASSERT_EQ(out.frames(), frames + tail);
                if (rate == 48000) {
                    EXPECT_EQ(out.samples, engine_output(in, params, frames + tail))
                        << channels << ", " << frames;
                }
            }
        }
    }
}

// The plug-in reports one and a half times the decay. The end of this is audible after a huge
// impulse, but not after a weak one; either channel alone keeps it.
TEST_F(Render, AutomaticTailIsTheReportedOneLessSilenceAtItsEnd) {
    const std::string options = " --decay 0.4 --damp 0 --wet-only --quiet";
    const auto both = [&](const Sound& in) {
        write_sound("in.wav", in);
        run_well("in.wav whole.wav --tail 0.6" + options);
        run_well("in.wav auto.wav" + options);
        Sound whole = read_sound("whole.wav"), trimmed = read_sound("auto.wav");
        return std::pair(std::move(whole.samples), std::move(trimmed.samples));
    };
    Sound impulse{48000, 2, std::vector<float>(2000)};
    impulse.samples[0] = impulse.samples[1] = 1000.0f;
    const auto [loud, loud_trimmed] = both(impulse);
    EXPECT_EQ(loud, loud_trimmed);
    int ends[2] = {}; // on the left, on the right
    for (const float level : {0.01f, 0.011f, 0.012f, 0.013f, 0.014f, 0.015f}) {
        impulse.samples[0] = impulse.samples[1] = level;
        auto [whole, trimmed] = both(impulse);
        const auto audible = [](float x) { return std::fabs(x) >= 1e-6f; }; // -120 dBFS
        const auto end = std::find_if(whole.rbegin(), whole.rend(), audible).base() - whole.begin();
        ++ends[(end + 1) % 2];
        whole.resize(static_cast<size_t>(end + end % 2));
        EXPECT_EQ(trimmed, whole) << level;
    }
    EXPECT_TRUE(ends[0] > 0 && ends[1] > 0) << "no tail that one channel alone keeps";
    // The input's own length is never cut.
    EXPECT_EQ(both({48000, 2, std::vector<float>(2000)}).second.size(), 2000u);
}

TEST_F(Render, FormatFollowsTheEndingAndTheSameRunGivesTheSameBytes) {
    write_sound("in.wav", noise(4000, 2));
    run_well("in.wav reference.wav --tail 0");
    const Sound reference = read_sound("reference.wav");
    const struct {
        const char *name, *options;
        int format;
        double step; // quantisation, or -1 where samples come back changed
    } cases[] = {
        {"a.wav", "--bits 16", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1.0 / 32768},
        {"b.WAV", "--bits 24", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1.0 / 8388608},
        {"c.wav", "", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0.0},
        {"a.aiff", "", SF_FORMAT_AIFF | SF_FORMAT_FLOAT, 0.0},
        {"a.w64", "--bits 32f", SF_FORMAT_W64 | SF_FORMAT_FLOAT, 0.0},
        {"a.rf64", "", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 0.0},
        {"a.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1.0 / 8388608},
        {"b.flac", "--bits 16", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1.0 / 32768},
        {"a.ogg", "", SF_FORMAT_OGG | SF_FORMAT_VORBIS, -1.0},
        {"plain", "--format caf", SF_FORMAT_CAF | SF_FORMAT_FLOAT, 0.0},
    };
    std::vector<std::string> bytes;
    for (const auto& c : cases) {
        run_well(std::string("in.wav ") + c.name + " --tail 0 " + c.options);
        bytes.push_back(contents(c.name));
        const Sound out = read_sound(c.name);
        EXPECT_EQ(out.format & ~SF_FORMAT_ENDMASK, c.format) << c.name;
        ASSERT_EQ(out.frames(), reference.frames()) << c.name;
        for (size_t i = 0; c.step >= 0.0 && i < out.samples.size(); ++i)
            ASSERT_NEAR(out.samples[i], reference.samples[i], c.step) << c.name << " sample " << i;
    }
    // Some formats have a place for the time of writing, in seconds. Ogg files carry a random
    // number.
    for (const time_t then = time(nullptr); time(nullptr) == then;)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    for (size_t k = 0; k < std::size(cases); ++k) {
        if (cases[k].step < 0) continue;
        run_well(std::string("in.wav ") + cases[k].name + " --tail 0 " + cases[k].options);
        EXPECT_EQ(contents(cases[k].name), bytes[k]) << cases[k].name;
    }
}

TEST_F(Render, ClippingNormalisingAndDryGainKeepTheirLevels) {
    Sound loud = noise(2000, 2);
    loud.samples[100] = 2.0f;
    loud.samples[200] = -2.0f;
    write_sound("in.wav", loud);
    const Result clipped = run("in.wav out.wav --mix 0 --tail 0 --bits 16");
    EXPECT_TRUE(contains(clipped.err, "2 samples reach up to 6.02 dB over full scale"))
        << clipped.err;
    constexpr float kStep = 1.0f / 32768;
    EXPECT_NEAR(read_sound("out.wav").samples[100], 1.0f, kStep);
    EXPECT_NEAR(read_sound("out.wav").samples[200], -1.0f, kStep);
    EXPECT_EQ(run("in.wav out.wav --mix 0 --tail 0").err, "");
    EXPECT_EQ(read_sound("out.wav").samples, loud.samples);
    EXPECT_EQ(run("in.wav out.wav --mix 0 --tail 0 --bits 16 --normalize").err, "");
    EXPECT_NEAR(peak(read_sound("out.wav")), std::pow(10.0, -1.0 / 20.0), kStep);
    run_well("in.wav out.wav --mix 0 --tail 0 --normalize=-12dB");
    EXPECT_NEAR(peak(read_sound("out.wav")), std::pow(10.0, -12.0 / 20.0), 1e-6);

    // The dry gain replaces the dry share of the mix; what is no number counts as 0.
    loud.samples[77] = compare::kNaN;
    loud.samples[78] = compare::kInfinity;
    write_sound("in.wav", loud);
    run_well("in.wav wet.wav --wet-only --tail 0");
    run_well("in.wav out.wav --mix 0.25 --dry-gain -6dB --tail 0");
    loud.samples[77] = loud.samples[78] = 0.0f;
    const Sound wet = read_sound("wet.wav"), out = read_sound("out.wav");
    for (size_t i = 0; i < out.samples.size(); ++i)
        ASSERT_NEAR(out.samples[i],
                    0.25f * wet.samples[i] + std::pow(10.0f, -0.3f) * loud.samples[i], 1e-6f)
            << i;
}

TEST_F(Render, InterruptionAndAFullDiskLeaveNothingBehind) {
    write_sound("in.wav", noise(30000, 2));
    for (const int signal : {SIGINT, SIGTERM}) {
        // An hour of tail, whose level is measured first, is not done before the signal comes.
        const pid_t child = fork();
        if (child == 0) {
            execl(BRISEL_RENDER, "brisel-render", "in.wav", "out.wav", "--tail", "3600",
                  "--normalize", nullptr);
            _exit(99);
        }
        const auto part = [](const fs::directory_entry& e) {
            return e.path().extension() == ".part";
        };
        while (std::ranges::none_of(fs::directory_iterator("."), part) &&
               waitpid(child, nullptr, WNOHANG) == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        expect_only({"in.wav"});
    }
    for (const std::string out : {"out.wav", "out.flac", "out.ogg"}) {
        run_well("in.wav " + out + " --tail 0");
        const auto blocks = (fs::file_size(out) - 1) / 1024; // of `ulimit -f`
        fs::remove(out);
        // The last block is written when the file is closed, if not later.
        for (const auto limit : {blocks / 2, blocks}) {
            const Result result =
                run("-c 'ulimit -f " + std::to_string(limit) +
                        "; exec \"" BRISEL_RENDER "\" in.wav " + out + " --tail 0'",
                    "/bin/bash");
            EXPECT_EQ(result.exit_code, 1) << out;
            EXPECT_TRUE(contains(result.err, "cannot write '" + out + "'")) << result.err;
            expect_only({"in.wav"});
        }
    }
}

TEST_F(Render, RefusalsNameTheReasonAndLeaveNothing) {
    write_sound("in.wav", noise(600, 2));
    write_sound("three.wav", noise(600, 3));
    write_sound("rate.wav", noise(600, 1, 9000));
    write_sound("high.wav", noise(600, 1, 192000));
    write_text("junk.wav", "RIFF of nothing");
    write_text("bad.preset", "# fine\nsize = 40 ms\n\nsise = 50 ms  # no such name\n");
    write_text("bad.auto", "0 mix 0.5\n1s decay\n");
    write_text("short.auto", "0 mix 0.5\n1ms size 5ms\n");
    write_text("range.auto", "0 size 2s");
    const std::vector<std::string> inputs = {"in.wav",   "three.wav",  "rate.wav",
                                             "high.wav", "junk.wav",   "bad.preset",
                                             "bad.auto", "short.auto", "range.auto"};
    // Exit code, arguments, message.
    std::istringstream table(R"(
1|three.wav out.wav|'three.wav' has 3 channels; the reverb takes one or two
1|rate.wav out.wav|'rate.wav' has a sample rate of 9000 Hz; the reverb needs more than
1|junk.wav out.wav|cannot read 'junk.wav'
1|in.wav /dev/full|cannot write '/dev/full': No space left on device
1|in.wav no/out.wav|cannot write 'no/out.wav': No such file or directory
1|high.wav out.wav --tail 3600|'out.wav' would exceed 4 GiB
1|in.wav out.wav --plugin in.wav|cannot load the plug-in
1|in.wav out.wav --state in.wav|'in.wav' is no state of this plug-in
1|in.wav out.wav --preset nowhere|there is no preset 'nowhere', neither a file nor one of: ambience
1|in.wav out.wav --preset bad.preset|bad.preset:4: there is no parameter 'sise'
1|in.wav out.wav --automation bad.auto|bad.auto:2: a line is `time name value`
1|in.wav out.wav --automation range.auto|size: '2s' (2 s) is out of range: 5 ms to 500 ms
1|in.wav out.wav --automation short.auto --block 256|short.auto:2: blocks of 256 frames do not fit
1|in.wav out.wav --early-reflections on --er-size 5ms|use --er-size 5.1 ms or more
1|in.wav out.wav --block 4096 --size 0.5|too long at 48000 Hz: use --block 1920 or less
2|in.wav ./in.wav|'in.wav' is an input and would be overwritten
2|in.wav three.wav out.wav|name a folder for the results with -o
2||there is no input and no output
2|in.wav out.xyz|no sound format is known by the ending '.xyz'
2|in.wav out.flac --bits 32f|.flac files hold no floating-point samples
2|in.wav out.ogg --bits 16|--bits does not apply
2|in.wav out.wav --mix 135%|--mix: '135%' (1.35) is out of range: 0 to 1
2|in.wav out.wav --block 100|--block: 100 is no multiple of 8
2|in.wav out.wav --wet-only --mix 1|--wet-only and --mix contradict each other
)");
    std::string code, arguments, message;
    std::getline(table, message);
    while (std::getline(table, code, '|') && std::getline(table, arguments, '|') &&
           std::getline(table, message)) {
        const Result result = run(arguments);
        EXPECT_EQ(std::to_string(result.exit_code), code) << arguments;
        EXPECT_TRUE(contains(result.err, message)) << arguments << "\nprints: " << result.err;
        expect_only(inputs);
    }
}

// What is advised renders to its end, four seconds of modulation included; one step beyond it is
// refused.
TEST_F(Render, AdviceOnABlockThatDoesNotFitIsTheLimit) {
    write_sound("in.wav", noise(20000, 1));
    for (const std::string modulate : {"on", "off"}) {
        const std::string start = "in.wav out.wav --tail 4 --modulate " + modulate;
        const Result result = run(start + " --size 7ms --block 512");
        ASSERT_EQ(result.exit_code, 1);
        const auto advised = [&](const std::string& option) {
            const size_t at = result.err.find(option);
            return at == std::string::npos ? 0.0 : std::stod(result.err.substr(at + option.size()));
        };
        const int block = static_cast<int>(advised("use --block "));
        const double size = advised(", or --size ");
        const std::string by_block = start + " --size 7ms --block ";
        const std::string by_size = start + " --block 512 --size ";
        run_well(by_block + std::to_string(block));
        EXPECT_EQ(run(by_block + std::to_string(block + 8)).exit_code, 1);
        run_well(by_size + std::to_string(size) + "ms");
        EXPECT_EQ(run(by_size + std::to_string(size - 0.1) + "ms").exit_code, 1);
        // Without --block the length is chosen to fit.
        const Result fitted = run(start + " --size 5ms --json");
        const std::string expected = modulate == "on" ? "232," : "240,";
        EXPECT_TRUE(contains(fitted.out, "\"block_frames\": " + expected))
            << fitted.out << fitted.err;
    }
}

TEST_F(Render, StatesAndPresetsCarryEverySetting) {
    write_sound("in.wav", noise(3000, 2));
    const std::string settings =
        " --size 33.3ms --decay 1.7 --brisel 1 --damp 0.123456789 --mix 55% --width 0.21 "
        "--modulate off"
        " --early-reflections on --er-size 0.0123 --er-level 0.9 --eq-low -7.7 --eq-high +1.1dB";
    run_well("in.wav direct.wav --save-state a.state --save-preset a.preset" + settings);
    EXPECT_EQ(contents("a.state").size(), 104u);
    const std::string table = run("--list-parameters" + settings).out;
    for (const std::string source : {" --state a.state", " --preset a.preset"}) {
        EXPECT_EQ(run("--list-parameters" + source).out, table);
        run_well("in.wav out.wav --save-state b.state" + source);
        EXPECT_EQ(contents("out.wav"), contents("direct.wav")) << source;
        EXPECT_EQ(contents("b.state"), contents("a.state")) << source;
    }
    // State, then preset, then options.
    write_text(
        "mix.preset",
        "MIX = 10 %   # names in any case, as reported or as options\nEQ Low (dB) = +2 dB\n");
    run_well("--state a.state --preset mix.preset --eq-low 5 --save-preset c.preset");
    for (const std::string line :
         {"size = 33.3 ms\n", "mix = 0.1\n", "eq-low = +5 dB\n", "modulate = off\n"})
        EXPECT_TRUE(contains(contents("c.preset"), line)) << line;
    std::istringstream list(run("--list-presets").out); // what is shipped renders
    for (std::string name, rest; list >> name && std::getline(list, rest);)
        run_well("in.wav out.wav --preset " + name);
}

// Steps may stand in any order; one takes effect at the first block of 256 that starts then or
// later.
TEST_F(Render, AutomationTakesEffectAtTheNextBlock) {
    const Sound in = noise(48000, 2);
    write_sound("in.wav", in);
    const struct {
        const char* time;
        size_t first;                                             // frame
    } cases[] = {{"0.1", 4864}, {"0.112s", 5376}, {"16ms", 768}}; // the last two are such starts
    for (const auto& c : cases) {
        write_text("a.auto", "500ms  mix 0     # dry again\n" + std::string(c.time) + " mix 1\n");
        run_well("in.wav out.wav --mix 0 --tail 0 --block 256 --automation a.auto");
        const std::vector<float> out = read_sound("out.wav").samples;
        const auto changed = std::mismatch(out.begin(), out.end(), in.samples.begin()).first;
        EXPECT_EQ(static_cast<size_t>(changed - out.begin()) / 2, c.first) << c.time;
        const auto last = std::mismatch(out.rbegin(), out.rend(), in.samples.rbegin()).first;
        EXPECT_EQ((out.rend() - last - 1) / 2, 24063); // 24064 is the first start from 24000 on
        // From the change on the reverb is that of a fresh start.
        write_sound(
            "rest.wav",
            {48000, 2, {in.samples.begin() + 2 * static_cast<long>(c.first), in.samples.end()}});
        run_well("rest.wav rest-out.wav --mix 1 --tail 0 --block 256");
        const std::vector<float> fresh = read_sound("rest-out.wav").samples;
        EXPECT_TRUE(std::equal(changed, out.begin() + 2 * 24064, fresh.begin()));
    }
    // In the tail a change leaves nothing to hear: the network starts again without input. 1.1 s is
    // frame 52800, the next block starts at 52992.
    write_text("tail.auto", "1.1s decay 3s\n");
    run_well("in.wav out.wav --decay 1 --automation tail.auto");
    EXPECT_EQ(read_sound("out.wav").frames(), 52992u);
}

TEST(RenderValues, AreReadInPeoplesUnitsAndShownSo) {
    using enum Unit;
    const struct {
        const char* text;
        Unit unit;
        double value;
    } cases[] = {{"40ms", milliseconds, 0.04}, {"0.04s", milliseconds, 0.04},
                 {" 40 MS ", seconds, 0.04},   {"2.5", seconds, 2.5},
                 {"1e-2", seconds, 0.01},      {"35%", ratio, 0.35},
                 {".35", ratio, 0.35},         {"-2dB", decibels, -2.0},
                 {"+3", decibels, 3.0},        {"3", count, 3.0},
                 {"on", on_off, 1.0},          {"OFF", on_off, 0.0},
                 {"-7.25", number, -7.25}};
    for (const auto& c : cases) EXPECT_EQ(parse_value(c.text, c.unit), c.value) << c.text;
    for (const auto& [text, unit] : {std::pair{"", seconds},
                                     {"ms", seconds},
                                     {"40msx", seconds},
                                     {"0,04", seconds},
                                     {"40%", seconds},
                                     {"1 2", number},
                                     {"3dB", ratio},
                                     {"nan", number},
                                     {"inf", decibels},
                                     {"1e999", number},
                                     {"+-3", decibels},
                                     {"1.5", count},
                                     {"0x10", count},
                                     {"2", on_off}})
        EXPECT_THROW(parse_value(text, unit), ValueError) << "'" << text << "'";
    EXPECT_EQ(show_value(0.04, milliseconds), "40 ms");
    EXPECT_EQ(show_value(24.0, decibels), "+24 dB");
    compare::Random random(1);
    for (const Unit unit : {milliseconds, seconds, decibels, ratio}) {
        for (int i = 0; i < 2000; ++i) { // of few digits, of all digits, and tiny ones
            const double value = double{random.real(-24, 24)} * random.pick({1.0, 0.02, 1e-12});
            ASSERT_EQ(parse_value(show_value(value, unit), unit), value);
        }
    }
    EXPECT_EQ(option_name("EQ Low (dB)"), "eq-low");
    EXPECT_EQ(unit_from_text("40.0 ms", 0.04, false, 0.005, 0.5), milliseconds);
    EXPECT_EQ(unit_from_text("40.0 ms", 40.0, false, 5.0, 500.0),
              number); // none that can be scaled
    EXPECT_EQ(unit_from_text("2.00 s", 2.0, false, 0.1, 10.0), seconds);
    EXPECT_EQ(unit_from_text("+0.0 dB", 0.0, false, -24.0, 24.0), decibels);
    EXPECT_EQ(unit_from_text("K = 2", 2.0, true, 0.0, 3.0), count);
    EXPECT_EQ(unit_from_text("Off", 0.0, true, 0.0, 1.0), on_off);
    EXPECT_EQ(unit_from_text("0.300", 0.3, false, 0.0, 1.0), ratio);
}
