// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>

#include "core/base/Export.h"
#include "core/diagnostics/DebugDeviceBase.h"

namespace halvor::vx {

/// Writes each line as "[channel] text" to the standard error stream.
class VXKIT_API DebugDeviceConsole : public DebugDeviceBase
{
public:
    void write(std::string_view channel, std::string_view text, int level) override;

private:
    std::mutex mutex_;
};

}  // namespace halvor::vx
