#pragma once

#include <omp.h>

#include <algorithm>
#include <ctime>
#include <limits>

namespace vxbench {

/// Seconds from some moment on: time on the processor where one thread does all the work, for that leaves out
/// what neighbours take, otherwise time on the clock.
inline double secondsNow()
{
    std::timespec now{};
    clock_gettime(omp_get_max_threads() == 1 ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Seconds of the fastest of several runs: on a machine with neighbours the figure that repeats best.
template <typename Work>
double fastestSeconds(Work work, int repetitions = 9)
{
    double fastest = std::numeric_limits<double>::max();
    for (int i = 0; i < repetitions; ++i) {
        const double begin = secondsNow();
        work();
        fastest = std::min(fastest, secondsNow() - begin);
    }
    return fastest;
}

}  // namespace vxbench
