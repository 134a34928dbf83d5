// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit convert": writes a recording in another format, or a part of it.
void addConvertCommand(CLI::App& program);

}  // namespace vxapp
