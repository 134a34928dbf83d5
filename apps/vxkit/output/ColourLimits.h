// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "support/Pictures.h"

namespace vxapp {

/// Finds the counts that the colours of a video span, without one of 2000 pixels at each end: few enough to keep
/// a small hot subject.
class ColourLimits
{
public:
    void add(const cv::Mat_<std::uint16_t>& frame);

    /// The limits of all frames together.
    vxsupport::ValueRange ofRecording() const;

    /// Limits of each frame that follow the scene: they hold the frame's own, and a jump of the scene moves them
    /// evenly over the frames up to twice `reach` before and behind.
    std::vector<vxsupport::ValueRange> following(int reach) const;

private:
    std::vector<std::uint64_t> histogram_ = std::vector<std::uint64_t>(1 << 16);
    std::uint64_t pixels_ = 0;
    std::vector<vxsupport::ValueRange> frames_;
};

}  // namespace vxapp
