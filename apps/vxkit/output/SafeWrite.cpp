// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/SafeWrite.h"

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>

#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Verbosity.h"

namespace vxapp {

namespace fs = std::filesystem;

namespace {

fs::path folderOf(const fs::path& path)
{
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

fs::path temporaryElsewhere(const fs::path& path)
{
    static std::atomic<int> serial = 0;
    const std::string name = "vxkit-" + std::to_string(::getpid()) + "-" + std::to_string(++serial);
    return fs::temp_directory_path() / (name + ".partial" + path.extension().string());
}

void copyThrough(const fs::path& from, const fs::path& to)
{
    std::ifstream whole(from, std::ios::binary);
    std::ofstream file;
    if (to != "-")
        file.open(to, std::ios::binary);
    std::ostream& out = to == "-" ? resultStream() : file;
    out << whole.rdbuf() << std::flush;
    if (!whole.good() || !out.good())
        throw UsageError(to.string() + " can't be written");
}

// Same folder, so that the move is a rename; same extension, so that writers choose the same format.
fs::path temporaryBeside(const fs::path& path)
{
    std::string name(".");
    name += path.stem().string();
    name += ".partial-" + std::to_string(::getpid());
    name += path.extension().string();
    return folderOf(path) / name;
}

void requireFree(const fs::path& path, bool force)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status))
        throw UsageError(path.string() + " is a folder; expected the name of a file to write");
    if (!force && fs::exists(fs::symlink_status(path, error)))
        throw UsageError(path.string() + " exists already; --force replaces it");
}

}  // namespace

bool isWrittenThrough(const fs::path& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return path == "-" || fs::is_fifo(status) || fs::is_character_file(status);
}

void requireWritable(const fs::path& path, bool force)
{
    if (isWrittenThrough(path))
        return;
    if (!path.has_filename())
        throw UsageError("'" + path.string() + "' does not name a file to write");
    requireFree(path, force);
    const fs::path folder = folderOf(path);
    std::error_code error;
    if (!fs::is_directory(folder, error))
        throw UsageError(path.string() + " can't be written: the folder " + folder.string() +
                         " does not exist");
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        throw UsageError(path.string() + " can't be written: no permission to write to the folder " +
                         folder.string());
}

SafeFile::SafeFile(fs::path path, bool force)
    : path_(std::move(path)),
      temporaryPath_(isWrittenThrough(path_) ? temporaryElsewhere(path_) : temporaryBeside(path_)),
      force_(force)
{
    requireWritable(path_, force_);
}

SafeFile::~SafeFile()
{
    if (committed_)
        return;
    std::error_code ignored;
    fs::remove(temporaryPath_, ignored);
}

void SafeFile::commit()
{
    if (isWrittenThrough(path_))
        return copyThrough(temporaryPath_, path_);
    requireFree(path_, force_);
    std::error_code error;
    fs::rename(temporaryPath_, path_, error);
    if (error)
        throw UsageError(path_.string() + " can't be written: " + error.message());
    committed_ = true;
}

void writeSafely(const fs::path& path, bool force, const std::function<bool(const fs::path&)>& write)
{
    SafeFile file(path, force);
    if (!write(file.temporaryPath()))
        throw UsageError(path.string() + " can't be written");
    file.commit();
}

}  // namespace vxapp
