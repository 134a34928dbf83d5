// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "enhancement/superresolution/solver/LaneImage.h"

namespace halvor::vx {

// Row kernels of the total-variation term: the graph Laplacian over eight neighbours whose edge weights are
// frozen from an estimate. Weights are negative. Rows of the image come from a LineBuffer, rows of weights are
// laid out as in a LaneImage.

/// Weight of an edge: scale / m, with m the difference of its pixels, clamped.
struct EdgePotential
{
    float scale;     ///< negative
    float lowest;    ///< smallest m
    float greatest;  ///< largest m
};

/// Edge weights of one row: to the right, below, below left and below right.
struct WeightRow
{
    float* right;
    float* below;
    float* belowLeft;
    float* belowRight;
};

/// Rows y - 1, y and y + 1 of an image.
struct RowTriple
{
    const float* above;
    const float* own;
    const float* below;
};

/// Fills the edge weights of row y from the estimate; those that would leave the image are zero. Pixel 0 of
/// the image takes the differences at pixel 1.
///
/// @param estimate  its row above is not read
void fillEdgeWeights(const LaneLayout& layout, const EdgePotential& potential, int y,
                     const RowTriple& estimate, const WeightRow& weights);

/// One row of the operator applied to an image. The diagonal is the negated sum of the weights of all edges
/// that touch a pixel; it costs less to form than to read. The sum's order is that of the linear index of the
/// neighbours; a zero comes out positive.
void applyLaplacian(const LaneLayout& layout, const WeightRow& above, const WeightRow& weights,
                    const RowTriple& image, float* out);

}  // namespace halvor::vx
