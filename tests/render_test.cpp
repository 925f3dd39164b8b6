// brisel-render, run as a user runs it: what it writes, against the engine driven directly and
// against its own promises about lengths, formats and levels.
#include "tests/render_test.h"

#include <brisel/reverb.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <ctime>
#include <limits>
#include <thread>
#include <unistd.h>

namespace {

constexpr uint32_t block = 256;

// What the renderer shall write: the input in whole blocks with silence behind it, cut to `frames`.
std::vector<float> engine_output(const Sound& in, const qv_reverb_params& params, size_t frames) {
    qv_reverb* reverb = qv_reverb_create(in.sample_rate, block);
    EXPECT_EQ(qv_reverb_set(reverb, &params), 0);
    std::vector<float> out;
    for (size_t start = 0; start < frames; start += block) {
        float left[block]{}, right[block]{}, out_left[block], out_right[block];
        for (size_t i = 0; i < block && start + i < in.frames(); ++i) {
            left[i] = in.at(start + i, 0);
            right[i] = in.at(start + i, in.channels == 2 ? 1 : 0);
        }
        EXPECT_EQ(qv_reverb_process(reverb, left, right, out_left, out_right, block), 0);
        for (size_t i = 0; i < block && start + i < frames; ++i) {
            out.push_back(out_left[i]);
            out.push_back(out_right[i]);
        }
    }
    qv_reverb_destroy(reverb);
    return out;
}

// Frames up to the last one that reaches -120 dBFS, `least` at least.
size_t audible_frames(const Sound& sound, size_t least) {
    size_t frames = sound.frames();
    while (frames > least && std::fabs(sound.at(frames - 1, 0)) < 1e-6f &&
           std::fabs(sound.at(frames - 1, 1)) < 1e-6f)
        --frames;
    return frames;
}

float peak(const Sound& sound) {
    float most = 0.0f;
    for (const float s : sound.samples) most = std::max(most, std::fabs(s));
    return most;
}

TEST_F(Render, SamplesAreThoseOfTheEngineFedInWholeBlocks) {
    qv_reverb_params params{};
    params.size = 0.031f;
    params.t60 = 0.7f;
    params.cascade_stages = 3;
    params.damp = 0.45f;
    params.mix = 0.35f;
    params.width = 0.6f;
    params.modulate = 1;
    params.er_enable = 1;
    params.er_size = 0.055f;
    params.er_level = 0.25f;
    params.eq_low_db = 3.0f;
    params.eq_high_db = -2.5f;
    const std::string options =
        " --size 31ms --decay 0.7 --brisel 3 --damp 45% --mix 35% --width .6 --modulate on"
        " --early-reflections on --er-size 0.055s --er-level 25% --eq-low +3 --eq-high -2.5dB"
        " --block 256";
    for (const int channels : {1, 2}) {
        for (const size_t frames : {size_t{1}, size_t{768}, size_t{1003}}) {
            const Sound in = noise(frames, channels);
            write_sound("in.wav", in);
            run_well("in.wav out.wav --tail 300ms" + options);
            const Sound out = read_sound("out.wav");
            EXPECT_EQ(out.format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
            EXPECT_EQ(out.channels, 2);
            EXPECT_EQ(out.samples, engine_output(in, params, frames + 14400))
                << channels << " channels, " << frames << " frames";
        }
    }
}

TEST_F(Render, LengthIsExactWithAGivenTailAtAnyRate) {
    for (const int rate : {9001, 44100, 192000}) {
        for (const size_t frames : {size_t{0}, size_t{255}, size_t{256}, size_t{257}}) {
            write_sound("in.wav", noise(frames, 1, 0.5f, rate));
            run_well("in.wav out.wav --tail 0");
            EXPECT_EQ(read_sound("out.wav").frames(), frames);
            run_well("in.wav out.wav --tail 0.1");
            const Sound out = read_sound("out.wav");
            EXPECT_EQ(out.frames(), frames + static_cast<size_t>(std::lround(0.1 * rate)));
            EXPECT_EQ(out.sample_rate, rate);
        }
    }
}

TEST_F(Render, AutomaticTailIsTheReportedOneLessSilenceAtItsEnd) {
    Sound impulse{48000, 2, std::vector<float>(2000, 0.0f)};
    impulse.samples[0] = impulse.samples[1] = 1000.0f;
    write_sound("in.wav", impulse);
    // The plug-in reports one and a half times the decay. The end of this is audible after a huge
    // impulse, but not after a weak one.
    const std::string options = " --decay 0.4 --damp 0 --wet-only --quiet";
    run_well("in.wav whole.wav --tail 0.6" + options);
    run_well("in.wav auto.wav" + options);
    EXPECT_EQ(read_sound("auto.wav").samples, read_sound("whole.wav").samples);

    for (float& s : impulse.samples) s *= 1e-5f;
    write_sound("in.wav", impulse);
    run_well("in.wav whole.wav --tail 0.6" + options);
    run_well("in.wav auto.wav" + options);
    const Sound whole = read_sound("whole.wav"), trimmed = read_sound("auto.wav");
    ASSERT_EQ(trimmed.frames(), audible_frames(whole, 1000));
    EXPECT_LT(trimmed.frames(), whole.frames() - 1000);
    EXPECT_TRUE(std::equal(trimmed.samples.begin(), trimmed.samples.end(), whole.samples.begin()));

    // The input's own length is never cut.
    write_sound("in.wav", {48000, 2, std::vector<float>(2000, 0.0f)});
    run_well("in.wav auto.wav" + options);
    EXPECT_EQ(read_sound("auto.wav").frames(), 1000u);
}

TEST_F(Render, FormatFollowsTheEnding) {
    write_sound("in.wav", noise(4000, 2, 0.3f));
    run_well("in.wav reference.wav --tail 0");
    const Sound reference = read_sound("reference.wav");
    const struct {
        const char* name;
        const char* options;
        int format;
        double step; // quantisation, or -1 where samples come back changed
    } cases[] = {
        {"a.wav", "--bits 16", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1.0 / 32768},
        {"a.WAV", "--bits 24", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1.0 / 8388608},
        {"a.aiff", "", SF_FORMAT_AIFF | SF_FORMAT_FLOAT, 0.0},
        {"a.aif", "--bits 24", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1.0 / 8388608},
        {"a.au", "", SF_FORMAT_AU | SF_FORMAT_FLOAT, 0.0},
        {"a.w64", "--bits 32f", SF_FORMAT_W64 | SF_FORMAT_FLOAT, 0.0},
        {"a.rf64", "", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 0.0},
        {"a.caf", "", SF_FORMAT_CAF | SF_FORMAT_FLOAT, 0.0},
        {"a.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1.0 / 8388608},
        {"b.flac", "--bits 16", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1.0 / 32768},
        {"a.ogg", "", SF_FORMAT_OGG | SF_FORMAT_VORBIS, -1.0},
        {"a.opus", "", SF_FORMAT_OGG | SF_FORMAT_OPUS, -1.0},
        {"plain", "--format caf", SF_FORMAT_CAF | SF_FORMAT_FLOAT, 0.0},
    };
    for (const auto& c : cases) {
        run_well(std::string("in.wav ") + c.name + " --tail 0 " + c.options);
        const Sound out = read_sound(c.name);
        EXPECT_EQ(out.format & ~SF_FORMAT_ENDMASK, c.format) << c.name;
        ASSERT_EQ(out.frames(), reference.frames()) << c.name;
        for (size_t i = 0; c.step >= 0.0 && i < out.samples.size(); ++i)
            ASSERT_NEAR(out.samples[i], reference.samples[i], c.step) << c.name << " sample " << i;
    }
}

TEST_F(Render, TheSameRunGivesTheSameBytes) {
    write_sound("in.wav", noise(3000, 2));
    const std::string options = " --mix 0.5 --early-reflections on --tail 0.2 --normalize";
    const std::vector<std::string> endings{"wav", "aiff", "flac", "caf", "w64", "rf64", "au"};
    for (const std::string& ending : endings) run_well("in.wav a." + ending + options);
    // Some formats have a place for the time of writing, in seconds.
    for (const time_t then = time(nullptr); time(nullptr) == then;)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    for (const std::string& ending : endings) {
        run_well("in.wav b." + ending + options);
        EXPECT_EQ(contents("a." + ending), contents("b." + ending)) << ending;
    }
}

TEST_F(Render, ClippingIsReportedAndStaysAtFullScale) {
    Sound loud = noise(2000, 2, 0.5f);
    loud.samples[100] = 2.0f;
    loud.samples[200] = -2.0f;
    write_sound("in.wav", loud);
    Result result = run("in.wav out.wav --mix 0 --tail 0 --bits 16");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_NE(result.err.find("2 samples reach up to 6.02 dB over full scale"), std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("--normalize"), std::string::npos);
    const Sound out = read_sound("out.wav");
    EXPECT_NEAR(out.samples[100], 1.0f, 1e-4f);
    EXPECT_NEAR(out.samples[200], -1.0f, 1e-4f);

    result = run("in.wav out.wav --mix 0 --tail 0");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(read_sound("out.wav").samples, loud.samples);

    result = run("in.wav out.wav --mix 0 --tail 0 --bits 16 --normalize");
    EXPECT_EQ(result.err, "");
    EXPECT_NEAR(peak(read_sound("out.wav")), std::pow(10.0, -1.0 / 20.0), 1.0 / 32768);
    run_well("in.wav out.wav --mix 0 --tail 0 --normalize=-12dB");
    EXPECT_NEAR(peak(read_sound("out.wav")), std::pow(10.0, -12.0 / 20.0), 1e-6);
}

TEST_F(Render, DryGainReplacesTheDryShareOfTheMix) {
    Sound in = noise(5000, 2);
    in.samples[77] = std::numeric_limits<float>::quiet_NaN();
    in.samples[78] = std::numeric_limits<float>::infinity();
    write_sound("in.wav", in);
    in.samples[77] = in.samples[78] = 0.0f; // what they count as
    run_well("in.wav wet.wav --wet-only --tail 0");
    run_well("in.wav out.wav --mix 0.25 --dry-gain -6dB --tail 0");
    const Sound wet = read_sound("wet.wav"), out = read_sound("out.wav");
    const double gain = std::pow(10.0, -6.0 / 20.0);
    for (size_t i = 0; i < out.samples.size(); ++i)
        ASSERT_NEAR(out.samples[i], 0.25 * wet.samples[i] + gain * in.samples[i], 1e-6) << i;
}

TEST_F(Render, SeveralInputsGoIntoAFolderAndEqualSingleRuns) {
    write_sound("a.wav", noise(3000, 1));
    write_sound("b.flac", noise(2000, 2, 0.2f, 44100), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    write_sound("low.wav", noise(100, 1, 0.5f, 8000));
    const Result result = run("a.wav low.wav b.flac -o wet/ --decay 0.2 --json");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_NE(result.err.find("'low.wav' has a sample rate of 8000 Hz; the reverb needs more than "
                              "9000 Hz"),
              std::string::npos)
        << result.err;
    EXPECT_FALSE(fs::exists(path("wet/low.wav")));

    // One JSON object a file, in order.
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
    const std::string frames = std::to_string(read_sound("wet/b.flac").frames());
    EXPECT_NE(result.out.find("\"input_frames\": 2000, \"frames\": " + frames), std::string::npos)
        << result.out;

    run_well("a.wav single.wav --decay 0.2");
    run_well("b.flac single.flac --decay 0.2");
    EXPECT_EQ(contents("wet/a.wav"), contents("single.wav"));
    EXPECT_EQ(contents("wet/b.flac"), contents("single.flac"));

    run_well("a.wav b.flac -o other --format aiff --quiet");
    EXPECT_EQ(contents("stdout.txt"), "");
    EXPECT_TRUE(fs::exists(path("other/a.aiff")) && fs::exists(path("other/b.aiff")));
}

TEST_F(Render, InterruptionLeavesNothingBehind) {
    write_sound("in.wav", noise(100, 1));
    for (const int signal : {SIGINT, SIGTERM}) {
        // An hour of tail, whose level is measured first, is not done before the signal comes.
        const pid_t child = fork();
        if (child == 0) {
            if (chdir(path("").c_str()) != 0) _exit(99);
            execl(BRISEL_RENDER, "brisel-render", "in.wav", "out.wav", "--tail", "3600",
                  "--normalize", nullptr);
            _exit(99);
        }
        const auto started = [&] {
            for (const fs::directory_entry& entry : fs::directory_iterator(path("")))
                if (entry.path().extension() == ".part") return true;
            return false;
        };
        while (!started() && waitpid(child, nullptr, WNOHANG) == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        expect_only({"in.wav"});
    }
}

} // namespace
