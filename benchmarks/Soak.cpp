// SPDX-License-Identifier: Apache-2.0
// Runs the enhancer chain and a context of the flat interface for very long, and tells whether memory grows or results
// drift.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bits/Checksum.h"
#include "enhancement/MARLOImageEnhancer.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "support/Burst.h"
#include "support/Counts.h"
#include "support/Stream.h"
#include "support/Threads.h"

namespace {

constexpr int width = 64;
constexpr int height = 48;
constexpr int framesOfPeriod = 100;
constexpr int burstsOfPeriod = 20;

// What the second half may add: the C library keeps freed memory, and its threads have pools of their own.
constexpr long residentBound = 1024;  // KiB
constexpr long inUseBound = 64;       // KiB

struct Memory
{
    long resident = 0;  // KiB of the process
    long inUse = 0;     // KiB that the allocator has given out
};

Memory memoryNow()
{
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long pages = 0;
    file >> size >> pages;
    const struct mallinfo2 info = mallinfo2();
    return {pages * (sysconf(_SC_PAGESIZE) / 1024), static_cast<long>((info.uordblks + info.hblkhd) / 1024)};
}

/// Runs a period again and again, and compares what comes of it.
class Soak
{
public:
    /// @param report  takes the lines for people
    Soak(std::FILE* report, std::string name, long periods)
        : report_(report), name_(std::move(name)), periods_(periods)
    {}

    /// @param period  gives the checksum of all its results
    /// @return whether nothing grew and nothing drifted
    bool run(const std::function<std::optional<std::uint64_t>()>& period)
    {
        // The first period finds the state of the start, and buffers that are not there yet.
        if (!period())
            return told("failed in its first period");
        tell("start", 0);
        std::optional<std::uint64_t> expected;
        const Memory middle = half(period, expected, 1, periods_ / 2, "middle");
        const Memory end = half(period, expected, periods_ / 2, periods_, "end");
        if (!problem_.empty())
            return told(problem_);
        if (end.resident - middle.resident > residentBound || end.inUse - middle.inUse > inUseBound)
            return told("grew by " + std::to_string(end.resident - middle.resident) + " KiB resident, " +
                        std::to_string(end.inUse - middle.inUse) + " KiB in use; allowed are " +
                        std::to_string(residentBound) + " and " + std::to_string(inUseBound));
        std::fprintf(report_, "%s: every period gave the checksum %016llx\n", name_.c_str(),
                     static_cast<unsigned long long>(expected.value_or(0)));
        return true;
    }

private:
    Memory half(const std::function<std::optional<std::uint64_t>()>& period,
                std::optional<std::uint64_t>& expected, long first, long last, const char* place)
    {
        for (long number = first; number < last && problem_.empty(); ++number) {
            const std::optional<std::uint64_t> sum = period();
            if (!sum)
                problem_ = "failed in period " + std::to_string(number);
            else if (sum != expected.value_or(*sum))
                problem_ = "period " + std::to_string(number) + " gave other results than the ones before";
            expected = sum;
        }
        return tell(place, last);
    }

    Memory tell(const char* place, long number)
    {
        const Memory memory = memoryNow();
        std::fprintf(report_, "%s, %-6s (period %ld of %ld): %ld KiB resident, %ld KiB in use\n",
                     name_.c_str(), place, number, periods_, memory.resident, memory.inUse);
        std::fflush(report_);
        return memory;
    }

    bool told(const std::string& problem)
    {
        std::fprintf(report_, "%s: FAILED: %s\n", name_.c_str(), problem.c_str());
        return false;
    }

    std::FILE* report_;
    std::string name_;
    long periods_;
    std::string problem_;
};

std::vector<cv::Mat_<std::uint16_t>> streamFrames()
{
    vxsupport::StreamSettings settings;
    settings.scene.frame = {width, height};
    settings.frameCount = framesOfPeriod;
    const vxsupport::StreamSimulator simulator(settings);
    std::vector<cv::Mat_<std::uint16_t>> frames;
    for (int i = 0; i < framesOfPeriod; ++i)
        frames.push_back(vxsupport::toCounts(simulator.frame(i), {0.01, -273.15}));
    return frames;
}

// Blocks that are rebuilt forget what they have learned, so that each period begins like the others but for the
// equaliser, whose curve has settled after the first ones.
void rebuild(halvor::vx::MARLOImageEnhancer& enhancer)
{
    for (const int value : {0, 1}) {
        enhancer.tnrSetBypass(value);
        enhancer.sprSetBypass(value);
        enhancer.snrSetBypass(value);
    }
}

bool soakChain(std::FILE* report, long frames)
{
    const std::vector<cv::Mat_<std::uint16_t>> stream = streamFrames();
    halvor::vx::MARLOImageEnhancer enhancer(width, height);
    cv::Mat_<std::uint16_t> result;
    return Soak(report, "chain, " + std::to_string(frames) + " frames", frames / framesOfPeriod).run([&] {
        vxtest::Checksum sum;
        rebuild(enhancer);
        for (const cv::Mat_<std::uint16_t>& frame : stream) {
            enhancer.processFrame(frame, result);
            sum.add(result);
        }
        return std::optional(sum.value());
    });
}

std::vector<vxsupport::Burst> bursts()
{
    std::vector<vxsupport::Burst> made;
    for (std::uint64_t seed = 1; seed <= burstsOfPeriod; ++seed) {
        vxsupport::BurstSettings settings;
        settings.scene.frame = {width, height};
        settings.seed = seed;
        made.push_back(vxsupport::simulateBurst(settings));
    }
    return made;
}

bool soakContext(std::FILE* report, long count)
{
    const std::vector<vxsupport::Burst> made = bursts();
    const int context = SuperResolution_init(width, height);
    std::vector<float> image(4 * width * height);
    const bool isSteady =
        Soak(report, "context, " + std::to_string(count) + " bursts", count / burstsOfPeriod)
            .run([&]() -> std::optional<std::uint64_t> {
                vxtest::Checksum sum;
                for (const vxsupport::Burst& burst : made) {
                    for (const cv::Mat_<float>& frame : burst.frames) {
                        const int code = SuperResolution_addImage(context, frame[0]);
                        if (code == SuperResolution_failure)
                            return std::nullopt;
                        sum.add(&code, sizeof code);
                    }
                    if (SuperResolution_getSuperresolutionImage(context, image.data()) !=
                        SuperResolution_success)
                        return std::nullopt;
                    sum.add(image.data(), image.size() * sizeof(float));
                }
                return sum.value();
            });
    return SuperResolution_release(context) == SuperResolution_success && isSteady;
}

// The chain prints a line for each frame on the standard output.
std::FILE* takeOutput()
{
    std::FILE* report = fdopen(dup(STDOUT_FILENO), "w");
    return report != nullptr && std::freopen("/dev/null", "w", stdout) != nullptr ? report : nullptr;
}

}  // namespace

int main(int argc, char** argv)
{
    vxsupport::shareMachine(argv);
    const long frames = argc == 3 ? std::atol(argv[1]) : 0;
    const long bursts = argc == 3 ? std::atol(argv[2]) : 0;
    if (frames < 10L * framesOfPeriod || bursts < 10L * burstsOfPeriod) {
        std::fprintf(stderr, "usage: soak FRAMES BURSTS   at least %d and %d\n", 10 * framesOfPeriod,
                     10 * burstsOfPeriod);
        return 2;
    }
    std::FILE* report = takeOutput();
    if (report == nullptr)
        return EXIT_FAILURE;
    const bool isChainSteady = soakChain(report, frames);
    const bool isContextSteady = soakContext(report, bursts);
    const bool isTold = std::fclose(report) == 0;
    return isChainSteady && isContextSteady && isTold ? EXIT_SUCCESS : EXIT_FAILURE;
}
