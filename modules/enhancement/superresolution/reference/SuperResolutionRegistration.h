// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/base/PointI.h"
#include "enhancement/superresolution/reference/SuperResolutionConvolution.h"
#include "enhancement/superresolution/reference/SuperResolutionFft2d.h"

namespace halvor::vx {

/// Serial twin of SrFloatRegistration1: measures the displacement of frames against a reference by phase
/// correlation and one gradient step, and marks the pixels that agree.
///
/// Every sum is a single-precision one in pixel order, so that the two agree up to rounding. The spectra of
/// the frames are the caller's.
class VXKIT_API SuperResolutionRegistration
{
public:
    /// Writes the taps of the smoothing kernel to the standard output.
    ///
    /// @param width, height  size of a frame, above 2 * gaussRadius; the width is even
    /// @param factor         resolution factor, 1 or more
    /// @param gaussRadius    of the kernel that smooths frames before the gradient step
    /// @throws Exception     for a size that can't be transformed or smoothed
    SuperResolutionRegistration(int width, int height, float factor, int gaussRadius);

    /// Measures all displacements and makes whole-pixel-moved copies of the frames.
    ///
    /// @param frameCount      frames given, at least 1
    /// @param referenceFrame  index of the frame that the others are measured against
    /// @param frames          `height` rows of `width` values each
    /// @param spectra         half spectrum of each frame, from getFft()
    /// @param shifts          take the sub-pixel remainders in pixels, positive if the scene lies further
    ///                        right or lower in the frame than in the reference
    /// @param masks           take 1 where a frame agrees with the reference, else 0
    /// @param registered      take the moved copies
    /// @return 0
    /// @throws Exception  "Too large displacement" if a frame is displaced by half the height or more in
    ///                    either direction; the frames before it have been moved
    int doRegistration(int frameCount, int referenceFrame, float** frames, float (**spectra)[2],
                       PointF* shifts, char** masks, float** registered);

    /// Full displacements of the last run.
    void getCompleteShifts(std::vector<PointF>& out) const { out = completeShifts_; }

    /// The transform that makes the spectra for doRegistration().
    SuperResolutionFft2d* getFft() { return fft_.get(); }

    /// Largest local error of a usable pixel; 0.0001 at first.
    float getRegError() const { return regError_; }
    void setRegError(float error) { regError_ = error; }
    /// Radius of the mean filter on the error image; 3 at first.
    int getRegErrBlurRadius() const { return regErrBlurRadius_; }
    void setRegErrBlurRadius(int radius) { regErrBlurRadius_ = radius; }
    /// Radius of the Gaussian that smooths the frames, in pixels; 5 at first.
    int getGaussRadius() const { return gaussRadius_; }
    /// Writes the taps of the kernel to the standard output.
    ///
    /// @throws Exception  if the frames are too small for the kernel
    void setGaussRadius(int radius);

private:
    void registerFrames(int frameCount, int referenceFrame, float** frames, float (**spectra)[2],
                        PointF* shifts, char** masks);
    void blur(const float (*spectrum)[2], const float* frame, float* blurred);
    void initialize(char** masks, int frameCount);
    PointI phaseCorrelation();
    PointF opticalFlow(PointI shift, char* mask);
    void shiftFrame(const float* source, PointF& shift, float* target) const;

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t size_;
    std::int32_t fftSize_;
    float regError_ = 0.0F;
    std::int32_t gaussRadius_ = 0;
    std::int32_t regErrBlurRadius_ = 0;
    float factor_;
    std::unique_ptr<SuperResolutionFft2d> fft_;
    std::unique_ptr<float[][2]> gaussSpectrum_;
    const float (*refSpectrum_)[2] = nullptr;
    const float (*frameSpectrum_)[2] = nullptr;
    std::unique_ptr<float[][2]> workSpectrum_;
    std::vector<float> correlation_;
    std::vector<float> blurredRef_;
    std::vector<float> blurredFrame_;
    std::vector<float> gradX_;
    std::vector<float> gradY_;
    std::vector<float> errorImage_;
    float sumXx_ = 0.0F;
    float sumXy_ = 0.0F;
    float sumYy_ = 0.0F;
    std::vector<float> gaussKernel_;
    std::vector<float> blurredError_;
    SuperResolutionConvolution conv_;
    std::vector<PointF> completeShifts_;
};

}  // namespace halvor::vx
