#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>

#include "Timing.h"
#include "enhancement/BlockFrames.h"

namespace vxbench {

inline blocktest::Size sizeOf(const benchmark::State& state)
{
    return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

/// Sizes that a benchmark of frames runs at.
inline void frameSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Args({160, 120})
        ->Args({320, 240})
        ->Args({640, 480})
        ->Args({1024, 768})
        ->Unit(benchmark::kMicrosecond);
}

/// Times one frame of our own form, and as counters its ratios to a copy of the same bytes, to the plain form
/// and to a peer, each the fastest of many runs.
template <typename Own, typename Copy, typename Plain, typename Peer>
void measure(benchmark::State& state, int pixelCount, Own own, Copy copy, Plain plain, Peer peer)
{
    for (auto _ : state)
        own();
    // Short frames need more runs to find one that nothing disturbed.
    const int runs = std::clamp(40'000'000 / pixelCount, 50, 1000);
    const double seconds = fastestSeconds(own, runs);
    state.counters["ns/pixel"] = seconds * 1e9 / pixelCount;
    state.counters["frames/s"] = 1.0 / seconds;
    state.counters["own/copy"] = seconds / fastestSeconds(copy, runs);
    state.counters["plain/own"] = fastestSeconds(plain, runs / 5) / seconds;
    state.counters["opencv/own"] = fastestSeconds(peer, runs / 5) / seconds;
}

}  // namespace vxbench
