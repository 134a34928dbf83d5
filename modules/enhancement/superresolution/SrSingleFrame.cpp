// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrSingleFrame.h"

#include <algorithm>

#include "core/base/Exception.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/motion/MotionBurst.h"
#include "enhancement/superresolution/motion/MotionWindow.h"

namespace halvor::vx {

SrSingleFrame::SrSingleFrame(int frameWidth, int frameHeight)
    : width_(frameWidth), height_(frameHeight), badPixelHandling_(1)
{
    requireMotionSize(frameWidth, frameHeight, VX_WHERE("halvor::vx::SrSingleFrame::SrSingleFrame"));
    window_ = std::make_unique<MotionWindow>(cv::Size(width_, height_), 1);
    burst_ = std::make_unique<MotionBurst>(cv::Size(width_, height_), 1);
    picture_.create(2 * height_, 2 * width_);
    setPsfSigma(EngineDefaults::motionPsfSigma);
}

SrSingleFrame::~SrSingleFrame() = default;

int SrSingleFrame::compute(const float* frame, float* out)
{
    const int code = window_->add(frame, badPixelHandling_);
    burst_->run(window_->frames(), 1, 0, picture_);
    if (out != picture_.ptr<float>())
        std::copy_n(picture_.ptr<float>(), getOutputSize(), out);
    return code;
}

int SrSingleFrame::compute(const cv::Mat_<float>& frame, cv::Mat_<float>& out)
{
    requireFrame(frame, {width_, height_}, VX_WHERE("halvor::vx::SrSingleFrame::compute"));
    out.create(2 * height_, 2 * width_);
    const int code = compute(frame.ptr<float>(), picture_.ptr<float>());
    picture_.copyTo(out);
    return code;
}

float SrSingleFrame::getNoise() const
{
    return burst_->report().noise;
}

void SrSingleFrame::setDataIsNUC(bool isNUC)
{
    badPixelHandling_.setDataIsNUC(isNUC);
    window_->setLimits(isNUC ? countLimits : temperatureLimits);
}

void SrSingleFrame::setPsfSigma(float sigma)
{
    requireMotionPsfSigma(sigma);
    psfSigma_ = sigma;
    burst_->setPsfSigma(sigma);
}

}  // namespace halvor::vx
