// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vxsupport {

/// Seeded random numbers with the same bits everywhere: SplitMix64 (Steele, Lea and Flood, "Fast splittable
/// pseudorandom number generators", 2014).
///
/// split() gives an independent generator for a numbered purpose, so that rows and frames draw their numbers
/// whatever the order in which they are computed.
class Random
{
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    /// Generator for one of many purposes; doesn't change this one.
    Random split(std::uint64_t purpose) const;

    std::uint64_t next();

    /// Uniform in [0, 1).
    double uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

    /// Uniform in [low, high).
    double uniform(double low, double high) { return low + (high - low) * uniform(); }

    /// Whole number from 0 to count - 1.
    int below(int count) { return static_cast<int>(uniform() * count); }

    /// Normally distributed, mean 0 and deviation 1: the inverse of the distribution function by Wichura's
    /// algorithm AS 241 (PPND7), one uniform number each.
    double normal();

private:
    std::uint64_t state_;
};

}  // namespace vxsupport
