// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds the command "help" to the program.
void addHelpCommand(CLI::App& program);

}  // namespace vxapp
