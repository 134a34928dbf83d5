// SPDX-License-Identifier: Apache-2.0
#include "apps/files/StagingFolder.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include "apps/files/Failure.h"

namespace vxfiles {

namespace fs = std::filesystem;

namespace {

// One for the whole process, as its signals are.
struct OpenWork
{
    std::mutex mutex;
    std::set<fs::path> folders;
    std::size_t placed = 0;
};

OpenWork& openWork()
{
    static OpenWork work;
    return work;
}

void removeFolder(const fs::path& folder)
{
    // Most are empty at the end, and this takes no memory, of which there may be none.
    if (::rmdir(folder.c_str()) == 0)
        return;
    std::error_code error;
    // Another thread may still add a file, until it notices.
    constexpr int patience = 100;
    for (int i = 0; i < patience && fs::exists(folder, error); ++i)
        fs::remove_all(folder, error);
}

}  // namespace

StagingFolder::StagingFolder(fs::path parent, const fs::path& output) : parent_(std::move(parent))
{
    std::string name = (parent_ / ".vxkit-XXXXXX").string();
    OpenWork& work = openWork();
    const std::lock_guard<std::mutex> lock(work.mutex);
    if (::mkdtemp(name.data()) == nullptr)
        throw WriteError(output.string() +
                         " can't be written: no folder for temporary files can be made in " +
                         parent_.string() + " (" + std::generic_category().message(errno) + ")");
    path_ = name;
    work.folders.insert(path_);
}

StagingFolder::~StagingFolder()
{
    removeFolder(path_);
    OpenWork& work = openWork();
    const std::lock_guard<std::mutex> lock(work.mutex);
    work.folders.erase(path_);
}

PlacingScope::PlacingScope() : hold_(openWork().mutex) {}

void PlacingScope::count()
{
    ++openWork().placed;
}

std::size_t abandonAll()
{
    OpenWork& work = openWork();
    work.mutex.lock();  // for ever
    for (const fs::path& folder : work.folders)
        removeFolder(folder);
    return work.placed;
}

}  // namespace vxfiles
