// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

namespace vxapp {

/// Standard deviation of a pixel from its neighbours in a frame; 0 for frames below 3x3. Quartiles keep edges out.
///
/// J. Immerkaer: Fast noise variance estimation. Computer Vision and Image Understanding 64(2), 1996.
double spatialNoise(const cv::Mat_<int>& frame);

/// Standard deviation of a pixel from two consecutive frames. Quartiles keep motion out.
double temporalNoise(const cv::Mat_<int>& frame, const cv::Mat_<int>& next);

/// First frames of up to 50 pairs, spread over a recording; none for a single frame.
std::vector<int> pairPlaces(int frameCount);

double medianOf(std::vector<double> values);

}  // namespace vxapp
