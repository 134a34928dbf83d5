#include "enhancement/snr_cmod.h"

#include <algorithm>

#include "enhancement/ChainSample.h"
#include "enhancement/SpatialArithmetic.h"

using namespace halvor::vx;

SnrCmod::SnrCmod(int frameCols, int frameRows, int& gainSetting, int mode)
    : gain(gainSetting), cols(frameCols), rows(frameRows), bypass(mode)
{}

void SnrCmod::ProcessFrame(const int* in, int* out)
{
    const FrameView<int> frame = viewOf(in, out, cols, rows);
    if (bypass == copyAll)
        std::copy_n(in, frame.pixelCount(), out);
    else if (bypass == filterAll)
        spatial::filterFrame(frame, gain);
    else
        spatial::filterMarkedFrame(frame, gain);
}
