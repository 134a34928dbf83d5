// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "support/Random.h"

namespace vxsupport {

/// Adds independent normal noise to every pixel; the numbers depend on the generator's state and the pixel's
/// place alone.
void addNoise(cv::Mat_<float>& frame, double deviation, const Random& random);

/// Fixed offset of each column, the same in all rows.
cv::Mat_<float> columnPattern(cv::Size frame, double deviation, Random random);

/// Fixed offset of each row, the same in all columns.
cv::Mat_<float> rowPattern(cv::Size frame, double deviation, Random random);

}  // namespace vxsupport
