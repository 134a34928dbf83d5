// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/Spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t blockBytes = 1 << 16;

UsageError failure(const std::string& what)
{
    return UsageError(what + " (" + std::strerror(errno) + ")");
}

}  // namespace

Spool::Spool()
{
    std::error_code error;
    const fs::path folder = fs::temp_directory_path(error);
    std::string name = ((error ? fs::path("/tmp") : folder) / "vxkit-XXXXXX").string();
    descriptor_ = ::mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0)
        throw failure("no temporary file in " + folder.string());
    ::unlink(name.c_str());
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
}

Spool::~Spool()
{
    ::close(descriptor_);
}

void Spool::append(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            throw failure("the temporary file can't hold the input");
        bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

void Spool::appendAll(int descriptor, const std::string& name)
{
    std::array<char, blockBytes> block{};
    for (;;) {
        const ssize_t got = ::read(descriptor, block.data(), block.size());
        if (got == 0)
            return;
        if (got > 0)
            append({block.data(), static_cast<std::size_t>(got)});
        else if (errno != EINTR)
            throw failure(name + ": can't be read");
    }
}

bool isReadOnce(const std::string& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return path == "-" || fs::is_fifo(status) || fs::is_character_file(status) || fs::is_socket(status);
}

}  // namespace vxapp
