#include "enhancement/superresolution/TotalVariationRows.h"

#include <algorithm>
#include <cmath>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

constexpr float invSqrt2 = 1.0F / 1.41421356F;

inline float edgeWeight(float d, const EdgePotential& potential)
{
    const float m =
        d > potential.lowest ? (d < potential.greatest ? d : potential.greatest) : potential.lowest;
    return potential.scale / m;
}

// The kernels below take one part of a row: its even columns, whose left neighbours are the odd ones a place
// earlier, or its odd columns, whose right neighbours are the even ones a place later.

VX_KERNEL void fillPart(EdgePotential potential, const float* VX_RESTRICT own, const float* VX_RESTRICT right,
                        const float* VX_RESTRICT below, const float* VX_RESTRICT belowLeft,
                        const float* VX_RESTRICT belowRight, float* VX_RESTRICT toRight,
                        float* VX_RESTRICT toBelow, float* VX_RESTRICT toBelowLeft,
                        float* VX_RESTRICT toBelowRight, int blocks)
{
    for (int i = 0; i < blocks * SplitLayout::block; ++i) {
        toRight[i] = edgeWeight(std::fabs(right[i] - own[i]), potential);
        toBelow[i] = edgeWeight(std::fabs(below[i] - own[i]), potential);
        toBelowLeft[i] = edgeWeight(std::fabs(belowLeft[i] - own[i]) * invSqrt2, potential) * 0.5F;
        toBelowRight[i] = edgeWeight(std::fabs(belowRight[i] - own[i]) * invSqrt2, potential) * 0.5F;
    }
}

// Weights of the edges that touch a pixel, in the order of the linear index of its neighbours.
struct TouchingEdges
{
    const float* aboveLeft;
    const float* above;
    const float* aboveRight;
    const float* left;
    const float* right;
    const float* belowLeft;
    const float* below;
    const float* belowRight;
};

VX_KERNEL void sumPart(const TouchingEdges& edges, float* VX_RESTRICT centre, int blocks)
{
    const float* VX_RESTRICT const aboveLeft = edges.aboveLeft;
    const float* VX_RESTRICT const above = edges.above;
    const float* VX_RESTRICT const aboveRight = edges.aboveRight;
    const float* VX_RESTRICT const left = edges.left;
    const float* VX_RESTRICT const right = edges.right;
    const float* VX_RESTRICT const belowLeft = edges.belowLeft;
    const float* VX_RESTRICT const below = edges.below;
    const float* VX_RESTRICT const belowRight = edges.belowRight;
    for (int i = 0; i < blocks * SplitLayout::block; ++i)
        centre[i] = -aboveLeft[i] - above[i] - aboveRight[i] - left[i] - right[i] - belowRight[i] - below[i] -
                    belowLeft[i];
}

struct Neighbours
{
    const float* aboveLeft;
    const float* above;
    const float* aboveRight;
    const float* left;
    const float* own;
    const float* right;
    const float* belowLeft;
    const float* below;
    const float* belowRight;
};

VX_KERNEL void applyPart(const TouchingEdges& edges, const float* VX_RESTRICT centre, const Neighbours& image,
                         float* VX_RESTRICT out, int blocks)
{
    const float* VX_RESTRICT const aboveLeft = edges.aboveLeft;
    const float* VX_RESTRICT const above = edges.above;
    const float* VX_RESTRICT const aboveRight = edges.aboveRight;
    const float* VX_RESTRICT const left = edges.left;
    const float* VX_RESTRICT const right = edges.right;
    const float* VX_RESTRICT const belowLeft = edges.belowLeft;
    const float* VX_RESTRICT const below = edges.below;
    const float* VX_RESTRICT const belowRight = edges.belowRight;
    const Neighbours x = image;
    for (int i = 0; i < blocks * SplitLayout::block; ++i)
        out[i] = aboveLeft[i] * x.aboveLeft[i] + above[i] * x.above[i] + aboveRight[i] * x.aboveRight[i] +
                 left[i] * x.left[i] + centre[i] * x.own[i] + right[i] * x.right[i] +
                 belowLeft[i] * x.belowLeft[i] + below[i] * x.below[i] + belowRight[i] * x.belowRight[i] +
                 0.0F;
}

TouchingEdges evenEdges(const WeightRow& above, const WeightRow& own, int half)
{
    return {above.belowRight + half - 1,
            above.below,
            above.belowLeft + half,
            own.right + half - 1,
            own.right,
            own.belowLeft,
            own.below,
            own.belowRight};
}

TouchingEdges oddEdges(const WeightRow& above, const WeightRow& own, int half)
{
    return {above.belowRight, above.below + half,   above.belowLeft + 1, own.right,
            own.right + half, own.belowLeft + half, own.below + half,    own.belowRight + half};
}

int blocksOf(int count)
{
    return SplitLayout::wholeBlocks(count) / SplitLayout::block;
}

}  // namespace

void fillEdgeWeights(const SplitLayout& layout, const EdgePotential& potential, int y, const float* own,
                     const float* below, const WeightRow& weights)
{
    const int half = layout.half;
    fillPart(potential, own, own + half, below, below + half - 1, below + half, weights.right, weights.below,
             weights.belowLeft, weights.belowRight, blocksOf(layout.evens));
    fillPart(potential, own + half, own + 1, below + half, below, below + 1, weights.right + half,
             weights.below + half, weights.belowLeft + half, weights.belowRight + half,
             blocksOf(layout.odds));

    const int last = layout.place(layout.width - 1);
    weights.belowLeft[0] = 0.0F;
    weights.right[last] = 0.0F;
    weights.belowRight[last] = 0.0F;
    for (float* row : {weights.right, weights.below, weights.belowLeft, weights.belowRight})
        layout.clearPadding(row);
    if (y == layout.height - 1)
        for (float* row : {weights.below, weights.belowLeft, weights.belowRight})
            std::fill_n(row, layout.pitch, 0.0F);
    // The first pixel takes the differences at its right neighbour: an old slip that results depend on.
    if (y == 0)
        for (float* row : {weights.right, weights.below, weights.belowRight})
            row[0] = row[layout.place(1)];
}

void fillDiagonal(const SplitLayout& layout, const WeightRow& above, const WeightRow& weights)
{
    sumPart(evenEdges(above, weights, layout.half), weights.centre, blocksOf(layout.evens));
    sumPart(oddEdges(above, weights, layout.half), weights.centre + layout.half, blocksOf(layout.odds));
    layout.clearPadding(weights.centre);
}

void applyLaplacian(const SplitLayout& layout, const WeightRow& above, const WeightRow& weights,
                    const RowTriple& image, float* out)
{
    const int half = layout.half;
    const Neighbours even{image.above + half - 1, image.above, image.above + half,
                          image.own + half - 1,   image.own,   image.own + half,
                          image.below + half - 1, image.below, image.below + half};
    applyPart(evenEdges(above, weights, half), weights.centre, even, out, blocksOf(layout.evens));
    const Neighbours odd{image.above, image.above + half, image.above + 1,
                         image.own,   image.own + half,   image.own + 1,
                         image.below, image.below + half, image.below + 1};
    applyPart(oddEdges(above, weights, half), weights.centre + half, odd, out + half, blocksOf(layout.odds));
}

}  // namespace halvor::vx
