// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "apps/vxkit/terminal/Results.h"

namespace CLI {
class App;
}

namespace vxapp {

/// Adds --json to a command that prints results, and gives the printer that obeys it.
std::shared_ptr<Results> addResultsOption(CLI::App& command);

}  // namespace vxapp
