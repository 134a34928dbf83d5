// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "enhancement/superresolution/motion/BandedSystem.h"

namespace halvor::vx {

/// What a Gauss-Newton step sees of a row of pixels: the slopes of the prediction, its error against the frame
/// and the pixel's weight, 0 where it does not count.
struct MotionRow
{
    const float* across;
    const float* down;
    const float* error;
    const float* weight;
};

/// A motion that varies over the frame: values at a grid of points, the frame's corners among them, about 16
/// pixels apart, with bilinear interpolation in between.
///
/// Neighbouring points are taken to differ by 0.05 pixels, which keeps a point where the image is flat at the
/// mean of its neighbours. All memory is allocated by the constructor.
class ControlPoints
{
public:
    explicit ControlPoints(const cv::Size& size);

    void clear();
    /// Adds the interpolated values to a row of motion.
    void addToRow(int y, float* dx, float* dy) const;

    /// A step that lowers the sum of weight * error^2 / 2 and the prior: begin(), add() for each row from the top,
    /// then finish().
    void beginStep();
    void add(int y, const MotionRow& row);
    /// @return the largest change of a value in pixels; negative without a solution, and then nothing changed
    float finishStep();

private:
    // Where a row or a column of pixels lies: behind which point, and how far.
    struct Axis
    {
        Axis(int length, int points);

        std::vector<int> first;
        std::vector<float> rest;
    };
    // Of a line of cells: sums over its rows, times products of the rows' own interpolation, for each column.
    static constexpr std::size_t products = 13;

    int index(int row, int column) const;
    void closeCells();
    void addCell(int column);
    void addPrior();
    void addDifference(int a, int b);

    cv::Size size_;
    cv::Size points_;
    Axis across_;
    Axis down_;
    std::vector<float> dx_;  // values, by index()
    std::vector<float> dy_;
    BandedSystem system_;
    std::array<std::vector<float>, products> sums_;
    int cells_ = 0;  // the line that sums_ belongs to
};

}  // namespace halvor::vx
