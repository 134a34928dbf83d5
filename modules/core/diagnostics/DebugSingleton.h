// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "core/base/Export.h"
#include "core/diagnostics/DebugChannel.h"

namespace halvor::vx {

/// Registry of the debug channels that are alive, through which a host reaches channels it did not create.
///
/// Level and device that are set here apply to the registered channels and to those that register later. The
/// registry itself may be used from several threads; a channel is configured while its owner is not running.
class VXKIT_API DebugSingletonInterface
{
public:
    virtual ~DebugSingletonInterface();

    /// Registers a channel and gives it what was set here before.
    ///
    /// @param channel  not null; to be removed before it is destroyed
    virtual void addDebugChannel(DebugChannel* channel) = 0;
    /// A channel that is not registered is ignored.
    virtual void removeDebugChannel(DebugChannel* channel) = 0;

    /// @param device  takes the lines of all channels; null for none
    virtual void setDebugDevice(std::shared_ptr<DebugDeviceBase> device) = 0;
    /// @param level  the largest that goes to the device; 0 turns the device off
    virtual void setOutputLevel(int level) = 0;
    /// @param level  the largest that goes to LogFacility; 0 turns that off
    virtual void setLogLevel(int level) = 0;
    /// Channels that are registered now.
    virtual int channelCount() const = 0;

protected:
    DebugSingletonInterface() = default;
    DebugSingletonInterface(const DebugSingletonInterface&) = default;
    DebugSingletonInterface& operator=(const DebugSingletonInterface&) = default;
};

/// The registries of the process, by name.
class VXKIT_API DebugSingleton
{
public:
    /// The registry of that name, created at its first use; it lives until the process ends. The engines use
    /// the empty name.
    static DebugSingletonInterface& getInstance(const std::string& name);
};

}  // namespace halvor::vx
