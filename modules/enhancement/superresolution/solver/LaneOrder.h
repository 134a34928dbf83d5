// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/base/Kernel.h"

namespace halvor::vx {

/// Order of a row's columns in which the solver's loops vectorise with aligned loads.
///
/// Each of 16 lanes holds a run of neighbouring columns, and a block of 16 floats holds one column of each
/// lane: a vector that begins a column further is just the next block. (The dimension-lifted transposition of
/// Henretty and others, 2011.) What lies behind a lane's run is the start of the next lane's; kernels that
/// look there need the edge blocks of LaneEdges.
struct LaneOrder
{
    static constexpr int lanes = 16;

    explicit LaneOrder(int runLength) : run(runLength) {}

    /// Values of a row, those behind the image's width included.
    int size() const { return run * lanes; }
    int place(int column) const { return column % run * lanes + column / run; }

    /// Puts size() values into lane order, and back.
    void toLanes(const float* columns, float* row) const;
    void toLanes(const std::int8_t* columns, std::int8_t* row) const;
    void fromLanes(const float* row, float* columns) const;

    /// Zeroes the places of the columns from first on.
    void clearFrom(int first, float* row) const;

    int run;  ///< columns of a lane, blocks of a row
};

/// Blocks before and behind a row, as its neighbouring lanes continue it; zero beyond the row's ends.
struct LaneEdges
{
    static constexpr int lanes = LaneOrder::lanes;

    /// The block `distance` before the first one. That of distance - 1 comes first.
    static void fillBefore(float* row, int run, int distance)
    {
        const float* VX_RESTRICT const from = row + (run - distance) * lanes - 1;
        float* VX_RESTRICT const to = row - distance * lanes;
        for (int lane = 0; lane < lanes; ++lane)
            to[lane] = lane > 0 ? from[lane] : 0.0F;
    }

    /// The block `distance` behind the last one. That of distance - 1 comes first.
    static void fillBehind(float* row, int run, int distance)
    {
        const float* VX_RESTRICT const from = row + (distance - 1) * lanes + 1;
        float* VX_RESTRICT const to = row + (run + distance - 1) * lanes;
        for (int lane = 0; lane < lanes; ++lane)
            to[lane] = lane + 1 < lanes ? from[lane] : 0.0F;
    }
};

}  // namespace halvor::vx
