// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrLocalMotion.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/DebugSingleton.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/EngineSettings.h"
#include "enhancement/superresolution/engine/FrameQuality.h"
#include "enhancement/superresolution/motion/MotionBurst.h"
#include "enhancement/superresolution/motion/MotionWindow.h"

namespace halvor::vx {

SrLocalMotion::SrLocalMotion(int frameWidth, int frameHeight, int window)
    : DebugChannel("SrLocalMotion"),
      width_(frameWidth),
      height_(frameHeight),
      windowSize_(window),
      minStructureThreshold_(EngineDefaults::minStructureThreshold),
      badPixelHandling_(static_cast<unsigned int>(std::max(window, 1)))
{
    requireMotionSize(frameWidth, frameHeight, VX_WHERE("halvor::vx::SrLocalMotion::SrLocalMotion"));
    if (window < 2)
        throw "Invalid window specified: several frames are at least 2.";
    window_ = std::make_unique<MotionWindow>(cv::Size(width_, height_), windowSize_);
    burst_ = std::make_unique<MotionBurst>(cv::Size(width_, height_), windowSize_);
    picture_.create(2 * height_, 2 * width_);
    setReferenceIndex(EngineDefaults::referenceIndex);
    setPsfSigma(EngineDefaults::motionPsfSigma);
    DebugSingleton::getInstance("").addDebugChannel(this);
}

SrLocalMotion::~SrLocalMotion()
{
    DebugSingleton::getInstance("").removeDebugChannel(this);
}

int SrLocalMotion::addFrame(const float* frame)
{
    send("start addFrame", DebugLevel::step);
    const int result = window_->add(frame, badPixelHandling_);
    send("end addFrame", DebugLevel::step);
    return result;
}

int SrLocalMotion::addFrame(const cv::Mat_<float>& frame)
{
    requireFrame(frame, {width_, height_}, VX_WHERE("halvor::vx::SrLocalMotion::addFrame"));
    return addFrame(frame.ptr<float>());
}

int SrLocalMotion::computeSR(float* out)
{
    if (window_->count() == 0)
        throw Exception("No frame was added.", VX_WHERE("halvor::vx::SrLocalMotion::computeSR"));
    send("start computeSR", DebugLevel::step);
    burst_->run(window_->frames(), window_->count(), window_->referenceFrame(referenceIndex_), picture_);
    if (out != picture_.ptr<float>())
        std::copy_n(picture_.ptr<float>(), getOutputSize(), out);
    bool isPoor = false;
    bool isLarge = false;
    for (const LocalMotionReport::Frame& frame : getReport().frames) {
        isPoor |= isPoorFrame(1.0F - frame.weight, 1.0F);
        isLarge |= isLargeDisplacement({frame.shift.x, std::abs(frame.shift.y)}, height_);
    }
    send("end computeSR", DebugLevel::step);
    return warningCode(isPoor, isLarge);
}

int SrLocalMotion::computeSR(cv::Mat_<float>& out)
{
    out.create(2 * height_, 2 * width_);
    if (out.isContinuous())
        return computeSR(out.ptr<float>());
    const int code = computeSR(picture_.ptr<float>());
    picture_.copyTo(out);
    return code;
}

void SrLocalMotion::clearFrames()
{
    window_->clear();
}

bool SrLocalMotion::checkImageStructureQuality(const cv::Mat_<float>& frame) const
{
    return hasStructure(frame, minStructureThreshold_);
}

const LocalMotionReport& SrLocalMotion::getReport() const
{
    return burst_->report();
}

void SrLocalMotion::getEffectiveFrames(cv::Mat_<float>& out) const
{
    burst_->effectiveFrames().copyTo(out);
}

void SrLocalMotion::setDataIsNUC(bool isNUC)
{
    badPixelHandling_.setDataIsNUC(isNUC);
    window_->setLimits(isNUC ? countLimits : temperatureLimits);
}

void SrLocalMotion::setReferenceIndex(int index)
{
    requireReferenceIndex(index, windowSize_);
    referenceIndex_ = index;
}

void SrLocalMotion::setPsfSigma(float sigma)
{
    requireMotionPsfSigma(sigma);
    psfSigma_ = sigma;
    burst_->setPsfSigma(sigma);
}

}  // namespace halvor::vx
