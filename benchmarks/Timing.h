// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <omp.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <functional>
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

/// Seconds of the fastest run of each work, of which each round runs every one once, so that a busy neighbour
/// hits all of them.
template <typename... Works>
std::array<double, sizeof...(Works)> fastestInTurns(int rounds, const Works&... works)
{
    std::array<double, sizeof...(Works)> fastest;
    fastest.fill(std::numeric_limits<double>::max());
    const auto run = [](double& seconds, const auto& work) {
        seconds = std::min(seconds, fastestSeconds(std::cref(work), 1));
    };
    for (int round = 0; round < rounds; ++round) {
        double* seconds = fastest.data();
        (run(*seconds++, works), ...);
    }
    return fastest;
}

}  // namespace vxbench
