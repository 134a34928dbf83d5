// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>

#include "support/drivers/FrameFilter.h"

namespace vxsupport {

struct ClusterLimits
{
    int width = 5;  ///< largest cluster that is corrected, in pixels
    int height = 5;
    double stdDevLimit = 5.0;  ///< in counts
    double alphaDamping = 1.0;
    double meanLimit = 100.0;     ///< in counts
    std::string mode = "median";  ///< or "gaussian"
};

/// Of a uniform scene.
struct SceneStatistics
{
    cv::Mat_<float> mean;
    cv::Mat_<float> stdDev;
    std::string source;  ///< for people
};

/// Learns by what each pixel is to be multiplied, and multiplies frames.
class ClusterFilter : public FrameFilter
{
public:
    /// @param valueOfZero  what a sample of 0 stands for: values are multiplied, not samples that were shifted
    /// @throws halvor::vx::Exception for images of different sizes
    ClusterFilter(const ClusterLimits& limits, const SceneStatistics& statistics, double valueOfZero);

    void process(const cv::Mat_<short>& samples, cv::Mat_<short>& result) override;
    std::string description() const override { return description_; }
    cv::Mat_<float> damping() const { return damping_; }

private:
    void describe(const ClusterLimits& limits, const SceneStatistics& statistics);

    cv::Mat damping_;
    double offset_;
    cv::Mat values_;
    std::string description_;
};

}  // namespace vxsupport
