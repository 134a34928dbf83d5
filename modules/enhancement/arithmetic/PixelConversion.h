// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <limits>

// The chain and its filters work on 32-bit ints; these two tell how a pixel of a host's type gets in and out.
namespace halvor::vx {

/// Truncation toward zero that holds for every value: beyond the 32-bit range the nearest end that the type
/// represents, and the lower end for a not-a-number.
template <std::floating_point Real>
constexpr int truncateToInt(Real value)
{
    constexpr Real low = static_cast<Real>(std::numeric_limits<int>::min());
    // The largest float below 2^31 is 2^31 - 128; a double holds 2^31 - 1.
    constexpr Real high = std::numeric_limits<Real>::digits < 31
                              ? static_cast<Real>(2147483520.0)
                              : static_cast<Real>(std::numeric_limits<int>::max());
    const Real raised = value > low ? value : low;
    return static_cast<int>(raised < high ? raised : high);
}

/// Integers sign- or zero-extended or taken as they are, floating-point pixels truncated toward zero.
template <typename Pixel>
constexpr int toChainSample(Pixel pixel)
{
    if constexpr (std::floating_point<Pixel>)
        return truncateToInt(pixel);
    else
        return static_cast<int>(pixel);
}

/// The low bits for integers, the nearest value for floating-point pixels.
template <typename Pixel>
constexpr Pixel fromChainSample(int sample)
{
    return static_cast<Pixel>(sample);
}

}  // namespace halvor::vx
