// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/solver/LineBuffer.h"

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

VX_KERNEL void fillEdges(float* row, int run, int behind)
{
    LaneEdges::fillBefore(row, run, 1);
    for (int distance = 1; distance <= behind; ++distance)
        LaneEdges::fillBehind(row, run, distance);
}

}  // namespace

LineBuffer::LineBuffer(const LaneLayout& layout)
    : run_(layout.run),
      height_(layout.height),
      ring_(rows + 1, guard + (layout.run + behind) * LaneOrder::lanes, 0.0F)
{}

void LineBuffer::close(int y)
{
    fillEdges(open(y), run_, behind);
}

}  // namespace halvor::vx
