// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit selfcheck": holds the three float engines against each other and the truth.
void addSelfcheckCommand(CLI::App& program);

}  // namespace vxapp
