// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/ControlPoints.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/base/Kernel.h"
#include "enhancement/superresolution/motion/MotionSettings.h"

namespace halvor::vx {

namespace {

int pointsAlong(int length)
{
    return std::max(
        2, static_cast<int>(std::lround(static_cast<double>(length - 1) / MotionSettings::pointSpacing)) + 1);
}

// Where the kinds of sums begin; the products of slopes come in three weights, those with the error in two.
enum Sum : std::size_t
{
    acrossAcross = 0,
    acrossDown = 3,
    downDown = 6,
    acrossError = 9,
    downError = 11,
};

VX_KERNEL void addSlopes(const float* VX_RESTRICT a, const float* VX_RESTRICT b,
                         const float* VX_RESTRICT weight, float rest, float* VX_RESTRICT upper,
                         float* VX_RESTRICT both, float* VX_RESTRICT lower, int n)
{
    const float keep = 1.0F - rest;
    for (int i = 0; i < n; ++i) {
        const float term = weight[i] * (a[i] * b[i]);
        upper[i] += keep * keep * term;
        both[i] += keep * rest * term;
        lower[i] += rest * rest * term;
    }
}

VX_KERNEL void addErrors(const float* VX_RESTRICT a, const float* VX_RESTRICT error,
                         const float* VX_RESTRICT weight, float rest, float* VX_RESTRICT upper,
                         float* VX_RESTRICT lower, int n)
{
    const float keep = 1.0F - rest;
    for (int i = 0; i < n; ++i) {
        const float term = weight[i] * (a[i] * error[i]);
        upper[i] += keep * term;
        lower[i] += rest * term;
    }
}

}  // namespace

ControlPoints::Axis::Axis(int length, int points)
    : first(static_cast<std::size_t>(length)), rest(static_cast<std::size_t>(length))
{
    for (int i = 0; i < length; ++i) {
        const double place = length == 1 ? 0.0 : static_cast<double>(i) * (points - 1) / (length - 1);
        const int point = std::min(static_cast<int>(place), points - 2);
        first[static_cast<std::size_t>(i)] = point;
        rest[static_cast<std::size_t>(i)] = static_cast<float>(place - point);
    }
}

ControlPoints::ControlPoints(const cv::Size& size)
    : size_(size),
      points_(pointsAlong(size.width), pointsAlong(size.height)),
      across_(size.width, points_.width),
      down_(size.height, points_.height),
      dx_(static_cast<std::size_t>(points_.area())),
      dy_(dx_.size()),
      system_(2 * points_.area(), 2 * std::min(points_.width, points_.height) + 3)
{
    for (std::vector<float>& sum : sums_)
        sum.resize(static_cast<std::size_t>(size.width));
}

// Along the shorter side of the grid, which keeps the system's band narrow.
int ControlPoints::index(int row, int column) const
{
    return points_.height < points_.width ? column * points_.height + row : row * points_.width + column;
}

void ControlPoints::clear()
{
    std::fill(dx_.begin(), dx_.end(), 0.0F);
    std::fill(dy_.begin(), dy_.end(), 0.0F);
}

void ControlPoints::addToRow(int y, float* dx, float* dy) const
{
    const int top = down_.first[static_cast<std::size_t>(y)];
    const float rest = down_.rest[static_cast<std::size_t>(y)];
    const auto blend = [](float a, float b, float share) { return a + share * (b - a); };
    for (int x = 0; x < size_.width; ++x) {
        const int left = across_.first[static_cast<std::size_t>(x)];
        const float share = across_.rest[static_cast<std::size_t>(x)];
        const auto a = static_cast<std::size_t>(index(top, left));
        const auto b = static_cast<std::size_t>(index(top, left + 1));
        const auto c = static_cast<std::size_t>(index(top + 1, left));
        const auto d = static_cast<std::size_t>(index(top + 1, left + 1));
        dx[x] += blend(blend(dx_[a], dx_[b], share), blend(dx_[c], dx_[d], share), rest);
        dy[x] += blend(blend(dy_[a], dy_[b], share), blend(dy_[c], dy_[d], share), rest);
    }
}

void ControlPoints::beginStep()
{
    system_.clear();
    for (std::vector<float>& sum : sums_)
        std::fill(sum.begin(), sum.end(), 0.0F);
    cells_ = 0;
}

void ControlPoints::add(int y, const MotionRow& row)
{
    const int cells = down_.first[static_cast<std::size_t>(y)];
    if (cells != cells_) {
        closeCells();
        cells_ = cells;
    }
    const float rest = down_.rest[static_cast<std::size_t>(y)];
    const auto slopes = [&](Sum sum, const float* a, const float* b) {
        addSlopes(a, b, row.weight, rest, sums_[sum].data(), sums_[sum + 1].data(), sums_[sum + 2].data(),
                  size_.width);
    };
    slopes(acrossAcross, row.across, row.across);
    slopes(acrossDown, row.across, row.down);
    slopes(downDown, row.down, row.down);
    addErrors(row.across, row.error, row.weight, rest, sums_[acrossError].data(),
              sums_[acrossError + 1].data(), size_.width);
    addErrors(row.down, row.error, row.weight, rest, sums_[downError].data(), sums_[downError + 1].data(),
              size_.width);
}

void ControlPoints::closeCells()
{
    for (int column = 0; column < points_.width - 1; ++column)
        addCell(column);
    for (std::vector<float>& sum : sums_)
        std::fill(sum.begin(), sum.end(), 0.0F);
}

// Sums over a cell's columns, times products of their interpolation, go to its four points.
void ControlPoints::addCell(int column)
{
    std::array<std::array<double, 3>, products> cell{};
    const auto begin = std::lower_bound(across_.first.begin(), across_.first.end(), column);
    const auto end = std::upper_bound(begin, across_.first.end(), column);
    for (auto i = static_cast<std::size_t>(begin - across_.first.begin());
         i < static_cast<std::size_t>(end - across_.first.begin()); ++i) {
        const auto rest = static_cast<double>(across_.rest[i]);
        const double keep = 1.0 - rest;
        for (std::size_t sum = 0; sum < products; ++sum) {
            const auto value = static_cast<double>(sums_[sum][i]);
            const bool isError = sum >= acrossError;
            cell[sum][0] += (isError ? keep : keep * keep) * value;
            cell[sum][1] += (isError ? rest : keep * rest) * value;
            cell[sum][2] += rest * rest * value;
        }
    }
    for (std::size_t a = 0; a < 4; ++a) {
        const std::size_t rowA = a / 2;
        const std::size_t columnA = a % 2;
        const int own = index(cells_ + static_cast<int>(rowA), column + static_cast<int>(columnA));
        system_.right(2 * own) += cell[acrossError + rowA][columnA];
        system_.right(2 * own + 1) += cell[downError + rowA][columnA];
        for (std::size_t b = 0; b < 4; ++b) {
            const std::size_t rows = rowA + b / 2;
            const std::size_t columns = columnA + b % 2;
            const int other = index(cells_ + static_cast<int>(b / 2), column + static_cast<int>(b % 2));
            if (other > own)
                continue;
            system_.add(2 * own, 2 * other, cell[acrossAcross + rows][columns]);
            system_.add(2 * own + 1, 2 * other + 1, cell[downDown + rows][columns]);
            system_.add(2 * own + 1, 2 * other, cell[acrossDown + rows][columns]);
            if (other < own)
                system_.add(2 * own, 2 * other + 1, cell[acrossDown + rows][columns]);
        }
    }
}

void ControlPoints::addDifference(int a, int b)
{
    constexpr double stiffness = 1.0 / (MotionSettings::pointDeviation * MotionSettings::pointDeviation);
    for (int component = 0; component < 2; ++component) {
        const std::vector<float>& values = component == 0 ? dx_ : dy_;
        const double difference = static_cast<double>(values[static_cast<std::size_t>(a)]) -
                                  static_cast<double>(values[static_cast<std::size_t>(b)]);
        const int i = 2 * a + component;
        const int j = 2 * b + component;
        system_.add(i, i, stiffness);
        system_.add(j, j, stiffness);
        system_.add(std::max(i, j), std::min(i, j), -stiffness);
        system_.right(i) -= stiffness * difference;
        system_.right(j) += stiffness * difference;
    }
}

void ControlPoints::addPrior()
{
    constexpr double damping =
        MotionSettings::pointDamping / (MotionSettings::pointDeviation * MotionSettings::pointDeviation);
    for (int row = 0; row < points_.height; ++row)
        for (int column = 0; column < points_.width; ++column) {
            const int own = index(row, column);
            system_.add(2 * own, 2 * own, damping);
            system_.add(2 * own + 1, 2 * own + 1, damping);
            if (column + 1 < points_.width)
                addDifference(own, index(row, column + 1));
            if (row + 1 < points_.height)
                addDifference(own, index(row + 1, column));
        }
}

float ControlPoints::finishStep()
{
    closeCells();
    addPrior();
    if (!system_.solve())
        return -1.0F;
    double largest = 0.0;
    for (int i = 0; i < 2 * points_.area(); ++i) {
        if (!std::isfinite(system_.right(i)))
            return -1.0F;
        largest = std::max(largest, std::fabs(system_.right(i)));
    }
    for (int i = 0; i < points_.area(); ++i) {
        dx_[static_cast<std::size_t>(i)] += static_cast<float>(system_.right(2 * i));
        dy_[static_cast<std::size_t>(i)] += static_cast<float>(system_.right(2 * i + 1));
    }
    return static_cast<float>(largest);
}

}  // namespace halvor::vx
