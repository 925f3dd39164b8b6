// Block lengths and settings that go together. The plug-in refuses to start, and silently keeps its
// old settings while running, when a block is longer than the shortest delay line. What it accepts
// is found out by trying on an instance of its own. One rule of the engine cannot be tried and is
// repeated here: under modulation a line is up to two frames shorter than its delay, which the
// plug-in does not look at when it starts.
#pragma once

#include "render/clap_host.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace brisel::render {

class BlockFit {
public:
    // `probe` is an instance to try settings on; it must not be the one that renders.
    BlockFit(Plugin& probe, int sample_rate) : probe_(probe), sample_rate_(sample_rate) {}

    // The longest accepted block length up to `wanted`, a multiple of 8, or none.
    std::optional<uint32_t> longest(std::span<const double> values, uint32_t wanted) const;

    // Why `values` are refused with blocks of `block` frames, and what to change.
    std::string explain(std::span<const double> values, uint32_t block) const;

private:
    bool modulated(std::span<const double> values) const;
    bool accepts(std::span<const double> values, uint32_t block) const;
    // The least time of a parameter, in steps of 0.1 ms, that makes the values accepted, as an
    // option to use; empty when there is none.
    std::string least_time(std::span<const double> values, size_t index, uint32_t block) const;

    Plugin& probe_;
    int sample_rate_;
};

} // namespace brisel::render
