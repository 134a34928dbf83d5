// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <span>
#include <vector>

#include "core/imaging/SymmetricFilter.h"

namespace halvor::vx {

/// A Gaussian filter, cut off at four deviations, mirrored at the centres of the edge pixels.
///
/// @param deviation  in pixels
SymmetricFilter gaussianFilter(const cv::Size& size, double deviation);

/// An image and its halves, each smoothed as motion is looked for in it. All memory is allocated by the
/// constructor.
class SmoothPyramid
{
public:
    explicit SmoothPyramid(const cv::Size& size);

    void build(const cv::Mat_<float>& image);
    int levels() const { return static_cast<int>(smoothed_.size()); }
    /// Level 0 has the size of the image.
    const cv::Mat_<float>& smoothed(int level) const { return smoothed_[static_cast<std::size_t>(level)]; }

private:
    std::vector<cv::Mat_<float>> plain_;
    std::vector<cv::Mat_<float>> filtered_;  // a level before every other pixel of it is taken
    std::vector<cv::Mat_<float>> smoothed_;
    std::vector<SymmetricFilter> halving_;
    std::vector<SymmetricFilter> smoothing_;
};

/// The squared length of the gradient: central differences, one-sided at the edges; 0 along a side of one pixel.
void squaredGradient(const cv::Mat_<float>& image, cv::Mat_<float>& out);

/// The median, of an even number of values the mean of the two in the middle; 0 without any. Reorders them.
float medianOf(std::span<float> values);

/// Standard deviation of the noise of a frame: 1.4826 times the median absolute deviation of a mask of norm 1 that
/// is blind to ramps (Immerkaer, 1996, with a median in place of the mean). 0 for frames of less than 5 rows or
/// columns.
///
/// @param scratch  takes a value for each pixel
float frameNoise(const cv::Mat_<float>& frame, std::vector<float>& scratch);

}  // namespace halvor::vx
