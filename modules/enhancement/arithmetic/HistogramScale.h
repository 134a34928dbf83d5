// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include "core/base/WrapArithmetic.h"

// The scale of 0 to 32767 on which the equaliser works, shared by measuring and mapping.
namespace halvor::vx {

/// How a sample gets on the scale, and how the scale splits into bins.
struct HistogramScale
{
    int lo;
    int pgain;
    int offset;
    int fracBits;  ///< 15 - width: 0 to 15

    int position(int sample) const
    {
        const int gained = wrapAdd(wrapMul(wrapSub(sample, lo), pgain), 128) >> 8;
        return std::min(std::max(wrapAdd(gained, offset), 0), 32767);
    }

    int bin(int position) const { return position >> fracBits; }
    int frac(int position) const { return position & ((1 << fracBits) - 1); }
};

/// Positions of a run of samples.
void scaleSamples(const HistogramScale& scale, const int* in, int* position, int n);

}  // namespace halvor::vx
