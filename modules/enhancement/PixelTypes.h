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
    using value_type = unsigned int;    ///< the pixel itself
    using work_type = unsigned int;     ///< sums are taken in the same
    using channel_type = unsigned int;  ///< of the single channel
    using vec_type = unsigned int;      ///< a vector of one channel is the pixel
    /// What the image library's templates read of a pixel type.
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
