// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/DebugChannel.h"

#include <algorithm>
#include <utility>

#include "core/diagnostics/LogFacility.h"

namespace halvor::vx {

DebugChannel::DebugChannel(std::string name) : name_(std::move(name)) {}

DebugChannel::DebugChannel(const DebugChannel&) = default;
DebugChannel::DebugChannel(DebugChannel&&) noexcept = default;
DebugChannel& DebugChannel::operator=(const DebugChannel&) = default;
DebugChannel& DebugChannel::operator=(DebugChannel&&) noexcept = default;
DebugChannel::~DebugChannel() = default;

void DebugChannel::setOutputLevel(int level)
{
    outputLevel_ = level;
    updateActiveLevel();
}

void DebugChannel::setLogLevel(int level)
{
    logLevel_ = level;
    updateActiveLevel();
}

void DebugChannel::setDebugDevice(std::shared_ptr<DebugDeviceBase> device)
{
    device_ = std::move(device);
    updateActiveLevel();
}

std::shared_ptr<DebugDeviceBase> DebugChannel::getDebugDevice() const
{
    return device_;
}

void DebugChannel::setDebugChannelName(std::string name)
{
    name_ = std::move(name);
}

const std::string& DebugChannel::getDebugChannelName() const
{
    return name_;
}

void DebugChannel::deliver(std::string_view text, int level) const
{
    if (device_ && level <= outputLevel_)
        device_->write(name_, text, level);
    if (level <= logLevel_) {
        const int severity = level <= LogFacility::problems ? LogFacility::problems : LogFacility::progress;
        LogFacility::getInstance().logMessage(severity, name_ + ": " + std::string(text));
    }
}

void DebugChannel::updateActiveLevel()
{
    activeLevel_ = std::max(device_ ? outputLevel_ : 0, logLevel_);
}

}  // namespace halvor::vx
