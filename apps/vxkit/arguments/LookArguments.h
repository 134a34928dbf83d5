// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "apps/vxkit/stream/LookStage.h"
#include "apps/vxkit/stream/Survey.h"

namespace CLI {
class App;
}

namespace vxapp {

/// --lookahead: how far a look sees in time.
void addReachOption(CLI::App& command, LookReach& reach);
/// --bad-pixels and --write-bad-pixels.
void addBadPixelOptions(CLI::App& command, BadPixelOptions& options);

}  // namespace vxapp
