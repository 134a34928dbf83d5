// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>

namespace vxsupport {

/// How 16-bit counts are to be read: value = count * scale + offset.
struct CountScale
{
    double scale = 1.0;
    double offset = 0.0;
};

/// Counts of the values: rounded, values beyond the counts become the nearest one, and what is no number 0.
///
/// @throws std::invalid_argument unless the scale is finite and above 0 and the offset finite
cv::Mat_<std::uint16_t> toCounts(const cv::Mat_<float>& values, const CountScale& scale);

}  // namespace vxsupport
