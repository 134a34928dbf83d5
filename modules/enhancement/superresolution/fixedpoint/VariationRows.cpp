// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/fixedpoint/VariationRows.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "core/base/Kernel.h"

namespace halvor::vx::fixedpoint {

namespace {

constexpr int chunk = 256;

template <typename Magnitude>
VX_KERNEL_BODY void fillIndices(const EdgeIndex& edgeIndex, const short* from, const short* to,
                                Magnitude magnitude, std::uint8_t* VX_RESTRICT indices, int n)
{
    const EdgeIndex index = edgeIndex;
    for (int x = 0; x < n; ++x) {
        const std::int32_t difference = to[x] - from[x];
        indices[x] = static_cast<std::uint8_t>(index(magnitude(difference < 0 ? -difference : difference)));
    }
}

VX_KERNEL void axialIndices(const EdgeIndex& index, const short* from, const short* to, std::uint8_t* indices,
                            int n)
{
    fillIndices(
        index, from, to, [](std::int32_t difference) { return difference; }, indices, n);
}

VX_KERNEL void diagonalIndices(const EdgeIndex& index, const short* from, const short* to,
                               std::uint8_t* indices, int n)
{
    fillIndices(
        index, from, to, [](std::int32_t difference) { return diagonalDifference(difference); }, indices, n);
}

VX_KERNEL void applyInner(const short* VX_RESTRICT fromNW, const short* VX_RESTRICT fromN,
                          const short* VX_RESTRICT fromNE, const EdgeRow& ownEdges,
                          const short* VX_RESTRICT a, const short* VX_RESTRICT i, const short* VX_RESTRICT b,
                          short* VX_RESTRICT out, int n)
{
    const EdgeRow own = ownEdges;
    for (int x = 1; x < n - 1; ++x)
        out[x] = laplacian({fromNW[x - 1], fromN[x], fromNE[x + 1], own.right[x - 1], own.right[x],
                            own.belowLeft[x], own.below[x], own.belowRight[x]},
                           {a[x - 1], a[x], a[x + 1], i[x - 1], i[x + 1], b[x - 1], b[x], b[x + 1]}, i[x]);
}

}  // namespace

EdgeIndex::EdgeIndex(short low, short high, signed char e)
    : lo(low), hi(high), left(std::clamp(3 + e, 0, 7)), right(std::clamp(-(3 + e), 0, 31))
{}

void fillEdges(const EdgeIndex& index, const short* table, const short* from, const short* to, bool diagonal,
               short* weights, int n)
{
    std::array<std::uint8_t, chunk> indices;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
    for (int begin = 0; begin < n; begin += chunk) {
        const int count = std::min(chunk, n - begin);
        (diagonal ? diagonalIndices : axialIndices)(index, from + begin, to + begin, indices.data(), count);
        for (int x = 0; x < count; ++x)
            weights[begin + x] = table[indices[static_cast<std::size_t>(x)]];
    }
}

void applyEdges(const EdgeRow& above, const EdgeRow& own, const short* imageAbove, const short* image,
                const short* imageBelow, short* out, int n)
{
    applyInner(above.belowRight, above.below, above.belowLeft, own, imageAbove, image, imageBelow, out, n);
    out[0] =
        laplacian({0, above.below[0], above.belowLeft[1], 0, own.right[0], own.belowLeft[0], own.below[0],
                   own.belowRight[0]},
                  {0, imageAbove[0], imageAbove[1], 0, image[1], 0, imageBelow[0], imageBelow[1]}, image[0]);
    const int x = n - 1;
    out[x] =
        laplacian({above.belowRight[x - 1], above.below[x], 0, own.right[x - 1], own.right[x],
                   own.belowLeft[x], own.below[x], own.belowRight[x]},
                  {imageAbove[x - 1], imageAbove[x], 0, image[x - 1], 0, imageBelow[x - 1], imageBelow[x], 0},
                  image[x]);
}

}  // namespace halvor::vx::fixedpoint
