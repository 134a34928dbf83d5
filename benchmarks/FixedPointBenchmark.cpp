// SPDX-License-Identifier: Apache-2.0
// One new frame into the fixed-point engine's window of five and one super-resolved image out. Ratios are to what is
// measured beside it in the same run: the float engine on the same scene, and the same engine with both forms
// of each convolution side by side and compared.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/LiveEngine.h"
#include "benchmarks/Timing.h"
#include "core/diagnostics/DebugDeviceBase.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/SrInt.h"

using namespace halvor::vx;
using vxbench::fastestSeconds;
using vxbench::useThreads;
using vxbench::windowSize;

namespace {

constexpr int stepLevel = 11;

std::vector<cv::Mat_<short>> countsOf(const cv::Size& size)
{
    constexpr double darkest = 3000.0;
    constexpr double brightest = 7000.0;
    std::vector<cv::Mat_<short>> counts;
    for (const cv::Mat_<float>& frame : vxbench::framesOf(size)) {
        cv::Mat_<short> converted;
        cv::normalize(frame, converted, darkest, brightest, cv::NORM_MINMAX, CV_16S);
        counts.push_back(converted);
    }
    return counts;
}

/// Drops all lines.
class Silence : public DebugDeviceBase
{
public:
    void write(std::string_view, std::string_view, int) override {}
};

/// Solver whose channel is open, so that it calls each convolution in both forms and compares them.
class PlainLoops : public SrIntMinimization
{
public:
    PlainLoops(short width, short height, short frames, short factor)
        : SrIntMinimization(width, height, frames, factor)
    {
        getDebugChannel().setDebugDevice(std::make_shared<Silence>());
        getDebugChannel().setOutputLevel(stepLevel);
    }
};

/// An engine with a full window: one new frame, one image.
template <typename Engine>
class LiveFixedEngine
{
public:
    explicit LiveFixedEngine(const cv::Size& size)
        : engine(size.width, size.height, windowSize, vxbench::enlargement), frames_(countsOf(size))
    {
        engine.setReferenceIndex(3);
        for (int i = 0; i < windowSize; ++i)
            nextImage();
    }

    int nextImage()
    {
        engine.addFrame(frames_[next_]);
        next_ = (next_ + 1) % frames_.size();
        return engine.computeSr(image_);
    }

    Engine engine;

private:
    std::vector<cv::Mat_<short>> frames_;
    std::size_t next_ = 0;
    cv::Mat_<short> image_;
};

using FixedEngine = LiveFixedEngine<SrInt<SrIntRegistration, SrIntMinimization>>;
using PlainEngine = LiveFixedEngine<SrInt<SrIntRegistration, PlainLoops>>;
using FloatEngine = vxbench::LiveEngine<SrFloat<SrFloatRegistration2>>;

/// Keeps the least milliseconds that an engine tells of each stage.
class StageTimes : public DebugDeviceBase
{
public:
    void write(std::string_view /*channel*/, std::string_view text, int /*level*/) override
    {
        const std::size_t colon = text.find(':');
        if (text.find("[ms]") == std::string_view::npos || colon == std::string_view::npos)
            return;
        const std::string label(
            text.substr(text.find_first_not_of(' '), colon - text.find_first_not_of(' ')));
        const double time = std::strtod(std::string(text.substr(colon + 1)).c_str(), nullptr);
        const auto [stage, isNew] = milliseconds.emplace(label, time);
        if (!isNew)
            stage->second = std::min(stage->second, time);
    }

    std::map<std::string, double> milliseconds;
};

void tellStages(FixedEngine& live, benchmark::State& state)
{
    const auto times = std::make_shared<StageTimes>();
    live.engine.setDebugDevice(times);
    live.engine.setOutputLevel(stepLevel);
    for (int i = 0; i < 5 * windowSize; ++i)
        live.nextImage();
    live.engine.setOutputLevel(0);
    for (const auto& [label, time] : times->milliseconds)
        state.counters[label + " ms"] = time;
}

// Seconds of an image, over the positions of the window.
template <typename Engine>
double secondsPerImage(Engine& live, int rounds)
{
    return fastestSeconds(
               [&] {
                   for (int i = 0; i < windowSize; ++i)
                       live.nextImage();
               },
               rounds) /
           windowSize;
}

void liveImage(benchmark::State& state)
{
    const cv::Size size(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    const int threads = static_cast<int>(state.range(2));
    useThreads(threads);
    FixedEngine own(size);
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(own.nextImage());

    FloatEngine peer(size);
    double ownSeconds = secondsPerImage(own, 1);
    double peerSeconds = secondsPerImage(peer, 1);
    for (int i = 0; i < 10; ++i) {
        ownSeconds = std::min(ownSeconds, secondsPerImage(own, 1));
        peerSeconds = std::min(peerSeconds, secondsPerImage(peer, 1));
    }
    state.counters["own ms"] = 1e3 * ownSeconds;
    state.counters["own/float"] = ownSeconds / peerSeconds;
    state.counters["steps"] = own.engine.getCumIters();
    tellStages(own, state);
    if (threads == 1) {
        PlainEngine plain(size);
        state.counters["plain/own"] = secondsPerImage(plain, 2) / ownSeconds;
        return;
    }
    double single = 1.0;
    for (int i = 0; i < 10; ++i) {
        useThreads(1);
        const double begin = omp_get_wtime();
        for (int k = 0; k < windowSize; ++k)
            own.nextImage();
        single = std::min(single, (omp_get_wtime() - begin) / windowSize);
        useThreads(threads);
        ownSeconds = std::min(ownSeconds, secondsPerImage(own, 1));
    }
    state.counters["1 thread/own"] = single / ownSeconds;
}

void sizesAndThreads(benchmark::internal::Benchmark* benchmark)
{
    for (const auto& size : {std::array{160, 120}, std::array{320, 240}, std::array{640, 480}})
        for (const int threads : {1, 2})
            benchmark->Args({size[0], size[1], threads});
    benchmark->ArgNames({"width", "height", "threads"})->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(liveImage)->Apply(sizesAndThreads);

}  // namespace
