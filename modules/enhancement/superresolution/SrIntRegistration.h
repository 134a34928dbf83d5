// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"
#include "core/base/OwnedPart.h"
#include "core/diagnostics/RegisteredChannel.h"
#include "core/fixpoint/Fixpoint.h"
#include "core/imaging/OwnedImage.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/SlidingWindow.h"

namespace halvor::vx {

/// Registers the frames of a sliding window against the newest one, in integers but for the tracking of
/// corners.
///
/// Each frame is registered against the one before it: corners are tracked for the whole-pixel displacement,
/// one closed-form least-squares step in 16-bit mantissas and 64-bit sums refines it, and each pixel is graded
/// by the squared error that is left. The displacements of older frames are sums of those of their successors.
/// Corners: smallest eigenvalue of the structure tensor (Shi and Tomasi, 1994). Tracking: pyramidal
/// Lucas-Kanade (Bouguet, 2001). Refinement: brightness constancy (Lucas and Kanade, 1981).
///
/// Frames are 16-bit, all of one size. What happens is told on the channel "SrInt" at level 11. Pixel memory
/// is allocated by the constructor and by the first frames. A copy has pixels of its own and works on
/// independently. One thread at a time may use an object; results do not depend on the number of threads.
///
/// The virtual operations may be replaced by lane-parallel ones; the order of their declaration is part of the
/// binary interface.
class VXKIT_API SrIntRegistration
{
public:
    /// @param frameCols, frameRows  size of a frame in pixels
    /// @param window                number of frames that are kept, at least 1
    /// @throws Exception            for other sizes
    SrIntRegistration(int frameCols, int frameRows, unsigned int window);
    SrIntRegistration(const SrIntRegistration& other);
    SrIntRegistration& operator=(const SrIntRegistration& other);

    // The sums below need images of equal size, views of larger ones among them; gradients are in grey values
    // per pixel.

    /// As the gradient in x of the registration's own 8-bit images, which uses no lanes: differences of
    /// neighbours at full scale in the first and last column, elsewhere central differences, halved towards
    /// minus infinity.
    /// @param diffX        of the size of src
    /// @throws Exception  "invalid Ref or DiffX frame size"
    virtual void computeDiffX_neon(const cv::Mat_<short>& src, cv::Mat_<short>& diffX);

    /// Sums over all pixels of the products of the gradients.
    /// @throws Exception  "invalid DiffX or DiffY frame size" if an image is empty or the sizes differ
    virtual void computeStructureTensor(const cv::Mat_<short>& dx, const cv::Mat_<short>& dy,
                                        std::int64_t& xx, std::int64_t& xy, std::int64_t& yy);
    /// The same over what of the reference lies outside the overlap: the band of rows above or below it, and
    /// the strip of columns beside it. Either may be empty.
    virtual void computeRepair(const cv::Mat_<short>& dxBand, const cv::Mat_<short>& dyBand,
                               const cv::Mat_<short>& dxStrip, const cv::Mat_<short>& dyStrip,
                               std::int64_t& xx, std::int64_t& xy, std::int64_t& yy);
    /// The band's part of computeRepair(), added to the sums.
    virtual void computeHorizontalRepair(const cv::Mat_<short>& dxBand, const cv::Mat_<short>& dyBand,
                                         std::int64_t& xx, std::int64_t& xy, std::int64_t& yy);
    /// The strip's part of computeRepair(), added to the sums.
    virtual void computeVerticalRepair(const cv::Mat_<short>& dxStrip, const cv::Mat_<short>& dyStrip,
                                       std::int64_t& xx, std::int64_t& xy, std::int64_t& yy);
    /// Sums over the overlap of gradient times (frame - ref).
    virtual void computeOpticalFlowSumDiffXtYt(const cv::Mat_<unsigned char>& ref,
                                               const cv::Mat_<unsigned char>& frame,
                                               const cv::Mat_<short>& dx, const cv::Mat_<short>& dy,
                                               std::int64_t& sumXt, std::int64_t& sumYt);
    /// Squared error of each pixel after a displacement by the flow, in squared pixels.
    ///
    /// @param errBand, errStrip  take the value `fill`
    /// @param err             takes the errors of the overlap, saturated to 16 bits
    /// @param shift, exponent  the flow: shift * 2^exponent pixels
    /// @param weightMantissa, weightShift  turn a squared grey value into the unit of the errors: times
    ///                        mantissa * 2^shift
    /// @throws Exception  "out of range" if a grey value that is left exceeds 16 bits
    virtual void computeOpticalFlowError(const cv::Mat_<unsigned char>& ref,
                                         const cv::Mat_<unsigned char>& frame, const cv::Mat_<short>& dx,
                                         const cv::Mat_<short>& dy, cv::Mat_<short>& errBand,
                                         cv::Mat_<short>& errStrip, unsigned short fill, cv::Mat_<short>& err,
                                         cv::Point_<short> shift, std::int8_t exponent, short weightMantissa,
                                         int weightShift);
    virtual ~SrIntRegistration();

    /// Takes a frame into the window, in place of the oldest one when the window is full: conversion to 8
    /// bits, smoothing and image pyramid are made here, once per frame.
    ///
    /// @return 0, or -8 if the frame left the range of values that the frames before it were converted with:
    ///         they are not comparable with it, so the caller calls clearFrames() and starts again
    /// @throws Exception  if the frame has another size; nothing is changed then
    int prepareFrame(const cv::Mat_<short>& frame);

    /// Registers the newest frame against the one before it, and aligns the window to the newest.
    ///
    /// Only this newest pair is registered, so that a call is due after each prepareFrame(): a pair that was
    /// passed over keeps what its place in the window held before.
    ///
    /// @param frames         as many as were prepared, oldest first; more are not looked at
    /// @param subShifts      receive what is left of the displacements after the whole pixels; these and the
    ///                       following grow to the number of frames, where they hold fewer
    /// @param totalShifts    receive the displacements against the newest frame, in pixels; positive if the
    ///                       scene lies further right or lower in the frame than in the newest
    /// @param roundedShifts  receive their whole pixels
    /// @param masks          receive 1 for each usable pixel of the moved frames, else 0
    /// @param shiftedFrames  receive the frames moved by the whole pixels, 0 where they hold nothing; the last
    ///                       one is the newest frame itself, no copy. This image and the others and the masks
    ///                       share memory with the window and with this object until the next call
    /// @return 0
    /// @throws Exception  where a pair can't be registered: "Not enough stable correspondences", "Not enough
    ///                    inlier", "unexpected Exp", "invalid result for shift, shifting away integer pixel
    ///                    shift", "out of range", "no gradients in the common area of the frames". The results
    ///                    but for the last frame's are as they were, and the pair counts as not displaced
    int doRegistrationVideo(const std::vector<cv::Mat_<short>>& frames,
                            std::vector<cv::Point_<Fixpoint>>& subShifts,
                            std::vector<cv::Point_<Fixpoint>>& totalShifts,
                            std::vector<cv::Point_<short>>& roundedShifts,
                            std::vector<cv::Mat_<signed char>>& masks,
                            std::vector<cv::Mat_<short>>& shiftedFrames);

    /// Empties the window. The range of values of the 8-bit conversion stays.
    void clearFrames();

    /// Largest accepted local error, in squared pixels of displacement; 0.0001 at first. The masks are made
    /// with the first value for good: what is set here is told by getRegError() alone.
    float getRegError() const { return regError_; }
    void setRegError(float error) { regError_ = error; }
    /// Radius of the Gaussian that smooths the 8-bit images, in pixels; 5 at first.
    int getBlurRadius() const { return blurRadius_; }
    /// @throws Exception  below 0 or above 32767; the radius stays as it was then
    void setBlurRadius(int radius);

private:
    struct Preparation;
    /// What is kept of a frame while it is in the window.
    struct Slot
    {
        OwnedImage<signed char> mask;          // where it agrees with the frame after it
        cv::Point_<Fixpoint> relativeShift{};  // against the frame after it
    };

    /// An image pyramid as the tracker wants it: each level with a border, its gradients behind it.
    struct Pyramid
    {
        Pyramid() = default;
        Pyramid(const Pyramid& other);
        Pyramid& operator=(const Pyramid& other);
        ~Pyramid() = default;

        std::vector<cv::Mat> levels;
    };

    std::size_t frameCount() const { return static_cast<std::size_t>(window_.count()); }
    void requireFrames(const std::vector<cv::Mat_<short>>& frames) const;
    void sepFilter2D(const cv::Mat_<unsigned char>& src, cv::Mat_<unsigned char>& dst) const;
    void buildPyramid(const cv::Mat_<unsigned char>& image);
    void extractCorners(const cv::Mat& image, std::vector<cv::Point_<float>>& corners, int maxCount) const;
    void trackCorners(const std::vector<cv::Mat>& prevPyramid, const std::vector<cv::Mat>& nextPyramid,
                      const std::vector<cv::Point_<float>>& prevPoints,
                      std::vector<cv::Point_<float>>& nextPoints, std::vector<unsigned char>& status,
                      int window) const;
    cv::Point_<short> registerWithCorners(unsigned int a, unsigned int b);
    void getMeanFlow(const std::vector<cv::Point_<float>>& flows, cv::Point_<short>& out) const;
    void computeImageMask(const cv::Mat_<short>& smoothedError, cv::Mat_<signed char>& mask,
                          unsigned short threshold) const;
    void prepareGradientsRefImage(unsigned int index);
    void computeDiffX(const cv::Mat_<unsigned char>& ref, cv::Mat_<short>& diffX) const;
    void computeDiffY(const cv::Mat_<unsigned char>& ref, cv::Mat_<short>& diffY) const;
    cv::Point_<short> opticalFlow(unsigned int refIndex, unsigned int frameIndex, cv::Point_<short> intShift,
                                  cv::Point_<Fixpoint>& fraction, cv::Point_<Fixpoint>& total,
                                  cv::Mat_<signed char>& mask);
    cv::Mat_<unsigned char> baseOf(unsigned int index) const;

    void accumulateShifts(std::vector<cv::Point_<Fixpoint>>& subShifts,
                          std::vector<cv::Point_<Fixpoint>>& totalShifts,
                          std::vector<cv::Point_<short>>& roundedShifts) const;
    void tellShifts(const std::vector<cv::Point_<Fixpoint>>& totalShifts) const;

    // See fixedpoint/BoxFilters.h. The second to the fourth are for the firmware's models; nothing here calls
    // them.
    void boxingFilterForSmoothing(const cv::Mat_<short>& src, cv::Mat_<short>& dst);
    void boxSepFilter2D(const cv::Mat_<short>& src, cv::Mat_<short>& dst);
    void boxSepFilter2D_Neon(const cv::Mat_<short>& src, cv::Mat_<short>& dst);
    void boxSepFilter2D_NeonBorder(const cv::Mat_<short>& src, cv::Mat_<short>& dst);

    RegisteredChannel channel_{"SrInt"};
    std::int32_t cols_;
    std::int32_t rows_;
    std::int32_t pixelCount_;
    float regError_ = EngineDefaults::regError;
    Fixpoint regErrorFix_;
    SlidingWindow<Slot> window_;
    std::uint32_t framesPrepared_ = 0;
    std::int32_t blurRadius_ = 0;
    std::int32_t pyramidWindow_ = 5;
    OwnedPart<Preparation> preparation_;
    std::array<Pyramid, 2> pyramids_;  // of the frame before the newest, and of the newest
    OwnedImage<short> smoothedError_;
    std::vector<cv::Point_<float>> corners_;
    float errorScale_ = 1.0F;
    OwnedImage<short> diffX_;
    OwnedImage<short> diffY_;
    std::int64_t tensorXX_ = 0;
    std::int64_t tensorXY_ = 0;
    std::int64_t tensorYY_ = 0;

    // Between the steps of a call; the last two are what its results share.
    OwnedImage<unsigned char> gray_;
    OwnedImage<unsigned char> smoothed_;
    OwnedImage<short> error_;
    OwnedImage<short> scratch_;
    std::vector<OwnedImage<signed char>> movedMasks_;
    std::vector<OwnedImage<short>> movedFrames_;
};

}  // namespace halvor::vx
