// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/solver/TotalVariationRows.h"

#include <algorithm>
#include <cmath>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

constexpr float invSqrt2 = 1.0F / 1.41421356F;
constexpr int lanes = LaneOrder::lanes;
constexpr int next = lanes;  // from a column to its neighbour

inline float edgeWeight(float d, const EdgePotential& potential)
{
    const float m =
        d > potential.lowest ? (d < potential.greatest ? d : potential.greatest) : potential.lowest;
    return potential.scale / m;
}

VX_KERNEL void fillRow(EdgePotential potential, const float* VX_RESTRICT own, const float* VX_RESTRICT below,
                       float* VX_RESTRICT toRight, float* VX_RESTRICT toBelow, float* VX_RESTRICT toBelowLeft,
                       float* VX_RESTRICT toBelowRight, int run)
{
    for (int i = 0; i < run * lanes; ++i) {
        toRight[i] = edgeWeight(std::fabs(own[i + next] - own[i]), potential);
        toBelow[i] = edgeWeight(std::fabs(below[i] - own[i]), potential);
        toBelowLeft[i] = edgeWeight(std::fabs(below[i - next] - own[i]) * invSqrt2, potential) * 0.5F;
        toBelowRight[i] = edgeWeight(std::fabs(below[i + next] - own[i]) * invSqrt2, potential) * 0.5F;
    }
}

VX_KERNEL void applyRow(const WeightRow& above, const WeightRow& own, const RowTriple& image,
                        float* VX_RESTRICT out, int run)
{
    const float* VX_RESTRICT const up = above.below;
    const float* VX_RESTRICT const upRight = above.belowLeft;
    const float* VX_RESTRICT const upLeft = above.belowRight;
    const float* VX_RESTRICT const right = own.right;
    const float* VX_RESTRICT const down = own.below;
    const float* VX_RESTRICT const downLeft = own.belowLeft;
    const float* VX_RESTRICT const downRight = own.belowRight;
    const float* VX_RESTRICT const a = image.above;
    const float* VX_RESTRICT const x = image.own;
    const float* VX_RESTRICT const b = image.below;
    for (int i = 0; i < run * lanes; ++i) {
        const float centre = -upLeft[i - next] - up[i] - upRight[i + next] - right[i - next] - right[i] -
                             downRight[i] - down[i] - downLeft[i];
        out[i] = upLeft[i - next] * a[i - next] + up[i] * a[i] + upRight[i + next] * a[i + next] +
                 right[i - next] * x[i - next] + centre * x[i] + right[i] * x[i + next] +
                 downLeft[i] * b[i - next] + down[i] * b[i] + downRight[i] * b[i + next] + 0.0F;
    }
}

}  // namespace

void fillEdgeWeights(const LaneLayout& layout, const EdgePotential& potential, int y,
                     const RowTriple& estimate, const WeightRow& weights)
{
    fillRow(potential, estimate.own, estimate.below, weights.right, weights.below, weights.belowLeft,
            weights.belowRight, layout.run);

    const int last = layout.place(layout.width - 1);
    weights.belowLeft[0] = 0.0F;
    weights.right[last] = 0.0F;
    weights.belowRight[last] = 0.0F;
    for (float* row : {weights.right, weights.below, weights.belowLeft, weights.belowRight})
        layout.clearFrom(layout.width, row);
    if (y == layout.height - 1)
        for (float* row : {weights.below, weights.belowLeft, weights.belowRight})
            std::fill_n(row, layout.run * lanes, 0.0F);
    // The first pixel takes the differences at its right neighbour: hosts depend on the results.
    if (y == 0)
        for (float* row : {weights.right, weights.below, weights.belowRight})
            row[0] = row[layout.place(1)];

    LaneEdges::fillBefore(weights.right, layout.run, 1);
    LaneEdges::fillBefore(weights.belowRight, layout.run, 1);
    LaneEdges::fillBehind(weights.belowLeft, layout.run, 1);
}

void applyLaplacian(const LaneLayout& layout, const WeightRow& above, const WeightRow& weights,
                    const RowTriple& image, float* out)
{
    applyRow(above, weights, image, out, layout.run);
}

}  // namespace halvor::vx
