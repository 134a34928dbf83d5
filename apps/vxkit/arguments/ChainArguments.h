// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "apps/vxkit/stream/ChainSettings.h"

namespace CLI {
class App;
}

namespace vxapp {

/// Adds --settings and an option for each setting and each bypass to a command.
void addChainOptions(CLI::App& command, ChainOptions& options);

}  // namespace vxapp
