// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/Noise.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "apps/vxkit/stream/SampleQuantiles.h"

namespace vxapp {

namespace {

constexpr int mostPairs = 50;

}  // namespace

std::vector<int> pairPlaces(int frameCount)
{
    const int pairs = std::min(mostPairs, frameCount / 2);
    std::vector<int> places;
    places.reserve(static_cast<std::size_t>(pairs));
    for (int i = 0; i < pairs; ++i)
        places.push_back(static_cast<int>(static_cast<std::int64_t>(frameCount) * i / pairs));
    return places;
}

double spatialNoise(const cv::Mat_<int>& frame)
{
    if (frame.rows < 3 || frame.cols < 3)
        return 0.0;
    cv::Mat values;
    frame.convertTo(values, CV_32F);
    const cv::Matx33f kernel(1, -2, 1, -2, 4, -2, 1, -2, 1);
    cv::filter2D(values, values, CV_32F, kernel);
    cv::Mat_<int> whole;
    values(cv::Rect(1, 1, frame.cols - 2, frame.rows - 2)).convertTo(whole, CV_32S);
    return SampleQuantiles(whole).deviation() / 6.0;
}

double temporalNoise(const cv::Mat_<int>& frame, const cv::Mat_<int>& next)
{
    cv::Mat_<int> change;
    cv::subtract(next, frame, change);
    return SampleQuantiles(change).deviation() / std::sqrt(2.0);
}

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace vxapp
