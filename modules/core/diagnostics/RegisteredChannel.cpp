// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/RegisteredChannel.h"

#include "core/diagnostics/DebugSingleton.h"

namespace halvor::vx {

RegisteredChannel::RegisteredChannel(const std::string& name) : DebugChannel(name)
{
    DebugSingleton::getInstance("").addDebugChannel(this);
}

RegisteredChannel::RegisteredChannel(const RegisteredChannel& other) : DebugChannel(other)
{
    DebugSingleton::getInstance("").addDebugChannel(this);
}

RegisteredChannel::~RegisteredChannel()
{
    DebugSingleton::getInstance("").removeDebugChannel(this);
}

}  // namespace halvor::vx
