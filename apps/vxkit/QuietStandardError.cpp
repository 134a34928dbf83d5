#include "apps/vxkit/QuietStandardError.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace vxapp {

QuietStandardError::QuietStandardError() : saved_(::dup(STDERR_FILENO))
{
    std::cerr.flush();
    std::fflush(stderr);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0)
        return;
    ::dup2(nowhere, STDERR_FILENO);
    ::close(nowhere);
}

QuietStandardError::~QuietStandardError()
{
    if (saved_ < 0)
        return;
    std::cerr.flush();
    std::fflush(stderr);
    ::dup2(saved_, STDERR_FILENO);
    ::close(saved_);
}

}  // namespace vxapp
