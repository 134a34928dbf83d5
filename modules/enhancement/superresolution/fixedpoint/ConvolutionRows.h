// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/fixpoint/RoundingShift.h"
#include "enhancement/superresolution/fixedpoint/ModelRows.h"

namespace halvor::vx::fixedpoint {

// One tap of a convolution on one row, with the range checks of the plain forms.

/// Most that the magnitude of a 32-bit sum of the first pass may be.
constexpr std::int64_t sumLimit = 0x7FFF8000;

/// sums += sample * mask * tap
///
/// @return false if a sum, formed without wrapping, passed the limit; such a sum is stored wrapped
bool addMaskedProducts(const short* sample, const signed char* mask, short tap, std::int32_t* sums, int n);

/// sums += every second sample * tap; else as addMaskedProducts()
bool addSpacedProducts(const short* sample, short tap, std::int32_t* sums, int n);

/// Adds sums * tap * 2^scale, each product rounded to 16 bits, to every step-th target. Stops in front of a
/// product that leaves 16 bits.
///
/// @return true if all were added
bool addScaledProducts(const std::int32_t* sums, short tap, std::int8_t scale, short* target, int step,
                       int n);

// The line forms split the 32 fractional bits of two taps: a horizontal product loses 15 of them, a sum the
// rest.

constexpr std::uint8_t lineSumShift = 17;

inline std::int32_t lineProduct(short tap, std::int32_t sum)
{
    return static_cast<std::int32_t>(roundShiftRight64(static_cast<std::int64_t>(tap) * sum, 15));
}

inline void addLineSum(std::int32_t sum, short& target)
{
    target = static_cast<short>(target + roundShiftRight32(sum, lineSumShift));
}

}  // namespace halvor::vx::fixedpoint
