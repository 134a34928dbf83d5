// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/base/PointI.h"

namespace halvor::vx {

/// Registers the frames of a window against one of them: corners of the reference are tracked into each other
/// frame for the whole-pixel displacement, one gradient step refines it to sub-pixel precision.
///
/// Corners: smallest eigenvalue of the structure tensor (Shi and Tomasi, 1994). Tracking: pyramidal
/// Lucas-Kanade (Bouguet, 2001). Refinement: see GradientRefinement.
///
/// Frames are single-channel floats, `height` rows of `width` values without gaps. A displacement is positive
/// when the scene lies further right or lower in the frame than in the reference.
/// Pixel memory is allocated by the constructor and while the window fills for the first time. One thread at
/// a time may use an object; results do not depend on the number of threads.
class VXKIT_API SrFloatRegistration2
{
public:
    /// @param frameWidth, frameHeight  in pixels
    /// @param window                   number of frames that are kept, at least 1
    SrFloatRegistration2(int frameWidth, int frameHeight, int window);
    SrFloatRegistration2(const SrFloatRegistration2&) = delete;
    SrFloatRegistration2& operator=(const SrFloatRegistration2&) = delete;
    ~SrFloatRegistration2();

    /// Takes a frame into the window, in place of the oldest one when the window is full. Smoothing,
    /// conversion to 8 bits and image pyramid are made here, once per frame.
    ///
    /// @param frame  width * height values, not changed
    void prepareFrame(float* frame);

    /// Measures the displacement of each frame of the window, marks its usable pixels, and moves a copy of it
    /// by the whole pixels of its displacement.
    ///
    /// @param count             frames in use, at most the window
    /// @param reference         index of the reference among them
    /// @param rawFrames         in the order of their preparation
    /// @param shifts            receives the sub-pixel remainders, in pixels
    /// @param masks             one array of width * height values for each place of the window: 1 where the
    ///                          frame agrees with the reference, else 0
    /// @param registeredFrames  receive the moved frames
    /// @return 0, or -9 if no corner of the reference could be tracked into a frame, or fewer frames were
    ///         prepared than are in use; nothing is moved then
    /// @throws Exception  "Too large displacement" unless both parts of each displacement lie strictly within
    ///                    half the height; shifts and registeredFrames are then half done
    int doRegistration(int count, int reference, float* const* rawFrames, PointF* shifts, char** masks,
                       float** registeredFrames);

    /// Copies the full displacements of the last run, in pixels.
    void getCompleteShifts(std::vector<PointF>& out);

    /// Largest accepted local error, in squared pixels of displacement; 0.0001 at first.
    float getRegError() const { return regError_; }
    void setRegError(float error) { regError_ = error; }
    /// Radius of the mean filter on the error, in pixels; 3 at first.
    int getRegErrBlurRadius() const { return regErrBlurRadius_; }
    void setRegErrBlurRadius(int radius) { regErrBlurRadius_ = radius; }
    /// Radius of the Gaussian that smooths the frames, in pixels; 5 at first.
    int getBlurRadius() const { return blurRadius_; }
    void setBlurRadius(int radius);

private:
    struct Parts;

    int registerFrames(int count, int reference, PointF* shifts, char** masks);
    bool initialize(int count, int reference, char** masks);
    void extractCornersRefImage(const cv::Mat_<float>& image);
    int trackFrames(int count, int reference);
    int registerWithCorners(int worker, int reference, int frame, PointI& shift);

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t size_;
    std::int32_t windowSize_;
    float regError_;
    std::int32_t blurRadius_ = 0;
    std::int32_t regErrBlurRadius_ = 3;
    std::vector<cv::Point2f> refCorners_;
    std::vector<PointF> completeShifts_;
    std::unique_ptr<Parts> parts_;
};

}  // namespace halvor::vx
