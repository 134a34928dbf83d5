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
    explicit RegisteredChannel(const std::string& name);
    RegisteredChannel(const RegisteredChannel&);
    RegisteredChannel& operator=(const RegisteredChannel&) = default;
    ~RegisteredChannel() override;
};

}  // namespace halvor::vx
