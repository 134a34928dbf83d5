// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit enhance": runs the enhancer chain over a recording.
void addEnhanceCommand(CLI::App& program);

}  // namespace vxapp
