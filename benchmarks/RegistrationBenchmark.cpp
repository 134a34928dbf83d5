// SPDX-License-Identifier: Apache-2.0
// Registration of a burst of five frames. Each stage tells its own time; the counters are ratios to what is
// measured beside it in the same run: peers of the image library on the same frames, and a plain copy of the
// bytes that a stage moves. The image library runs on as many threads as OMP_NUM_THREADS gives to the stages.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstring>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#include <vector>

#include "benchmarks/Timing.h"
#include "core/registration/GradientRefinement.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "support/Burst.h"

using namespace halvor::vx;
using vxbench::fastestSeconds;

namespace {

constexpr int windowSize = 5;
constexpr int reference = 1;

vxsupport::Burst burstOf(const cv::Size& size)
{
    vxsupport::BurstSettings settings;
    settings.scene.frame = size;
    settings.frameCount = windowSize;
    settings.reference = reference;
    return vxsupport::simulateBurst(settings);
}

// A burst with the registration that has prepared it and the buffers of an engine.
class Registered
{
public:
    explicit Registered(const cv::Size& size)
        : burst(burstOf(size)), registration(size.width, size.height, windowSize), shifts_(windowSize)
    {
        for (int i = 0; i < windowSize; ++i) {
            masks_.emplace_back(size);
            moved_.emplace_back(size);
            frameRows_.push_back(burst.frames[static_cast<std::size_t>(i)][0]);
            maskRows_.push_back(masks_.back()[0]);
            movedRows_.push_back(moved_.back()[0]);
            registration.prepareFrame(frameRows_.back());
        }
    }

    int run()
    {
        return registration.doRegistration(windowSize, reference, frameRows_.data(), shifts_.data(),
                                           maskRows_.data(), movedRows_.data());
    }

    vxsupport::Burst burst;
    SrFloatRegistration2 registration;

private:
    std::vector<PointF> shifts_;
    std::vector<cv::Mat_<char>> masks_;
    std::vector<cv::Mat_<float>> moved_;
    std::vector<float*> frameRows_;
    std::vector<char*> maskRows_;
    std::vector<float*> movedRows_;
};

cv::Size sizeOf(const benchmark::State& state)
{
    return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

// Seconds to copy an image of floats that is read once and written once.
double copySeconds(const cv::Size& size)
{
    std::vector<float> from(static_cast<std::size_t>(size.area()), 1.0F);
    std::vector<float> to(from.size());
    return fastestSeconds([&] {
        std::memcpy(to.data(), from.data(), from.size() * sizeof(float));
        benchmark::ClobberMemory();
    });
}

// Seconds that a peer takes for the displacements of all other frames against the reference.
template <typename Peer>
double peerSeconds(const vxsupport::Burst& burst, Peer peer)
{
    const auto all = [&] {
        for (std::size_t i = 0; i < burst.frames.size(); ++i)
            if (i != reference)
                benchmark::DoNotOptimize(peer(burst.frames[reference], burst.frames[i]));
    };
    return fastestSeconds(all, 3);
}

void prepareFrame(benchmark::State& state)
{
    Registered registered(sizeOf(state));
    float* frame = registered.burst.frames[0][0];
    while (state.KeepRunning())
        registered.registration.prepareFrame(frame);
    state.counters["own/plain copy"] =
        fastestSeconds([&] { registered.registration.prepareFrame(frame); }) / copySeconds(sizeOf(state));
}

// Four frames against the reference, whole: corners, tracking, gradient step, masks, moved frames.
void registerBurst(benchmark::State& state)
{
    Registered registered(sizeOf(state));
    while (state.KeepRunning())
        if (registered.run() != 0)
            state.SkipWithError("the burst could not be registered");
    const double own = fastestSeconds([&] { registered.run(); });

    cv::Mat window;
    cv::createHanningWindow(window, sizeOf(state), CV_32F);
    const auto phase = [&](const cv::Mat& a, const cv::Mat& b) { return cv::phaseCorrelate(a, b, window); };
    const auto ecc = [](const cv::Mat& a, const cv::Mat& b) {
        cv::Mat_<float> warp(cv::Mat_<float>::eye(2, 3));
        return cv::findTransformECC(a, b, warp, cv::MOTION_TRANSLATION);
    };
    state.counters["phaseCorrelate/own"] = peerSeconds(registered.burst, phase) / own;
    state.counters["findTransformECC/own"] = peerSeconds(registered.burst, ecc) / own;
}

// The step of one frame alone, against a copy of the 14 images that it reads or writes (a copy counts two).
void refineFrame(benchmark::State& state)
{
    const cv::Size size = sizeOf(state);
    const vxsupport::Burst burst = burstOf(size);
    std::vector<cv::Mat_<float>> smoothed(2);
    for (std::size_t i = 0; i < 2; ++i)
        cv::GaussianBlur(burst.frames[i + reference], smoothed[i], cv::Size(11, 11),
                         GradientRefinement::smoothingSigma(5));
    cv::Mat_<char> mask(size);
    GradientRefinement refinement(size);
    refinement.setReference(smoothed[0]);
    const auto refine = [&] { return refinement.refine(0, smoothed[1], {0, 0}, 0.0001F, 3, mask[0]); };
    while (state.KeepRunning())
        benchmark::DoNotOptimize(refine());
    state.counters["own/copy of the bytes moved"] = fastestSeconds(refine) / (copySeconds(size) * 7.0);
}

void frameSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Args({160, 120})->Args({320, 240})->Args({640, 480})->Unit(benchmark::kMillisecond);
}

BENCHMARK(prepareFrame)->Apply(frameSizes);
BENCHMARK(registerBurst)->Apply(frameSizes);
BENCHMARK(refineFrame)->Apply(frameSizes);

}  // namespace
