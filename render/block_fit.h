// Block lengths and settings that go together. The plug-in refuses to start, and silently keeps its
// old settings while running, when a block is longer than the shortest delay line. What it accepts
// is found out by trying on an instance of its own, so that no rule of the engine is repeated here.
#pragma once

#include "clap_host.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

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
    std::string larger_time(std::span<const double> values, size_t index, double from, double to,
                            uint32_t block) const;

    Plugin& probe_;
    int sample_rate_;
};
