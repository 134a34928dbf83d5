// SPDX-License-Identifier: Apache-2.0
#include "support/Random.h"

#include <cmath>

#include "support/PortableMath.h"

namespace vxsupport {

namespace {

constexpr std::uint64_t goldenStep = 0x9E3779B97F4A7C15U;

std::uint64_t scramble(std::uint64_t z)
{
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31);
}

double middleQuantile(double q)
{
    const double r = 0.180625 - q * q;
    const double top = ((59.109374720 * r + 159.29113202) * r + 50.434271938) * r + 3.3871327179;
    const double bottom = ((67.187563600 * r + 78.757757664) * r + 17.895169469) * r + 1.0;
    return q * top / bottom;
}

// r is the square root of minus the logarithm of the tail's share.
double tailQuantile(double r)
{
    if (r <= 5.0) {
        r -= 1.6;
        return (((0.17023821103 * r + 1.3067284816) * r + 2.7568153900) * r + 1.4234372777) /
               ((0.12021132975 * r + 0.73700164250) * r + 1.0);
    }
    r -= 5.0;
    return (((0.017337203997 * r + 0.42868294337) * r + 3.0812263860) * r + 6.6579051150) /
           ((0.012258202635 * r + 0.24197894225) * r + 1.0);
}

}  // namespace

Random Random::split(std::uint64_t purpose) const
{
    return Random(scramble(state_ ^ scramble(purpose + goldenStep)));
}

std::uint64_t Random::next()
{
    state_ += goldenStep;
    return scramble(state_);
}

double Random::normal()
{
    // Half a step off the grid keeps 0 and 1 out.
    const double share = (static_cast<double>(next() >> 12) + 0.5) * 0x1.0p-52;
    const double q = share - 0.5;
    if (std::fabs(q) <= 0.425)
        return middleQuantile(q);
    const double value = tailQuantile(std::sqrt(-portableLog(q < 0.0 ? share : 1.0 - share)));
    return q < 0.0 ? -value : value;
}

}  // namespace vxsupport
