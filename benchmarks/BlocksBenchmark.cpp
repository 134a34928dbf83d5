// SPDX-License-Identifier: Apache-2.0
// The three noise blocks and the filters with their arithmetic. The loop tells the time of a frame; the
// counters are measured beside it, each as the fastest of many runs: nanoseconds per pixel and frames per
// second, and the ratios to a copy of the same bytes, to the plain form and to a peer built from OpenCV.

#include <benchmark/benchmark.h>

#include <cstring>
#include <opencv2/core.hpp>
#include <vector>

#include "FrameTiming.h"
#include "NoisePeers.h"
#include "doubles/BlockFrames.h"
#include "doubles/PlainPattern.h"
#include "doubles/PlainSpatial.h"
#include "doubles/PlainTemporal.h"
#include "enhancement/SpatialNoiseRemover.h"
#include "enhancement/StaticPatternRemover.h"
#include "enhancement/TemporalNoiseReduction.h"
#include "enhancement/snr_cmod.h"
#include "enhancement/spr_cmod.h"
#include "enhancement/tnr_cmod.h"

using namespace halvor::vx;
using namespace vxbench;
using blocktest::Size;

namespace {

constexpr int streamLength = 4;

/// The same few frames over and over, as each kind of subject takes them.
class FrameStream
{
public:
    explicit FrameStream(Size size) : size_(size)
    {
        for (int number = 0; number < streamLength; ++number) {
            pixels_.push_back(blocktest::makeFrame(blocktest::Scene::calm, size, number));
            samples_.push_back(blocktest::asImage(pixels_.back(), size));
            // A 16-bit unsigned frame for OpenCV, whose running average takes no signed one.
            cv::Mat_<unsigned short> levels;
            samples_.back().convertTo(levels, CV_16U, 1.0, 32768.0);
            levels_.push_back(levels);
        }
        result_.resize(pixels_[0].size());
    }

    template <typename Block>
    void runBlock(Block& block)
    {
        block.ProcessFrame(pixels_[next()].data(), result_.data());
    }

    template <typename Plain>
    void runPlain(Plain& plain)
    {
        plain.process(pixels_[next()].data(), result_.data());
    }

    template <typename Filter>
    void runFilter(Filter& filter)
    {
        filter.process(samples_[next()], filtered_);
    }

    template <typename Peer>
    void runPeer(Peer& peer)
    {
        peer.process(levels_[next()], levelled_);
    }

    void copyPixels() { std::memcpy(result_.data(), pixels_[next()].data(), result_.size() * sizeof(int)); }
    void copySamples() { samples_[next()].copyTo(filtered_); }

    int pixelCount() const { return blocktest::pixelCount(size_); }

private:
    std::size_t next() { return ++number_ % streamLength; }

    Size size_;
    std::size_t number_ = 0;
    std::vector<std::vector<int>> pixels_;
    std::vector<cv::Mat_<short>> samples_;
    std::vector<cv::Mat_<unsigned short>> levels_;
    std::vector<int> result_;
    cv::Mat_<short> filtered_;
    cv::Mat_<unsigned short> levelled_;
};

struct Settings
{
    plain::Temporal::Settings temporal;
    plain::Pattern::Settings pattern;
    int gain = 6;
};

template <typename Peer, typename Block, typename Plain>
void measureBlock(benchmark::State& state, Block& block, Plain plain)
{
    FrameStream stream(sizeOf(state));
    Peer peer;
    measure(
        state, stream.pixelCount(), [&] { stream.runBlock(block); }, [&] { stream.copyPixels(); },
        [&] { stream.runPlain(plain); }, [&] { stream.runPeer(peer); });
}

template <typename Peer, typename Filter, typename Plain>
void measureFilter(benchmark::State& state, Filter filter, Plain plain)
{
    FrameStream stream(sizeOf(state));
    Peer peer;
    measure(
        state, stream.pixelCount(), [&] { stream.runFilter(filter); }, [&] { stream.copySamples(); },
        [&] { stream.runPlain(plain); }, [&] { stream.runPeer(peer); });
}

void temporalBlock(benchmark::State& state)
{
    const auto [cols, rows] = sizeOf(state);
    Settings s;
    TnrCmod block(cols, rows, s.temporal.controlGain, s.temporal.globalThreshold, s.temporal.feedbackFactor,
                  0, 0);
    measureBlock<RunningAverage>(state, block, plain::Temporal(cols, rows, s.temporal, 0));
}

void patternBlock(benchmark::State& state)
{
    const auto [cols, rows] = sizeOf(state);
    Settings s;
    SprCmod block(cols, rows, s.pattern.threshold, s.pattern.lineLimit, s.pattern.frameLimit, 1, 0);
    measureBlock<ColumnDestriping>(state, block, plain::Pattern(cols, rows, s.pattern, 1, 0));
}

void spatialBlock(benchmark::State& state)
{
    const auto [cols, rows] = sizeOf(state);
    Settings s;
    SnrCmod block(cols, rows, s.gain, 0);
    measureBlock<Bilateral>(state, block, plain::Spatial(cols, rows, s.gain, 0));
}

void temporalFilter(benchmark::State& state)
{
    const auto [cols, rows] = sizeOf(state);
    const Settings s;
    measureFilter<RunningAverage>(state,
                                  TemporalNoiseReduction(s.temporal.controlGain, s.temporal.globalThreshold,
                                                         s.temporal.feedbackFactor, false),
                                  plain::Temporal(cols, rows, s.temporal, 0));
}

void patternFilter(benchmark::State& state)
{
    const auto [cols, rows] = sizeOf(state);
    const Settings s;
    measureFilter<ColumnDestriping>(
        state, StaticPatternRemover(s.pattern.threshold, s.pattern.lineLimit, s.pattern.frameLimit),
        plain::Pattern(cols, rows, s.pattern));
}

void spatialFilter(benchmark::State& state)
{
    const auto [cols, rows] = sizeOf(state);
    const Settings s;
    measureFilter<Bilateral>(state, SpatialNoiseRemover(s.gain), plain::Spatial(cols, rows, s.gain, 0));
}

BENCHMARK(temporalBlock)->Apply(frameSizes);
BENCHMARK(patternBlock)->Apply(frameSizes);
BENCHMARK(spatialBlock)->Apply(frameSizes);
BENCHMARK(temporalFilter)->Apply(frameSizes);
BENCHMARK(patternFilter)->Apply(frameSizes);
BENCHMARK(spatialFilter)->Apply(frameSizes);

}  // namespace
