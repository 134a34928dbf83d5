// SPDX-License-Identifier: Apache-2.0
#include "core/diagnostics/DebugDeviceFile.h"

#include "core/base/Exception.h"

namespace halvor::vx {

DebugDeviceFile::DebugDeviceFile(const std::string& path) : file_(path, std::ios::trunc)
{
    if (!file_)
        throw Exception("can't write the debug file \"" + path + "\"",
                        VX_WHERE("halvor::vx::DebugDeviceFile::DebugDeviceFile"));
}

void DebugDeviceFile::write(std::string_view channel, std::string_view text, int /*level*/)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    file_ << '[' << channel << "] " << text << std::endl;
}

bool DebugDeviceFile::isComplete() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return file_.good();
}

}  // namespace halvor::vx
