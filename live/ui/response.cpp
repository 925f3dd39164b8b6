#include "live/ui/response.h"

#include <algorithm>
#include <cmath>

namespace brisel::live::ui {

namespace {

constexpr uint32_t kBlock = 256;
constexpr double kDrawnRate = 48000.0; // Hz; enough for a picture

// The least of some round spans that holds `seconds`, or the longest.
double span_for(double seconds, std::initializer_list<double> spans) {
    const auto* const fits =
        std::ranges::find_if(spans, [=](double span) { return span >= seconds; });
    return fits == spans.end() ? *(spans.end() - 1) : *fits;
}

double decibels(double power) {
    return 10.0 * std::log10(std::max(power, 1e-20));
}

} // namespace

bool Response::measure(const Settings& settings, double rate) {
    rate = std::min(rate, kDrawnRate);
    if (!reverb_ || rate != prepared_rate_) {
        reverb_ = std::make_unique<Reverb>();
        prepared_rate_ = reverb_->prepare(rate, kBlock) ? rate : 0.0;
    }
    if (prepared_rate_ == 0.0) return false;
    // The wet signal of one moment: nothing that holds, ducks or silences it.
    Settings played = settings;
    played[kMix] = 1.0;
    for (Id id : {kDuck, kFreeze, kClear, kBypass}) played[id] = parameters()[id].least;
    reverb_->values().load(played);
    reverb_->reset();

    const double predelay = settings[kPredelay];
    build_up_span_ = span_for(predelay + 3.0 * settings[kSize], {0.1, 0.2, 0.5, 1.0, 2.0});
    decay_span_ = span_for(predelay + settings[kDecay], {0.5, 1.0, 2.0, 4.0, 8.0});
    const double span = std::max(build_up_span_, decay_span_);
    const auto blocks = static_cast<size_t>(std::ceil(span * rate / kBlock));
    left_.assign(blocks * kBlock, 0.0f);
    right_.assign(blocks * kBlock, 0.0f);
    left_[0] = right_[0] = 1.0f;
    for (size_t block = 0; block < blocks; ++block) {
        float* const channels[2] = {&left_[block * kBlock], &right_[block * kBlock]};
        reverb_->process(channels, channels, kBlock, {}, nullptr);
    }
    fill_build_up(rate);
    fill_decay(rate, settings[kDecay]);
    return true;
}

void Response::fill_build_up(double rate) {
    const auto frames = static_cast<size_t>(build_up_span_ * rate);
    const auto half = static_cast<size_t>(0.01 * rate);
    constexpr double kOfNoise = 0.31731; // erfc(1 / sqrt(2)), the share of a normal distribution
    float highest = 1e-9f;
    for (size_t column = 0; column < kColumns; ++column) {
        const size_t from = column * frames / kColumns, to = (column + 1) * frames / kColumns;
        float peak = 0.0f;
        for (size_t t = from; t < std::max(to, from + 1); ++t)
            peak = std::max({peak, std::fabs(left_[t]), std::fabs(right_[t])});
        echoes_[column] = peak;
        highest = std::max(highest, peak);

        const size_t first = from > half ? from - half : 0;
        const size_t last = std::min(from + half, left_.size());
        double energy = 0.0;
        for (size_t t = first; t < last; ++t) energy += double{left_[t]} * left_[t];
        const auto deviation = static_cast<float>(std::sqrt(energy / double(last - first)));
        size_t beyond = 0;
        for (size_t t = first; t < last; ++t) beyond += std::fabs(left_[t]) > deviation;
        density_[column] = static_cast<float>(double(beyond) / double(last - first) / kOfNoise);
    }
    for (float& echo : echoes_) echo = static_cast<float>(2.0 * decibels(double{echo} / highest));
}

void Response::fill_decay(double rate, double decay) {
    const auto frames = static_cast<size_t>(decay_span_ * rate);
    std::array<double, kColumns> energy{};
    for (size_t column = 0; column < kColumns; ++column)
        for (size_t t = column * frames / kColumns; t < (column + 1) * frames / kColumns; ++t)
            energy[column] += double{left_[t]} * left_[t] + double{right_[t]} * right_[t];
    // Behind the span the sound goes on falling by 60 dB in `decay` seconds: a geometric series.
    const double ratio = std::pow(10.0, -6.0 * decay_span_ / kColumns / decay);
    double left = energy[kColumns - 1] * ratio / (1.0 - ratio);
    for (size_t column = kColumns; column-- > 0;)
        decay_[column] = static_cast<float>(decibels(left += energy[column]));
    for (float& level : decay_) level -= decay_[0];
}

} // namespace brisel::live::ui
