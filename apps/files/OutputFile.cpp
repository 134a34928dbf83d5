// SPDX-License-Identifier: Apache-2.0
#include "apps/files/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <set>
#include <system_error>
#include <utility>

#include "apps/files/Failure.h"
#include "apps/files/OutputNames.h"

namespace vxfiles {

namespace fs = std::filesystem;

namespace {

constexpr mode_t usualMode = 0666;  // less what the umask takes
constexpr mode_t permissions = 0777;

Descriptor openFile(const fs::path& path, int flags)
{
    return Descriptor(::open(path.c_str(), flags | O_CLOEXEC, usualMode));
}

fs::path temporaryName(const fs::path& path)
{
    return path == "-" ? fs::path("output") : path.filename();
}

void syncFolders(const std::set<fs::path>& folders)
{
    for (const fs::path& folder : folders)
        if (const Descriptor descriptor = openFile(folder, O_RDONLY | O_DIRECTORY);
            !descriptor.isOpen() || !descriptor.sync())
            throw writeFailure(folder, errno);
}

// Where the file system knows no rename that leaves another file alone, one that comes at that moment is lost.
int renameToFree(const fs::path& from, const fs::path& to)
{
    const int code = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    if (code == 0 || (errno != EINVAL && errno != ENOSYS))
        return code;
    return ::rename(from.c_str(), to.c_str());
}

}  // namespace

OutputFile::OutputFile(fs::path path, bool force, std::shared_ptr<const StagingFolder> folder,
                       Delivery delivery)
    : path_(std::move(path)),
      force_(force),
      through_(isWrittenThrough(path_)),
      delivery_(delivery),
      place_(path_),
      folder_(std::move(folder))
{
    requireWritable(path_, force_);
    if (through_ && delivery_ == Delivery::streamed)
        return;
    if (!through_)
        place_ = placeOf(path_);
    const fs::path parent = through_ ? temporaryFolder() : folderOf(place_);
    if (!folder_ || folder_->parent() != parent)
        folder_ = std::make_shared<StagingFolder>(parent, path_);
    temporaryPath_ = folder_->path() / temporaryName(path_);
}

// Files that share a folder don't wait for its end.
OutputFile::~OutputFile()
{
    std::error_code ignored;
    if (!committed_ && !temporaryPath_.empty())
        fs::remove(temporaryPath_, ignored);
}

void OutputFile::open()
{
    if (through_ && delivery_ == Delivery::streamed)
        file_ = path_ == "-" ? Descriptor(::dup(STDOUT_FILENO)) : openFile(path_, O_WRONLY | O_NOCTTY);
    else
        file_ = openFile(temporaryPath_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
    if (!file_.isOpen())
        throw writeFailure(path_, errno);
}

void OutputFile::append(std::string_view bytes)
{
    if (!file_.isOpen())
        open();
    if (!file_.write(bytes))
        throw writeFailure(path_, errno);
}

void OutputFile::close()
{
    if (!file_.close())
        throw writeFailure(path_, errno);
}

void OutputFile::copyThrough()
{
    const Descriptor whole = openFile(temporaryPath_, O_RDONLY);
    std::cout.flush();
    std::fflush(stdout);
    Descriptor out = path_ == "-" ? Descriptor(::dup(STDOUT_FILENO)) : openFile(path_, O_WRONLY | O_NOCTTY);
    if (!whole.isOpen() || !out.isOpen())
        throw writeFailure(path_, errno);
    std::array<char, 1 << 16> block{};
    for (;;) {
        const ssize_t got = ::read(whole.get(), block.data(), block.size());
        if (got == 0)
            break;
        const bool isRead = got > 0 || errno == EINTR;
        if (!isRead || (got > 0 && !out.write({block.data(), static_cast<std::size_t>(got)})))
            throw writeFailure(path_, errno);
    }
    if (!out.close())
        throw writeFailure(path_, errno);
}

// What replaces a file has its mode.
void OutputFile::keepFacts(int descriptor)
{
    struct stat facts
    {};
    replaces_ = ::stat(place_.c_str(), &facts) == 0;
    if (!replaces_)
        return;
    if (!S_ISREG(facts.st_mode))
        throw UsageError(path_.string() + " is no regular file any more and is not replaced");
    // Only the owner of both may do that, and the mode goes with the change.
    const bool keepsOwner = ::fchown(descriptor, facts.st_uid, facts.st_gid) == 0;
    const mode_t mode = facts.st_mode & permissions;
    // Rights of a group are not for another group.
    if (::fchmod(descriptor, keepsOwner || ::getegid() == facts.st_gid ? mode : mode & ~mode_t{S_IRWXG}) != 0)
        throw writeFailure(path_, errno);
}

void OutputFile::complete()
{
    close();
    if (through_) {
        if (delivery_ == Delivery::whole)
            copyThrough();
        return;
    }
    const Descriptor whole = openFile(temporaryPath_, O_RDONLY | O_NOFOLLOW);
    if (!whole.isOpen())
        throw writeFailure(path_, errno);
    // What may replace a file is on the disk before that file goes.
    if (force_)
        keepFacts(whole.get());
    if (force_ && !whole.sync())
        throw writeFailure(path_, errno);
}

void OutputFile::move()
{
    if (through_)
        return;
    const int code =
        force_ ? ::rename(temporaryPath_.c_str(), place_.c_str()) : renameToFree(temporaryPath_, place_);
    if (code != 0 && errno == EEXIST)
        throw UsageError(path_.string() + " exists already; --force replaces it");
    if (code != 0)
        throw writeFailure(path_, errno);
    committed_ = true;
    PlacingScope::count();
}

void OutputFile::withdraw() const
{
    if (replaces_ && ::unlink(place_.c_str()) != 0 && errno != ENOENT)
        throw writeFailure(path_, errno);
}

void OutputFile::commit()
{
    putInPlace({this});
}

void putInPlace(const std::vector<OutputFile*>& files, OutputFile* list)
{
    for (OutputFile* file : files)
        file->complete();
    if (list != nullptr)
        list->complete();
    std::set<fs::path> synced;
    for (OutputFile* file : files)
        if (file->replaces_)
            synced.insert(folderOf(file->place_));
    const PlacingScope scope;
    if (list != nullptr)
        list->withdraw();
    for (OutputFile* file : files)
        file->move();
    if (list != nullptr)
        list->move();
    syncFolders(synced);
}

void writeFile(const fs::path& path, std::string_view bytes, bool force)
{
    OutputFile file(path, force);
    file.append(bytes);
    file.commit();
}

}  // namespace vxfiles
