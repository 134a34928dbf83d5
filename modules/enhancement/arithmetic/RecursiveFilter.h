// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include "core/base/WrapArithmetic.h"

namespace halvor::vx {

/// Shifts come from settings that nobody checks: counts outside 0 to 31 are taken as the nearest end.
constexpr int legalShift(int shift)
{
    return std::clamp(shift, 0, 31);
}

/// `1 << shift` for a legal shift; that of 31 is the smallest integer.
constexpr int powerOfTwo(int shift)
{
    return static_cast<int>(1U << static_cast<unsigned>(legalShift(shift)));
}

/// One step of the first-order filter whose new value has the weight 1 / (1 << shift).
///
/// @param rounding  added before the shift; the hardware measures without
constexpr int filterStep(int filtered, int value, int shift, int rounding)
{
    const int scaled = wrapMul(filtered, powerOfTwo(shift));
    return wrapAdd(wrapAdd(wrapSub(scaled, filtered), value), rounding) >> legalShift(shift);
}

/// filterStep with rounding to nearest.
constexpr int roundedFilterStep(int filtered, int value, int shift)
{
    return shift > 0 ? filterStep(filtered, value, shift, powerOfTwo(legalShift(shift) - 1)) : value;
}

}  // namespace halvor::vx
