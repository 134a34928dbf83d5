// SPDX-License-Identifier: Apache-2.0
#include "apps/files/Descriptor.h"

#include <unistd.h>

#include <cerrno>

namespace vxfiles {

bool writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            return false;
        bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
    return true;
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    if (this != &other) {
        close();
        number_ = std::exchange(other.number_, -1);
    }
    return *this;
}

bool Descriptor::write(std::string_view bytes) const
{
    return writeAll(number_, bytes);
}

// Some file systems and devices know no such thing.
bool Descriptor::sync() const
{
    return ::fsync(number_) == 0 || errno == EINVAL || errno == EROFS || errno == ENOTSUP;
}

bool Descriptor::close()
{
    const int number = std::exchange(number_, -1);
    return number < 0 || ::close(number) == 0 || errno == EINTR;
}

}  // namespace vxfiles
