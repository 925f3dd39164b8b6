// Runs the renderer in a folder of its own and looks at what it leaves there.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace fs = std::filesystem;

struct Sound {
    int sample_rate = 48000;
    int channels = 2;
    std::vector<float> samples; // interleaved
    int format = 0;             // as read

    size_t frames() const { return samples.size() / static_cast<size_t>(channels); }
    float at(size_t frame, size_t channel) const {
        return samples[frame * static_cast<size_t>(channels) + channel];
    }
};

struct Result {
    int exit_code; // 128 and more: ended by that signal, as in a shell
    std::string out;
    std::string err;
};

class Render : public testing::Test {
protected:
    Render() {
        std::string name = (fs::temp_directory_path() / "render-test-XXXXXX").string();
        folder_ = mkdtemp(name.data());
    }
    ~Render() override { fs::remove_all(folder_); }

    fs::path path(const std::string& name) const { return folder_ / name; }

    // Runs `program arguments`, as the shell reads them, in the folder.
    Result run(const std::string& arguments, const std::string& program = BRISEL_RENDER) const {
        const std::string command = "cd '" + folder_.string() + "' && '" + program + "' " +
                                    arguments + " >stdout.txt 2>stderr.txt";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
                contents("stdout.txt"), contents("stderr.txt")};
    }

    void run_well(const std::string& arguments) const {
        const Result result = run(arguments);
        ASSERT_EQ(result.exit_code, 0) << arguments << "\n" << result.err;
    }

    std::string contents(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

    void write_text(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }

    void write_sound(const std::string& name, const Sound& sound,
                     int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) const {
        SF_INFO info{};
        info.samplerate = sound.sample_rate;
        info.channels = sound.channels;
        info.format = format;
        SNDFILE* file = sf_open(path(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
        const auto frames = static_cast<sf_count_t>(sound.frames());
        EXPECT_EQ(sf_writef_float(file, sound.samples.data(), frames), frames);
        sf_close(file);
    }

    Sound read_sound(const std::string& name) const {
        SF_INFO info{};
        SNDFILE* file = sf_open(path(name).c_str(), SFM_READ, &info);
        EXPECT_NE(file, nullptr) << name << ": " << sf_strerror(nullptr);
        if (!file) return {};
        Sound sound{info.samplerate, info.channels, {}, info.format};
        sound.samples.resize(static_cast<size_t>(info.frames * info.channels));
        EXPECT_EQ(sf_readf_float(file, sound.samples.data(), info.frames), info.frames) << name;
        sf_close(file);
        return sound;
    }

    // Noise of a fixed seed, within +/-`level`.
    static Sound noise(size_t frames, int channels, float level = 0.5f, int sample_rate = 48000) {
        Sound sound{sample_rate, channels, {}};
        uint64_t x = 0x9e3779b97f4a7c15;
        for (size_t i = 0; i < frames * static_cast<size_t>(channels); ++i) {
            x ^= x << 13;
            x ^= x >> 7;
            x ^= x << 17;
            sound.samples.push_back(level * (static_cast<float>(x >> 40) / 8388608.0f - 1.0f));
        }
        return sound;
    }

    // Neither half-written files nor results.
    void expect_only(std::vector<std::string> names) const {
        std::vector<std::string> found;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder_)) {
            const std::string name = entry.path().filename().string();
            if (name != "stdout.txt" && name != "stderr.txt") found.push_back(name);
        }
        std::sort(found.begin(), found.end());
        std::sort(names.begin(), names.end());
        EXPECT_EQ(found, names);
    }

private:
    fs::path folder_;
};
