// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/diagnostics/DebugChannel.h"
#include "core/diagnostics/DebugDeviceBase.h"
#include "core/diagnostics/DebugSingleton.h"

namespace vxtest {

/// Keeps the lines of debug channels.
class LineRecorder : public halvor::vx::DebugDeviceBase
{
public:
    struct Line
    {
        std::string channel;
        std::string text;
        int level;
    };

    void write(std::string_view channel, std::string_view text, int level) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines.push_back({std::string(channel), std::string(text), level});
    }

    /// The texts; of a line that is not of this channel and level the whole of it.
    std::vector<std::string> textsOf(const std::string& channel, int level) const
    {
        std::vector<std::string> texts;
        for (const Line& line : lines)
            texts.push_back(line.channel == channel && line.level == level
                                ? line.text
                                : line.channel + "|" + line.text + "|" + std::to_string(line.level));
        return texts;
    }

    std::vector<Line> lines;

private:
    std::mutex mutex_;
};

inline std::shared_ptr<LineRecorder> listenTo(const std::vector<halvor::vx::DebugChannel*>& channels,
                                              int level)
{
    auto recorder = std::make_shared<LineRecorder>();
    for (halvor::vx::DebugChannel* channel : channels) {
        channel->setDebugDevice(recorder);
        channel->setOutputLevel(level);
    }
    return recorder;
}

/// Hears all channels of the process while it lives.
class HeardProcess
{
public:
    explicit HeardProcess(int level = 11)
    {
        registry_.setDebugDevice(recorder);
        registry_.setOutputLevel(level);
    }
    HeardProcess(const HeardProcess&) = delete;
    HeardProcess& operator=(const HeardProcess&) = delete;
    ~HeardProcess()
    {
        registry_.setOutputLevel(0);
        registry_.setDebugDevice(nullptr);
    }

    const std::shared_ptr<LineRecorder> recorder = std::make_shared<LineRecorder>();

private:
    halvor::vx::DebugSingletonInterface& registry_ = halvor::vx::DebugSingleton::getInstance("");
};

}  // namespace vxtest
