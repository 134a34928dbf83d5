// SPDX-License-Identifier: Apache-2.0
#include "support/scenes/SceneTextures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "support/Random.h"
#include "support/scenes/SceneLayout.h"

namespace vxsupport {

namespace {

constexpr double cell = 1.0 / FineScene::cellsPerPixel;

// Uniform cubic B-spline at the fraction t of an interval.
std::array<double, 4> splineWeights(double t)
{
    const double rest = 1.0 - t;
    return {rest * rest * rest / 6.0, (3.0 * t * t * t - 6.0 * t * t + 4.0) / 6.0,
            (3.0 * rest * rest * rest - 6.0 * rest * rest + 4.0) / 6.0, t * t * t / 6.0};
}

int floorDivide(int value, int divisor)
{
    const int quotient = value / divisor;
    return quotient * divisor > value ? quotient - 1 : quotient;
}

// Values on a square lattice that is fixed to the scene, whatever part of it is painted, with B-splines
// between.
class LatticeLayer : public SceneLayer
{
public:
    /// @param value  callable from the knot's column and row to double
    template <typename Value>
    LatticeLayer(const SceneArea& area, int cellsPerKnot, Value value)
        : area_(area.rect()), cellsPerKnot_(cellsPerKnot)
    {
        constexpr int cells = FineScene::cellsPerPixel;
        first_ = floorDivide(-area.margin * cells, cellsPerKnot) - 1;
        const int lastColumn = floorDivide((area.frame.width + area.margin) * cells, cellsPerKnot) + 2;
        const int lastRow = floorDivide((area.frame.height + area.margin) * cells, cellsPerKnot) + 2;
        knots_.create(lastRow - first_ + 1, lastColumn - first_ + 1);
        // Short regions are slow on a busy machine.
#pragma omp parallel for schedule(static) if (knots_.total() > 200000)
        for (int r = 0; r < knots_.rows; ++r)
            for (int c = 0; c < knots_.cols; ++c)
                knots_(r, c) = value(first_ + c, first_ + r);
        for (int i = 0; i < cellsPerKnot; ++i)
            weights_.push_back(splineWeights((i + 0.5) / cellsPerKnot));
    }

    void paintRow(const CellRow& row) const override
    {
        const std::vector<double> knots = blendedRow(static_cast<int>(std::floor(row.y / cell)));
        const int firstCell = static_cast<int>(std::floor(row.left / cell + 0.5));
        const int knot = floorDivide(firstCell, cellsPerKnot_);
        int phase = firstCell - knot * cellsPerKnot_;
        const double* value = &knots[static_cast<std::size_t>(knot - 1 - first_)];
        for (int i = 0; i < row.count; ++i) {
            const std::array<double, 4>& w = weights_[static_cast<std::size_t>(phase)];
            row.values[i] +=
                static_cast<float>(w[0] * value[0] + w[1] * value[1] + w[2] * value[2] + w[3] * value[3]);
            if (++phase == cellsPerKnot_) {
                phase = 0;
                ++value;
            }
        }
    }

    cv::Rect2d bounds() const override
    {
        return area_;
    }

private:
    std::vector<double> blendedRow(int rowCell) const
    {
        const int knotRow = floorDivide(rowCell, cellsPerKnot_);
        const std::array<double, 4>& w =
            weights_[static_cast<std::size_t>(rowCell - knotRow * cellsPerKnot_)];
        const int above = knotRow - 1 - first_;
        std::vector<double> blended(static_cast<std::size_t>(knots_.cols));
        for (int c = 0; c < knots_.cols; ++c)
            blended[static_cast<std::size_t>(c)] = w[0] * knots_(above, c) + w[1] * knots_(above + 1, c) +
                                                   w[2] * knots_(above + 2, c) + w[3] * knots_(above + 3, c);
        return blended;
    }

    cv::Rect2d area_;
    int cellsPerKnot_;
    int first_;  // column and row of the first knot; the area's margin is the same on all sides
    cv::Mat_<double> knots_;
    std::vector<std::array<double, 4>> weights_;
};

int cellsIn(double length)
{
    return std::max(1, static_cast<int>(std::floor(length / cell + 0.5)));
}

}  // namespace

std::unique_ptr<SceneLayer> makeFieldLayer(const SceneArea& area, double spacing,
                                           const std::function<double(cv::Point2d)>& field)
{
    const int cells = cellsIn(spacing);
    return std::make_unique<LatticeLayer>(area, cells, [cells, &field](int column, int row) {
        return field({column * cells * cell, row * cells * cell});
    });
}

std::unique_ptr<SceneLayer> makeTextureLayer(const SceneArea& area, std::uint64_t seed, double period,
                                             double deviation)
{
    // Interpolation leaves 151/315 of the knots' deviation; a uniform number has a deviation of 1/sqrt(12).
    const double range = deviation * 315.0 / 151.0 * std::sqrt(12.0);
    return std::make_unique<LatticeLayer>(
        area, cellsIn(period), [root = Random(seed), range](int column, int row) {
            Random knot =
                root.split(static_cast<std::uint32_t>(column)).split(static_cast<std::uint32_t>(row));
            return range * (knot.uniform() - 0.5);
        });
}

}  // namespace vxsupport
