// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/DebugDeviceConsole.h"

#include <iostream>

#include "core/diagnostics/OutputSink.h"

namespace halvor::vx {

DebugDeviceBase::~DebugDeviceBase() = default;

void DebugDeviceConsole::write(std::string_view channel, std::string_view text, int /*level*/)
{
    if (OutputSink* sink = OutputSink::current()) {
        sink->write(OutputSink::Kind::trace, channel, text);
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    std::cerr << '[' << channel << "] " << text << std::endl;
}

}  // namespace halvor::vx
