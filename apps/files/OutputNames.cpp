// SPDX-License-Identifier: Apache-2.0
#include "apps/files/OutputNames.h"

#include <unistd.h>

#include <string>
#include <system_error>

#include "apps/files/Failure.h"

namespace vxfiles {

namespace fs = std::filesystem;

namespace {

void requireFree(const fs::path& path, bool force)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status))
        throw UsageError(path.string() + " is a folder; expected the name of a file to write");
    if (!force && fs::exists(fs::symlink_status(path, error)))
        throw UsageError(path.string() + " exists already; --force replaces it");
    if (fs::exists(status) && !fs::is_regular_file(status))
        throw UsageError(path.string() + " is no regular file and is not replaced; expected another name");
}

// Told ahead of the work, not by its last step.
void requireShort(const fs::path& path, const fs::path& place)
{
    constexpr std::size_t alwaysFits = 128;
    const std::size_t length = place.filename().native().size();
    if (length <= alwaysFits)
        return;
    const long longest = ::pathconf(folderOf(place).c_str(), _PC_NAME_MAX);
    if (longest > 0 && length > static_cast<std::size_t>(longest))
        throw UsageError(path.string() + " can't be written: the name has " + std::to_string(length) +
                         " bytes; expected at most " + std::to_string(longest));
}

}  // namespace

fs::path folderOf(const fs::path& path)
{
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

fs::path temporaryFolder()
{
    std::error_code error;
    const fs::path folder = fs::temp_directory_path(error);
    return error ? fs::path("/tmp") : folder;
}

bool isWrittenThrough(const fs::path& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return path == "-" || fs::is_fifo(status) || fs::is_character_file(status);
}

fs::path placeOf(const fs::path& path)
{
    constexpr int mostLinks = 40;  // as many as the system follows
    fs::path place = path;
    std::error_code error;
    for (int i = 0; i < mostLinks; ++i) {
        if (!fs::is_symlink(fs::symlink_status(place, error)))
            return place;
        place = folderOf(place) / fs::read_symlink(place, error);
    }
    throw UsageError(path.string() + " can't be written: its symbolic links lead in a circle");
}

void requireWritable(const fs::path& path, bool force)
{
    if (isWrittenThrough(path))
        return;
    if (!path.has_filename())
        throw UsageError("'" + path.string() + "' does not name a file to write");
    requireFree(path, force);
    const fs::path place = placeOf(path);
    const fs::path folder = folderOf(place);
    std::error_code error;
    if (!fs::is_directory(folder, error))
        throw UsageError(path.string() + " can't be written: the folder " + folder.string() +
                         " does not exist");
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        throw UsageError(path.string() + " can't be written: no permission to write to the folder " +
                         folder.string());
    requireShort(path, place);
}

}  // namespace vxfiles
