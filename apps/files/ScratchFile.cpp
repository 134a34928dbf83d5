// SPDX-License-Identifier: Apache-2.0
#include "apps/files/ScratchFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "apps/files/Failure.h"
#include "apps/files/OutputNames.h"

namespace vxfiles {

namespace fs = std::filesystem;

namespace {

// Not every file system has files without names.
Descriptor openScratch(const fs::path& folder)
{
    Descriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file.isOpen())
        return file;
    std::string name = (folder / ".vxkit-XXXXXX").string();
    file = Descriptor(::mkostemp(name.data(), O_CLOEXEC));
    if (file.isOpen())
        ::unlink(name.c_str());
    return file;
}

WriteError noRoom(const fs::path& output)
{
    return WriteError(writeFailure(output, errno).what() + std::string(" (to set its frames aside)"));
}

}  // namespace

ScratchFile::ScratchFile(const fs::path& output)
    : output_(output),
      file_(openScratch(isWrittenThrough(output) ? temporaryFolder() : folderOf(placeOf(output))))
{
    if (!file_.isOpen())
        throw noRoom(output_);
}

void ScratchFile::append(std::string_view bytes)
{
    if (!file_.write(bytes))
        throw noRoom(output_);
}

void ScratchFile::read(std::uint64_t place, std::span<char> bytes) const
{
    while (!bytes.empty()) {
        const ssize_t got = ::pread(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(place));
        if (got == 0)
            errno = EIO;  // the end, ahead of what was written
        if (got == 0 || (got < 0 && errno != EINTR))
            throw noRoom(output_);
        const auto done = static_cast<std::size_t>(got > 0 ? got : 0);
        place += done;
        bytes = bytes.subspan(done);
    }
}

}  // namespace vxfiles
