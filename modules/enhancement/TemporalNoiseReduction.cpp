#include "enhancement/TemporalNoiseReduction.h"

#include <cstddef>
#include <cstdint>

#include "core/base/WrapArithmetic.h"
#include "enhancement/AlphaTable.h"
#include "enhancement/CheckedSetting.h"
#include "enhancement/TemporalArithmetic.h"

namespace halvor::vx {

const int (&TemporalNoiseReduction::mAlphaTab)[1024] = temporal::alphaTable;

TemporalNoiseReduction::TemporalNoiseReduction(int gain, int threshold, int factor, bool hardwareUnits)
    : controlGain(gain), globalThreshold(threshold), feedbackFactor(factor), hwUnits(hardwareUnits)
{}

void TemporalNoiseReduction::process(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    dst.create(src.size());
    const FrameView<short> frame = viewOf(src, dst);
    const bool start = firstFrame || historySize_ != src.size();
    if (start) {
        history.resize(frame.pixelCount());
        historySize_ = src.size();
        alpha = getAlphaHw();
        firstFrame = false;
    }
    const temporal::History state{history.data(), static_cast<std::size_t>(src.cols), start};
    const std::int64_t motion = temporal::filterFrame(frame, state, {getCGainHw(), alpha});
    temporal::adapt({alpha, globalError, motionBelowThreshold, motionLow}, motion,
                    wrapMul(src.cols, src.rows), {globalThreshold, getAlphaHw()});
}

bool TemporalNoiseReduction::setControlGain(int value)
{
    return setChecked(controlGain, value, 10);
}

bool TemporalNoiseReduction::setGlobalThreshold(int value)
{
    return setChecked(globalThreshold, value, 100);
}

bool TemporalNoiseReduction::setFeedbackFactor(int value)
{
    return setChecked(feedbackFactor, value, 100);
}

int TemporalNoiseReduction::getAlphaHw() const
{
    return temporal::alphaHw(feedbackFactor, hwUnits);
}

int TemporalNoiseReduction::getCGainHw() const
{
    return temporal::controlGainHw(controlGain, hwUnits);
}

}  // namespace halvor::vx
