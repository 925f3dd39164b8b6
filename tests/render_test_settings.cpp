// brisel-render's settings: values and their refusals, states, presets, automation, and the errors
// that a user meets.
#include "tests/render_test.h"

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string after(const std::string& text, const std::string& part) {
    return text.substr(text.find(part) + part.size());
}

TEST_F(Render, RefusalsNameTheReasonAndLeaveNothing) {
    write_sound("in.wav", noise(600, 2));
    write_sound("three.wav", noise(600, 3));
    write_sound("rate.wav", noise(600, 1, 0.5f, 9000));
    write_sound("high.wav", noise(600, 1, 0.5f, 192000));
    write_text("junk.wav", "RIFF of nothing");
    write_text("bad.preset", "# fine\nsize = 40 ms\n\nsise = 50 ms  # no such name\n");
    write_text("range.preset", "decay = 12 s");
    write_text("form.preset", "decay 2 s");
    write_text("bad.auto", "0 mix 0.5\n1s decay\n");
    write_text("short.auto", "0 mix 0.5\n1ms size 5ms\n");
    write_text("range.auto", "0 size 2s");
    fs::create_symlink("/dev/full", path("full.wav"));
    const std::vector<std::string> inputs = {
        "in.wav",       "three.wav",   "rate.wav", "high.wav",   "junk.wav",   "bad.preset",
        "range.preset", "form.preset", "bad.auto", "short.auto", "range.auto", "full.wav"};
    const struct {
        const char* arguments;
        int exit_code;
        const char* message;
    } cases[] = {
        {"three.wav out.wav", 1, "'three.wav' has 3 channels; the reverb takes one or two"},
        {"rate.wav out.wav", 1,
         "'rate.wav' has a sample rate of 9000 Hz; the reverb needs more than 9000 Hz"},
        {"missing.wav out.wav", 1, "cannot read 'missing.wav': No such file or directory"},
        {"junk.wav out.wav", 1, "cannot read 'junk.wav'"},
        {"in.wav /dev/full", 1, "cannot write '/dev/full': No space left on device"},
        {"in.wav full.wav", 1, "cannot write 'full.wav': No space left on device"},
        {"in.wav no/out.wav", 1, "cannot write 'no/out.wav': No such file or directory"},
        {"in.wav -o three.wav/wet", 1, "cannot make the folder 'three.wav/wet': Not a directory"},
        {"high.wav out.wav --tail 3600", 1, "'out.wav' would exceed 4 GiB"},
        {"in.wav out.wav --plugin in.wav", 1, "cannot load the plug-in"},
        {"in.wav out.wav --state in.wav", 1, "'in.wav' is no state of this plug-in"},
        {"in.wav out.wav --preset nowhere", 1,
         "there is no preset 'nowhere', neither a file nor one of: ambience"},
        {"in.wav out.wav --preset bad.preset", 1, "bad.preset:4: there is no parameter 'sise'"},
        {"in.wav out.wav --preset range.preset", 1,
         "range.preset:1: decay: '12 s' (12 s) is out of range: 0.1 s to 10 s"},
        {"in.wav out.wav --preset form.preset", 1, "form.preset:1: a line is `name = value`"},
        {"in.wav out.wav --automation bad.auto", 1, "bad.auto:2: a line is `time name value`"},
        {"in.wav out.wav --automation range.auto", 1,
         "range.auto:1: size: '2s' (2 s) is out of range: 5 ms to 500 ms"},
        {"in.wav out.wav --automation short.auto --block 256", 1,
         "short.auto:2: blocks of 256 frames do not fit"},
        {"in.wav out.wav --early-reflections on --er-size 5ms", 1, "use --er-size 5.1 ms or more"},
        {"in.wav out.wav --block 4096 --size 0.5", 1,
         "blocks of 4096 frames are too long at 48000 Hz: use --block 1920 or less"},
        {"in.wav in.wav", 2, "'in.wav' is an input and would be overwritten"},
        {"in.wav ./in.wav", 2, "'in.wav' is an input and would be overwritten"},
        {"in.wav -o .", 2, "'in.wav' is an input and would be overwritten"},
        {"in.wav no/in.wav -o wet", 2, "would both become 'wet/in.wav'"},
        {"in.wav three.wav out.wav", 2, "name a folder for the results with -o"},
        {"in.wav", 2, "there is no output"},
        {"", 2, "there is no input and no output"},
        {"in.wav .", 2, "'.' is a folder"},
        {"in.wav out", 2, "'out' has no ending that names a sound format"},
        {"in.wav out.xyz", 2, "no sound format is known by the ending '.xyz'"},
        {"in.wav out.flac --bits 32f", 2, ".flac files hold no floating-point samples"},
        {"in.wav out.ogg --bits 16", 2, "--bits does not apply"},
        {"in.wav out.wav --bits 20", 2, "--bits: '20' is none of 16, 24 and 32f"},
        {"in.wav out.wav --size 2s", 2, "--size: '2s' (2 s) is out of range: 5 ms to 500 ms"},
        {"in.wav out.wav --mix 135%", 2, "--mix: '135%' (1.35) is out of range: 0 to 1"},
        {"in.wav out.wav --eq-low -30", 2,
         "--eq-low: '-30' (-30 dB) is out of range: -24 dB to +24 dB"},
        {"in.wav out.wav --size 40mss", 2,
         "--size: '40mss' is not a time; write it as 40ms or 0.04s"},
        {"in.wav out.wav --modulate maybe", 2, "--modulate: 'maybe' is neither on nor off"},
        {"in.wav out.wav --tail -1", 2, "--tail: '-1' (-1 s) is out of range: 0 s to 3600 s"},
        {"in.wav three.wav -o one.wav", 2, "'one.wav' is one file, and there are 2 inputs"},
        {"in.wav out.wav --block 100", 2, "--block: 100 is no multiple of 8"},
        {"in.wav out.wav --wet-only --mix 1", 2, "--wet-only and --mix contradict each other"},
        {"in.wav out.wav --sise 40ms", 2, "--sise"},
    };
    for (const auto& c : cases) {
        const Result result = run(c.arguments);
        EXPECT_EQ(result.exit_code, c.exit_code) << c.arguments;
        EXPECT_TRUE(contains(result.err, c.message))
            << c.arguments << "\nprints: " << result.err << "expected: " << c.message;
        EXPECT_EQ(result.out, "") << c.arguments;
        expect_only(inputs);
    }
}

TEST_F(Render, FullDiskIsNoticedHoweverLateInTheFile) {
    write_sound("in.wav", noise(30000, 2));
    for (const std::string out : {"out.wav", "out.flac", "out.ogg"}) {
        run_well("in.wav " + out + " --tail 0");
        const auto blocks = (fs::file_size(path(out)) - 1) / 1024; // of `ulimit -f`
        fs::remove(path(out));
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

TEST_F(Render, AdviceOnABlockThatDoesNotFitIsTheLimit) {
    write_sound("in.wav", noise(20000, 1));
    for (const std::string modulate : {"on", "off"}) {
        const std::string options = " --tail 4 --modulate " + modulate;
        const std::string start = "in.wav out.wav --size 7ms --block 512" + options;
        const Result result = run(start);
        ASSERT_EQ(result.exit_code, 1);
        EXPECT_TRUE(contains(result.err, "7 ms, that is 336 frames at 48000 Hz")) << result.err;
        ASSERT_TRUE(contains(result.err, "use --block ") && contains(result.err, ", or --size "))
            << result.err;
        const int block = std::stoi(after(result.err, "use --block "));
        const double size = std::stod(after(result.err, ", or --size "));
        // What is advised renders to its end, four seconds of modulation included; one step beyond
        // it is refused.
        run_well("in.wav out.wav --size 7ms" + options + " --block " + std::to_string(block));
        EXPECT_EQ(
            run("in.wav out.wav --size 7ms" + options + " --block " + std::to_string(block + 8))
                .exit_code,
            1);
        run_well("in.wav out.wav --block 512" + options + " --size " + std::to_string(size) + "ms");
        EXPECT_EQ(run("in.wav out.wav --block 512" + options + " --size " +
                      std::to_string(size - 0.1) + "ms")
                      .exit_code,
                  1);
        // Without --block the length is chosen to fit.
        const Result fitted = run("in.wav out.wav --size 5ms --json" + options);
        EXPECT_EQ(fitted.exit_code, 0) << fitted.err;
        EXPECT_TRUE(contains(fitted.out, modulate == "on" ? "\"block_frames\": 232,"
                                                          : "\"block_frames\": 240,"))
            << fitted.out;
    }
}

TEST_F(Render, StatesAndPresetsCarryEverySetting) {
    write_sound("in.wav", noise(3000, 2));
    const std::string settings =
        " --size 33.3ms --decay 1.7 --brisel 1 --damp 0.123456789 --mix 55% --width 0.21"
        " --modulate off --early-reflections on --er-size 0.0123 --er-level 0.9 --eq-low -7.7"
        " --eq-high +1.1dB";
    run_well("in.wav direct.wav --save-state a.state --save-preset a.preset" + settings);
    EXPECT_EQ(contents("a.state").size(), 104u);
    const std::string table = run("--list-parameters" + settings).out;
    for (const std::string source : {" --state a.state", " --preset a.preset"}) {
        EXPECT_EQ(run("--list-parameters" + source).out, table);
        run_well("in.wav out.wav" + source);
        EXPECT_EQ(contents("out.wav"), contents("direct.wav")) << source;
        run_well("--save-state b.state" + source);
        EXPECT_EQ(contents("b.state"), contents("a.state")) << source;
    }

    // State, then preset, then options.
    write_text("mix.preset", "MIX = 10 %   # names in any case, as reported or as options\n"
                             "EQ Low (dB) = +2 dB\n");
    run_well("--state a.state --preset mix.preset --eq-low 5 --save-preset c.preset");
    const std::string saved = contents("c.preset");
    EXPECT_TRUE(contains(saved, "size = 33.3 ms\n")) << saved;
    EXPECT_TRUE(contains(saved, "mix = 0.1\n")) << saved;
    EXPECT_TRUE(contains(saved, "eq-low = +5 dB\n")) << saved;
    EXPECT_TRUE(contains(saved, "modulate = off\n")) << saved;
}

TEST_F(Render, ShippedPresetsAreDescribedAndRender) {
    write_sound("in.wav", noise(300, 1));
    std::istringstream list(run("--list-presets").out);
    int presets = 0;
    for (std::string line; std::getline(list, line); ++presets) {
        const std::string name = line.substr(0, line.find(' '));
        EXPECT_GT(line.size(), 40u) << "no description: " << line;
        run_well("in.wav out.wav --preset " + name);
        EXPECT_GT(read_sound("out.wav").frames(), 5000u) << name;
    }
    EXPECT_GE(presets, 6);
}

TEST_F(Render, AutomationTakesEffectAtTheNextBlock) {
    const Sound in = noise(48000, 2);
    write_sound("in.wav", in);
    // 0.1 s is frame 4800; the first block of 256 that starts there or later starts at 4864. Steps
    // may stand in any order.
    write_text("a.auto", "500ms  mix 0     # dry again\n0.1 mix 1\n");
    run_well("in.wav out.wav --mix 0 --tail 0 --block 256 --automation a.auto");
    const Sound out = read_sound("out.wav");
    size_t first_changed = 0, last_changed = 0;
    for (size_t i = 0; i < in.samples.size(); ++i) {
        if (out.samples[i] == in.samples[i]) continue;
        if (first_changed == 0) first_changed = i / 2;
        last_changed = i / 2;
    }
    EXPECT_EQ(first_changed, 4864u);
    EXPECT_EQ(last_changed, 24063u); // 24064 is the first multiple of 256 from 24000 on

    // From the change on the reverb is that of a fresh start: every change restarts the network.
    Sound rest{48000, 2, {in.samples.begin() + 2 * 4864, in.samples.end()}};
    write_sound("rest.wav", rest);
    run_well("rest.wav rest-out.wav --mix 1 --tail 0 --block 256 --eq-low 0");
    const Sound fresh = read_sound("rest-out.wav");
    for (size_t i = 0; i < 2 * (24064 - 4864); ++i)
        ASSERT_NEAR(out.samples[2 * 4864 + i], fresh.samples[i], 1e-5f) << i;

    // In the tail a change leaves nothing to hear: the network starts again without input. 1.1 s is
    // frame 52800, the next block starts at 52992.
    write_text("tail.auto", "1.1s decay 3s\n");
    run_well("in.wav out.wav --decay 1 --automation tail.auto");
    EXPECT_EQ(read_sound("out.wav").frames(), 52992u);
}

TEST_F(Render, InstalledLayoutIsFound) {
    const fs::path program = BRISEL_RENDER;
    fs::create_directories(path("bin"));
    fs::copy_file(program, path("bin/brisel-render"));
    Result result = run("--list-parameters", "./bin/brisel-render");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_TRUE(contains(result.err, "/bin/brisel.clap' nor '")) << result.err;
    result = run("--help", "./bin/brisel-render");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_TRUE(contains(result.out, "--tail"));

    fs::create_directories(path("lib/clap"));
    fs::copy_file(program.parent_path() / "brisel.clap", path("lib/clap/brisel.clap"));
    fs::create_directories(path("share/brisel"));
    fs::copy(program.parent_path() / "presets", path("share/brisel/presets"));
    EXPECT_EQ(run("--list-parameters", "./bin/brisel-render").out, run("--list-parameters").out);
    EXPECT_EQ(run("--list-presets", "./bin/brisel-render").out, run("--list-presets").out);
    EXPECT_NE(run("--list-presets").out, "");
}

TEST_F(Render, ManualAndCompletionKnowEveryOption) {
    std::istringstream help(run("--help").out);
    write_text("complete.sh", "source '" BRISEL_SOURCE "/render/brisel-render.bash'\n"
                              "COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _brisel_render\n"
                              "printf '%s\\n' \"${COMPREPLY[@]}\"\n");
    const auto complete = [&](const std::string& words) {
        return run("complete.sh '" BRISEL_RENDER "' " + words, "/bin/bash").out;
    };
    std::ifstream manual_file(fs::path(BRISEL_RENDER).parent_path() / "brisel-render.1");
    std::string manual(std::istreambuf_iterator<char>(manual_file), {});
    std::string offered("\n");
    offered += complete("--");
    int options = 0;
    for (std::string line; std::getline(help, line);) {
        const size_t dashes = line.find("--");
        if (!line.starts_with("  -") || dashes > 6) continue;
        ++options;
        const std::string option = line.substr(dashes, line.find_first_of(" [", dashes) - dashes);
        EXPECT_TRUE(contains(offered, "\n" + option + "\n")) << option;
        // The manual page escapes its dashes.
        std::string escaped;
        for (const char c : option) escaped += c == '-' ? "\\-" : std::string(1, c);
        EXPECT_TRUE(contains(manual, "\n.B " + escaped) || contains(manual, ", " + escaped))
            << option;
    }
    EXPECT_GT(options, 25);
    EXPECT_EQ(complete("--modulate ''"), "on\noff\n");
    EXPECT_EQ(complete("--preset ha"), "hall\n");
}

} // namespace
