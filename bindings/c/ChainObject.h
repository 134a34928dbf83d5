// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bindings/c/Object.h"

namespace vxc {

/// Of the whole chain: "tnr-alpha" and so on, and a switch for each block by its name.
const SettingsTable& chainSettings();
/// Of one block: "alpha" and so on.
const SettingsTable& temporalBlockSettings();
const SettingsTable& patternBlockSettings();
const SettingsTable& spatialBlockSettings();
const SettingsTable& histogramBlockSettings();
const SettingsTable& peakingBlockSettings();

std::unique_ptr<Object> makeChain(const Kind& kind, cv::Size frame);
std::unique_ptr<Object> makeBlock(const Kind& kind, cv::Size frame);

/// @throws Failure  for a frame that is too narrow for the filters
void requireFilterSize(cv::Size frame);

}  // namespace vxc
