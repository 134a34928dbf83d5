// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

EngineError::EngineError(const std::string& message) : std::runtime_error(message) {}

}  // namespace vxapp
