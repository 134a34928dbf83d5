#pragma once

#include <opencv2/core/mat.hpp>

namespace vxsupport {

/// Peak signal-to-noise ratio in decibels; the peak is the reference's maximum minus its minimum.
///
/// @param image, reference  same size
/// @param margin  pixels left out at each edge
/// @return infinity for equal images
/// @throws std::invalid_argument if the sizes differ or the margin leaves nothing
double psnr(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin = 0);

}  // namespace vxsupport
