// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "core/base/Export.h"
#include "core/diagnostics/DebugChannel.h"

namespace halvor::vx {

/// Debug channel that is registered with DebugSingleton under the empty name while it lives, and so is each
/// of its copies: for objects that are copied by value.
class VXKIT_API RegisteredChannel : public DebugChannel
{
public:
    /// @param name  what devices and log lines call the channel
    explicit RegisteredChannel(const std::string& name);
    /// The copy has the name, levels and device of the other, and registers on its own.
    RegisteredChannel(const RegisteredChannel&);
    RegisteredChannel& operator=(const RegisteredChannel&) = default;
    ~RegisteredChannel() override;
};

}  // namespace halvor::vx
