// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit diff": tells whether two recordings hold the same values.
void addDiffCommand(CLI::App& program);

}  // namespace vxapp
