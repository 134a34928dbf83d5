// SPDX-License-Identifier: Apache-2.0
#include "support/drivers/ChainSettings.h"

namespace vxsupport {

ChainSettings usualChainSettings(cv::Size frameSize)
{
    ChainSettings settings;
    const HistogramParam param = Histogram(frameSize.width, frameSize.height).param;
    settings.histGainLow = param.gainlow;
    settings.histGainHigh = param.gainhigh;
    return settings;
}

halvor::vx::MARLOImageEnhancer openChain(const ChainSettings& settings, cv::Size frameSize)
{
    halvor::vx::MARLOImageEnhancer chain(frameSize.width, frameSize.height, &settings);
    chain.histSetSpeed(settings.histSpeed);
    chain.histSetGamma(settings.histGamma);
    chain.histSetOffset(settings.histOffset);
    // The delay takes effect when a change of the bypass rebuilds the block.
    chain.sprSetBypass(settings.sprBypass == 0 ? 2 : 0);
    chain.sprSetBypass(settings.sprBypass);
    return chain;
}

void changeChain(halvor::vx::MARLOImageEnhancer& chain, const ChainSettings& settings)
{
    chain.tnrSetBypass(settings.tnrBypass);
    chain.tnrSetAlpha(settings.tnrAlpha);
    chain.tnrSetGlobal(settings.tnrGlobal);
    chain.tnrSetCGain(settings.tnrCGain);
    chain.sprSetBypass(settings.sprBypass);
    chain.sprSetThreshold(settings.sprThreshold);
    chain.sprSetMaxFrame(settings.sprMaxFrame);
    chain.sprSetMaxLine(settings.sprMaxLine);
    chain.snrSetBypass(settings.snrBypass);
    chain.snrSetGain(settings.snrGain);
    chain.histSetMode(settings.histMode);
    chain.histSetGain(settings.histGain);
    chain.histSetGainLow(settings.histGainLow);
    chain.histSetGainHigh(settings.histGainHigh);
    chain.histSetLimit(settings.histLimit);
    chain.histSetSpeed(settings.histSpeed);
    chain.histSetGamma(settings.histGamma);
    chain.histSetOffset(settings.histOffset);
    chain.peakSetEnabled(settings.peakEnabled);
    chain.peakSetGain(settings.peakGain);
    chain.peakSetCoring(settings.peakCoring);
    chain.peakSetLimit(settings.peakLimit);
    chain.peakSetReductThres(settings.peakReductThres);
    chain.peakSetReductGain(settings.peakReductGain);
}

}  // namespace vxsupport
