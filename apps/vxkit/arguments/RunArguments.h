// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "apps/files/RunFiles.h"

namespace CLI {
class App;
}

namespace vxapp {

/// The files that a command line reads, whatever option they came by, --config among them; to be called when it has
/// been parsed. A value that names a file counts as an input unless its option is known to name an output.
std::shared_ptr<vxfiles::RunFiles> filesReadBy(const CLI::App& command);

}  // namespace vxapp
