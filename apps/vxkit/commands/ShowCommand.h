// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vxkit show": pictures of images and frames with a colour bar and marks, and statistics of areas.
void addShowCommand(CLI::App& program);

}  // namespace vxapp
