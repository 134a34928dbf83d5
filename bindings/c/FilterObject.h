// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bindings/c/Object.h"

namespace vxc {

// The pixel filters; names and ranges are those of the options of `vxkit filter`.

const SettingsTable& temporalFilterSettings();
const SettingsTable& patternFilterSettings();
const SettingsTable& spatialFilterSettings();
const SettingsTable& unsharpFilterSettings();
const SettingsTable& clusterFilterSettings();

std::unique_ptr<Object> makeFilter(const Kind& kind, cv::Size frame);
std::unique_ptr<Object> makeCluster(const Kind& kind, cv::Size frame);

}  // namespace vxc
