// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "core/base/Export.h"

namespace halvor::vx {

/// Mean and standard deviation in time of every pixel, gathered frame by frame (Welford's method), so that
/// the length of a recording costs no memory.
class VXKIT_API PixelStatistics
{
public:
    /// @param frame  one channel of any depth, of the size of the frames before
    /// @throws Exception for an empty frame, several channels or another size; nothing is gathered then
    void add(const cv::Mat& frame);

    /// Frames gathered so far.
    int count() const { return count_; }
    /// Empty before the first frame.
    cv::Mat_<float> mean() const;
    /// Of the sample (divisor count - 1); zeros for a single frame.
    cv::Mat_<float> stdDev() const;

private:
    int count_ = 0;
    cv::Mat_<double> sample_;
    cv::Mat_<double> mean_;
    cv::Mat_<double> squares_;  // sum of the squared differences to the mean
};

}  // namespace halvor::vx
