// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/diagnostics/DebugChannel.h"
#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"
#include "enhancement/superresolution/reference/SuperResolutionMinimization.h"
#include "enhancement/superresolution/reference/SuperResolutionRegistration.h"

namespace halvor::vx {

class FrameWindow;
class SpectrumWindow;

/// Reference form of the super-resolution engine: serial and talkative, to hold the fast engines against.
///
/// Keeps a sliding window of displaced frames, registers them by phase correlation and solves for one image
/// that is `srFactor` times as wide and as high. Frames are `height` rows of `width` values without gaps,
/// either floats in degrees Celsius (or raw counts after setDataIsNUC(true)), which may hold bad-pixel
/// markers, or signed 16-bit values, which are never searched for bad pixels.
///
/// Steps go to the log (progress and problems), to the debug channel "DBG" and those of
/// getInternalDebugChannelObjects(), and, with their times, to the standard output. The constructor writes
/// the taps of the smoothing kernel there. One thread at a time may use an engine.
class VXKIT_API SuperResolution : public DebugChannel
{
public:
    /// @param width, height  size of a frame in pixels, both above 10, the width even
    /// @param windowSize     frames that one result is made from, at least 1
    /// @param srFactor       enlargement in each direction, at least 1
    /// @throws Exception     for a size that can't be processed
    /// @throws const char*   if the window is empty
    SuperResolution(int width, int height, int windowSize, float srFactor);
    ~SuperResolution() override;
    SuperResolution(const SuperResolution&) = delete;
    SuperResolution(SuperResolution&&) = delete;
    SuperResolution& operator=(const SuperResolution&) = delete;
    SuperResolution& operator=(SuperResolution&&) = delete;

    /// Copies a frame into the window, in place of the oldest one when the window is full, and, if it is a
    /// float frame, repairs its bad pixels.
    ///
    /// @tparam Pixel  short or float
    /// @param frame   getInputSize() values
    /// @return 0, or -2 if a bad pixel could not be repaired from its neighbours and took a fallback value
    /// @throws Exception  if more than 10 pixels were beyond repair, or if the frame's spectrum is infinite
    template <typename Pixel>
    int addFrame(const Pixel* frame);

    /// Registers the frames of the window against the reference frame and solves for the large image.
    ///
    /// @tparam Pixel  short or float, the type of the frames; of a short image each value is truncated and
    ///                wraps to its low 16 bits
    /// @param out     takes getOutputSize() values
    /// @return the achieved factor, or a negative code. With the image written: -3 if a frame has half or
    ///         more of its pixels unregistered, -6 if a frame is displaced by more than a tenth of the
    ///         height. With nothing written: -998 or the solver's code after a failure.
    /// @throws Exception  "Too large displacement" if a frame is displaced by half the height or more
    template <typename Pixel>
    float computeSR(Pixel* out);

    /// Sets the radiance line of each pixel from two flat scenes: raw counts and radiance of either.
    ///
    /// A pixel whose two counts are equal, or whose slope or offset reaches 1000 in magnitude, takes the mean
    /// of its good neighbours.
    /// @throws Exception  if the four matrices differ in size
    void setNucToRad(const cv::Mat_<short>& nucA, const cv::Mat_<float>& radA, const cv::Mat_<short>& nucB,
                     const cv::Mat_<float>& radB);

    /// Converts a frame of raw counts to radiance, adds it and computes the image, as floats.
    ///
    /// @param input   getInputSize() counts
    /// @param output  takes getOutputSize() values
    /// @return as computeSR()
    /// @throws Exception  "NucToRad() not initialized" unless setNucToRad() was given matrices of the frame's
    ///                    size; and as addFrame() and computeSR()
    float processFrame2(const short* input, float* output);

    /// Computes the map that getQuality() gives, from the sub-pixel displacements of the last computeSR().
    ///
    /// @throws Exception  if no computeSR() has registered frames yet
    void computeQuality();

    /// How well the last burst covers the sub-pixel positions: a copy of the map that computeQuality() made.
    ///
    /// To get it, call computeSR(), then computeQuality(), then getQuality(); without computeQuality() it is
    /// an empty matrix.
    /// @param out  3 x 3 values of sum 1, a histogram of the frames' displacements. The centre stands for
    ///             none, and each step for one pixel of the large image; between them a frame's weight is
    ///             distributed linearly. Frames that all lie in one element bring no resolution.
    void getQuality(cv::Mat_<float>& out) const;

    /// For each frame of the window its mask of the last computeSR(): 1 where the frame was used, else 0.
    void getMasks(std::vector<cv::Mat_<unsigned char>>& out) const;

    /// The full displacement of each frame at the last computeSR(), in frame pixels; positive when the scene
    /// lies further right or lower than in the reference frame.
    void getCompleteShifts(std::vector<PointF>& out) const { registration_->getCompleteShifts(out); }

    /// Conjugate-gradient steps of the last image; 0 before the first.
    int getIterations() const { return iterations_; }

    /// Makes the image by averaging the moved frames of the last computeSR(), each pixel repeated twice in
    /// both directions: a baseline without any inverse problem. The frames are normalised as the solver left
    /// them.
    void simpleCombine();

    /// A copy of the image that the last computeSR() or simpleCombine() made.
    void getOutputImage(cv::Mat_<float>& out) const;

    /// Whether a frame's maximum minus its minimum reaches the structure threshold. The engine takes frames
    /// that fail, too.
    template <typename Pixel>
    bool checkImageStructureQuality(const cv::Mat_<Pixel>& frame) const;

    /// Empties the window. The defect maps are kept.
    void clearFrames();

    /// The channels of the solver: that of its operators, and its own. The engine's own channel is the
    /// engine.
    std::vector<DebugChannel*> getInternalDebugChannelObjects()
    {
        return minimization_->getInternalDebugChannelObjects();
    }

    /// True if float frames hold raw signed 16-bit counts, false (the default) if degrees Celsius.
    void setDataIsNUC(bool dataIsNUC) { badPixelHandling_.setDataIsNUC(dataIsNUC); }

    /// Values of a frame and of the large image, and frames that the window holds.
    int getInputSize() const { return inputSize_; }
    int getOutputSize() const { return outputSize_; }
    int getWindowSize() const { return windowSize_; }
    /// The settings as they stand, see the setters.
    int getReferenceIndex() const { return referenceIndex_; }
    float getRegError() const { return registration_->getRegError(); }
    float getPsfSigma() const { return minimization_->getPsfSigma(); }
    float getWeightTV() const { return minimization_->getWeightTV(); }
    float getRelativeResidue() const { return minimization_->getRelRes(); }
    int getMaxCGIters() const { return minimization_->getMaxIter(); }

    // A setter that refuses its value throws the reason as a bare text literal (const char*) and changes
    // nothing.

    /// Position of the reference frame, counted back from the newest frame: 0 to windowSize - 1.
    void setReferenceIndex(int index);
    /// Largest local registration error of a usable pixel: above 0, at most 1.
    void setRegError(float error);
    /// Standard deviation of the sensor's point spread in pixels of the large image, above 0.
    void setPsfSigma(float sigma);
    /// Inverse strength of the total-variation term: 1 or more; a larger value smooths less.
    void setWeightTV(float weight);
    /// Relative residue at which a round of the solver ends, 1e-6 or more.
    void setRelativeResidue(float residue);
    /// Budget of conjugate-gradient steps for one image, 1 or more.
    void setMaxCGIters(int iterations);
    /// See checkImageStructureQuality(); any value.
    void setMinStructureThreshold(float threshold) { minStructureThreshold_ = threshold; }

private:
    template <typename Pixel>
    VXKIT_HIDDEN int loadFrame(const Pixel* frame);
    template <typename Pixel>
    VXKIT_HIDDEN void saveFrame(Pixel* out) const;
    int checkRegistration(const std::vector<PointF>& completeShifts) const;
    void refillBadPixels(const std::vector<PointF>& completeShifts);
    void NucToRad(const cv::Mat_<short>& raw);
    void computeQuality_();

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
    std::unique_ptr<SuperResolutionRegistration> registration_;
    std::unique_ptr<SuperResolutionMinimization> minimization_;
    SuperResolutionBadPixelHandling badPixelHandling_;
    std::unique_ptr<FrameWindow> window_;
    std::unique_ptr<SpectrumWindow> spectra_;
    std::vector<float> outputImage_;
    cv::Mat_<float> gain_;
    cv::Mat_<float> offset_;
    cv::Mat_<float> radiance_;
    cv::Mat_<float> quality_;
    // Frames of the last computation, to which shifts and masks belong.
    std::int32_t registeredCount_ = 0;
    std::int32_t iterations_ = 0;
};

}  // namespace halvor::vx
