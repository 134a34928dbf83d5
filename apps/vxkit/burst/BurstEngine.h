// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "support/drivers/BurstEngine.h"

// The drivers of the engines for the command line: what they refuse is bad use of an option.
namespace vxapp {

using vxsupport::BurstAnswer;
using vxsupport::BurstEngine;
using vxsupport::BurstMotion;
using vxsupport::cameraText;
using vxsupport::EngineKind;
using vxsupport::engineNames;
using vxsupport::FrameReport;
using vxsupport::isFailure;
using vxsupport::motionNames;
using vxsupport::SuperresSettings;
using vxsupport::textOf;

/// @param name  one of motionNames()
BurstMotion motionFrom(const std::string& name);
/// @param name  one of engineNames()
EngineKind engineKindFrom(const std::string& name);

/// Opens the engine that the settings ask for. What the reference engine writes to the standard output goes to the
/// settings' trace as channel "output".
/// @throws UsageError if a setting is out of its range
/// @throws EngineError if no engine can be opened for the size
std::unique_ptr<BurstEngine> openBurstEngine(cv::Size frameSize, const SuperresSettings& settings);

}  // namespace vxapp
