// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bindings/c/Object.h"

namespace vxc {

const SettingsTable& burstSettings();
const SettingsTable& recordingSettings();

std::unique_ptr<Object> makeBurst(const Kind& kind, cv::Size frame);
std::unique_ptr<Object> makeRecording(const Kind& kind, cv::Size frame);

}  // namespace vxc
