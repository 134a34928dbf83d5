// SPDX-License-Identifier: Apache-2.0
// One new frame into the window of five and one super-resolved image out: the cost of a live picture.
//
// The counters are ratios to what is measured beside it in the same run: a plain copy of the bytes that the
// minimisation moves, the same work on one thread, and OpenCV's own burst super-resolution.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>
#include <numeric>
#include <opencv2/core.hpp>
#include <string_view>
#include <vector>

#include "benchmarks/BurstPeer.h"
#include "benchmarks/LiveEngine.h"
#include "benchmarks/Timing.h"
#include "core/diagnostics/DebugSingleton.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"

using namespace halvor::vx;
using vxbench::fastestSeconds;
using vxbench::useThreads;
using vxbench::windowSize;

namespace {

using LiveEngine = vxbench::LiveEngine<SrFloat<SrFloatRegistration2>>;

cv::Size sizeOf(const benchmark::State& state)
{
    return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

/// Counts the solver's steps and rounds; each of either applies the system matrix once.
class SolverCounter : public DebugDeviceBase
{
public:
    void write(std::string_view /*channel*/, std::string_view text, int /*level*/) override
    {
        steps += text.starts_with("start small iteration") ? 1 : 0;
        rounds += text.starts_with("start large iteration") ? 1 : 0;
    }
    int steps = 0;
    int rounds = 0;
};

std::shared_ptr<SolverCounter> countSolver(LiveEngine& engine)
{
    auto counter = std::make_shared<SolverCounter>();
    DebugSingletonInterface& registry = DebugSingleton::getInstance("");
    registry.setDebugDevice(counter);
    registry.setOutputLevel(11);
    engine.nextImage();
    registry.setOutputLevel(0);
    registry.setDebugDevice(nullptr);
    return counter;
}

// Bytes that the minimisation reads and writes when each of its operations passes over its images once.
double bytesMoved(const cv::Size& size, const SolverCounter& counter)
{
    const double small = 4.0 * size.area();
    const double full = 4.0 * (size.width * 2 + 5) * (size.height * 2 + 5);
    const double mask = small / 4.0;
    const double scatter = windowSize * (small + mask + 4.0 * full);  // into an image, which is added up
    const double gather = windowSize * (full + small);
    const double stencil = 7.0 * full;
    const double setUp = 2.0 * small + windowSize * 2.0 * small + scatter + 3.0 * full;
    const double perRound = (11.0 + 4.0) * full;  // weights, and the true residual
    const double perStep = 11.0 * full;           // two products of vectors, three updates
    const double application = stencil + gather + scatter;
    return setUp + counter.rounds * (perRound + application) + counter.steps * (perStep + application) +
           2.0 * full;
}

// A copy moves each byte twice: it is read and written.
double copySeconds(double bytes)
{
    const std::vector<char> from(static_cast<std::size_t>(bytes / 2.0), 1);
    std::vector<char> to(from.size());
    return fastestSeconds([&] {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::ClobberMemory();
    });
}

// How many times as fast several threads are as one, on the clock. Both take turns; the positions of the
// window differ in cost, so the fastest of each is taken. The images before them wake the threads.
double threadGain(LiveEngine& engine, int threads)
{
    constexpr int rounds = 25;
    std::array<std::array<double, windowSize>, 2> fastest{};
    fastest[0].fill(std::numeric_limits<double>::max());
    fastest[1] = fastest[0];
    for (int round = 0; round < rounds; ++round)
        for (const std::size_t several : {0U, 1U}) {
            useThreads(several == 1 ? threads : 1);
            for (int i = 0; i < windowSize; ++i)
                engine.nextImage();
            for (double& seconds : fastest[several]) {
                const auto begin = std::chrono::steady_clock::now();
                engine.nextImage();
                const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
                seconds = std::min(seconds, passed.count());
            }
        }
    const auto sum = [](const auto& values) { return std::accumulate(values.begin(), values.end(), 0.0); };
    return sum(fastest[0]) / sum(fastest[1]);
}

void liveImage(benchmark::State& state)
{
    const int threads = static_cast<int>(state.range(2));
    LiveEngine engine(sizeOf(state));
    useThreads(threads);
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(engine.nextImage());

    constexpr int repetitions = 50;
    const double own = fastestSeconds([&] { engine.nextImage(); }, repetitions);
    const auto counter = countSolver(engine);
    state.counters["own/copy"] = own / copySeconds(bytesMoved(sizeOf(state), *counter));
    state.counters["steps"] = counter->steps;
    if (threads > 1)
        state.counters["1 thread/own"] = threadGain(engine, threads);
}

// Time on the processor: a call of seconds is hardly ever left alone by neighbours.
template <typename Work>
double processorSeconds(Work work)
{
    const std::clock_t begin = std::clock();
    work();
    return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

void bilateralTotalVariation(benchmark::State& state)
{
    useThreads(1);
    const auto peer = vxbench::burstPeer(sizeOf(state));
    cv::Mat image;
    peer->nextFrame(image);
    double seconds = std::numeric_limits<double>::max();
    for ([[maybe_unused]] auto iteration : state)
        seconds = std::min(seconds, processorSeconds([&] { peer->nextFrame(image); }));

    LiveEngine engine(sizeOf(state));
    double own = std::numeric_limits<double>::max();
    for (int i = 0; i < 25; ++i)
        own = std::min(own, processorSeconds([&] { engine.nextImage(); }));
    state.counters["peer/engine"] = seconds / own;
}

void sizesAndThreads(benchmark::internal::Benchmark* benchmark)
{
    for (const auto& size : {std::array{160, 120}, std::array{320, 240}, std::array{640, 480}})
        for (const int threads : {1, 2})
            benchmark->Args({size[0], size[1], threads});
    benchmark->ArgNames({"width", "height", "threads"})->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(liveImage)->Apply(sizesAndThreads);
BENCHMARK(bilateralTotalVariation)
    ->Args({160, 120})
    ->Args({320, 240})
    ->ArgNames({"width", "height"})
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
