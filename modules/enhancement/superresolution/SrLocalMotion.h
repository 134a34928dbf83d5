// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>

#include "core/base/Export.h"
#include "core/diagnostics/DebugChannel.h"
#include "enhancement/superresolution/LocalMotionReport.h"
#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"

namespace halvor::vx {

class MotionBurst;
class MotionWindow;

/// Multi-frame super-resolution of hand-held bursts whose parts move differently: the hand turns, the scene has
/// depth, things move in it. Keeps a sliding window of frames and makes one picture of twice their size.
///
/// Each frame's motion is a shift, then an affine motion, then values at control points 16 pixels apart; each of
/// its pixels counts by how well it agrees with the reference, down to not at all; slowly varying offsets between
/// frames do not matter. The solve starts from the picture of the reference frame alone, and is that picture where
/// no other frame counts. Published parts: iterative registration (Lucas and Kanade, 1981), cubic B-splines (Unser,
/// Aldroubi and Eden, 1993), cubic convolution (Keys, 1981), a Huber prior with lagged diffusivity (Vogel and Oman,
/// 1996) and conjugate gradients.
///
/// Frames are single-channel floats, `height` rows of `width` values without gaps, in degrees Celsius (or raw
/// counts after setDataIsNUC(true)). They may hold bad-pixel markers, see SuperResolutionBadPixelHandling: such
/// pixels are repaired for the registration, and do not count. Where the reference has one that its neighbours
/// cannot mend and no other frame sees, the picture holds its marker.
///
/// All pixel memory is allocated by the constructor. One thread at a time may use an engine; its results are the
/// same bit for bit for any number of OpenMP threads. An engine is neither copied nor moved.
class VXKIT_API SrLocalMotion : public DebugChannel
{
public:
    /// @param frameWidth, frameHeight  size of a frame in pixels, at least 8 each
    /// @param window  frames that one picture is made from, at least 2
    /// @throws Exception    if a size is too small, or the picture would have more pixels than an int counts
    /// @throws const char*  if the window is too small
    SrLocalMotion(int frameWidth, int frameHeight, int window);
    ~SrLocalMotion() override;
    SrLocalMotion(const SrLocalMotion&) = delete;
    SrLocalMotion(SrLocalMotion&&) = delete;
    SrLocalMotion& operator=(const SrLocalMotion&) = delete;
    SrLocalMotion& operator=(SrLocalMotion&&) = delete;

    /// Copies a frame into the window, in place of the oldest one when the window is full, and repairs its bad
    /// pixels.
    ///
    /// @param frame  getInputSize() values; a matrix must be continuous
    /// @return 0, or -2 if a pixel could not be repaired from its neighbours and took a fallback value
    /// @throws Exception  "Too many defect pixels. No processing possible." if more than 10 pixels were beyond
    ///                    repair; the frame is in the window all the same
    int addFrame(const float* frame);
    int addFrame(const cv::Mat_<float>& frame);

    /// Registers the frames of the window against the reference frame and solves for the picture.
    ///
    /// @param out  takes getOutputSize() values; a matrix is created at the size of the result
    /// @return 0, or a warning; the picture is written in each case. -3 if a frame counts for half or less of its
    ///         pixels, -6 if a frame is displaced by more than a tenth of the height. getReport() tells more.
    /// @throws Exception  if the window holds no frame
    int computeSR(float* out);
    int computeSR(cv::Mat_<float>& out);

    /// Empties the window.
    void clearFrames();

    /// Whether the frame's maximum minus its minimum reaches the structure threshold. The engine takes frames that
    /// fail, too.
    bool checkImageStructureQuality(const cv::Mat_<float>& frame) const;

    /// What the last picture was made of.
    const LocalMotionReport& getReport() const;
    /// For each pixel of the reference frame, how many frames the last picture rests on there: 1 is the reference
    /// alone. A copy.
    void getEffectiveFrames(cv::Mat_<float>& out) const;

    /// Values of a frame and of the picture, and frames that the window holds.
    int getInputSize() const { return width_ * height_; }
    int getOutputSize() const { return 4 * width_ * height_; }
    int getWindowSize() const { return windowSize_; }
    /// The settings as they stand, see the setters.
    int getReferenceIndex() const { return referenceIndex_; }
    float getPsfSigma() const { return psfSigma_; }

    /// True if frames hold raw signed 16-bit counts, false (the default) if they hold degrees Celsius.
    void setDataIsNUC(bool isNUC);

    // A setter that refuses its value throws the reason as a bare text literal (const char*) and changes nothing.

    /// Position of the reference frame, counted back from the newest frame: 0 to windowSize - 1.
    void setReferenceIndex(int index);
    /// Standard deviation of the sensor's point spread in pixels of the picture, above 0. A value too small leaves
    /// the picture a little soft; one too large makes edges ring and loses decibels, so when in doubt take the
    /// smaller one.
    void setPsfSigma(float sigma);
    /// See checkImageStructureQuality(); any value.
    void setMinStructureThreshold(float threshold) { minStructureThreshold_ = threshold; }

private:
    std::int32_t width_;
    std::int32_t height_;
    std::int32_t windowSize_;
    std::int32_t referenceIndex_ = 0;
    float psfSigma_ = 0.0F;
    float minStructureThreshold_;
    SuperResolutionBadPixelHandling badPixelHandling_;
    std::unique_ptr<MotionWindow> window_;
    std::unique_ptr<MotionBurst> burst_;
    cv::Mat_<float> picture_;
};

}  // namespace halvor::vx
