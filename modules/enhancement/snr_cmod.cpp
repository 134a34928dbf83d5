// SPDX-License-Identifier: Apache-2.0
#include "enhancement/snr_cmod.h"

#include <algorithm>

#include "enhancement/arithmetic/ChainSample.h"
#include "enhancement/arithmetic/SpatialArithmetic.h"

using namespace halvor::vx;

SnrCmod::SnrCmod(int frameCols, int frameRows, int& gainSetting, int mode)
    : gain_(gainSetting), cols_(frameCols), rows_(frameRows), bypass_(mode)
{}

void SnrCmod::ProcessFrame(const int* in, int* out)
{
    const FrameView<int> frame = viewOf(in, out, cols_, rows_);
    if (bypass_ == copyAll)
        std::copy_n(in, frame.pixelCount(), out);
    else if (bypass_ == filterAll)
        spatial::filterFrame(frame, gain_);
    else
        spatial::filterMarkedFrame(frame, gain_);
}
