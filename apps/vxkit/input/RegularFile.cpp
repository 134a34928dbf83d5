// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/RegularFile.h"

#include <filesystem>

#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

std::string irregularKindOf(const std::string& path)
{
    std::error_code error;
    switch (std::filesystem::status(path, error).type()) {
        case std::filesystem::file_type::fifo:
            return "a pipe";
        case std::filesystem::file_type::character:
        case std::filesystem::file_type::block:
            return "a device";
        case std::filesystem::file_type::directory:
            return "a folder";
        case std::filesystem::file_type::socket:
            return "a socket";
        default:
            return "";
    }
}

void requireRegularFile(const std::string& path, const std::string& meaning)
{
    const std::string kind = irregularKindOf(path);
    if (!kind.empty())
        throw UsageError(path + ": is " + kind + "; expected " + meaning);
}

}  // namespace vxapp
