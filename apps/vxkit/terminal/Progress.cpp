// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/terminal/Progress.h"

#include <unistd.h>

#include <cmath>
#include <iostream>

#include "apps/vxkit/terminal/Verbosity.h"

namespace vxapp {

Progress::Progress(int total, Clock::duration patience)
    : total_(total),
      isWanted_(::isatty(STDERR_FILENO) == 1 && verbosity() != Verbosity::quiet),
      start_(Clock::now()),
      next_(start_ + patience)
{}

void Progress::show(int begun)
{
    constexpr auto pause = std::chrono::milliseconds(100);
    if (!isWanted_)
        return;
    const Clock::time_point now = Clock::now();
    if (now < next_)
        return;
    next_ = now + pause;
    std::cerr << "\r\033[Kframe " << begun << " of " << total_;
    if (begun > 1) {
        const double seconds = std::chrono::duration<double>(now - start_).count();
        std::cerr << ", " << std::ceil(seconds / (begun - 1) * (total_ - begun + 1)) << " s left";
    }
    std::cerr << std::flush;
    shown_ = true;
}

void Progress::clear()
{
    if (shown_)
        std::cerr << "\r\033[K" << std::flush;
    shown_ = false;
}

}  // namespace vxapp
