#include "enhancement/tnr_cmod.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/base/WrapArithmetic.h"
#include "enhancement/AlphaTable.h"
#include "enhancement/ChainSample.h"
#include "enhancement/TemporalArithmetic.h"

using namespace halvor::vx;

const int (&TnrCmod::mAlphaTab)[1024] = temporal::alphaTable;

TnrCmod::TnrCmod(int frameCols, int frameRows, int& gainSetting, int& globalSetting, int& feedbackSetting,
                 int mode, int hw)
    : history(static_cast<std::size_t>(frameCols) * static_cast<std::size_t>(frameRows)),
      cols(frameCols),
      rows(frameRows),
      cGain(gainSetting),
      global(globalSetting),
      alphaSetting(feedbackSetting),
      bypass(mode),
      hwUnits(hw > 0)
{}

TnrCmod::~TnrCmod() = default;

void TnrCmod::ProcessFrame(const int* in, int* out)
{
    if (bypass == copyAll) {
        if (in != out)
            std::copy_n(in, history.size(), out);
        return;
    }

    const bool start = firstFrame;
    if (start) {
        alpha = GetAlphaHw();
        firstFrame = false;
    }
    const FrameView<int> frame = viewOf(in, out, cols, rows);
    const temporal::History state{history.data(), frame.inStride, start};
    const temporal::Recursion recursion{GetCGainHw(), alpha};
    const std::int64_t motion = bypass == filterAll ? temporal::filterFrame(frame, state, recursion)
                                                    : temporal::filterMarkedFrame(frame, state, recursion);
    temporal::adapt({alpha, globalError, motionBelowThreshold, motionLow}, motion, wrapMul(cols, rows),
                    {GetGlobalHw(), GetAlphaHw()});
}

int TnrCmod::GetAlphaHw() const
{
    return temporal::alphaHw(alphaSetting, hwUnits);
}

int TnrCmod::GetCGainHw() const
{
    return temporal::controlGainHw(cGain, hwUnits);
}

int TnrCmod::GetGlobalHw() const
{
    return global;
}

int TnrCmod::GetGlobalOff() const
{
    return temporal::globalOff(global) ? 1 : 0;
}
