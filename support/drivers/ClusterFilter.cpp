// SPDX-License-Identifier: Apache-2.0
#include "support/drivers/ClusterFilter.h"

#include <opencv2/core.hpp>
#include <sstream>

#include "enhancement/ClusterPatternRemover.h"

namespace vxsupport {

using halvor::vx::ClusterPatternRemover;

ClusterFilter::ClusterFilter(const ClusterLimits& limits, const SceneStatistics& statistics,
                             double valueOfZero)
    : offset_(valueOfZero)
{
    ClusterPatternRemover remover(
        static_cast<unsigned int>(limits.width), static_cast<unsigned int>(limits.height),
        static_cast<float>(limits.stdDevLimit), 0.0F, static_cast<float>(limits.meanLimit));
    remover.setAlphaDamping(static_cast<float>(limits.alphaDamping));
    remover.learn(statistics.mean, statistics.stdDev,
                  limits.mode == "median" ? ClusterPatternRemover::MEDIAN : ClusterPatternRemover::GAUSSIAN);
    remover.getDamping(damping_, false);
    describe(limits, statistics);
}

void ClusterFilter::process(const cv::Mat_<short>& samples, cv::Mat_<short>& result)
{
    samples.convertTo(values_, CV_32F, 1.0, offset_);
    cv::multiply(values_, damping_, values_);
    values_.convertTo(result, CV_16S, 1.0, -offset_);
}

void ClusterFilter::describe(const ClusterLimits& limits, const SceneStatistics& statistics)
{
    double low = 1.0;
    double high = 1.0;
    cv::minMaxLoc(damping_, &low, &high);
    std::ostringstream text;
    text << "cluster pattern, learned from " << statistics.source << ": " << cv::countNonZero(damping_ != 1.0)
         << " of " << damping_.total() << " pixels corrected, by factors of " << low << " to " << high
         << "; groups of deviating pixels wider than " << limits.width << " or higher than " << limits.height
         << " pixels count as scene and stay";
    description_ = text.str();
}

}  // namespace vxsupport
