// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/DebugSingleton.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "core/base/NeverDestroyed.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/OutputSink.h"

namespace halvor::vx {

namespace {

class ChannelRegistry : public DebugSingletonInterface
{
public:
    void addDebugChannel(DebugChannel* channel) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        channels_.push_back(channel);
        if (device_)
            channel->setDebugDevice(*device_);
        if (outputLevel_)
            channel->setOutputLevel(*outputLevel_);
        if (logLevel_)
            channel->setLogLevel(*logLevel_);
        // The channel of an engine that arises under a sink is the sink's alone, whatever other threads hear.
        if (auto device = traceDevice()) {
            channel->setDebugDevice(std::move(device));
            channel->setOutputLevel(DebugLevel::detail);
        }
    }

    void removeDebugChannel(DebugChannel* channel) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::erase(channels_, channel);
    }

    void setDebugDevice(std::shared_ptr<DebugDeviceBase> device) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        device_ = std::move(device);
        for (DebugChannel* channel : channels_)
            channel->setDebugDevice(*device_);
    }

    void setOutputLevel(int level) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        outputLevel_ = level;
        for (DebugChannel* channel : channels_)
            channel->setOutputLevel(level);
    }

    void setLogLevel(int level) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        logLevel_ = level;
        for (DebugChannel* channel : channels_)
            channel->setLogLevel(level);
    }

    int channelCount() const override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return static_cast<int>(channels_.size());
    }

private:
    mutable std::mutex mutex_;
    std::vector<DebugChannel*> channels_;
    std::optional<std::shared_ptr<DebugDeviceBase>> device_;
    std::optional<int> outputLevel_;
    std::optional<int> logLevel_;
};

}  // namespace

DebugSingletonInterface::~DebugSingletonInterface() = default;

DebugSingletonInterface& DebugSingleton::getInstance(const std::string& name)
{
    struct Registries
    {
        std::mutex mutex;
        std::map<std::string, ChannelRegistry> byName;
    };
    // Never destroyed: an engine that a host holds in a static of its own deregisters later than that.
    static auto& registries = neverDestroyed<Registries>();
    const std::lock_guard<std::mutex> lock(registries.mutex);
    return registries.byName[name];
}

}  // namespace halvor::vx
