// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit simulate": writes a simulated burst or recording with its ground truth.
void addSimulateCommand(CLI::App& program);

}  // namespace vxapp
