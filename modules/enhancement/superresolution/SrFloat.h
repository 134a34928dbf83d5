// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/diagnostics/DebugChannel.h"
#include "enhancement/superresolution/SrFloatMinimization.h"
#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"

namespace halvor::vx {

class FrameWindow;

/// Multi-frame super-resolution: keeps a sliding window of displaced frames and solves for one image that is
/// `srFactor` times as wide and as high.
///
/// Frames are single-channel floats, `height` rows of `width` values without gaps, in degrees Celsius (or raw
/// counts after setDataIsNUC(true)). They may hold bad-pixel markers, see SuperResolutionBadPixelHandling.
///
/// @tparam Registration  how frames are aligned: SrFloatRegistration2 (corners tracked into each frame) or
///         SrFloatRegistration1 (phase correlation; for frames of even width and full of detail), both with
///         one gradient step for the sub-pixel part. Include its header beside this one.
///
/// All pixel memory is allocated by the constructor. One thread at a time may use an engine; its results are
/// the same bit for bit for any number of OpenMP threads. An engine has one address for life: it is neither
/// copied nor moved.
template <typename Registration>
class VXKIT_API SrFloat : public DebugChannel
{
public:
    /// @param frameWidth, frameHeight  size of a frame in pixels
    /// @param window  frames that one result is made from, at least 1
    /// @param factor  enlargement in each direction
    /// @throws Exception     if a size is negative, or an image would have more pixels than an int counts
    /// @throws const char*   if the window is empty
    SrFloat(int frameWidth, int frameHeight, int window, float factor);
    ~SrFloat() override;
    SrFloat(const SrFloat&) = delete;
    SrFloat(SrFloat&&) = delete;
    SrFloat& operator=(const SrFloat&) = delete;
    SrFloat& operator=(SrFloat&&) = delete;

    /// Copies a frame into the window, in place of the oldest one when the window is full, and repairs its
    /// bad pixels.
    ///
    /// @param frame  getInputSize() values; a matrix must be continuous
    /// @return 0, or -2 if a pixel could not be repaired from its neighbours and took a fallback value
    /// @throws Exception  "Too many defect pixels. No processing possible." if more than 10 pixels were
    ///                    beyond repair
    int addFrame(const float* frame);
    int addFrame(const cv::Mat_<float>& frame);

    /// Registers the frames of the window against the reference frame and solves for the large image.
    ///
    /// @param out  takes getOutputSize() values; a matrix is created at the size of the result
    /// @return the achieved factor (up to `srFactor` for a factor of 2), or a negative code. With the image
    ///         written: -3 if a frame has half or more of its pixels unregistered, -6 if a frame is displaced
    ///         by more than a tenth of the height. With nothing written: the failure of the registration (-9:
    ///         no corner could be tracked) or of the solver.
    /// @throws Exception  "Too large displacement" if a frame is displaced by half the height or more
    float computeSR(float* out);
    float computeSR(cv::Mat_<float>& out);

    /// Empties the window. The registration and the defect maps keep their own windows.
    void clearFrames();

    /// Whether the frame's maximum minus its minimum reaches the structure threshold. The engine takes frames
    /// that fail, too.
    bool checkImageStructureQuality(const cv::Mat_<float>& frame) const;

    /// The full displacement of each frame at the last computeSR(), in frame pixels; positive when the scene
    /// lies further right or lower than in the reference frame.
    void getCompleteShifts(std::vector<PointF>& out) { registration_.getCompleteShifts(out); }
    /// For each frame of the window its mask of the last computeSR(): 1 where the frame was used, else 0.
    void getMasks(std::vector<cv::Mat_<unsigned char>>& out) const;
    /// Conjugate-gradient steps of the last image; 0 before the first.
    int getIterations() const { return iterations_; }

    /// True if frames hold raw signed 16-bit counts, false (the default) if they hold degrees Celsius.
    void setDataIsNUC(bool isNUC) { badPixelHandling_.setDataIsNUC(isNUC); }

    /// Values of a frame and of the large image, and frames that the window holds.
    int getInputSize() const { return inputSize_; }
    int getOutputSize() const { return outputSize_; }
    int getWindowSize() const { return windowSize_; }
    /// The settings as they stand, see the setters.
    int getReferenceIndex() const { return referenceIndex_; }
    float getPsfSigma() const { return minimization_.getPsfSigma(); }
    float getWeightTV() const { return minimization_.getWeightTV(); }
    float getRegError() const { return registration_.getRegError(); }
    float getRelativeResidue() const { return minimization_.getRelRes(); }
    int getMaxCGIters() const { return minimization_.getMaxIter(); }

    // A setter that refuses its value throws the reason as a bare text literal (const char*) and changes
    // nothing.

    /// Position of the reference frame, counted back from the newest frame: 0 to windowSize - 1.
    void setReferenceIndex(int index);
    /// Standard deviation of the sensor's point spread in pixels of the large image, above 0.
    void setPsfSigma(float sigma);
    /// Inverse strength of the total-variation term: 1 or more; a larger value smooths less.
    void setWeightTV(float weight);
    /// Largest local registration error of a usable pixel: above 0, at most 1.
    void setRegError(float error);
    /// Relative residue at which a round of the solver ends, 1e-6 or more.
    void setRelativeResidue(float residue);
    /// Budget of conjugate-gradient steps for one image, 1 or more.
    void setMaxCGIters(int iterations);
    /// See checkImageStructureQuality(); any value.
    void setMinStructureThreshold(float threshold) { minStructureThreshold_ = threshold; }

private:
    int loadFrame(const float* frame);
    void saveFrame(float* out) const;
    int warningFor(const std::vector<PointF>& completeShifts) const;

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t inputSize_;
    std::int32_t outWidth_;
    std::int32_t outHeight_;
    std::int32_t outputSize_;
    std::int32_t windowSize_;
    float srFactor_;
    std::int32_t referenceIndex_ = 0;
    float minStructureThreshold_;
    Registration registration_;
    SrFloatMinimization minimization_;
    SuperResolutionBadPixelHandling badPixelHandling_;
    std::unique_ptr<FrameWindow> window_;
    std::vector<float> outputImage_;
    std::int32_t iterations_ = 0;
};

}  // namespace halvor::vx
