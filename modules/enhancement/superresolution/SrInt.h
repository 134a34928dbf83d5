// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/diagnostics/RegisteredChannel.h"
#include "core/fixpoint/Fixpoint.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/SrIntRegistration.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/SlidingWindow.h"
#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"

namespace halvor::vx {

/// Multi-frame super-resolution for processors without a floating-point unit: keeps a sliding window of displaced
/// 16-bit frames and solves in fixed-point numbers for one image that is `scale` times as wide and as high.
///
/// Call computeSr() after every addFrame(): each call registers the newest frame against the one before it and
/// nothing else, so that a pair which is passed over stays unregistered and its frames blur the image. While no
/// image is wanted, setSkipMinimization(true) leaves the costly half away.
///
///     SrInt<SrIntRegistration, SrIntMinimization> engine(160, 120, 5, 2.0F);
///     engine.setSkipMinimization(true);
///     for each frame:
///         engine.setSkipMinimization(it is not the last one);
///         engine.addFrame(frame);
///         code = engine.computeSr(image);
///
/// @tparam Registration, Minimization  SrIntRegistration and SrIntMinimization, for which the library holds an
///         instance, or classes derived from them, with operations of a host's own in place of theirs
///
/// Stages and their times are told on the channel "SrInt" at level 11. All pixel memory is allocated by the
/// constructor and by the first frames. One thread at a time may use an engine; its results are the same bit for
/// bit for any number of OpenMP threads. An engine has one address for life: it is neither copied nor moved.
template <typename Registration, typename Minimization>
class VXKIT_API SrInt : public RegisteredChannel
{
public:
    /// @param width, height  size of a frame in pixels
    /// @param window         frames that one result is made from, at least 1
    /// @param factor         enlargement in each direction; SrIntMinimization knows 2 alone
    /// @throws Exception     for a size or factor that the engine can't work with
    /// @throws const char*   if the window is empty
    SrInt(int width, int height, unsigned int window, float factor);
    SrInt(const SrInt&) = delete;
    SrInt& operator=(const SrInt&) = delete;
    ~SrInt() override = default;

    /// Copies a frame into the window, in place of the oldest one when the window is full, and prepares it for the
    /// registration.
    ///
    /// @return 0, or -8 if the frame left the range of the frames before it, which can't be compared with it: the
    ///         window is empty then, and this frame is not in it
    /// @throws Exception  if the frame has another size; nothing is changed then
    int addFrame(const cv::Mat_<short>& frame);

    /// Registers the newest frame, and solves for the image of the window's scene on the grid of the reference.
    ///
    /// @param result  created at the size of the image; with setSkipMinimization(true) it holds the last image, if
    ///                there is one, and no meaning
    /// @return 0 or, with the image written all the same, -3 if half or more of a frame's pixels are not usable, -6
    ///         if a frame is displaced by more than a tenth of the height. -998, with nothing changed, if the
    ///         registration failed or the window is empty: the pair counts as not displaced from then on, so that a
    ///         host best calls clearFrames(). A negative count of steps if the solver gives one
    /// @throws Exception  from the solver
    int computeSr(cv::Mat_<short>& result);

    /// Empties the window.
    void clearFrames();

    /// Whether the frame's maximum minus its minimum reaches the structure threshold. The engine takes frames that
    /// fail, too.
    bool checkImageStructureQuality(const cv::Mat_<short>& frame) const;

    /// Displacement of a frame of the window against the newest one at the last computeSr(), in frame pixels;
    /// positive if the scene lies further right or lower in it.
    /// @throws Exception  for an index that is not in the window, as getRoundedTotalShift()
    PointF getTotalShift(unsigned int i) const;
    /// The same, rounded to whole pixels.
    cv::Point_<short> getRoundedTotalShift(unsigned int i) const;
    /// Steps of the last image that was solved for.
    short getCumIters() const { return minimization_.getCumIters(); }
    /// For each place of the window the mask of the last computeSr(), moved as the frame is: 1 where the frame was
    /// used, else 0.
    void getMasks(std::vector<cv::Mat_<unsigned char>>& out) const;

    /// Values of a frame and of the large image, and frames that the window holds.
    int getInputSize() const { return inputSize_; }
    int getOutputSize() const { return outputSize_; }
    int getWindowSize() const { return windowSize_; }
    /// The settings as they stand, see the setters.
    int getReferenceIndex() const { return referenceIndex_; }
    int getMaxCGIters() const { return minimization_.getMaxIter(); }
    float getPsfSigma() const { return minimization_.getPsfSigma(); }
    float getRelativeResidue() const { return minimization_.getRelRes(); }
    float getWeightTV() const { return minimization_.getWeightTV(); }
    float getRegError() const { return registration_.getRegError(); }

    /// While set, computeSr() registers and warns, but does not solve.
    void setSkipMinimization(bool skip) { skipMinimization_ = skip; }
    /// See checkImageStructureQuality(); any value.
    void setMinStructureThreshold(float threshold) { minStructureThreshold_ = threshold; }

    // A setter that refuses its value throws the reason as a bare text literal (const char*) and changes nothing.

    /// Budget of conjugate-gradient steps for one image, 1 or more; the low 16 bits are used.
    void setMaxCGIters(int iterations);
    /// Standard deviation of the sensor's point spread in pixels of the large image, above 0.
    void setPsfSigma(float sigma);
    /// Position of the frame whose grid and range of values the image has, counted back from the newest frame: 0 to
    /// windowSize - 1. The registration aligns all frames to the newest one.
    void setReferenceIndex(int index);
    /// Above 0, at most 1. What SrIntRegistration makes of it, see there.
    void setRegError(float error);
    /// Relative residue at which a round of the solver ends, 1e-6 or more.
    void setRelativeResidue(float residue);
    /// Inverse strength of the total-variation term, 1 or more; a larger value smooths less.
    /// @throws Exception  above the solver's own limit of 600
    void setWeightTV(float weight);

private:
    std::size_t frameCount() const { return static_cast<std::size_t>(frames_.count()); }
    std::size_t placeOf(unsigned int i) const;
    bool registerWindow();
    int warning() const;
    int solve();

    std::int32_t inputWidth_;
    std::int32_t inputHeight_;
    std::int32_t inputSize_;
    std::int32_t outputWidth_;
    std::int32_t outputHeight_;
    std::int32_t outputSize_;
    std::int32_t windowSize_;
    float scale_;
    std::int32_t referenceIndex_ = 0;
    float minStructureThreshold_ = EngineDefaults::minStructureThreshold;
    Registration registration_;
    Minimization minimization_;
    SuperResolutionBadPixelHandling badPixelHandling_;  // counts have no markers so far
    SlidingWindow<cv::Mat_<short>> frames_;
    std::vector<cv::Mat_<short>> warped_;
    std::vector<PointF> totalShifts_;
    std::vector<PointF> subPixelShifts_;
    std::vector<cv::Point_<short>> roundedTotalShifts_;
    std::vector<cv::Mat_<unsigned char>> masks_;
    bool skipMinimization_ = false;

    // Between the stages of computeSr().
    std::vector<cv::Mat_<signed char>> signedMasks_;
    std::vector<cv::Mat_<float>> floatFrames_;
    cv::Mat_<float> image_;
};

}  // namespace halvor::vx

#include "enhancement/superresolution/engine/SrIntMembers.h"

namespace halvor::vx {

extern template class SrInt<SrIntRegistration, SrIntMinimization>;

}  // namespace halvor::vx
