// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>
#include <optional>
#include <string>
#include <vector>

#include "apps/vxkit/stream/ToneCurve.h"
#include "support/drivers/ChainSettings.h"

namespace vxapp {

using vxsupport::ChainSettings;
using vxsupport::openChain;

/// What a command line tells about the chain.
struct ChainOptions
{
    std::string look;  ///< one of looks(); empty for the first, or with a settings file for the device's
    std::string file;  ///< settings file of the stream processor; empty for none
    std::vector<std::optional<int>> values;   ///< one for each of chainTable(), or none
    std::vector<std::optional<bool>> blocks;  ///< one for each of chainBlocks(), or none
};

/// The settings for frames of a size: those of the options, else of the file, else of the look, else the chain's
/// own. Ranks that nothing names are 0.1 % and 99.9 % of the pixels. What a file doesn't name is as in the stream
/// processor, not as in the chain.
///
/// @param noise  deviation of the recording's noise in counts, for looks
/// @throws UsageError if the file can't be read, a look is unknown or named beside a file, or a setting is out of
///         its range; the text names it
ChainSettings chainSettings(const ChainOptions& options, cv::Size frameSize, double noise);

/// How the look spreads samples over the display in place of the chain's equaliser. None where the look or the
/// options leave that to the equaliser: each of its options does.
std::optional<ToneSettings> toneSettings(const ChainOptions& options);

/// The settings by block, one line each, for people.
/// @param tone  what stands in the equaliser's place
std::string settingsText(const ChainSettings& settings, const std::optional<ToneSettings>& tone);

}  // namespace vxapp
