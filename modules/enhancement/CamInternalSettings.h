// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

namespace halvor::vx {

/// Calibration values inside a camera, as far as the enhancer chain reads them. A record as it is made holds
/// the chain's defaults.
struct CamInternalSettings
{
    int tnrBypass = 2;   ///< 0 bypasses the block, any other value runs it; so do the two below
    int tnrCGain = 10;   ///< control gain in tenths, 0 to 1000; more filters less where a pixel changes
    int tnrGlobal = 15;  ///< motion of the picture above which the feedback falls, 0 to 1000; 100: never
    int tnrAlpha = 60;   ///< feedback in percent, 0 to 100; more filters more

    int sprBypass = 2;      ///< as tnrBypass
    int sprThreshold = 22;  ///< deviation in counts below which it is learned as pattern, 0 to 32767
    int sprMaxFrame = 16;   ///< limit of the correction of a pixel in units of 0.9 counts, 0 to 4095
    int sprMaxLine = 12;    ///< limit of the correction of a column in units of 0.9 counts, 0 to 4095
    int sprDelay = 1;       ///< columns that a line correction comes late by, 0 to 2; 0 works as 2

    int snrBypass = 2;  ///< as tnrBypass
    int snrGain = 6;    ///< strength of the spatial filter, 0 to 32767; 0: the picture stays as it is

    int histMode = 3;  ///< this and what follows: see HistogramParam
    int histGain = 4;  ///< weight of a bin between the two ranks in mode 2
    // The 0.1 % and 99.9 % ranks of 160 by 120 pixels; hosts depend on these values for every frame size.
    int histGainLow = 19;         ///< lower rank of mode 2, in pixels
    int histGainHigh = 19181;     ///< upper rank of mode 2, in pixels
    int histReserved = 0;         ///< not read
    int histWidth = 8;            ///< bits of a bin index; only 8 gives a picture
    int histLimit = 8;            ///< plateau of mode 3, in sixteenths of a pixel
    int histLimit2 = -842150451;  ///< 0xCDCDCDCD

    std::array<int, 6> further{8, 0, 1, 0, 0, 0};  ///< kept by the enhancer, read by nothing

    int peakEnabled = 1;       ///< this and what follows: see PeakingParam
    int peakCoring = 15;       ///< differences up to this many levels count as none
    int peakGain = 14;         ///< boost in units of 1/4096
    int peakLimit = 130;       ///< largest boost before the gain, in units of 4096
    int peakWidth = 1;         ///< not read
    int peakReductThres = 20;  ///< local contrast in units of 512 levels above which the boost falls
    int peakReductGain = 30;   ///< how fast it falls, in units of 1/4096; 0 for not at all
    int peakTestmode = 0;      ///< must stay 0
};

}  // namespace halvor::vx
