// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "core/base/Export.h"
#include "core/diagnostics/DebugDeviceBase.h"

namespace halvor::vx {

/// Named source of debug lines, each with a level; a larger level means finer detail.
///
/// A line goes to the debug device if its level is at most the output level, and to LogFacility if its level
/// is at most the log level. Both start at 0, so that a new channel is silent and a send costs one
/// comparison. Copies share the device.
class VXKIT_API DebugChannel
{
public:
    /// @param name  what devices and log lines call the channel
    explicit DebugChannel(std::string name);
    DebugChannel(const DebugChannel&);
    DebugChannel(DebugChannel&&) noexcept;
    DebugChannel& operator=(const DebugChannel&);
    DebugChannel& operator=(DebugChannel&&) noexcept;
    virtual ~DebugChannel();

    /// Whether a line of this level goes anywhere. Without a device only the log level counts.
    bool isDebugActive(int level) const { return level <= activeLevel_; }

    /// One line without its line end. It is delivered on the calling thread before the function returns.
    void send(std::string_view text, int level) const
    {
        if (isDebugActive(level))
            deliver(text, level);
    }

    /// One line of text and value; the value is formatted only when the level is active.
    template <typename Value>
    void send(std::string_view text, const Value& value, int level) const
    {
        if (!isDebugActive(level))
            return;
        std::ostringstream line;
        line.imbue(std::locale::classic());
        line << text << value;
        deliver(line.str(), level);
    }

    /// Largest level that goes to the device; 0 turns the device off.
    void setOutputLevel(int level);
    /// Largest level that goes to LogFacility as well; 0 turns that off.
    void setLogLevel(int level);

    /// @param device  takes the lines up to the output level; null for none
    void setDebugDevice(std::shared_ptr<DebugDeviceBase> device);

    /// Null if no device was set.
    std::shared_ptr<DebugDeviceBase> getDebugDevice() const;

    /// The name of the lines that are sent from now on.
    void setDebugChannelName(std::string name);
    const std::string& getDebugChannelName() const;

private:
    void deliver(std::string_view text, int level) const;
    void updateActiveLevel();

    std::string name_;
    std::shared_ptr<DebugDeviceBase> device_;
    int outputLevel_ = 0;
    int logLevel_ = 0;
    int activeLevel_ = 0;
};

}  // namespace halvor::vx
