// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>
#include <string>

#include "apps/vxkit/stream/ChainSettings.h"
#include "apps/vxkit/stream/ToneCurve.h"

namespace vxapp {

/// A choice of settings under one name: how far the noise blocks go, by the recording's own noise, how samples
/// are spread over the display, and how much detail is boosted. Nothing in it depends on the frame size.
struct Look
{
    const char* name = nullptr;
    const char* help = nullptr;
    std::optional<ToneSettings> tone{};  ///< none: the chain's own equaliser
    double patternNoises = 0.0;          ///< threshold of static pattern removal in deviations of the noise
    double coringNoises = 0.0;           ///< differences that peaking takes for none, the same
    int peakGain = 0;                    ///< 0 leaves peaking out
};

/// The command's default comes first; "device" is the chain as it is.
std::span<const Look> looks();
/// @throws UsageError for a name that isn't one of looks(); an empty one is the first
const Look& lookNamed(const std::string& name);

/// Sets what the look says about the chain's blocks.
/// @param noise  deviation of the recording's noise in counts
void applyLook(const Look& look, double noise, ChainSettings& settings);

/// "60 % equalised, ..."
std::string toneText(const ToneSettings& tone);

}  // namespace vxapp
