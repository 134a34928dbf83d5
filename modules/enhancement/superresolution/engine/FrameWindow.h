// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/PointF.h"
#include "enhancement/superresolution/engine/SlidingWindow.h"

namespace halvor::vx {

/// The frames of a float engine, oldest first, and what its last computation made of each: the moved frame, its
/// mask and its displacement. What belongs to a computation stays in its place when the frames slide on.
///
/// Registrations and solver take all of it as arrays of pointers. All memory is allocated by the constructor.
class FrameWindow
{
public:
    /// @param width, height  of a frame
    /// @param capacity       frames that the window holds
    FrameWindow(int width, int height, int capacity);

    /// The memory of a new frame: a matrix header on it.
    cv::Mat_<float> push();
    /// Forgets the frames.
    void clear() { frames_.clear(); }
    int count() const { return frames_.count(); }
    int capacity() const { return frames_.capacity(); }
    /// Place of the reference frame, `index` frames before the newest or the oldest there is.
    int referenceFrame(int index) const;

    float** frames() { return frames_.slots().data(); }
    float** registeredFrames() { return registeredFrames_.data(); }
    char** masks() { return masks_.data(); }
    PointF* shifts() { return shifts_.data(); }
    const PointF* shifts() const { return shifts_.data(); }

    /// Matrix headers on the frames.
    std::vector<cv::Mat_<float>> views() const;
    /// Copies of the masks, for each place of the window.
    void copyMasks(std::vector<cv::Mat_<unsigned char>>& out) const;

    /// Pixels of a frame whose mask is 1.
    int usablePixels(int frame) const;
    /// The enlargement that the masks allow: 1 where one frame covers a pixel, 2 where five do.
    ///
    /// @param maxUsable  frames beyond which a pixel gains nothing
    float achievedFactor(int maxUsable) const;

private:
    int width_;
    int height_;
    // One allocation for each kind of image, which the pointers cut into one slice per place.
    std::vector<float> frameStorage_;
    std::vector<float> registeredStorage_;
    std::vector<char> maskStorage_;
    SlidingWindow<float*> frames_;
    std::vector<float*> registeredFrames_;
    std::vector<char*> masks_;
    std::vector<PointF> shifts_;
};

}  // namespace halvor::vx
