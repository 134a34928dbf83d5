// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>

#include "enhancement/CamInternalSettings.h"
#include "enhancement/MARLOImageEnhancer.h"

namespace vxsupport {

/// All settings that have an effect on the enhancer chain.
struct ChainSettings : halvor::vx::CamInternalSettings
{
    int histSpeed = 1;
    int histGamma = 0;
    int histOffset = 0;
};

/// The chain's own settings, with ranks of 0.1 % and 99.9 % of a frame's pixels.
ChainSettings usualChainSettings(cv::Size frameSize);

halvor::vx::MARLOImageEnhancer openChain(const ChainSettings& settings, cv::Size frameSize);

/// Gives a running chain the values of all settings but the delay of static pattern removal, which takes a new chain.
/// A block that is switched on or off forgets what it has learned.
void changeChain(halvor::vx::MARLOImageEnhancer& chain, const ChainSettings& settings);

}  // namespace vxsupport
