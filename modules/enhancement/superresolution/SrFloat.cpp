// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloat.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/DebugSingleton.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/EngineSettings.h"
#include "enhancement/superresolution/engine/FrameQuality.h"
#include "enhancement/superresolution/engine/FrameWindow.h"

namespace halvor::vx {

namespace {

constexpr float smallestFactor = 0.0F;  // below 2, the solver refuses to work

std::string constructorWhere()
{
    return VX_WHERE("halvor::vx::SrFloat::SrFloat");
}

}  // namespace

template <typename Registration>
SrFloat<Registration>::SrFloat(int frameWidth, int frameHeight, int window, float factor)
    : DebugChannel("SrFloat"),
      width_(frameWidth),
      height_(frameHeight),
      inputSize_(pixelCount(frameWidth, frameHeight, constructorWhere())),
      outWidth_(enlarged(frameWidth, factor, smallestFactor, constructorWhere())),
      outHeight_(enlarged(frameHeight, factor, smallestFactor, constructorWhere())),
      outputSize_(pixelCount(outWidth_, outHeight_, constructorWhere())),
      // A negative window is an empty one, which setReferenceIndex() refuses.
      windowSize_(std::max(window, 0)),
      srFactor_(factor),
      minStructureThreshold_(EngineDefaults::minStructureThreshold),
      registration_(width_, height_, windowSize_),
      minimization_(width_, height_, windowSize_, srFactor_),
      badPixelHandling_(static_cast<unsigned int>(windowSize_)),
      window_(std::make_unique<FrameWindow>(width_, height_, windowSize_)),
      outputImage_(static_cast<std::size_t>(outputSize_))
{
    setReferenceIndex(EngineDefaults::referenceIndex);
    DebugSingleton::getInstance("").addDebugChannel(this);
}

template <typename Registration>
SrFloat<Registration>::~SrFloat()
{
    DebugSingleton::getInstance("").removeDebugChannel(this);
}

template <typename Registration>
int SrFloat<Registration>::addFrame(const float* frame)
{
    send("start addFrame", DebugLevel::step);
    const int result = loadFrame(frame);
    send("end addFrame", DebugLevel::step);
    return result;
}

template <typename Registration>
int SrFloat<Registration>::addFrame(const cv::Mat_<float>& frame)
{
    if (frame.rows != height_ || frame.cols != width_ || !frame.isContinuous())
        throw Exception("addFrame(): expected a continuous matrix of " + std::to_string(height_) +
                            " rows and " + std::to_string(width_) + " columns, got " +
                            std::to_string(frame.rows) + " and " + std::to_string(frame.cols),
                        VX_WHERE("halvor::vx::SrFloat::addFrame"));
    return addFrame(frame.template ptr<float>());
}

template <typename Registration>
float SrFloat<Registration>::computeSR(float* out)
{
    // Of the first engine of this type in the process, for all of them: hosts know the figure of factor 2.
    static const int maxUsable = static_cast<int>(srFactor_ * srFactor_ + 1.0F);

    const int count = window_->count();
    const int referenceFrame = window_->referenceFrame(referenceIndex_);
    const int registered =
        registration_.doRegistration(count, referenceFrame, window_->frames(), window_->shifts(),
                                     window_->masks(), window_->registeredFrames());
    if (registered < 0)
        return static_cast<float>(registered);

    std::vector<PointF> completeShifts;
    registration_.getCompleteShifts(completeShifts);
    const int warning = warningFor(completeShifts);

    const int solved = minimization_.minimize(count, referenceFrame, window_->registeredFrames(),
                                              window_->shifts(), window_->masks(), outputImage_.data());
    if (solved < 0)
        return static_cast<float>(solved);
    iterations_ = solved;

    cv::Mat_<float> image(outHeight_, outWidth_, outputImage_.data());
    badPixelHandling_.maskBadPixel(image, completeShifts);
    badPixelHandling_.replaceMaskedPixel(image, completeShifts, window_->views());

    saveFrame(out);
    const float achieved = window_->achievedFactor(maxUsable);
    send("end computeSR", DebugLevel::step);
    return warning == 0 ? achieved : static_cast<float>(warning);
}

template <typename Registration>
float SrFloat<Registration>::computeSR(cv::Mat_<float>& out)
{
    out.create(outHeight_, outWidth_);
    if (out.isContinuous())
        return computeSR(out.template ptr<float>());
    cv::Mat_<float> image = out.clone();
    const float result = computeSR(image.template ptr<float>());
    image.copyTo(out);
    return result;
}

template <typename Registration>
void SrFloat<Registration>::clearFrames()
{
    window_->clear();
}

template <typename Registration>
bool SrFloat<Registration>::checkImageStructureQuality(const cv::Mat_<float>& frame) const
{
    return hasStructure(frame, minStructureThreshold_);
}

template <typename Registration>
void SrFloat<Registration>::getMasks(std::vector<cv::Mat_<unsigned char>>& out) const
{
    window_->copyMasks(out);
}

template <typename Registration>
void SrFloat<Registration>::setReferenceIndex(int index)
{
    requireReferenceIndex(index, windowSize_);
    referenceIndex_ = index;
}

template <typename Registration>
void SrFloat<Registration>::setPsfSigma(float sigma)
{
    requirePsfSigma(sigma);
    minimization_.setPsfSigma(sigma);
}

template <typename Registration>
void SrFloat<Registration>::setWeightTV(float weight)
{
    requireWeightTV(weight);
    minimization_.setWeightTV(weight);
}

template <typename Registration>
void SrFloat<Registration>::setRegError(float error)
{
    requireRegError(error);
    registration_.setRegError(error);
}

template <typename Registration>
void SrFloat<Registration>::setRelativeResidue(float residue)
{
    requireRelativeResidue(residue);
    minimization_.setRelRes(residue);
}

template <typename Registration>
void SrFloat<Registration>::setMaxCGIters(int iterations)
{
    requireMaxCGIters(iterations);
    minimization_.setMaxIter(iterations);
}

template <typename Registration>
int SrFloat<Registration>::loadFrame(const float* frame)
{
    cv::Mat_<float> newest = window_->push();
    std::copy_n(frame, inputSize_, newest.template ptr<float>());
    const int result = badPixelHandling_.detectAndReplaceBadPixel(newest);
    registration_.prepareFrame(newest.template ptr<float>());
    return result;
}

template <typename Registration>
void SrFloat<Registration>::saveFrame(float* out) const
{
    std::copy(outputImage_.begin(), outputImage_.end(), out);
}

template <typename Registration>
int SrFloat<Registration>::warningFor(const std::vector<PointF>& completeShifts) const
{
    bool largeDisplacement = false;
    bool poorFrame = false;
    for (int i = 0; i < window_->count(); ++i) {
        largeDisplacement |= isLargeDisplacement(completeShifts[static_cast<std::size_t>(i)], height_);
        const int unusable = inputSize_ - window_->usablePixels(i);
        poorFrame |= isPoorFrame(static_cast<float>(unusable), static_cast<float>(inputSize_));
    }
    return warningCode(poorFrame, largeDisplacement);
}

template class SrFloat<SrFloatRegistration1>;
template class SrFloat<SrFloatRegistration2>;

}  // namespace halvor::vx
