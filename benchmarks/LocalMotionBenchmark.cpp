// SPDX-License-Identifier: Apache-2.0
// One new frame into the window of five and one picture out of the engine of local motion, and the picture of a
// single frame. Beside them in the same run: the default engine, OpenCV's own burst super-resolution (where it does
// not take too long), and the same work on one thread.

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <opencv2/core.hpp>
#include <vector>

#include "benchmarks/BurstPeer.h"
#include "benchmarks/LiveEngine.h"
#include "benchmarks/Timing.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/SrLocalMotion.h"
#include "enhancement/superresolution/SrSingleFrame.h"

using namespace halvor::vx;
using vxbench::fastestInTurns;
using vxbench::fastestSeconds;
using vxbench::useThreads;

namespace {

constexpr int rounds = 5;

/// SrLocalMotion in the constructor's shape of the other engines.
struct LocalMotion : SrLocalMotion
{
    LocalMotion(int width, int height, int window, float) : SrLocalMotion(width, height, window)
    {
        setPsfSigma(0.683F);
    }
};

cv::Size sizeOf(const benchmark::State& state)
{
    return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

void localMotion(benchmark::State& state)
{
    const auto threads = static_cast<int>(state.range(2));
    useThreads(threads);
    vxbench::LiveEngine<LocalMotion> engine(sizeOf(state));
    vxbench::LiveEngine<SrFloat<SrFloatRegistration2>> single(sizeOf(state));
    for ([[maybe_unused]] auto iteration : state)
        engine.nextImage();
    const auto [own, other] = fastestInTurns(
        rounds, [&] { engine.nextImage(); }, [&] { single.nextImage(); });
    state.counters["fastest ms"] = own * 1e3;
    state.counters["own/default"] = own / other;
    if (threads > 1) {
        useThreads(1);
        state.counters["faster than one thread"] = fastestSeconds([&] { engine.nextImage(); }, rounds) / own;
    } else if (state.range(0) <= 320) {
        const auto peer = vxbench::burstPeer(sizeOf(state));
        cv::Mat image;
        peer->nextFrame(image);
        state.counters["peer/own"] = fastestSeconds([&] { peer->nextFrame(image); }, 1) / own;
    }
}

void singleFrame(benchmark::State& state)
{
    useThreads(static_cast<int>(state.range(2)));
    const cv::Mat_<float> frame = vxbench::framesOf(sizeOf(state)).front();
    SrSingleFrame engine(frame.cols, frame.rows);
    cv::Mat_<float> picture;
    for ([[maybe_unused]] auto iteration : state)
        engine.compute(frame, picture);
}

void sizesAndThreads(benchmark::internal::Benchmark* benchmark)
{
    for (const auto& size : {std::array{160, 120}, std::array{320, 240}, std::array{640, 480}})
        for (const int threads : {1, 2})
            benchmark->Args({size[0], size[1], threads});
    benchmark->ArgNames({"width", "height", "threads"})
        ->Iterations(3)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

BENCHMARK(localMotion)->Apply(sizesAndThreads);
BENCHMARK(singleFrame)->Apply(sizesAndThreads);

}  // namespace
