// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <new>
#include <opencv2/core.hpp>
#include <string>
#include <utility>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/StopWatch.h"
#include "enhancement/superresolution/SrInt.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/EngineSettings.h"
#include "enhancement/superresolution/engine/FrameQuality.h"
#include "enhancement/superresolution/engine/StageTime.h"

// The members of SrInt, for hosts that make an instance with a class of their own.
namespace halvor::vx {

namespace detail {

inline std::string srIntConstructorWhere()
{
    return VX_WHERE("halvor::vx::SrInt::SrInt");
}

// Sides and counts of the solver have 16 bits.
inline short requireShort(std::int64_t value, const char* name)
{
    if (value < 0 || value > 32767)
        throw Exception(
            std::string("Invalid ") + name + ": " + std::to_string(value) + ", expected at most 32767",
            srIntConstructorWhere());
    return static_cast<short>(value);
}

inline short requireWindow(unsigned int window)
{
    const short size = requireShort(window, "window");
    requireReferenceIndex(0, size);  // which an empty window has no room for
    return size;
}

inline short requireWholeFactor(float factor)
{
    const int whole = static_cast<int>(factor);
    if (static_cast<float>(whole) != factor)
        throw Exception("Invalid enlargement: " + std::to_string(factor) + ", expected a whole number",
                        srIntConstructorWhere());
    return static_cast<short>(whole);
}

// One after the other: copies of a matrix would share its pixels.
template <typename Pixel>
std::vector<cv::Mat_<Pixel>> images(std::size_t count, int rows, int cols)
{
    std::vector<cv::Mat_<Pixel>> result;
    for (std::size_t i = 0; i < count; ++i)
        result.emplace_back(rows, cols, Pixel{0});
    return result;
}

}  // namespace detail

template <typename Registration, typename Minimization>
SrInt<Registration, Minimization>::SrInt(int width, int height, unsigned int window, float factor)
    : RegisteredChannel("SrInt"),
      inputWidth_(width),
      inputHeight_(height),
      inputSize_(pixelCount(width, height, detail::srIntConstructorWhere())),
      outputWidth_(enlarged(width, factor, 1.0F, detail::srIntConstructorWhere())),
      outputHeight_(enlarged(height, factor, 1.0F, detail::srIntConstructorWhere())),
      outputSize_(pixelCount(outputWidth_, outputHeight_, detail::srIntConstructorWhere())),
      windowSize_(detail::requireWindow(window)),
      scale_(factor),
      registration_(width, height, window),
      minimization_(detail::requireShort(width, "width"), detail::requireShort(height, "height"),
                    static_cast<short>(windowSize_), detail::requireWholeFactor(factor)),
      badPixelHandling_(window),
      frames_(detail::images<short>(window, height, width)),
      warped_(detail::images<short>(window, height, width)),
      totalShifts_(window),
      subPixelShifts_(window),
      roundedTotalShifts_(window),
      masks_(detail::images<unsigned char>(window, height, width)),
      signedMasks_(window),
      floatFrames_(detail::images<float>(window, height, width)),
      image_(outputHeight_, outputWidth_, 0.0F)
{
    setReferenceIndex(EngineDefaults::referenceIndex);
}

template <typename Registration, typename Minimization>
int SrInt<Registration, Minimization>::addFrame(const cv::Mat_<short>& frame)
{
    if (frame.rows != inputHeight_ || frame.cols != inputWidth_)
        throw Exception("addFrame(): expected " + std::to_string(inputHeight_) + " rows and " +
                            std::to_string(inputWidth_) + " columns, got " + std::to_string(frame.rows) +
                            " and " + std::to_string(frame.cols),
                        VX_WHERE("halvor::vx::SrInt::addFrame"));
    send("start addFrame", DebugLevel::step);
    int result = 0;
    frame.copyTo(frames_.push());
    if (registration_.prepareFrame(frame) == SuperResolution_windowRestarted) {
        clearFrames();
        result = SuperResolution_windowRestarted;
    }
    send("end addFrame", DebugLevel::step);
    return result;
}

template <typename Registration, typename Minimization>
int SrInt<Registration, Minimization>::computeSr(cv::Mat_<short>& result)
{
    send("start computeSr", DebugLevel::step);
    StopWatch watch;
    const auto tellTime = [&](const char* stage) {
        watch.stop();
        send(stage, StageTime{watch}, DebugLevel::step);
        watch.start();
    };

    watch.start();
    // An empty window, which a refused frame leaves, has nothing that could be registered.
    if (frameCount() == 0 || !registerWindow())
        return SuperResolution_registrationFailed;
    tellTime(" registration:         ");
    const int code = warning();
    tellTime(" large_displacement:   ");
    const int iterations = solve();
    tellTime(" minimization:         ");
    if (iterations < 0)
        return iterations;
    image_.convertTo(result, CV_16S);
    tellTime(" save+srfactor calc:   ");
    send("end computeSr", DebugLevel::step);
    return code;
}

template <typename Registration, typename Minimization>
void SrInt<Registration, Minimization>::clearFrames()
{
    frames_.clear();
    registration_.clearFrames();
}

template <typename Registration, typename Minimization>
bool SrInt<Registration, Minimization>::checkImageStructureQuality(const cv::Mat_<short>& frame) const
{
    return hasStructure(frame, minStructureThreshold_);
}

template <typename Registration, typename Minimization>
PointF SrInt<Registration, Minimization>::getTotalShift(unsigned int i) const
{
    return totalShifts_[placeOf(i)];
}

template <typename Registration, typename Minimization>
cv::Point_<short> SrInt<Registration, Minimization>::getRoundedTotalShift(unsigned int i) const
{
    return roundedTotalShifts_[placeOf(i)];
}

template <typename Registration, typename Minimization>
void SrInt<Registration, Minimization>::getMasks(std::vector<cv::Mat_<unsigned char>>& out) const
{
    out.resize(masks_.size());
    for (std::size_t i = 0; i < masks_.size(); ++i)
        out[i] = masks_[i].clone();
}

template <typename Registration, typename Minimization>
void SrInt<Registration, Minimization>::setMaxCGIters(int iterations)
{
    requireMaxCGIters(iterations);
    minimization_.setMaxIter(static_cast<short>(iterations));
}

template <typename Registration, typename Minimization>
void SrInt<Registration, Minimization>::setPsfSigma(float sigma)
{
    requirePsfSigma(sigma);
    minimization_.setPsfSigma(sigma);
}

template <typename Registration, typename Minimization>
void SrInt<Registration, Minimization>::setReferenceIndex(int index)
{
    requireReferenceIndex(index, windowSize_);
    referenceIndex_ = index;
}

template <typename Registration, typename Minimization>
void SrInt<Registration, Minimization>::setRegError(float error)
{
    requireRegError(error);
    registration_.setRegError(error);
}

template <typename Registration, typename Minimization>
void SrInt<Registration, Minimization>::setRelativeResidue(float residue)
{
    requireRelativeResidue(residue, "Invalid total-variation term residue specified.");
    minimization_.setRelRes(residue);
}

template <typename Registration, typename Minimization>
void SrInt<Registration, Minimization>::setWeightTV(float weight)
{
    requireWeightTV(weight);
    minimization_.setWeightTV(weight);
}

template <typename Registration, typename Minimization>
std::size_t SrInt<Registration, Minimization>::placeOf(unsigned int i) const
{
    if (i >= totalShifts_.size())
        throw Exception("No frame " + std::to_string(i) + " in a window of " + std::to_string(windowSize_),
                        VX_WHERE("halvor::vx::SrInt::getTotalShift"));
    return i;
}

// Whatever the registration raises means that this window can't be registered, also what a host's own operations
// raise; only the lack of memory does not.
template <typename Registration, typename Minimization>
bool SrInt<Registration, Minimization>::registerWindow()
{
    const auto size = static_cast<std::size_t>(windowSize_);
    const cv::Point_<Fixpoint> none(Fixpoint(0), Fixpoint(0));
    std::vector<cv::Point_<Fixpoint>> flowSub(size, none);
    std::vector<cv::Point_<Fixpoint>> flowTotal(size, none);
    // Headers: what a failed run has changed of them is dropped.
    std::vector<cv::Point_<short>> rounded = roundedTotalShifts_;
    std::vector<cv::Mat_<signed char>> masks = signedMasks_;
    std::vector<cv::Mat_<short>> warped = warped_;
    try {
        if (registration_.doRegistrationVideo(frames_.slots(), flowSub, flowTotal, rounded, masks, warped) <
            0)
            return false;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const cv::Exception& error) {
        if (error.code == cv::Error::StsNoMem)
            throw;
        return false;
    } catch (...) {
        return false;
    }
    roundedTotalShifts_ = std::move(rounded);
    signedMasks_ = std::move(masks);
    warped_ = std::move(warped);
    for (std::size_t i = 0; i < size; ++i) {
        subPixelShifts_[i] = {flowSub[i].x.toFloat(), flowSub[i].y.toFloat()};
        totalShifts_[i] = {flowTotal[i].x.toFloat(), flowTotal[i].y.toFloat()};
    }
    for (std::size_t i = 0; i < frameCount(); ++i)
        signedMasks_[i].convertTo(masks_[i], CV_8U);
    return true;
}

template <typename Registration, typename Minimization>
int SrInt<Registration, Minimization>::warning() const
{
    bool displaced = false;
    bool lostPixels = false;
    for (std::size_t i = 0; i < frameCount(); ++i) {
        displaced |= isLargeDisplacement(totalShifts_[i], inputHeight_);
        const auto pixels = static_cast<float>(inputSize_);
        lostPixels |= isPoorFrame(pixels - static_cast<float>(cv::sum(masks_[i])[0]), pixels);
    }
    return warningCode(lostPixels, displaced);
}

template <typename Registration, typename Minimization>
int SrInt<Registration, Minimization>::solve()
{
    const auto count = static_cast<short>(frameCount());
    minimization_.generatePsfs(count, subPixelShifts_.data());
    if (skipMinimization_)
        return 0;
    for (std::size_t i = 0; i < frameCount(); ++i)
        warped_[i].convertTo(floatFrames_[i], CV_32F);
    std::vector<cv::Mat_<float>> frames(floatFrames_.begin(), floatFrames_.begin() + count);
    const std::vector<cv::Mat_<signed char>> masks(signedMasks_.begin(), signedMasks_.begin() + count);
    const auto reference = static_cast<short>(std::max(count - referenceIndex_ - 1, 0));
    return minimization_.minimize(count, reference, frames, masks, image_);
}

}  // namespace halvor::vx
