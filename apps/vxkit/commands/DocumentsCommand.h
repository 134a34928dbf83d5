// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds the command "documents" to the program, by which the build makes what is installed beside the programs:
/// manual pages, completion for shells and an example of halvor's settings. Users don't see it.
void addDocumentsCommand(CLI::App& program);

}  // namespace vxapp
