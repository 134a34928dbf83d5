// SPDX-License-Identifier: Apache-2.0
#include "core/registration/CornerFlow.h"

#include <algorithm>
#include <cmath>

namespace halvor::vx {

namespace {

constexpr float inlierDistance = 2.0F;

float upperMedian(const std::vector<cv::Point2f>& flows, float cv::Point2f::*part)
{
    std::vector<float> values(flows.size());
    std::transform(flows.begin(), flows.end(), values.begin(),
                   [part](const cv::Point2f& flow) { return flow.*part; });
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

FlowInliers inliersNearMedian(const std::vector<cv::Point2f>& flows)
{
    const cv::Point2f median(upperMedian(flows, &cv::Point2f::x), upperMedian(flows, &cv::Point2f::y));
    FlowInliers inliers{{0.0F, 0.0F}, 0};
    for (const cv::Point2f& flow : flows) {
        if (std::abs(flow.x - median.x) < inlierDistance && std::abs(flow.y - median.y) < inlierDistance) {
            inliers.sum += flow;
            ++inliers.count;
        }
    }
    return inliers;
}

}  // namespace halvor::vx
