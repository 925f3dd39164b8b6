#include "render/renderer.h"

#include "render/block_fit.h"
#include "render/errors.h"
#include "render/interrupt.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <fmt/format.h>

namespace brisel::render {

namespace {

// Peak and power of what is written.
class LevelMeter {
public:
    void add(const float* samples, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            const float magnitude = std::fabs(samples[i]);
            peak_ = std::max(peak_, magnitude);
            samples_over_ += magnitude > 1.0f;
            power_ += static_cast<double>(samples[i]) * samples[i];
        }
        samples_ += count;
    }
    double peak() const { return peak_; }
    double rms() const {
        return samples_ > 0 ? std::sqrt(power_ / static_cast<double>(samples_)) : 0.0;
    }
    uint64_t samples_over() const { return samples_over_; }

private:
    float peak_ = 0.0f;
    double power_ = 0.0;
    uint64_t samples_ = 0;
    uint64_t samples_over_ = 0;
};

// Passes interleaved stereo on to the writer, but keeps silent frames of the tail back until
// something audible follows them. At most the tail is ever held.
class TailGate {
public:
    TailGate(SoundWriter* out, LevelMeter& levels) : out_(out), levels_(levels) {}

    void pass(const float* frames, size_t count) {
        if (count == 0) return;
        if (!held_.empty()) {
            emit(held_.data(), held_.size() / 2);
            held_.clear();
        }
        emit(frames, count);
    }

    void pass_audible(const float* frames, size_t count) {
        size_t audible = count;
        while (audible > 0 && std::fabs(frames[2 * audible - 2]) < kTailThreshold &&
               std::fabs(frames[2 * audible - 1]) < kTailThreshold)
            --audible;
        pass(frames, audible);
        held_.insert(held_.end(), frames + 2 * audible, frames + 2 * count);
    }

    uint64_t frames() const { return frames_; }

private:
    void emit(const float* frames, size_t count) {
        if (out_) out_->write(frames, count);
        levels_.add(frames, 2 * count);
        frames_ += count;
    }

    SoundWriter* out_; // null: measure only
    LevelMeter& levels_;
    std::vector<float> held_;
    uint64_t frames_ = 0;
};

// One way through the input and its tail, from a freshly activated plug-in.
class Pass {
public:
    Pass(Plugin& plugin, SoundReader& in, const RenderSettings& settings, uint32_t block)
        : plugin_(plugin), in_(in), settings_(settings), block_(block),
          until_asleep_(plugin.is_live() && !settings.tail_seconds), values_(settings.values),
          mix_(find_parameter(plugin.parameters(), "mix")), interleaved_(2 * size_t{block}),
          planar_(4 * size_t{block}) {
        for (size_t channel = 0; channel < 2; ++channel) {
            input_[channel] = planar_.data() + channel * block;
            output_[channel] = planar_.data() + (2 + channel) * block;
        }
    }

    // Writes to `out` unless it is null, times `gain`.
    Summary run(SoundWriter* out, float gain, const ProgressCallback& progress) {
        plugin_.set_values(settings_.values);
        if (!plugin_.activate(in_.sample_rate(), block_))
            throw Failure("the plug-in refuses settings that it has accepted before");
        in_.rewind();

        LevelMeter levels;
        TailGate gate(out, levels);
        uint64_t input_frames = in_.frames().value_or(0); // what is promised, until its end is seen
        bool ended = false;
        for (uint64_t position = 0;; position += block_) {
            check_interrupt();
            if (!ended) {
                const size_t got = read_block();
                ended = got < block_;
                if (ended) input_frames = position + got;
            } else {
                std::fill_n(planar_.begin(), 2 * size_t{block_}, 0.0f);
            }
            const uint64_t total = input_frames + tail_frames();
            if (ended && is_over(position, input_frames, total)) break;

            process_block(position);
            mix_and_interleave(position, gain);

            // Silence is looked for behind the input only.
            const uint64_t end =
                std::min<uint64_t>(position + block_, ended && !until_asleep_ ? total : UINT64_MAX);
            const uint64_t split = ended ? std::clamp(input_frames, position, end) : end;
            gate.pass(interleaved_.data(), split - position);
            const float* rest = interleaved_.data() + 2 * (split - position);
            if (settings_.tail_seconds) {
                gate.pass(rest, end - split);
            } else {
                gate.pass_audible(rest, end - split);
            }
            progress(end, ended || in_.frames() ? total : 0);
        }
        plugin_.deactivate();
        return {.sample_rate = in_.sample_rate(),
                .input_channels = in_.channels(),
                .input_frames = input_frames,
                .frames = gate.frames(),
                .block = block_,
                .peak = levels.peak(),
                .rms = levels.rms(),
                .samples_over = levels.samples_over(),
                .gain = gain};
    }

private:
    // Whether nothing is left to render at `position`, behind the input's end.
    bool is_over(uint64_t position, uint64_t input_frames, uint64_t total) const {
        if (position < input_frames) return false;
        if (until_asleep_ ? asleep_ : position >= total) return true;
        if (position > input_frames + frames_of(kLongestTail, in_.sample_rate()))
            throw Failure("the sound does not end by itself; give its length by --tail");
        return false;
    }

    uint64_t tail_frames() const {
        if (!settings_.tail_seconds) return plugin_.tail_frames();
        return frames_of(*settings_.tail_seconds, in_.sample_rate());
    }

    // Fills the input channels, with silence behind the end; returns the frames that the file gave.
    size_t read_block() {
        const size_t got = in_.read(interleaved_.data(), block_);
        for (size_t channel = 0; channel < 2; ++channel) {
            for (size_t i = 0; i < got; ++i) input_[channel][i] = interleaved_[2 * i + channel];
            std::fill(input_[channel] + got, input_[channel] + block_, 0.0f);
        }
        return got;
    }

    // Steps apply at the first block that starts at or after their time; in Brisel Live at their
    // time.
    void process_block(uint64_t position) {
        changes_.clear();
        const double now = static_cast<double>(position) / in_.sample_rate();
        for (; next_step_ < settings_.automation.size(); ++next_step_) {
            const AutomationStep& step = settings_.automation[next_step_];
            uint64_t frame = position;
            if (plugin_.is_live()) {
                frame = std::max(frame, frames_of(step.seconds, in_.sample_rate()));
                if (frame >= position + block_) break;
            } else if (step.seconds > now) {
                break;
            }
            changes_.push_back({step.index, step.value, static_cast<uint32_t>(frame - position)});
            values_[step.index] = step.value;
        }
        asleep_ = plugin_.process(input_, output_, block_, changes_);
    }

    void mix_and_interleave(uint64_t position, float gain) {
        // The plug-in has mixed in (1 - Mix) of the dry signal already.
        float more_dry = 0.0f;
        if (settings_.dry_gain) {
            if (!mix_) throw Failure("the plug-in has no Mix, which --dry-gain needs");
            more_dry = static_cast<float>(*settings_.dry_gain - (1.0 - values_[*mix_]));
        }
        for (size_t channel = 0; channel < 2; ++channel) {
            const float* dry = input_[channel];
            for (size_t i = 0; i < block_; ++i) {
                float sample = output_[channel][i];
                // Samples that are no numbers count as silence, as they do in the plug-in.
                if (more_dry != 0.0f && std::isfinite(dry[i])) sample += more_dry * dry[i];
                if (!std::isfinite(sample))
                    throw Failure(
                        fmt::format("the plug-in's output at frame {} is no number", position + i));
                interleaved_[2 * i + channel] = sample * gain;
            }
        }
    }

    Plugin& plugin_;
    SoundReader& in_;
    const RenderSettings& settings_;
    const uint32_t block_;
    const bool until_asleep_; // goes the tail, rather than for a time
    bool asleep_ = false;
    std::vector<double> values_; // in force
    const std::optional<size_t> mix_;
    std::vector<float> interleaved_;
    std::vector<float> planar_; // two input channels, two output channels
    std::array<float*, 2> input_{}, output_{};
    std::vector<ParameterChange> changes_;
    size_t next_step_ = 0;
};

// The block length that the settings, and every step of the automation, are accepted with.
uint32_t choose_block(Plugin& probe, int sample_rate, const RenderSettings& settings) {
    uint32_t block = settings.block.value_or(kDefaultBlock);
    if (probe.is_live()) return block;
    const BlockFit fit(probe, sample_rate);
    const auto fit_in = [&](const std::vector<double>& values, const std::string& place) {
        const auto longest = fit.longest(values, block);
        if (!longest || (settings.block && *longest < block))
            throw Failure(place + fit.explain(values, settings.block.value_or(8)));
        block = *longest;
    };

    std::vector<double> values = settings.values;
    fit_in(values, "");
    const Automation& steps = settings.automation;
    for (size_t i = 0; i < steps.size(); ++i) {
        values[steps[i].index] = steps[i].value;
        // Steps of one time reach the plug-in together.
        const bool last_of_its_time =
            i + 1 == steps.size() || steps[i + 1].seconds > steps[i].seconds;
        if (last_of_its_time) fit_in(values, steps[i].place + ": ");
    }
    return block;
}

} // namespace

uint64_t frames_of(double seconds, int sample_rate) {
    return static_cast<uint64_t>(std::llround(seconds * sample_rate));
}

Summary render(Plugin& plugin, Plugin& probe, SoundReader& in, SoundWriter& out,
               const RenderSettings& settings, const ProgressCallback& progress) {
    const uint32_t block = choose_block(probe, in.sample_rate(), settings);
    const auto start = std::chrono::steady_clock::now();
    double gain = 1.0;
    if (settings.normalize_peak) {
        const Summary measured = Pass(plugin, in, settings, block).run(nullptr, 1.0f, progress);
        if (measured.peak > 0.0) gain = *settings.normalize_peak / measured.peak;
    }
    Summary summary =
        Pass(plugin, in, settings, block).run(&out, static_cast<float>(gain), progress);
    summary.gain = gain;
    summary.render_seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return summary;
}

} // namespace brisel::render
