// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit compare": tells how far an image is from a reference.
void addCompareCommand(CLI::App& program);

}  // namespace vxapp
