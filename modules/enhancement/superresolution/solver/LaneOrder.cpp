// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/solver/LaneOrder.h"

namespace halvor::vx {

namespace {

constexpr int lanes = LaneOrder::lanes;

template <typename Value>
inline void transpose(const Value* VX_RESTRICT columns, Value* VX_RESTRICT row, int run)
{
    for (int block = 0; block < run; ++block)
        for (int lane = 0; lane < lanes; ++lane)
            row[block * lanes + lane] = columns[lane * run + block];
}

VX_KERNEL void transposeFloats(const float* columns, float* row, int run)
{
    transpose(columns, row, run);
}

VX_KERNEL void transposeBytes(const std::int8_t* columns, std::int8_t* row, int run)
{
    transpose(columns, row, run);
}

VX_KERNEL void transposeBack(const float* VX_RESTRICT row, float* VX_RESTRICT columns, int run)
{
    for (int block = 0; block < run; ++block)
        for (int lane = 0; lane < lanes; ++lane)
            columns[lane * run + block] = row[block * lanes + lane];
}

}  // namespace

void LaneOrder::toLanes(const float* columns, float* row) const
{
    transposeFloats(columns, row, run);
}

void LaneOrder::toLanes(const std::int8_t* columns, std::int8_t* row) const
{
    transposeBytes(columns, row, run);
}

void LaneOrder::fromLanes(const float* row, float* columns) const
{
    transposeBack(row, columns, run);
}

void LaneOrder::clearFrom(int first, float* row) const
{
    int block = first % run;
    for (int lane = first / run; lane < lanes; ++lane, block = 0)
        for (; block < run; ++block)
            row[block * lanes + lane] = 0.0F;
}

}  // namespace halvor::vx
