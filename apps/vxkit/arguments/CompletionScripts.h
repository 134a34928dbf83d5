// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace vxapp {

// Scripts by which a shell completes commands, options and values that are one of a few words; elsewhere it
// completes file names.

std::string bashCompletion(const CLI::App& program);
std::string zshCompletion(const CLI::App& program);

}  // namespace vxapp
