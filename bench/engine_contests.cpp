// Contests of the block engine, the early reflections, the EQ and the modulation, each driven by
// itself.
#include <array>

#include "bench/contest.h"
#include "brisel/ffdn_defaults_n16.h"
#include "tests/plain.h"

namespace bench {

namespace {

constexpr int32_t kRate = 48000;

// Two records of one kind and the signals of both sides.
template <typename Record>
class RecordContest : public Contest {
public:
    std::span<const float> output(Side side) const override { return out_[side]; }

protected:
    explicit RecordContest(int32_t n) : frames_(n), in_{input(0), input(1)} {
        for (auto& out : out_) out.resize(2 * static_cast<size_t>(n));
    }
    float* left(Side side) { return out_[side].data(); }
    float* right(Side side) { return out_[side].data() + frames_; }
    const float* in(uint32_t channel, uint32_t block) const {
        const uint32_t blocks = kNoiseFrames / static_cast<uint32_t>(frames_);
        return in_[channel].data() + block % blocks * static_cast<uint32_t>(frames_);
    }

    int32_t frames_;
    std::array<Record, 2> records_{};

private:
    static std::vector<float> input(uint32_t channel) {
        const std::span<const float> source = noise(channel);
        std::vector<float> scaled(source.begin(), source.end());
        for (float& x : scaled) x *= 0.1f;
        return scaled;
    }
    std::array<std::vector<float>, 2> in_, out_;
};

struct Shape {
    const char* name;
    uint32_t stages;
    bool given_delays, other_gains, stereo_in;
};

class EngineContest : public RecordContest<ffdn_block_n16> {
public:
    EngineContest(const Shape& shape, int32_t n) : RecordContest(n), shape_(shape) {
        int32_t delays[16];
        uint32_t sizes[16];
        ffdn_n16_default_params(delays, reinterpret_cast<int32_t*>(sizes));
        for (int i = 0; i < 16; ++i) {
            delays[i] = delays[i] * 1920 / 997;
            sizes[i] = 4096;
        }
        uint32_t given[3 * 16];
        for (uint32_t i = 0; i < 3 * 16; ++i) given[i] = (i * 29 + 3) % (i < 16 ? 31u : 200u);
        float left[16], right[16];
        for (int i = 0; i < 16; ++i) {
            left[i] = 0.02f * static_cast<float>(i + 1);
            right[i] = 0.35f - left[i];
        }
        for (ffdn_block_n16& e : records_) {
            ffdn_block_n16_init(&e, delays, sizes, n, kRate, 2.0f);
            ffdn_block_n16_set_cascade(&e, shape.stages, shape.given_delays ? given : nullptr,
                                       kRate, 2.0f);
            ffdn_block_n16_set_two_band_t60(&e, kRate, 2.0f, 1.0f);
            const bool own = shape.other_gains;
            ffdn_block_n16_set_stereo_outputs(&e, own ? left : nullptr, own ? right : nullptr, 0,
                                              0);
            ffdn_block_n16_set_stereo_inputs(&e, own ? right : nullptr, own ? left : nullptr);
            ffdn_block_n16_set_modulation(&e, 2, kRate, 1, 0.3f, 1.2f);
        }
    }
    ~EngineContest() override {
        for (ffdn_block_n16& e : records_) ffdn_block_n16_free(&e);
    }

    void render(Side side, uint32_t block) override {
        ffdn_block_n16* e = &records_[side];
        const float *x_left = in(0, block), *x_right = in(1, block);
        float *y_left = left(side), *y_right = right(side);
        if (side == kPlain)
            plain::process(e, x_left, shape_.stereo_in ? x_right : nullptr, y_left, y_right,
                           frames_);
        else if (shape_.stereo_in)
            ffdn_block_n16_process_stereo_in(e, x_left, x_right, y_left, y_right, frames_);
        else
            ffdn_block_n16_process_stereo(e, x_left, y_left, y_right, frames_);
    }

private:
    Shape shape_;
};

class ModulationContest : public RecordContest<ffdn_block_n16> {
public:
    explicit ModulationContest(int32_t n) : RecordContest(n) {
        int32_t delays[16];
        uint32_t sizes[16];
        ffdn_n16_default_params(delays, reinterpret_cast<int32_t*>(sizes));
        for (ffdn_block_n16& e : records_) {
            ffdn_block_n16_init(&e, delays, sizes, n, kRate, 2.0f);
            ffdn_block_n16_set_modulation(&e, 2, kRate, 1, 0.3f, 1.2f);
        }
    }
    ~ModulationContest() override {
        for (ffdn_block_n16& e : records_) ffdn_block_n16_free(&e);
    }
    void render(Side side, uint32_t) override {
        const auto advance =
            side == kOurs ? ffdn_block_n16_apply_modulation : plain::apply_modulation;
        advance(&records_[side], frames_);
    }
    std::span<const float> output(Side side) const override { return records_[side].mod_phase; }
};

class EarlyReflectionContest : public RecordContest<ffdn_er> {
public:
    explicit EarlyReflectionContest(int32_t n) : RecordContest(n) {
        for (ffdn_er& er : records_) ffdn_er_init(&er, 12, n, kRate, 1, 0.06f);
    }
    ~EarlyReflectionContest() override {
        for (ffdn_er& er : records_) ffdn_er_free(&er);
    }
    void render(Side side, uint32_t block) override {
        const auto process = side == kOurs ? ffdn_er_process_stereo : plain::er_process;
        process(&records_[side], in(0, block), left(side), right(side), frames_);
    }
};

class EqContest : public RecordContest<ffdn_eq> {
public:
    explicit EqContest(int32_t n) : RecordContest(n) {
        for (ffdn_eq& eq : records_) {
            ffdn_eq_init(&eq, kRate, 250.0f, 4500.0f);
            ffdn_eq_set_gains(&eq, 3.0f, -3.0f);
        }
    }
    void prepare(Side side, uint32_t block) override {
        std::copy_n(in(0, block), frames_, left(side));
        std::copy_n(in(1, block), frames_, right(side));
    }
    void render(Side side, uint32_t) override {
        const auto process = side == kOurs ? ffdn_eq_process_stereo : plain::eq_process;
        process(&records_[side], left(side), right(side), frames_);
    }
};

template <typename Made, typename... Arguments>
void add(std::vector<Entry>& entries, Kind kind, const std::string& name,
         std::initializer_list<int32_t> lengths, Arguments... arguments) {
    for (int32_t n : lengths) {
        entries.push_back({kind, name, n, [=] { return std::make_unique<Made>(arguments..., n); }});
    }
}

} // namespace

std::vector<Entry> engine_entries() {
    std::vector<Entry> entries;
    const Shape shapes[] = {
        {"default", 2, false, false, true},    {"one_stage", 1, false, false, true},
        {"other_gains", 2, false, true, true}, {"given_delays", 2, true, false, true},
        {"mono_in", 2, false, false, false},   {"all_of_these", 1, true, true, false},
    };
    for (const Shape& shape : shapes) {
        const std::string function =
            shape.stereo_in ? "ffdn_block_n16_process_stereo_in" : "ffdn_block_n16_process_stereo";
        add<EngineContest>(entries, Kind::kEngine, function + "/" + shape.name,
                           {64, 128, 256, 512, 1024}, shape);
    }
    add<ModulationContest>(entries, Kind::kKernel, "ffdn_block_n16_apply_modulation", {64});
    add<EarlyReflectionContest>(entries, Kind::kEngine, "ffdn_er_process_stereo", {64, 256, 1024});
    add<EqContest>(entries, Kind::kEngine, "ffdn_eq_process_stereo", {64, 256, 1024});
    return entries;
}

} // namespace bench
