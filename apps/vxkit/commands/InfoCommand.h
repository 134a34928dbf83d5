// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit info": tells what recordings hold.
void addInfoCommand(CLI::App& program);

}  // namespace vxapp
