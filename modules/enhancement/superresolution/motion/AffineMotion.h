// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "enhancement/superresolution/motion/CubicSpline.h"

namespace halvor::vx {

/// dx = x[0] + x[1] * X + x[2] * Y and dy alike, in pixels, with X and Y the place in the image from -0.5 to 0.5:
/// frame(q) is reference(q - d(q)).
struct AffineMotion
{
    std::array<double, 3> x{};
    std::array<double, 3> y{};

    /// The motion of a row's pixels.
    void fillRow(const cv::Size& size, int row, float* dx, float* dy) const;
    /// The same motion seen in an image of twice the size.
    AffineMotion doubled() const;
    bool isFinite() const;
};

/// Fits the motion between two smoothed images by Gauss-Newton steps on their difference, whose mean does not
/// count (Lucas and Kanade, 1981). Runs on one thread; all memory is allocated by the constructor.
class AffineFit
{
public:
    enum class Terms
    {
        shift = 1,
        affine = 3,
    };

    explicit AffineFit(const cv::Size& size);

    /// @param reference  of the size of the construction, as frame
    /// @param margin     pixels left out at each edge
    /// @param motion     start and result
    /// @return false if the images have too little in common, or nothing that would tell the motion
    bool run(const CubicSpline& reference, const cv::Mat_<float>& frame, Terms terms, int margin,
             AffineMotion& motion);

private:
    struct Sums;

    Sums gather(const cv::Mat_<float>& frame, const AffineMotion& motion, int margin);
    void maskRow(const AffineMotion& motion, int y, int margin);

    cv::Size size_;
    cv::Mat_<float> prediction_;
    std::vector<float> places_;  // X of each column
    std::vector<float> dx_;
    std::vector<float> dy_;
    // Of a row: slopes and error, 0 where a pixel does not count, and 1 where it does.
    std::vector<float> across_;
    std::vector<float> down_;
    std::vector<float> error_;
    std::vector<float> counts_;
};

}  // namespace halvor::vx
