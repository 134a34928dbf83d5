// SPDX-License-Identifier: Apache-2.0
#include "enhancement/arithmetic/HistogramScale.h"

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

VX_KERNEL void scaleRun(const HistogramScale& scale, const int* in, int* position, int n)
{
    const HistogramScale s = scale;
    for (int i = 0; i < n; ++i)
        position[i] = s.position(in[i]);
}

}  // namespace

void scaleSamples(const HistogramScale& scale, const int* in, int* position, int n)
{
    scaleRun(scale, in, position, n);
}

}  // namespace halvor::vx
