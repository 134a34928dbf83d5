#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/diagnostics/DebugDeviceBase.h"

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
        lines.push_back({std::string(channel), std::string(text), level});
    }

    std::vector<Line> lines;
};

}  // namespace vxtest
