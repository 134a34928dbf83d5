// SPDX-License-Identifier: Apache-2.0
// What a call of the interface in C costs beyond the call of the class behind it, as a ratio in one run.

#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>
#include <vector>

#include "Timing.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "support/Burst.h"
#include "support/drivers/ChainSettings.h"
#include "vxkit.h"

namespace {

const cv::Size frameSize{160, 120};

vxkit_image imageOf(const cv::Mat& matrix, vxkit_type type)
{
    return {matrix.data, matrix.cols, matrix.rows, 0, type};
}

void told(benchmark::State& state, vxkit_status status)
{
    if (status != VXKIT_OK)
        state.SkipWithError(vxkit_last_error());
}

/// Times both in turns.
template <typename C, typename Cpp>
void compare(benchmark::State& state, int rounds, const C& c, const Cpp& cpp)
{
    for (auto _ : state)
        c();
    const auto [cSeconds, cppSeconds] = vxbench::fastestInTurns(rounds, c, cpp);
    state.counters["c/c++"] = cSeconds / cppSeconds;
    state.counters["us more"] = (cSeconds - cppSeconds) * 1e6;
}

// The class prints to the standard output, which a benchmark sends elsewhere; the interface is quiet.
void chainFrame(benchmark::State& state)
{
    cv::Mat_<short> frame(frameSize);
    cv::RNG(3).fill(frame, cv::RNG::UNIFORM, 900, 1400);
    cv::Mat_<short> byClass(frameSize);
    cv::Mat_<short> byCall(frameSize);
    auto chain = vxsupport::openChain(vxsupport::usualChainSettings(frameSize), frameSize);
    vxkit_object* object = nullptr;
    told(state, vxkit_create("enhancer", frameSize.width, frameSize.height, &object));
    const vxkit_image src = imageOf(frame, VXKIT_I16);
    const vxkit_image dst = imageOf(byCall, VXKIT_I16);
    compare(
        state, 3000, [&] { told(state, vxkit_process(object, &src, &dst)); },
        [&] { chain.processFrame(frame, byClass); });
    told(state, vxkit_release(object));
}

void burst(benchmark::State& state)
{
    vxsupport::BurstSettings settings;
    settings.scene.frame = frameSize;
    const vxsupport::Burst frames = vxsupport::simulateBurst(settings);
    cv::Mat_<float> byClass(frameSize * 2);
    cv::Mat_<float> byCall(frameSize * 2);
    halvor::vx::SrFloat<halvor::vx::SrFloatRegistration2> engine(frameSize.width, frameSize.height, 5, 2.0F);
    engine.setReferenceIndex(3);
    vxkit_object* object = nullptr;
    told(state, vxkit_create("production", frameSize.width, frameSize.height, &object));
    const vxkit_image dst = imageOf(byCall, VXKIT_F32);
    std::vector<vxkit_image> images;
    images.reserve(frames.frames.size());
    for (const cv::Mat_<float>& frame : frames.frames)
        images.push_back(imageOf(frame, VXKIT_F32));
    // A full window computes with every frame.
    for (std::size_t i = 0; i + 1 < images.size(); ++i) {
        told(state, vxkit_add_frame(object, &images[i], nullptr));
        engine.addFrame(frames.frames[i].ptr<float>());
    }
    compare(
        state, 60,
        [&] {
            for (const vxkit_image& image : images)
                told(state, vxkit_add_frame(object, &image, nullptr));
            told(state, vxkit_result(object, "image", &dst));
        },
        [&] {
            for (const cv::Mat_<float>& frame : frames.frames) {
                engine.addFrame(frame.ptr<float>());
                engine.computeSR(byClass.ptr<float>());
            }
        });
    told(state, vxkit_release(object));
}

BENCHMARK(chainFrame)->Name("CInterface/ChainFrame160x120")->Unit(benchmark::kMicrosecond);
BENCHMARK(burst)->Name("CInterface/Burst160x120")->Unit(benchmark::kMillisecond);

}  // namespace
