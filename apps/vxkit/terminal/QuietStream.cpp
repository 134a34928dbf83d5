// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/terminal/QuietStream.h"

#include <fcntl.h>

#include <cstdio>
#include <iostream>

namespace vxapp {

namespace {

bool mayBeSilenced = true;

void flushAll()
{
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

}  // namespace

void allowQuietStreams(bool isAllowed)
{
    mayBeSilenced = isAllowed;
}

QuietStream::QuietStream(int descriptor)
    : descriptor_(descriptor), saved_(mayBeSilenced ? ::dup(descriptor) : -1)
{
    if (saved_ < 0)
        return;
    flushAll();
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0)
        return;
    ::dup2(nowhere, descriptor_);
    ::close(nowhere);
}

QuietStream::~QuietStream()
{
    if (saved_ < 0)
        return;
    flushAll();
    ::dup2(saved_, descriptor_);
    ::close(saved_);
}

}  // namespace vxapp
