// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds the command "psf" to the program.
void addPsfCommand(CLI::App& program);

}  // namespace vxapp
