// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/DebugDeviceConsole.h"

#include <iostream>

namespace halvor::vx {

DebugDeviceBase::~DebugDeviceBase() = default;

void DebugDeviceConsole::write(std::string_view channel, std::string_view text, int /*level*/)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::cerr << '[' << channel << "] " << text << std::endl;
}

}  // namespace halvor::vx
