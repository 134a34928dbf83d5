// SPDX-License-Identifier: Apache-2.0
// Transforms, phase correlation and the engines that stand on them. The counters are ratios to OpenCV's own
// functions, or to the production engine, on the same frames in the same run.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "benchmarks/LiveEngine.h"
#include "benchmarks/Timing.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatFft2d.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/reference/SuperResolution.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using vxbench::fastestInTurns;
using vxbench::LiveEngine;
using vxbench::useThreads;
using vxbench::windowSize;

namespace {

constexpr int rounds = 50;

cv::Size sizeOf(const benchmark::State& state)
{
    return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

// A frame to its half spectrum and back; the peer's spectrum is packed in the frame's own size.
void transform(benchmark::State& state)
{
    useThreads(1);
    const cv::Size size = sizeOf(state);
    const cv::Mat_<float> frame = vxbench::framesOf(size)[0];
    const auto spectrum =
        std::make_unique<float[][2]>(static_cast<std::size_t>(size.width / 2 + 1) * size.height);
    cv::Mat_<float> image(size);
    SrFloatFft2d fft(size.width, size.height);
    for ([[maybe_unused]] auto iteration : state)
        fft.forward(frame[0], spectrum.get());

    cv::Mat packed;
    cv::dft(frame, packed);
    const auto [forward, peerForward, backward, peerBackward] = fastestInTurns(
        rounds, [&] { fft.forward(frame[0], spectrum.get()); }, [&] { cv::dft(frame, packed); },
        [&] { fft.backward(spectrum.get(), image[0]); },
        [&] { cv::dft(packed, image, cv::DFT_INVERSE | cv::DFT_REAL_OUTPUT); });
    state.counters["forward/peer"] = forward / peerForward;
    state.counters["backward/peer"] = backward / peerBackward;
}

// One new frame and its window of five registered: four correlations, five smoothed frames, the gradient
// steps, masks and moves. The peer only correlates, four times, and transforms both frames for each.
void phaseRegistration(benchmark::State& state)
{
    useThreads(1);
    const cv::Size size = sizeOf(state);
    std::vector<cv::Mat_<float>> frames = vxbench::framesOf(size);
    SrFloatRegistration1 registration(size.width, size.height, windowSize);
    std::vector<float*> rows;
    std::vector<std::vector<char>> maskStorage(windowSize, std::vector<char>(size.area()));
    std::vector<char*> masks;
    std::vector<cv::Mat_<float>> movedStorage;
    std::vector<float*> moved;
    for (int i = 0; i < windowSize; ++i) {
        rows.push_back(frames[i][0]);
        masks.push_back(maskStorage[i].data());
        movedStorage.emplace_back(size);
        moved.push_back(movedStorage.back()[0]);
        registration.prepareFrame(rows.back());
    }
    std::vector<PointF> shifts(windowSize);
    const auto registerWindow = [&] {
        registration.prepareFrame(rows.back());
        registration.doRegistration(windowSize, 1, rows.data(), shifts.data(), masks.data(), moved.data());
    };
    for ([[maybe_unused]] auto iteration : state)
        registerWindow();

    const auto [own, peer] = fastestInTurns(rounds, registerWindow, [&] {
        for (int i = 0; i < windowSize; ++i)
            if (i != 1)
                benchmark::DoNotOptimize(cv::phaseCorrelate(frames[1], frames[i]));
    });
    state.counters["own/peer"] = own / peer;
}

// One new frame, one image, by the serial engine; the fast ones beside it on one thread.
void referenceEngine(benchmark::State& state)
{
    useThreads(1);
    const vxsupport::CapturedOutput dropped;
    LiveEngine<SuperResolution> serial(sizeOf(state));
    LiveEngine<SrFloat<SrFloatRegistration1>> phase(sizeOf(state));
    LiveEngine<SrFloat<SrFloatRegistration2>> production(sizeOf(state));
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(serial.nextImage());

    const auto [own, fastPhase, fastProduction] = fastestInTurns(
        rounds / 5, [&] { serial.nextImage(); }, [&] { phase.nextImage(); }, [&] { production.nextImage(); });
    state.counters["own/phase"] = own / fastPhase;
    state.counters["own/production"] = own / fastProduction;
}

void cameraSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Args({160, 120})->Args({320, 240})->Args({640, 480});
    benchmark->ArgNames({"width", "height"})->Unit(benchmark::kMicrosecond)->UseRealTime();
}

// The last two have large prime factors: 2 * 79 by 2 * 59, and 2 * 331 by 241.
BENCHMARK(transform)->Apply(cameraSizes)->Args({158, 118})->Args({662, 241});
BENCHMARK(phaseRegistration)->Apply(cameraSizes);
BENCHMARK(referenceEngine)->Apply(cameraSizes)->Unit(benchmark::kMillisecond);

}  // namespace
