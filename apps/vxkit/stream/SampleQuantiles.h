// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

namespace vxapp {

/// The cumulative histogram of whole samples. A sample stands for all values that are rounded to it, evenly, so
/// that the quantiles of a narrow image are not whole.
class SampleQuantiles
{
public:
    /// @param image  not empty; a bin per whole number from the smallest to the largest is held
    explicit SampleQuantiles(const cv::Mat_<int>& image);

    double lowest() const { return first_ - 0.5; }
    double highest() const { return lowest() + static_cast<double>(sums_.size() - 1); }
    /// Share of the samples below a value.
    double below(double value) const;
    /// The value that a share of the samples is below.
    double quantile(double share) const;
    /// Standard deviation of the normal distribution that has the same quartiles.
    double deviation() const;

private:
    int first_;
    std::vector<double> sums_;  // below the lower edge of each bin, and below the upper edge of the last
};

}  // namespace vxapp
