// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bindings/c/Object.h"

namespace vxc {

// One table per kind, and one object for all: a driver of an engine.

const SettingsTable& floatEngineSettings();
const SettingsTable& referenceEngineSettings();
const SettingsTable& fixedPointSettings();
const SettingsTable& localMotionSettings();
const SettingsTable& singleFrameSettings();

std::unique_ptr<Object> makeSuperres(const Kind& kind, cv::Size frame);

}  // namespace vxc
