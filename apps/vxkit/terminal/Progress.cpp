// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/terminal/Progress.h"

#include <unistd.h>

#include <iostream>

namespace vxapp {

Progress::Progress(int total) : total_(total), onTerminal_(::isatty(STDERR_FILENO) == 1) {}

void Progress::show(int done)
{
    if (!onTerminal_)
        return;
    std::cerr << "\rframe " << done << " of " << total_ << std::flush;
    shown_ = true;
}

void Progress::clear()
{
    if (shown_)
        std::cerr << "\r\033[K" << std::flush;
    shown_ = false;
}

}  // namespace vxapp
