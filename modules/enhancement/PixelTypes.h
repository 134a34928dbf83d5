// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/version.hpp>

#if CV_VERSION_MAJOR < 5
namespace cv {

/// Lets cv::Mat_<unsigned int> hold 32-bit unsigned pixels, which OpenCV 4 stores as the same bits of CV_32S.
template <>
class DataType<unsigned int>
{
public:
    using value_type = unsigned int;
    using work_type = unsigned int;
    using channel_type = unsigned int;
    using vec_type = unsigned int;
    enum
    {
        generic_type = 0,
        depth = CV_32S,
        channels = 1,
        fmt = static_cast<int>('i'),
        type = CV_MAKETYPE(depth, channels)
    };
};

}  // namespace cv
#endif
