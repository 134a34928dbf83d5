// SPDX-License-Identifier: Apache-2.0
#include "apps/files/RunFiles.h"

#include <sys/stat.h>

#include <functional>

#include "apps/files/Failure.h"
#include "apps/files/OutputNames.h"

namespace vxfiles {

namespace fs = std::filesystem;

std::size_t RunFiles::Hash::operator()(const Identity& identity) const
{
    constexpr std::uint64_t spread = 0x9E3779B97F4A7C15U;
    return std::hash<std::string>{}(identity.name) ^ std::hash<std::uint64_t>{}(identity.node * spread) ^
           std::hash<std::uint64_t>{}(identity.device);
}

// False for what has no content of its own to lose, and for names in folders that are not there.
bool RunFiles::identify(const fs::path& path, Identity& identity)
{
    if (path.empty() || path == "-")
        return false;
    struct stat facts
    {};
    if (::stat(path.c_str(), &facts) == 0) {
        identity = {facts.st_dev, facts.st_ino};
        return !S_ISCHR(facts.st_mode);
    }
    const fs::path place = placeOf(path);
    if (::stat(folderOf(place).c_str(), &facts) != 0)
        return false;
    identity = {facts.st_dev, facts.st_ino, place.filename().string()};
    return true;
}

void RunFiles::reads(const fs::path& path)
{
    Identity identity;
    if (!identify(path, identity) || !identity.name.empty())
        return;
    if (outputs_.count(identity) > 0)
        throw UsageError(path.string() + ": is an input; expected another output name");
    inputs_.insert(identity);
}

void RunFiles::writes(const fs::path& path, bool force)
{
    if (path.empty())
        return;
    Identity identity;
    const bool isFile = identify(path, identity);
    if (isFile && inputs_.count(identity) > 0)
        throw UsageError(path.string() + ": is an input; expected another output name");
    requireWritable(path, force);
    if (isFile && !outputs_.insert(identity).second)
        throw UsageError(path.string() + ": expected different names for two outputs");
}

}  // namespace vxfiles
