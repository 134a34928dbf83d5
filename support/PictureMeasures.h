// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "core/base/PointF.h"

namespace vxsupport {

// Measures of how near an image comes to a reference of the same size. `margin` is the number of pixels left
// out at each edge. All raise std::invalid_argument if the sizes differ or the margin leaves too little.

/// Peak signal-to-noise ratio in decibels; the peak is the reference's maximum minus its minimum.
///
/// @return infinity for equal images
double psnr(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin = 0);

/// Mean structural similarity (Wang, Bovik, Sheikh and Simoncelli, 2004): Gaussian windows of 11 by 11 pixels
/// with a deviation of 1.5 that lie wholly inside, K1 = 0.01, K2 = 0.03; the dynamic range is the reference's
/// maximum minus its minimum.
///
/// @return 1 for equal images, at most 1 else
double ssim(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin = 0);

/// Largest absolute difference of two pixels at the same place.
double largestDifference(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin = 0);

/// The displacement that maps the reference onto the image best, in pixels; positive when the scene lies
/// further right or lower in the image.
///
/// Phase correlation gives a start; Gauss-Newton steps on the squared difference refine it to about a
/// thousandth of a pixel where the images differ little else.
/// @return (0, 0) if the images have no structure to go by
PointF estimateShift(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin = 0);

/// The image displaced by `-shift`, so that it lies on the grid that the shift counts from. Windowed-sinc
/// interpolation (Lanczos, four lobes); pixels that come from outside repeat the edge.
///
/// @throws std::invalid_argument if a component is not below maxRemovableShift in magnitude
cv::Mat_<float> withoutShift(const cv::Mat_<float>& image, PointF shift);

constexpr float maxRemovableShift = 32.0F;

/// Pixels at each edge that withoutShift() spoils.
int spoiledMargin(PointF shift);

}  // namespace vxsupport
