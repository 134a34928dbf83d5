#include "support/EngineListener.h"

#include <cstdlib>
#include <string>

#include "core/diagnostics/DebugSingleton.h"

namespace vxsupport {

using halvor::vx::DebugChannel;
using halvor::vx::DebugDeviceBase;
using halvor::vx::DebugSingleton;

void EngineListener::write(std::string_view channel, std::string_view text, int level)
{
    // The line that a solver ends with.
    constexpr std::string_view label = "cummulated iterations";
    if (text.substr(0, label.size()) == label)
        iterations_ = std::atoi(std::string(text.substr(label.size())).c_str());
    if (next_)
        next_->write(channel, text, level);
}

FastEngineChannels::FastEngineChannels(const std::shared_ptr<DebugDeviceBase>& device, int level)
{
    DebugSingleton::getInstance("").setDebugDevice(device);
    DebugSingleton::getInstance("").setOutputLevel(level);
}

FastEngineChannels::~FastEngineChannels()
{
    DebugSingleton::getInstance("").setDebugDevice(nullptr);
    DebugSingleton::getInstance("").setOutputLevel(0);
}

void listenTo(halvor::vx::SuperResolution& engine, const std::shared_ptr<DebugDeviceBase>& device, int level)
{
    std::vector<DebugChannel*> channels = engine.getInternalDebugChannelObjects();
    channels.push_back(&engine);
    for (DebugChannel* channel : channels) {
        channel->setDebugDevice(device);
        channel->setOutputLevel(level);
    }
}

}  // namespace vxsupport
