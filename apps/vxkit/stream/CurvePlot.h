// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

namespace vxapp {

/// Draws a curve over bars, without axes: both are sampled evenly from left to right.
///
/// @param curve  0 at the bottom to 1 at the top
/// @param bars   heights of any scale; the largest fills most of the picture
/// @param size   of the picture
cv::Mat_<cv::Vec3b> plotCurve(const std::vector<double>& curve, const std::vector<double>& bars,
                              cv::Size size);

}  // namespace vxapp
