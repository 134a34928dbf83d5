// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/base/PointI.h"
#include "enhancement/superresolution/SrFloatFft2d.h"

namespace halvor::vx {

/// Registers the frames of a window against one of them: phase correlation gives the whole-pixel
/// displacement, one gradient step refines it to sub-pixel precision.
///
/// Phase correlation: peak of the normalised cross-power spectrum (Kuglin and Hines, 1975). Refinement: see
/// GradientRefinement. It needs no corners, but fine detail all over the frame: where a scene is smooth, the
/// frame's own edges, which do not move, win the correlation.
///
/// Frames are single-channel floats, `height` rows of `width` values without gaps. A displacement is positive
/// when the scene lies further right or lower in the frame than in the reference. A frame without structure
/// has an arbitrary displacement, or one that is not a number, which is refused.
/// All pixel memory is allocated by the constructor, which keeps one half spectrum per frame of the window.
/// One thread at a time may use an object; results do not depend on the number of threads.
class VXKIT_API SrFloatRegistration1
{
public:
    /// @param frameWidth, frameHeight  in pixels, both above 10, the width even
    /// @param window                   number of frames that are kept
    /// @throws Exception               for a size that can't be transformed or smoothed
    SrFloatRegistration1(int frameWidth, int frameHeight, int window);
    SrFloatRegistration1(const SrFloatRegistration1&) = delete;
    SrFloatRegistration1& operator=(const SrFloatRegistration1&) = delete;
    ~SrFloatRegistration1();

    /// Takes the spectrum of a frame into the window, in place of the oldest one's when the window is full.
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
    /// @param masks             one array of width * height values for each frame in use: 1 where the frame
    ///                          agrees with the reference, else 0
    /// @param registeredFrames  receive the moved frames
    /// @return 0
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
    int getGaussRadius() const { return gaussRadius_; }
    /// @throws Exception  if the frames are too small for the kernel; nothing is changed then
    void setGaussRadius(int radius);

private:
    struct Parts;

    void registerFrames(int count, int reference, float* const* rawFrames, PointF* shifts, char** masks);
    int teamSize() const;
    void blur(int worker, const float (*spectrum)[2], const float* frame, float* blurred);
    PointI phaseCorrelation(int worker, const float (*refSpectrum)[2], const float (*frameSpectrum)[2]);
    void initialize(char** masks, int count, int reference);

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t size_;
    std::int32_t fftSize_;
    float regError_ = 0.0F;
    std::int32_t gaussRadius_ = 0;
    std::int32_t regErrBlurRadius_ = 0;
    SrFloatFft2d fft_;
    std::unique_ptr<float[][2]> gaussSpectrum_;
    std::vector<float> gaussKernel_;
    std::vector<PointF> completeShifts_;
    std::unique_ptr<Parts> parts_;
};

}  // namespace halvor::vx
