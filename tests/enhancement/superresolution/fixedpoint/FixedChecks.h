// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "doubles/SameBits.h"
#include "enhancement/superresolution/LineRecorder.h"

namespace vxtest {

/// What a call that fails says; "" of one that does not.
template <typename Call>
std::string messageOf(Call call)
{
    try {
        call();
    } catch (const halvor::vx::Exception& error) {
        return error.what();
    }
    return "";
}

/// Texts of a channel while something runs.
template <typename Call>
std::vector<std::string> linesOf(halvor::vx::DebugChannel& channel, int level, Call call)
{
    const auto recorder = listenTo({&channel}, level);
    call();
    channel.setOutputLevel(0);
    std::vector<std::string> texts;
    for (const LineRecorder::Line& line : recorder->lines)
        texts.push_back(line.text);
    return texts;
}

}  // namespace vxtest
