#pragma once

#include <algorithm>
#include <chrono>
#include <limits>

namespace vxbench {

/// Seconds of the fastest of several runs: on a machine with neighbours the figure that repeats best.
template <typename Work>
double fastestSeconds(Work work, int repetitions = 9)
{
    double fastest = std::numeric_limits<double>::max();
    for (int i = 0; i < repetitions; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        work();
        const auto end = std::chrono::steady_clock::now();
        fastest = std::min(fastest, std::chrono::duration<double>(end - begin).count());
    }
    return fastest;
}

}  // namespace vxbench
