// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "core/base/Export.h"

namespace halvor::vx {

/// Receives the lines of debug channels. Implementations must accept calls from several threads.
class VXKIT_API DebugDeviceBase
{
public:
    virtual ~DebugDeviceBase();

    /// @param channel  name of the channel that sends
    /// @param text     one line, without its line end
    /// @param level    the level under which it was sent
    virtual void write(std::string_view channel, std::string_view text, int level) = 0;

protected:
    DebugDeviceBase() = default;
    DebugDeviceBase(const DebugDeviceBase&) = default;
    DebugDeviceBase& operator=(const DebugDeviceBase&) = default;
};

}  // namespace halvor::vx
