// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fstream>
#include <mutex>
#include <string>

#include "core/base/Export.h"
#include "core/diagnostics/DebugDeviceBase.h"

namespace halvor::vx {

/// Writes each line as "[channel] text" to a file, at once, so that the file tells how far a run came.
class VXKIT_API DebugDeviceFile : public DebugDeviceBase
{
public:
    /// Creates the file, or empties it.
    /// @throws Exception  if the file can't be written
    explicit DebugDeviceFile(const std::string& path);

    void write(std::string_view channel, std::string_view text, int level) override;

    /// Whether every line so far has reached the file.
    bool isComplete() const;

private:
    mutable std::mutex mutex_;
    std::ofstream file_;
};

}  // namespace halvor::vx
