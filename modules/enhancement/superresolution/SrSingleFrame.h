// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>

#include "core/base/Export.h"
#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"

namespace halvor::vx {

class MotionBurst;
class MotionWindow;

/// Makes a picture of twice the size from a single frame: solved for the sensor's point spread with a prior that
/// keeps edges (a Huber function of the differences between neighbours, scaled by the frame's own noise).
///
/// It undoes blur but adds no detail beyond the frame's own grid. With the right point spread it is the cheapest
/// large gain on real frames, and what a burst has to beat; SrLocalMotion starts from this picture. Frames, bad
/// pixels, memory and threads are as in SrLocalMotion.
class VXKIT_API SrSingleFrame
{
public:
    /// @param frameWidth, frameHeight  size of a frame in pixels, at least 8 each
    /// @throws Exception  if a size is too small, or the picture would have more pixels than an int counts
    SrSingleFrame(int frameWidth, int frameHeight);
    ~SrSingleFrame();
    SrSingleFrame(const SrSingleFrame&) = delete;
    SrSingleFrame(SrSingleFrame&&) = delete;
    SrSingleFrame& operator=(const SrSingleFrame&) = delete;
    SrSingleFrame& operator=(SrSingleFrame&&) = delete;

    /// Repairs a frame's bad pixels and solves for the picture.
    ///
    /// @param frame  getInputSize() values; a matrix must be continuous
    /// @param out    takes getOutputSize() values; a matrix is created at the size of the result
    /// @return 0, or -2 if a pixel could not be repaired from its neighbours and took a fallback value
    /// @throws Exception  "Too many defect pixels. No processing possible." if more than 10 pixels were beyond
    ///                    repair; nothing is written
    int compute(const float* frame, float* out);
    int compute(const cv::Mat_<float>& frame, cv::Mat_<float>& out);

    /// Deviation of the last frame's noise in its unit.
    float getNoise() const;

    /// Values of a frame and of the picture.
    int getInputSize() const { return width_ * height_; }
    int getOutputSize() const { return 4 * width_ * height_; }
    /// In pixels of the picture, see setPsfSigma().
    float getPsfSigma() const { return psfSigma_; }

    /// True if frames hold raw signed 16-bit counts, false (the default) if they hold degrees Celsius.
    void setDataIsNUC(bool isNUC);
    /// Standard deviation of the sensor's point spread in pixels of the picture, above 0; see SrLocalMotion.
    /// @throws const char*  for a value out of range, and then nothing changes
    void setPsfSigma(float sigma);

private:
    std::int32_t width_;
    std::int32_t height_;
    float psfSigma_ = 0.0F;
    SuperResolutionBadPixelHandling badPixelHandling_;
    std::unique_ptr<MotionWindow> window_;
    std::unique_ptr<MotionBurst> burst_;
    cv::Mat_<float> picture_;
};

}  // namespace halvor::vx
