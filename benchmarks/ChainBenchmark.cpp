// SPDX-License-Identifier: Apache-2.0
// Equalisation, peaking and the whole enhancer chain. The loop tells the time of a frame; the counters are
// measured beside it, each as the fastest of many runs: nanoseconds per pixel and frames per second, and the
// ratios to a copy of the same bytes, to the plain form and to a peer built from OpenCV.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstring>
#include <opencv2/core.hpp>
#include <vector>

#include "DisplayPeers.h"
#include "FrameTiming.h"
#include "doubles/BlockFrames.h"
#include "doubles/PlainChain.h"
#include "enhancement/MARLOImageEnhancer.h"

using namespace halvor::vx;
using namespace vxbench;
using blocktest::Size;

namespace {

constexpr int streamLength = 4;
constexpr int chainImages = 6;

/// The same few frames over and over, as each kind of subject takes them.
class FrameStream
{
public:
    explicit FrameStream(Size size)
    {
        for (int number = 0; number < streamLength; ++number) {
            pixels_.push_back(blocktest::makeFrame(blocktest::Scene::calm, size, number));
            samples_.push_back(blocktest::asImage(pixels_.back(), size));
            for (int& pixel : pixels_.back())
                pixel = static_cast<short>(pixel);
            cv::Mat_<unsigned short> levels;
            samples_.back().convertTo(levels, CV_16U, 1.0, 32768.0);
            levels_.push_back(levels);
        }
        result.resize(pixels_[0].size());
    }

    const int* pixels() { return pixels_[next()].data(); }
    const cv::Mat_<short>& samples() { return samples_[next()]; }
    const cv::Mat_<unsigned short>& levels() { return levels_[next()]; }
    void copyPixels() { std::memcpy(result.data(), pixels(), result.size() * sizeof(int)); }

    std::vector<int> result;
    cv::Mat_<unsigned short> peerResult;

private:
    std::size_t next() { return ++number_ % streamLength; }

    std::size_t number_ = 0;
    std::vector<std::vector<int>> pixels_;
    std::vector<cv::Mat_<short>> samples_;
    std::vector<cv::Mat_<unsigned short>> levels_;
};

// Measuring, mapping and the new gain table, as a frame of the chain takes them.
void equalisation(benchmark::State& state)
{
    const Size size = sizeOf(state);
    FrameStream stream(size);
    Histogram own(size.cols, size.rows);
    Histogram plainForm(size.cols, size.rows);
    std::vector<int> binData(static_cast<std::size_t>(own.BinDataRoom()));
    own.param.hw = 1;
    plainForm.param.hw = 1;
    Equalising peer;
    measure(
        state, blocktest::pixelCount(size),
        [&] {
            const int* frame = stream.pixels();
            own.MeasureFrame(1, frame, binData.data());
            own.ProcessFrame(1, frame, stream.result.data());
            own.Update(1);
        },
        [&] { stream.copyPixels(); },
        [&] {
            const int* frame = stream.pixels();
            plainForm.MeasureFrame(1, frame, binData.data());
            for (std::size_t i = 0; i < stream.result.size(); ++i)
                stream.result[i] = plainForm.ProcessPixel(frame[i]);
            plainForm.Update(1);
        },
        [&] { peer.process(stream.levels(), stream.peerResult); });
}

void peaking(benchmark::State& state)
{
    const Size size = sizeOf(state);
    FrameStream stream(size);
    const int* const pixels = stream.pixels();
    std::vector<int> frame(pixels, pixels + stream.result.size());
    for (int& pixel : frame)
        pixel = (pixel + 5000) & 0x7FFF;  // on the equaliser's scale
    std::vector<double> localGain(256, 1.5);
    Peaking own(size.cols, size.rows);
    plain::Peaking plainForm(size.cols, size.rows);
    own.param.enabled = 1;
    plainForm.param.enabled = 1;
    Sharpening peer;
    measure(
        state, blocktest::pixelCount(size),
        [&] { own.ProcessFrame(frame.data(), stream.result.data(), localGain.data()); },
        [&] { stream.copyPixels(); },
        [&] { plainForm.ProcessFrame(frame.data(), stream.result.data(), localGain.data()); },
        [&] { peer.process(stream.levels(), stream.peerResult); });
}

// 16-bit frames in and out. The copy is one of every image between two blocks.
void wholeChain(benchmark::State& state)
{
    const Size size = sizeOf(state);
    FrameStream stream(size);
    cv::Mat_<short> result;
    MARLOImageEnhancer own(size.cols, size.rows);
    plain::Chain plainForm(size.cols, size.rows, CamInternalSettings{});
    Pipeline peer;
    measure(
        state, blocktest::pixelCount(size), [&] { own.processFrame(stream.samples(), result); },
        [&] {
            for (int image = 0; image < chainImages; ++image)
                stream.copyPixels();
        },
        [&] { plainForm.process(stream.pixels()); },
        [&] { peer.process(stream.levels(), stream.peerResult); });
}

BENCHMARK(equalisation)->Apply(frameSizes);
BENCHMARK(peaking)->Apply(frameSizes);
BENCHMARK(wholeChain)->Apply(frameSizes);

}  // namespace
