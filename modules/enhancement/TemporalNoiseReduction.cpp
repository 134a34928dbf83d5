// SPDX-License-Identifier: Apache-2.0
#include "enhancement/TemporalNoiseReduction.h"

#include <cstddef>
#include <cstdint>

#include "core/base/WrapArithmetic.h"
#include "enhancement/arithmetic/AlphaTable.h"
#include "enhancement/arithmetic/CheckedSetting.h"
#include "enhancement/arithmetic/TemporalArithmetic.h"

namespace halvor::vx {

const int (&TemporalNoiseReduction::mAlphaTab)[1024] = temporal::alphaTable;

TemporalNoiseReduction::TemporalNoiseReduction(int gain, int threshold, int factor, bool hardwareUnits)
    : controlGain_(gain), globalThreshold_(threshold), feedbackFactor_(factor), hwUnits_(hardwareUnits)
{}

void TemporalNoiseReduction::process(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    dst.create(src.size());
    const FrameView<short> frame = viewOf(src, dst);
    const bool start = firstFrame_ || historySize_ != src.size();
    if (start) {
        history_.resize(frame.pixelCount());
        historySize_ = src.size();
        alpha_ = getAlphaHw();
        firstFrame_ = false;
    }
    const temporal::History state{history_.data(), static_cast<std::size_t>(src.cols), start};
    const std::int64_t motion = temporal::filterFrame(frame, state, {getCGainHw(), alpha_});
    temporal::adapt({alpha_, globalError_, motionBelowThreshold_, motionLow_}, motion,
                    wrapMul(src.cols, src.rows), {globalThreshold_, getAlphaHw()});
}

bool TemporalNoiseReduction::setControlGain(int value)
{
    return setChecked(controlGain_, value, 10);
}

bool TemporalNoiseReduction::setGlobalThreshold(int value)
{
    return setChecked(globalThreshold_, value, 100);
}

bool TemporalNoiseReduction::setFeedbackFactor(int value)
{
    return setChecked(feedbackFactor_, value, 100);
}

int TemporalNoiseReduction::getAlphaHw() const
{
    return temporal::alphaHw(feedbackFactor_, hwUnits_);
}

int TemporalNoiseReduction::getCGainHw() const
{
    return temporal::controlGainHw(controlGain_, hwUnits_);
}

}  // namespace halvor::vx
