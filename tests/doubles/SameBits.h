// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <opencv2/core.hpp>

namespace vxtest {

/// Whether two images have one size and type, and the same bits at every pixel.
inline bool sameBits(const cv::Mat& a, const cv::Mat& b)
{
    if (a.size() != b.size() || a.type() != b.type())
        return false;
    for (int y = 0; y < a.rows; ++y)
        if (std::memcmp(a.ptr(y), b.ptr(y), static_cast<std::size_t>(a.cols) * a.elemSize()) != 0)
            return false;
    return true;
}

/// The standard deviation of the differences of two images.
inline double deviationBetween(const cv::Mat_<float>& a, const cv::Mat_<float>& b)
{
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(a - b, mean, deviation);
    return deviation[0];
}

}  // namespace vxtest
