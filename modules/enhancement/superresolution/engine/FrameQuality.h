// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <opencv2/core.hpp>

#include "core/base/PointF.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"

// How the engine drivers judge frames, and the codes that they answer with.
namespace halvor::vx {

/// A frame's maximum minus its minimum.
inline double valueSpan(const cv::Mat& frame)
{
    double minimum = 0.0;
    double maximum = 0.0;
    cv::minMaxLoc(frame, &minimum, &maximum);
    return maximum - minimum;
}

/// Whether a frame's span reaches the threshold.
inline bool hasStructure(const cv::Mat& frame, float threshold)
{
    return valueSpan(frame) >= static_cast<double>(threshold);
}

/// Whether a frame is displaced by more than a tenth of its height, to either side or downwards. Upwards any
/// displacement passes: hosts rely on the codes that they get.
inline bool isLargeDisplacement(PointF displacement, int height)
{
    const int tenth = height / 10;
    const auto limit = static_cast<float>(tenth);
    return std::abs(displacement.x) > limit || displacement.y > limit;
}

/// Whether half or more of a frame's pixels are not registered.
inline bool isPoorFrame(float unusable, float pixels)
{
    constexpr float poorShare = 0.5F;
    return unusable / pixels >= poorShare;
}

/// The code of a run that wrote its image: 0, or the graver of the two warnings.
inline int warningCode(bool poorFrame, bool largeDisplacement)
{
    if (largeDisplacement)
        return SuperResolution_largeDisplacement;
    return poorFrame ? SuperResolution_poorFrame : SuperResolution_success;
}

}  // namespace halvor::vx
