// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/BandedSystem.h"

#include <algorithm>
#include <cmath>

#include "core/base/Kernel.h"
#include "core/base/RowSums.h"

namespace halvor::vx {

namespace {

VX_KERNEL void subtractScaled(double factor, const double* in, double* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] -= factor * in[i];
}

VX_KERNEL double product(const double* VX_RESTRICT a, const double* VX_RESTRICT b, int n)
{
    return laneSum(n, [=](int i) { return a[i] * b[i]; });
}

}  // namespace

BandedSystem::BandedSystem(int unknowns, int reach)
    : unknowns_(unknowns),
      reach_(std::min(reach, unknowns - 1)),
      pitch_(static_cast<std::size_t>(reach_) + 1),
      matrix_(static_cast<std::size_t>(unknowns) * pitch_),
      right_(static_cast<std::size_t>(unknowns))
{}

void BandedSystem::clear()
{
    std::fill(matrix_.begin(), matrix_.end(), 0.0);
    std::fill(right_.begin(), right_.end(), 0.0);
}

bool BandedSystem::solve()
{
    for (int j = 0; j < unknowns_; ++j) {
        double* const own = column(j);
        if (!(own[0] > 0.0 && std::isfinite(own[0])))
            return false;
        const int below = std::min(reach_, unknowns_ - 1 - j);
        own[0] = std::sqrt(own[0]);
        for (int k = 1; k <= below; ++k)
            own[k] /= own[0];
        for (int k = 1; k <= below; ++k)
            if (own[k] != 0.0)
                subtractScaled(own[k], own + k, column(j + k), below - k + 1);
        right(j) /= own[0];
        subtractScaled(right(j), own + 1, right_.data() + j + 1, below);
    }
    for (int j = unknowns_ - 1; j >= 0; --j) {
        const double* const own = column(j);
        const int below = std::min(reach_, unknowns_ - 1 - j);
        right(j) = (right(j) - product(own + 1, right_.data() + j + 1, below)) / own[0];
    }
    return true;
}

}  // namespace halvor::vx
