// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/SampleScale.h"

namespace CLI {
class App;
}

namespace vxapp {

/// Adds --size and what else tells how samples lie in a file to a command.
void addLayoutOptions(CLI::App& command, RecordingOptions& options);

/// Adds INPUT..., --frames and the options of the layout to a command.
void addRecordingOptions(CLI::App& command, RecordingOptions& options);

/// Adds --signed, --scale and --offset to a command.
void addScaleOptions(CLI::App& command, ScaleOptions& options);

}  // namespace vxapp
