#include "support/SceneTextures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "support/Random.h"
#include "support/SceneLayout.h"

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

// Values on a square lattice that is fixed to the scene, whatever part of it is painted, with B-splines
// between.
class LatticeLayer : public SceneLayer
{
public:
    using Knots = std::function<double(int column, int row)>;

    LatticeLayer(double spacing, Knots knots)
        : cellsPerKnot_(std::max(1, static_cast<int>(std::floor(spacing / cell + 0.5)))),
          knots_(std::move(knots))
    {
        for (int i = 0; i < cellsPerKnot_; ++i)
            weights_.push_back(splineWeights((i + 0.5) / cellsPerKnot_));
    }

    void paintRow(const CellRow& row) const override
    {
        const int firstCell = static_cast<int>(std::floor(row.left / cell + 0.5));
        const int firstKnot = floorDivide(firstCell);
        const int lastKnot = floorDivide(firstCell + row.count - 1);
        const std::vector<double> knots = blendedRow(row.y, firstKnot - 1, lastKnot + 2);
        for (int i = 0; i < row.count; ++i) {
            const int knot = floorDivide(firstCell + i);
            const auto phase = static_cast<std::size_t>(firstCell + i - knot * cellsPerKnot_);
            const double* value = &knots[static_cast<std::size_t>(knot - firstKnot)];
            const std::array<double, 4>& w = weights_[phase];
            row.values[i] +=
                static_cast<float>(w[0] * value[0] + w[1] * value[1] + w[2] * value[2] + w[3] * value[3]);
        }
    }

    cv::Rect2d bounds() const override { return {-1e6, -1e6, 2e6, 2e6}; }

private:
    int floorDivide(int cells) const
    {
        const int quotient = cells / cellsPerKnot_;
        return quotient * cellsPerKnot_ > cells ? quotient - 1 : quotient;
    }

    std::vector<double> blendedRow(double y, int first, int last) const
    {
        const int rowCell = static_cast<int>(std::floor(y / cell));
        const int knotRow = floorDivide(rowCell);
        const auto& w = weights_[static_cast<std::size_t>(rowCell - knotRow * cellsPerKnot_)];
        std::vector<double> blended;
        blended.reserve(static_cast<std::size_t>(last - first + 1));
        for (int column = first; column <= last; ++column)
            blended.push_back(w[0] * knots_(column, knotRow - 1) + w[1] * knots_(column, knotRow) +
                              w[2] * knots_(column, knotRow + 1) + w[3] * knots_(column, knotRow + 2));
        return blended;
    }

    int cellsPerKnot_;
    Knots knots_;
    std::vector<std::array<double, 4>> weights_;
};

}  // namespace

std::unique_ptr<SceneLayer> makeFieldLayer(double spacing, std::function<double(cv::Point2d)> field)
{
    const double step = std::max(1.0, std::floor(spacing / cell + 0.5)) * cell;
    return std::make_unique<LatticeLayer>(spacing, [step, field = std::move(field)](int column, int row) {
        return field({column * step, row * step});
    });
}

std::unique_ptr<SceneLayer> makeTextureLayer(std::uint64_t seed, double period, double deviation)
{
    // Interpolation leaves 151/315 of the knots' deviation; a uniform number has a deviation of 1/sqrt(12).
    const double range = deviation * 315.0 / 151.0 * std::sqrt(12.0);
    const Random root(seed);
    return std::make_unique<LatticeLayer>(period, [root, range](int column, int row) {
        Random knot = root.split(static_cast<std::uint32_t>(column)).split(static_cast<std::uint32_t>(row));
        return range * (knot.uniform() - 0.5);
    });
}

}  // namespace vxsupport
