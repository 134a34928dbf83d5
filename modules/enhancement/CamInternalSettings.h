// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

namespace halvor::vx {

/// Calibration values inside a camera, as far as the enhancer chain reads them. A record as it is made holds
/// the chain's defaults.
struct CamInternalSettings
{
    int tnrBypass = 2;  ///< 0 bypasses the block, any other value runs it; so do the two below
    int tnrCGain = 10;
    int tnrGlobal = 15;
    int tnrAlpha = 60;

    int sprBypass = 2;
    int sprThreshold = 22;
    int sprMaxFrame = 16;
    int sprMaxLine = 12;
    int sprDelay = 1;

    int snrBypass = 2;
    int snrGain = 6;

    int histMode = 3;
    int histGain = 4;
    // The 0.1 % and 99.9 % ranks of 160 by 120 pixels; hosts depend on these values for every frame size.
    int histGainLow = 19;
    int histGainHigh = 19181;
    int histReserved = 0;  ///< not read
    int histWidth = 8;
    int histLimit = 8;
    int histLimit2 = -842150451;  ///< 0xCDCDCDCD

    std::array<int, 6> further{8, 0, 1, 0, 0, 0};  ///< kept by the enhancer, read by nothing

    int peakEnabled = 1;
    int peakCoring = 15;
    int peakGain = 14;
    int peakLimit = 130;
    int peakWidth = 1;
    int peakReductThres = 20;
    int peakReductGain = 30;
    int peakTestmode = 0;
};

}  // namespace halvor::vx
