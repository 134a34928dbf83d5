// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "core/diagnostics/DebugDeviceBase.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/DebugSingleton.h"

namespace vxsupport {

/// Has the channels of all fast engines in the process send to a device while it lives; silences them at its
/// end.
class HeardRegistry
{
public:
    explicit HeardRegistry(const std::shared_ptr<halvor::vx::DebugDeviceBase>& device)
    {
        registry_.setDebugDevice(device);
        registry_.setOutputLevel(halvor::vx::DebugLevel::detail);
    }
    HeardRegistry(const HeardRegistry&) = delete;
    HeardRegistry& operator=(const HeardRegistry&) = delete;
    ~HeardRegistry()
    {
        registry_.setDebugDevice(nullptr);
        registry_.setOutputLevel(0);
    }

private:
    halvor::vx::DebugSingletonInterface& registry_ = halvor::vx::DebugSingleton::getInstance("");
};

}  // namespace vxsupport
