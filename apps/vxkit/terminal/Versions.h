// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace vxapp {

/// "vxkit 0.1.0", and a line for each library that the results may depend on.
std::string versionText();

}  // namespace vxapp
