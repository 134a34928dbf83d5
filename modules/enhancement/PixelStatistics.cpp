// SPDX-License-Identifier: Apache-2.0
#include "enhancement/PixelStatistics.h"

#include <algorithm>
#include <cmath>

#include "core/base/Exception.h"

namespace halvor::vx {

void PixelStatistics::add(const cv::Mat& frame)
{
    if (frame.empty() || frame.channels() != 1)
        throw Exception("a frame must be an image of one channel",
                        VX_WHERE("halvor::vx::PixelStatistics::add"));
    if (count_ > 0 && frame.size() != mean_.size())
        throw Exception("the frames differ in size", VX_WHERE("halvor::vx::PixelStatistics::add"));
    if (count_ == 0) {
        mean_ = cv::Mat_<double>::zeros(frame.size());
        squares_ = cv::Mat_<double>::zeros(frame.size());
    }
    frame.convertTo(sample_, CV_64F);
    ++count_;
    for (int y = 0; y < mean_.rows; ++y) {
        const double* sample = sample_[y];
        double* mean = mean_[y];
        double* squares = squares_[y];
        for (int x = 0; x < mean_.cols; ++x) {
            const double before = sample[x] - mean[x];
            mean[x] += before / count_;
            squares[x] += before * (sample[x] - mean[x]);
        }
    }
}

cv::Mat_<float> PixelStatistics::mean() const
{
    cv::Mat_<float> result;
    mean_.convertTo(result, CV_32F);
    return result;
}

cv::Mat_<float> PixelStatistics::stdDev() const
{
    cv::Mat_<float> result(mean_.size());
    const double divisor = std::max(count_ - 1, 1);
    std::transform(squares_.begin(), squares_.end(), result.begin(),
                   [divisor](double square) { return static_cast<float>(std::sqrt(square / divisor)); });
    return result;
}

}  // namespace halvor::vx
