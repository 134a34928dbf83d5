// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/fixpoint/RoundingShift.h"

namespace halvor::vx::fixedpoint {

// Row kernels of the element operations: products of a mantissa and a sample, scaled by a power of two. What
// leaves 16 bits wraps; a sum has 64 bits.

/// value * 2^count; 0 from a count of 32 on.
struct LeftScale
{
    std::uint8_t count;
    std::int32_t operator()(std::int32_t value) const
    {
        return count < 32 ? static_cast<std::int32_t>(static_cast<std::uint32_t>(value) << count) : 0;
    }
};

/// value / 2^count, rounded.
struct RightScale
{
    std::uint8_t count;
    std::int32_t operator()(std::int32_t value) const { return roundShiftRight32(value, count); }
};

std::int64_t sumRow(const short* row, int n);
std::int64_t dotRow(const short* a, const short* b, int n);

/// row = scale(row - mean)
void normaliseRow(LeftScale scale, short mean, short* row, int n);
void normaliseRow(RightScale scale, short mean, short* row, int n);

/// out = scale(in) + mean; the right form rounds in 16 bits.
void denormaliseRow(LeftScale scale, short mean, const short* in, short* out, int n);
void denormaliseRow(RightScale scale, short mean, const short* in, short* out, int n);

/// r = b - r, s = r
/// @return the sum of r * r
std::int64_t residualRow(const short* b, short* r, short* s, int n);

/// x += scale(mantissa * s)
void advanceRow(LeftScale scale, short mantissa, const short* s, short* x, int n);
void advanceRow(RightScale scale, short mantissa, const short* s, short* x, int n);

/// r -= scale(mantissa * q). The right form sets r to the bound before, where r - scale() would leave 16 bits.
/// @return the sum of r * r
std::int64_t stepRow(LeftScale scale, short mantissa, const short* q, short* r, int n);
std::int64_t stepRow(RightScale scale, short mantissa, const short* q, short* r, int n);

/// s = r + scale(mantissa * s). The left form sets s to the bound before, where the sum would leave 16 bits.
void turnRow(LeftScale scale, short mantissa, const short* r, short* s, int n);
void turnRow(RightScale scale, short mantissa, const short* r, short* s, int n);

}  // namespace halvor::vx::fixedpoint
