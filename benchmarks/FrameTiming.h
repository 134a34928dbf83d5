// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>

#include "Timing.h"
#include "doubles/BlockFrames.h"

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
/// and to a peer, each the fastest of many runs. All take turns, so that a busy neighbour hits all of them.
template <typename Own, typename Copy, typename Plain, typename Peer>
void measure(benchmark::State& state, int pixelCount, Own own, Copy copy, Plain plain, Peer peer)
{
    constexpr int turns = 10;
    constexpr int copies = 16;  // a single one is hardly longer than a look at the clock
    for (auto _ : state)
        own();
    // Short frames need more runs to find one that nothing disturbed.
    const int runs = std::clamp(8'000'000 / pixelCount, 10, 200);
    const auto faster = [](double& seconds, const auto& work, int times) {
        seconds = std::min(seconds, fastestSeconds(work, times));
    };
    constexpr double never = std::numeric_limits<double>::max();
    double ownSeconds = never, copySeconds = never, plainSeconds = never, peerSeconds = never;
    for (int turn = 0; turn < turns; ++turn) {
        faster(ownSeconds, own, runs);
        faster(
            copySeconds,
            [&] {
                for (int i = 0; i < copies; ++i)
                    copy();
            },
            runs / 10);
        faster(plainSeconds, plain, runs / 10);
        faster(peerSeconds, peer, runs / 5);
    }
    state.counters["ns/pixel"] = ownSeconds * 1e9 / pixelCount;
    state.counters["frames/s"] = 1.0 / ownSeconds;
    state.counters["own/copy"] = ownSeconds / copySeconds * copies;
    state.counters["plain/own"] = plainSeconds / ownSeconds;
    state.counters["opencv/own"] = peerSeconds / ownSeconds;
}

}  // namespace vxbench
