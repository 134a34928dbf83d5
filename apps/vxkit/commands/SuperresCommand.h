// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit superres": makes one image of twice the size from every five frames of a recording.
void addSuperresCommand(CLI::App& program);

}  // namespace vxapp
