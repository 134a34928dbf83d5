// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/output/ResultFiles.h"
#include "apps/vxkit/stream/ContactSheet.h"

namespace CLI {
class App;
}

namespace vxapp {

/// Adds -o, --preview, --colour-map and --force to a command.
void addResultOptions(CLI::App& command, ResultOptions& options);

/// Adds -o, --range, --fps, --colour-map and --force to a command.
void addSequenceOptions(CLI::App& command, SequenceOptions& options);

/// Adds --contact-sheet and --sheet-frames to a command.
void addContactSheetOptions(CLI::App& command, ContactSheetOptions& options);

}  // namespace vxapp
