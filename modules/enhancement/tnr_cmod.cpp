// SPDX-License-Identifier: Apache-2.0
#include "enhancement/tnr_cmod.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/base/WrapArithmetic.h"
#include "enhancement/arithmetic/AlphaTable.h"
#include "enhancement/arithmetic/ChainSample.h"
#include "enhancement/arithmetic/TemporalArithmetic.h"

using namespace halvor::vx;

const int (&TnrCmod::mAlphaTab)[1024] = temporal::alphaTable;

TnrCmod::TnrCmod(int frameCols, int frameRows, int& gainSetting, int& globalSetting, int& feedbackSetting,
                 int mode, int hw)
    : history_(static_cast<std::size_t>(frameCols) * static_cast<std::size_t>(frameRows)),
      cols_(frameCols),
      rows_(frameRows),
      cGain_(gainSetting),
      global_(globalSetting),
      alphaSetting_(feedbackSetting),
      bypass_(mode),
      hwUnits_(hw > 0)
{}

TnrCmod::~TnrCmod() = default;

void TnrCmod::ProcessFrame(const int* in, int* out)
{
    if (bypass_ == copyAll) {
        if (in != out)
            std::copy_n(in, history_.size(), out);
        return;
    }

    const bool start = firstFrame_;
    if (start) {
        alpha_ = GetAlphaHw();
        firstFrame_ = false;
    }
    const FrameView<int> frame = viewOf(in, out, cols_, rows_);
    const temporal::History state{history_.data(), frame.inStride, start};
    const temporal::Recursion recursion{GetCGainHw(), alpha_};
    const std::int64_t motion = bypass_ == filterAll ? temporal::filterFrame(frame, state, recursion)
                                                     : temporal::filterMarkedFrame(frame, state, recursion);
    temporal::adapt({alpha_, globalError_, motionBelowThreshold_, motionLow_}, motion, wrapMul(cols_, rows_),
                    {GetGlobalHw(), GetAlphaHw()});
}

int TnrCmod::GetAlphaHw() const
{
    return temporal::alphaHw(alphaSetting_, hwUnits_);
}

int TnrCmod::GetCGainHw() const
{
    return temporal::controlGainHw(cGain_, hwUnits_);
}

int TnrCmod::GetGlobalHw() const
{
    return global_;
}

int TnrCmod::GetGlobalOff() const
{
    return temporal::globalOff(global_) ? 1 : 0;
}
