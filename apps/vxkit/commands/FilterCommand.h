// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit filter": runs one pixel filter alone on a recording.
void addFilterCommand(CLI::App& program);

}  // namespace vxapp
