// SPDX-License-Identifier: Apache-2.0
#include "apps/files/Failure.h"

#include <system_error>

namespace vxfiles {

UsageError::UsageError(const std::string& message) : std::runtime_error(message) {}

WriteError::WriteError(const std::string& message) : std::runtime_error(message) {}

WriteError writeFailure(const std::filesystem::path& path, int error)
{
    const std::string reason = error == 0 ? "" : ": " + std::generic_category().message(error);
    return WriteError((path == "-" ? "the standard output" : path.string()) + " can't be written" + reason);
}

}  // namespace vxfiles
