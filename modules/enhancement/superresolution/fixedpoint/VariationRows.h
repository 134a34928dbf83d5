// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/fixpoint/RoundingShift.h"

namespace halvor::vx::fixedpoint {

// Rows of the total-variation operator: a graph Laplacian over eight neighbours whose edges are weighed by table.

/// Entries of the table, one for each eighth of a difference.
constexpr int weightEntries = 128;

/// How a difference of samples becomes an index of the table.
struct EdgeIndex
{
    /// @param low, high  bounds of the differences that are told apart, in samples
    /// @param e          exponent of the image
    EdgeIndex(short low, short high, signed char e);

    /// @param difference  magnitude in samples, at most 65535
    int operator()(std::int32_t difference) const
    {
        // With 7 places and more every difference leaves the table.
        std::int32_t index = (difference << left) >> right;
        index = index < 1 ? 1 : index;
        index = index > weightEntries - 1 ? weightEntries - 1 : index;
        index = difference >= hi ? ceilingEntry : index;
        return difference <= lo ? floorEntry : index;
    }

    static constexpr int floorEntry = 1;     // one eighth
    static constexpr int ceilingEntry = 64;  // 8
    std::int32_t lo;
    std::int32_t hi;
    int left;
    int right;
};

/// Magnitude of a difference along a diagonal, brought to the spacing of the axes.
inline std::int32_t diagonalDifference(std::int32_t difference)
{
    constexpr std::int32_t rootOfOneHalf = 0x5A82;  // 15 fractional bits
    return roundShiftRight32(difference * rootOfOneHalf, 15);
}

/// Centre weight from the eight around it; see SrIntMinimization::computeLc().
inline short centreWeight(short c1, short c2, short c3, short c4, short c5, short c6, short c7, short c8)
{
    return static_cast<short>(shiftRound32(-c1, -1) - c2 - shiftRound16(c3, -1) - c4 - c8 -
                              shiftRound16(c5, -1) - c6 - shiftRound16(c7, -1));
}

/// A pixel's eight neighbours and itself: the weights of its edges, and samples. Outside of an image both are 0.
struct Neighbours
{
    short nw, n, ne, w, e, sw, s, se;
};

/// The operator at one pixel. Products along diagonals count half; the sum wraps in 32 bits, and the result, the
/// sum shifted right by 11, truncates: targets depend on all of it.
inline short laplacian(const Neighbours& weight, const Neighbours& sample, short own)
{
    const auto axial = [](int c, int value) { return static_cast<std::uint32_t>(c * value); };
    const auto diagonal = [](int c, int value) { return static_cast<std::uint32_t>((c * value) >> 1); };
    const short centre =
        centreWeight(weight.nw, weight.n, weight.ne, weight.w, weight.se, weight.s, weight.sw, weight.e);
    const std::uint32_t sum =
        diagonal(weight.nw, sample.nw) + axial(weight.n, sample.n) + diagonal(weight.ne, sample.ne) +
        axial(weight.w, sample.w) + axial(centre, own) + axial(weight.e, sample.e) +
        diagonal(weight.sw, sample.sw) + axial(weight.s, sample.s) + diagonal(weight.se, sample.se);
    return static_cast<short>(static_cast<std::int32_t>(sum) >> 11);
}

/// Edge weights of a row; an edge belongs to its upper or left end.
struct EdgeRow
{
    const short* right;
    const short* below;
    const short* belowLeft;
    const short* belowRight;
};

/// weights[x] = table entry of the difference of from[x] and to[x]
///
/// @param table  weightEntries of them
void fillEdges(const EdgeIndex& index, const short* table, const short* from, const short* to, bool diagonal,
               short* weights, int n);

/// out[x] = the operator applied to the middle one of three rows of an image.
///
/// @param above, own  weights of the row above, which are 0 above an image, and of the row itself
/// @param n           3 or more
void applyEdges(const EdgeRow& above, const EdgeRow& own, const short* imageAbove, const short* image,
                const short* imageBelow, short* out, int n);

}  // namespace halvor::vx::fixedpoint
