// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>
#include <vector>

namespace halvor::vx {

/// Sum and number of the flows that agree with the majority.
struct FlowInliers
{
    cv::Point2f sum;
    int count;
};

/// Picks the flows whose parts both lie within 2 pixels of the median, strictly.
///
/// The medians of x and y are taken each for itself, with an even number the upper of the two in the middle,
/// so that no flow may lie near both.
/// @param flows  in pixels, not empty
FlowInliers inliersNearMedian(const std::vector<cv::Point2f>& flows);

}  // namespace halvor::vx
