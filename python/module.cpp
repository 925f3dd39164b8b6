// brisel._brisel: both engines on numpy arrays, for python/brisel/__init__.py, which owns what
// people call. Here are the engines as objects, the way between arrays and their channels, and the
// locks.
//
// Threads. The interpreter's lock is given up before an engine's own is taken, so that renderings
// of different engines run at the same time, and calls on one engine wait for each other.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "brisel/live.h"
#include "brisel/reverb.h"

namespace py = pybind11;

namespace {

constexpr size_t kSlice = 1024; // frames that an engine gets at a time
// The exact one's: its modulation moves on block by block, so this decides on bits. As many as
// brisel-render hands over.
constexpr size_t kExactSlice = 256;
constexpr double kHighestRate = 768000.0;

// A status as an exception: `what` was asked for.
void check(brisel_live_status status, const std::string& what) {
    if (status == BRISEL_LIVE_OK) return;
    if (status == BRISEL_LIVE_OUT_OF_MEMORY) throw std::bad_alloc();
    const std::string message = what + ": " + brisel_live_strerror(status);
    if (status == BRISEL_LIVE_UNSUPPORTED_CPU || status == BRISEL_LIVE_NOT_PREPARED)
        throw std::runtime_error(message);
    throw py::value_error(message);
}

// The C interface ends a text at its first null.
const char* c_text(const std::string& text) {
    if (text.find('\0') != std::string::npos) throw py::value_error("a text with a null in it");
    return text.c_str();
}

// ---- arrays ------------------------------------------------------------------------------------

// Audio in an array that somebody else keeps alive: frames by channels, with any strides in bytes.
struct Signal {
    char* data;
    size_t frames;
    uint32_t channels;
    py::ssize_t frame_stride, channel_stride;
    bool in_place; // each channel is a run of floats that the engine can take where it lies

    char* sample(uint32_t channel, size_t frame) const {
        return data + static_cast<py::ssize_t>(channel) * channel_stride +
               static_cast<py::ssize_t>(frame) * frame_stride;
    }

    // `count` frames of a channel: where they lie, or in `scratch`, with zeros behind the end.
    const float* read(uint32_t channel, size_t frame, size_t count, float* scratch) const {
        if (in_place && frame + count <= frames)
            return reinterpret_cast<const float*>(sample(channel, frame));
        const size_t there = frame < frames ? std::min(count, frames - frame) : 0;
        for (size_t t = 0; t < there; ++t)
            std::memcpy(scratch + t, sample(channel, frame + t), sizeof *scratch);
        std::fill(scratch + there, scratch + count, 0.0f);
        return scratch;
    }

    // Where `count` frames of a channel are to be written: in their place, or `scratch`.
    float* write(uint32_t channel, size_t frame, size_t count, float* scratch) const {
        return in_place && frame + count <= frames
                   ? reinterpret_cast<float*>(sample(channel, frame))
                   : scratch;
    }

    // Puts what was written to `scratch` in its place.
    void keep(uint32_t channel, size_t frame, size_t count, const float* scratch) const {
        if (in_place && frame + count <= frames) return;
        for (size_t t = 0; t < std::min(count, frames - frame); ++t)
            std::memcpy(sample(channel, frame + t), scratch + t, sizeof *scratch);
    }
};

Signal signal_of(const py::array& array, uint32_t channels) {
    const bool planes = array.ndim() == 2;
    Signal signal{};
    // Inputs are only read.
    signal.data = static_cast<char*>(const_cast<void*>(array.data()));
    signal.frames = static_cast<size_t>(array.shape(0));
    signal.channels = channels;
    signal.frame_stride = array.strides(0);
    signal.channel_stride = planes ? array.strides(1) : 0;
    signal.in_place =
        signal.frame_stride == sizeof(float) &&
        (reinterpret_cast<uintptr_t>(signal.data) | static_cast<uintptr_t>(signal.channel_stride)) %
                alignof(float) ==
            0;
    return signal;
}

std::string shown(const py::handle& object) {
    return py::str(object).cast<std::string>();
}

Signal input_of(const py::object& audio) {
    if (!py::isinstance<py::array>(audio))
        throw py::type_error("audio is a numpy array of float32, not " +
                             shown(py::type::of(audio).attr("__name__")));
    if (!py::isinstance<py::array_t<float>>(audio))
        throw py::type_error("audio is an array of float32, not of " + shown(audio.attr("dtype")) +
                             ": convert it, x.astype(numpy.float32)");
    const auto array = py::reinterpret_borrow<py::array>(audio);
    if (array.ndim() == 1) return signal_of(array, 1);
    if (array.ndim() == 2 && (array.shape(1) == 1 || array.shape(1) == 2))
        return signal_of(array, static_cast<uint32_t>(array.shape(1)));
    std::string message = "audio has the shape (n,), (n, 1) or (n, 2), frames first, not " +
                          shown(audio.attr("shape"));
    if (array.ndim() == 2 && (array.shape(0) == 1 || array.shape(0) == 2))
        message += ": hand over x.T, which is not copied";
    throw py::value_error(message);
}

// An array for what comes of `audio`: of its shape where the channels are as many, else (n,) or
// (n, 2); in the order of its memory.
py::array output_for(const py::object& audio, const Signal& in, size_t frames, uint32_t channels) {
    const auto n = static_cast<py::ssize_t>(frames);
    const auto sides = static_cast<py::ssize_t>(channels);
    constexpr auto kFloat = static_cast<py::ssize_t>(sizeof(float));
    const bool flat = channels == 1 && (in.channels == 2 || py::len(audio.attr("shape")) == 1);
    if (flat) return py::array_t<float>(n);
    if (in.channels == 2 && in.in_place)
        return py::array_t<float>(std::vector{n, sides}, std::vector{kFloat, kFloat * n});
    return py::array_t<float>(std::vector{n, sides});
}

// ---- engines -----------------------------------------------------------------------------------

class Engine {
public:
    using Values = std::map<uint32_t, double>; // by id, each within its parameter's range
    using Event = brisel_live_event;

    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    virtual ~Engine() = default;

    virtual void set(const Values& values) = 0;
    virtual double get(uint32_t id) = 0;
    virtual void reset() = 0;
    virtual uint64_t tail_frames() = 0;

    // `audio` and, behind it, `extra` frames of silence; out comes an array of `channels`, 0 for as
    // many as come in. Events lie in the order of their frames. `pad`: nothing will follow, so the
    // last slice may be lengthened to what the engine takes.
    py::array process(const py::object& audio, size_t extra, uint32_t channels,
                      const std::vector<Event>& events, bool pad) {
        const Signal in = input_of(audio);
        if (channels == 0) channels = in.channels;
        const size_t frames = in.frames + extra;
        if (!pad && frames % step() != 0)
            throw py::value_error("the exact engine takes blocks of a multiple of 8 frames, not " +
                                  std::to_string(frames));
        py::array result = output_for(audio, in, frames, channels);
        const Signal out = signal_of(result, channels);
        py::gil_scoped_release release;
        run(in, out, events, pad);
        return result;
    }

protected:
    virtual size_t step() const { return 1; }   // blocks are multiples of this
    virtual size_t longest() { return kSlice; } // and no longer than this; asked before each
    virtual void render(const float* const in[2], float* const out[2], uint32_t frames,
                        std::span<const Event> events) = 0;

    std::mutex lock_; // taken without the interpreter's

private:
    void run(const Signal& in, const Signal& out, std::span<const Event> events, bool pad) {
        constexpr size_t kBetweenSignals = size_t{1} << 22; // frames, less than a second of work
        std::array<std::array<float, kSlice>, 4> scratch;
        std::vector<Event> now;
        std::lock_guard guard(lock_);
        const size_t unit = pad && step() > 1 ? longest() : step();
        size_t next_look = kBetweenSignals;
        for (size_t at = 0, count = 0; at < out.frames; at += count) {
            count = std::min(longest(), (out.frames - at + unit - 1) / unit * unit);
            now.clear();
            for (; !events.empty() && events.front().frame < at + count; events = events.subspan(1))
                now.push_back({static_cast<uint32_t>(events.front().frame - at), events.front().id,
                               events.front().value});

            const float* from[2] = {};
            float* to[2] = {};
            for (uint32_t c = 0; c < in.channels; ++c)
                from[c] = in.read(c, at, count, scratch[c].data());
            for (uint32_t c = 0; c < out.channels; ++c)
                to[c] = out.write(c, at, count, scratch[2 + c].data());
            render(from, to, static_cast<uint32_t>(count), now);
            for (uint32_t c = 0; c < out.channels; ++c) out.keep(c, at, count, to[c]);

            if (at < next_look) continue;
            next_look = at + kBetweenSignals;
            py::gil_scoped_acquire acquire; // Ctrl-C
            if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        }
    }
};

class Live : public Engine {
public:
    explicit Live(double rate) {
        brisel_live* live = nullptr;
        check(brisel_live_create(&live), "a reverb");
        live_.reset(live);
        check(brisel_live_prepare(live, rate, kSlice), "rate " + shown(py::float_(rate)));
    }

    void set(const Values& values) override {
        for (const auto& [id, value] : values)
            check(brisel_live_set(live_.get(), id, value), parameter(id));
    }

    double get(uint32_t id) override {
        double value = 0.0;
        check(brisel_live_get(live_.get(), id, &value), parameter(id));
        return value;
    }

    void reset() override {
        std::lock_guard guard(lock_);
        brisel_live_reset(live_.get());
    }

    uint64_t tail_frames() override { return brisel_live_tail_frames(live_.get()); }

    void load_preset(const std::string& name) {
        check(brisel_live_load_preset(live_.get(), c_text(name)), "preset '" + name + "'");
    }
    void load(const std::string& text) {
        check(brisel_live_load_text(live_.get(), c_text(text)), "text of a preset");
    }
    std::string save() {
        std::array<char, BRISEL_LIVE_LONGEST_PRESET> text{};
        check(brisel_live_save_text(live_.get(), text.data(), text.size()), "text of a preset");
        return text.data();
    }
    std::array<float, 4> meters() {
        brisel_live_meters meters{};
        check(brisel_live_read_meters(live_.get(), &meters), "meters");
        return {meters.input, meters.wet, meters.output, meters.duck};
    }
    bool asleep() { return brisel_live_asleep(live_.get()) != 0; }
    void set_tempo(double beats_per_minute) {
        check(brisel_live_set_tempo(live_.get(), beats_per_minute), "tempo, 20 to 999 a minute");
    }

private:
    struct Free {
        void operator()(brisel_live* live) const { brisel_live_destroy(live); }
    };

    static std::string parameter(uint32_t id) {
        const brisel_live_parameter* known = brisel_live_parameter_by_id(id);
        return known ? known->key : "parameter " + std::to_string(id);
    }

    void render(const float* const in[2], float* const out[2], uint32_t frames,
                std::span<const Event> events) override {
        check(brisel_live_process(live_.get(), in[0], in[1], out[0], out[1], frames, events.data(),
                                  static_cast<uint32_t>(events.size())),
              "an event");
    }

    std::unique_ptr<brisel_live, Free> live_;
};

// The exact engine. After a change of values the next block starts a new one, whose longest block
// fits into the shortest line: no values are refused for a block's sake.
class Exact : public Engine {
public:
    static constexpr uint32_t kValues = 12; // the first twelve parameters are also this engine's

    explicit Exact(double rate) : rate_(rate) {
        if (!(__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")))
            throw std::runtime_error("the processor has no AVX2 or no FMA");
        if (!(rate > 9000.0 && rate <= kHighestRate) || rate != static_cast<int32_t>(rate))
            throw py::value_error(
                "rate " + shown(py::float_(rate)) +
                ": the exact engine takes whole rates above 9000 up to 768000 Hz");
        for (uint32_t id = 0; id < kValues; ++id)
            values_[id] = brisel_live_parameter_by_id(id)->default_value;
    }

    void set(const Values& values) override {
        std::lock_guard guard(lock_);
        for (const auto& [id, value] : values) values_.at(id) = value;
        reverb_.reset();
    }

    double get(uint32_t id) override {
        std::lock_guard guard(lock_);
        return values_.at(id);
    }

    void reset() override {
        std::lock_guard guard(lock_);
        reverb_.reset();
    }

    // As the plug-in tells hosts: a fall by 90 dB.
    uint64_t tail_frames() override { return static_cast<uint64_t>(1.5 * get(1) * rate_); }

private:
    struct Free {
        void operator()(qv_reverb* reverb) const { qv_reverb_destroy(reverb); }
    };

    void start() {
        const auto value = [this](size_t id) { return static_cast<float>(values_[id]); };
        // Modulation shortens a line by up to two samples; creation wants 0.04 s to hold a block.
        const double shortest = std::round(std::min(values_[0], 0.04) * rate_) - 2.0;
        block_ = std::min(kExactSlice, static_cast<size_t>(shortest) / 8 * 8);
        reverb_.reset(qv_reverb_create(static_cast<int32_t>(rate_), static_cast<int32_t>(block_)));
        if (!reverb_) throw std::bad_alloc();
        const qv_reverb_params params = {
            .size = value(0),
            .t60 = value(1),
            .cascade_stages = static_cast<int32_t>(values_[2]),
            .t60_high = 0.0f, // damp sets the decay of the highs
            .damp = value(3),
            .mix = value(4),
            .width = value(5),
            .modulate = values_[6] != 0.0,
            .er_enable = values_[7] != 0.0,
            .er_size = value(8),
            .er_level = value(9),
            .eq_low_db = value(10),
            .eq_high_db = value(11),
        };
        if (qv_reverb_set(reverb_.get(), &params) != 0)
            throw std::runtime_error("the exact engine refuses these values");
    }

    size_t step() const override { return 8; }
    size_t longest() override {
        if (!reverb_) start();
        return block_;
    }

    void render(const float* const in[2], float* const out[2], uint32_t frames,
                std::span<const Event>) override {
        if (qv_reverb_process(reverb_.get(), in[0], in[1], out[0], out[1],
                              static_cast<int32_t>(frames)) != 0)
            throw std::runtime_error("the exact engine refuses a block of " +
                                     std::to_string(frames) + " frames");
    }

    double rate_;
    std::array<double, kValues> values_{};
    size_t block_ = 0;
    std::unique_ptr<qv_reverb, Free> reverb_;
};

// ---- tables and texts --------------------------------------------------------------------------

// (key, name, unit, minimum, maximum, default, words of its steps), by id.
py::list parameters() {
    py::list rows;
    for (uint32_t index = 0; index < brisel_live_parameter_count(); ++index) {
        const brisel_live_parameter& row = *brisel_live_parameter_at(index);
        py::tuple steps(row.step_count);
        for (uint32_t step = 0; step < row.step_count; ++step)
            steps[step] = py::str(row.steps[step]);
        rows.append(py::make_tuple(row.key, row.name, row.unit, row.minimum, row.maximum,
                                   row.default_value, steps));
    }
    return rows;
}

// (name, category, key, description).
py::list presets() {
    py::list rows;
    for (uint32_t index = 0; index < brisel_live_preset_count(); ++index)
        rows.append(
            py::make_tuple(brisel_live_preset_name(index), brisel_live_preset_category(index),
                           brisel_live_preset_key(index), brisel_live_preset_description(index)));
    return rows;
}

std::string to_text(uint32_t id, double value) {
    std::array<char, BRISEL_LIVE_LONGEST_VALUE> text{};
    check(brisel_live_value_to_text(id, value, text.data(), text.size()), "text of a value");
    return text.data();
}

double to_value(uint32_t id, const std::string& text) {
    double value = 0.0;
    check(brisel_live_text_to_value(id, c_text(text), &value), "'" + text + "'");
    return value;
}

} // namespace

PYBIND11_MODULE(_brisel, module) {
    using Unlocked = py::call_guard<py::gil_scoped_release>;
    module.attr("__version__") = brisel_live_version();
    module.attr("EXACT_PARAMETERS") = Exact::kValues;
    module.def("parameters", &parameters);
    module.def("presets", &presets);
    module.def("to_text", &to_text);
    module.def("to_value", &to_value);

    py::class_<Engine>(module, "Engine")
        .def("process",
             [](Engine& engine, const py::object& audio, size_t extra, uint32_t channels,
                const std::vector<std::array<double, 3>>& events, bool pad) {
                 std::vector<Engine::Event> records;
                 records.reserve(events.size());
                 for (const auto& [frame, id, value] : events)
                     records.push_back(
                         {static_cast<uint32_t>(frame), static_cast<uint32_t>(id), value});
                 return engine.process(audio, extra, channels, records, pad);
             })
        .def("set", &Engine::set, Unlocked())
        .def("get", &Engine::get, Unlocked())
        .def("reset", &Engine::reset, Unlocked())
        .def("tail_frames", &Engine::tail_frames, Unlocked());
    py::class_<Live, Engine>(module, "Live")
        .def(py::init<double>())
        .def("load_preset", &Live::load_preset)
        .def("load", &Live::load)
        .def("save", &Live::save)
        .def("meters", &Live::meters)
        .def("asleep", &Live::asleep)
        .def("set_tempo", &Live::set_tempo);
    py::class_<Exact, Engine>(module, "Exact").def(py::init<double>());
}
