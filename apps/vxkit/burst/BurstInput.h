// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "apps/vxkit/burst/BurstEngine.h"
#include "apps/vxkit/burst/Calibration.h"

namespace vxapp {

class Recording;

/// The number of frames that make one result.
/// @param name  of the recording as a whole, for messages
/// @throws UsageError if the recording has fewer, or it is out of range
int checkedWindow(const Recording& recording, const SuperresSettings& settings, const std::string& name);

/// How a recording's values reach the engine of the settings.
/// @throws UsageError if the engine can't take them, or scale or offset is no number
Calibration calibrationFor(const SuperresSettings& settings, std::optional<double> scale,
                           std::optional<double> offset, Recording& recording);

}  // namespace vxapp
