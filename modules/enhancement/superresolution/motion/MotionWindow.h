// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "enhancement/superresolution/engine/PixelValues.h"
#include "enhancement/superresolution/engine/SlidingWindow.h"
#include "enhancement/superresolution/motion/MotionBurst.h"
#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"

namespace halvor::vx {

/// The frames of an engine of local motion, oldest first, repaired, each with the map of its defects. All memory is
/// allocated by the constructor.
class MotionWindow
{
public:
    MotionWindow(const cv::Size& size, int capacity);

    /// What a good pixel may hold.
    void setLimits(const PixelLimits& limits) { limits_ = limits; }

    /// Takes a frame and repairs it.
    /// @return and throws as SuperResolutionBadPixelHandling::detectAndReplaceBadPixel()
    int add(const float* frame, SuperResolutionBadPixelHandling& badPixels);
    void clear() { frames_.clear(); }
    int count() const { return frames_.count(); }
    /// Place of the reference frame, `index` frames before the newest or the oldest there is.
    int referenceFrame(int index) const;
    const std::vector<MotionFrame>& frames() const { return frames_.slots(); }

private:
    cv::Size size_;
    PixelLimits limits_ = temperatureLimits;
    SlidingWindow<MotionFrame> frames_;
};

/// @throws Exception  unless the sizes are what the engines of local motion take
void requireMotionSize(int width, int height, const std::string& where);
/// @throws Exception  unless a frame is continuous and has the size
void requireFrame(const cv::Mat_<float>& frame, const cv::Size& size, const std::string& where);
/// @throws const char*  unless a point spread is above 0 and fits into the seven taps
void requireMotionPsfSigma(float sigma);

}  // namespace halvor::vx
