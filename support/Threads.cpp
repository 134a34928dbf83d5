// SPDX-License-Identifier: Apache-2.0
#include "support/Threads.h"

#include <dlfcn.h>
#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <opencv2/core/utility.hpp>
#include <sstream>
#include <thread>

namespace vxsupport {

namespace {

constexpr const char* waitPolicy = "OMP_WAIT_POLICY";
// With fewer pixels a thread waits longer than it works.
constexpr std::size_t pixelsPerThread = 8192;
constexpr std::chrono::milliseconds glanceInterval(50);
// A neighbour that runs for a moment only is none.
constexpr int glances = 3;
constexpr std::chrono::microseconds glancePause(500);

// Of LLVM's OpenMP library: sets the milliseconds that threads wait awake. Null with another library.
using SetBlocktime = void (*)(int milliseconds);
SetBlocktime setBlocktime()
{
    return reinterpret_cast<SetBlocktime>(dlsym(RTLD_DEFAULT, "kmp_set_blocktime"));
}

bool isWaitToldByUser()
{
    constexpr std::array names{waitPolicy, "GOMP_SPINCOUNT", "KMP_BLOCKTIME", "KMP_LIBRARY"};
    return std::any_of(names.begin(), names.end(),
                       [](const char* name) { return std::getenv(name) != nullptr; });
}

// All cores are free where the machine doesn't tell.
int leastRunning()
{
    int least = std::numeric_limits<int>::max();
    for (int glance = 0; glance < glances && least > 1; ++glance) {
        if (glance > 0)
            std::this_thread::sleep_for(glancePause);
        std::ifstream file("/proc/loadavg");
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        least = std::min(least, runningTasks(text).value_or(1));
    }
    return least;
}

}  // namespace

void shareMachine(char** argv)
{
    try {
        chooseThreads();
    } catch (const std::bad_alloc&) {  // the program goes on, and tells it where it is told how
    }
    if (isWaitToldByUser() || omp_get_max_threads() < 2)
        return;
    if (const SetBlocktime set = setBlocktime())
        set(0);
    else if (setenv(waitPolicy, "passive", 0) == 0)
        execv("/proc/self/exe", argv);  // comes back only if it fails
}

void chooseThreads(std::size_t pixels)
{
    using Clock = std::chrono::steady_clock;
    static const bool isToldByUser = std::getenv("OMP_NUM_THREADS") != nullptr;
    static std::optional<Clock::time_point> lastGlance;
    static int running = 1;
    if (isToldByUser)
        return;
    if (!lastGlance || Clock::now() - *lastGlance >= glanceInterval) {
        running = leastRunning();
        lastGlance = Clock::now();
    }
    // Threads that wait awake are no more than at the start.
    static const bool sleep = setBlocktime() != nullptr || isWaitToldByUser();
    static int most = omp_get_num_procs();
    const int free = threadsFor(SIZE_MAX, most, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)), running);
    if (!sleep)
        most = free;
    const int threads = threadsFor(pixels, free, free, 1);
    omp_set_num_threads(threads);
    cv::setNumThreads(threads);
}

int threadsFor(std::size_t pixels, int cores, int machineCores, int running)
{
    const int free = std::max(1, machineCores - (running - 1));
    const std::size_t worth = std::max<std::size_t>(1, pixels / pixelsPerThread);
    return static_cast<int>(std::min(worth, static_cast<std::size_t>(std::max(1, std::min(cores, free)))));
}

std::optional<int> runningTasks(const std::string& loadText)
{
    std::istringstream text(loadText);
    double load = 0.0;
    int running = 0;
    char slash = 0;
    if (text >> load >> load >> load >> running >> slash && slash == '/' && running >= 0)
        return running;
    return std::nullopt;
}

}  // namespace vxsupport
