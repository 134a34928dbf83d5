// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/FrameRun.h"

namespace CLI {
class App;
}

namespace vxapp {

/// Adds INPUT..., --size and --frames to a command.
void addRecordingOptions(CLI::App& command, RecordingOptions& options);

/// Adds --signed to a command.
void addSampleOption(CLI::App& command, SampleForm& form);

}  // namespace vxapp
