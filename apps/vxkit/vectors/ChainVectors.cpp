// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <opencv2/core.hpp>

#include "apps/vxkit/vectors/VectorSet.h"
#include "enhancement/histogram.h"
#include "enhancement/peaking.h"
#include "enhancement/snr_cmod.h"
#include "enhancement/spr_cmod.h"
#include "enhancement/tnr_cmod.h"
#include "support/Random.h"

namespace vxapp {

namespace {

using vxsupport::Random;
using Frame = cv::Mat_<int>;

/// A slope with column offsets and noise, over which a warm square moves; each frame has a pixel at each end of
/// the range.
std::vector<Frame> drawStream(const VectorRequest& request)
{
    const Random seeds(request.seed);
    Random random = seeds.split(100);
    std::vector<int> columnOffset(static_cast<std::size_t>(request.size.width));
    for (int& offset : columnOffset)
        offset = random.below(31) - 15;
    std::vector<Frame> frames;
    for (int number = 0; number < request.frames; ++number) {
        Frame frame(request.size);
        for (int y = 0; y < frame.rows; ++y)
            for (int x = 0; x < frame.cols; ++x)
                frame(y, x) =
                    14 * x - 9 * y - 600 + columnOffset[static_cast<std::size_t>(x)] + random.below(25) - 12;
        const cv::Rect subject(3 + 2 * number, 5 + number, 9, 7);
        Frame patch = frame(subject & cv::Rect({0, 0}, request.size));
        cv::add(patch, 900, patch);
        frame(random.below(frame.rows), random.below(frame.cols)) = 32767;
        frame(random.below(frame.rows), random.below(frame.cols)) = -32768;
        frames.push_back(frame);
    }
    return frames;
}

/// Runs a stream through a block: what it is given as 16-bit samples, what it answers as 32-bit words.
template <typename Process>
std::vector<Frame> runBlock(VectorCase& block, const std::vector<Frame>& frames, Process process)
{
    std::vector<Frame> results;
    for (const Frame& frame : frames) {
        cv::Mat_<short> samples;
        frame.convertTo(samples, CV_16S);
        Frame in;
        samples.convertTo(in, CV_32S);
        Frame out(frame.size(), 0);
        process(in, out);
        block.input("frame", samples);
        block.output("frame", out);
        results.push_back(out);
    }
    return results;
}

VectorCase temporalCase(const std::vector<Frame>& frames)
{
    int gain = 10;
    int global = 15;
    int alpha = 60;
    VectorCase block("temporal");
    block.setting("cgain", gain);
    block.setting("global", global);
    block.setting("alpha", alpha);
    TnrCmod model(frames[0].cols, frames[0].rows, gain, global, alpha, 0, 0);
    runBlock(block, frames, [&](const Frame& in, Frame& out) { model.ProcessFrame(in[0], out[0]); });
    return block;
}

VectorCase patternCase(const std::vector<Frame>& frames)
{
    int threshold = 22;
    int maxLine = 12;
    int maxFrame = 16;
    VectorCase block("static-pattern");
    block.setting("threshold", threshold);
    block.setting("max-line", maxLine);
    block.setting("max-frame", maxFrame);
    block.setting("delay", 1);
    SprCmod model(frames[0].cols, frames[0].rows, threshold, maxLine, maxFrame, 1, 0);
    runBlock(block, frames, [&](const Frame& in, Frame& out) { model.ProcessFrame(in[0], out[0]); });
    return block;
}

VectorCase spatialCase(const std::vector<Frame>& frames)
{
    int gain = 6;
    VectorCase block("spatial");
    block.setting("gain", gain);
    SnrCmod model(frames[0].cols, frames[0].rows, gain, 0);
    runBlock(block, frames, [&](const Frame& in, Frame& out) { model.ProcessFrame(in[0], out[0]); });
    return block;
}

/// The equaliser as the chain drives it, and peaking on what it gives.
void addDisplay(std::vector<VectorCase>& cases, const std::vector<Frame>& frames)
{
    const int cols = frames[0].cols;
    const int rows = frames[0].rows;
    Histogram model(cols, rows);
    model.param.hw = 1;
    VectorCase block("equalisation");
    block.setting("mode", model.param.mode);
    block.setting("width", model.param.width);
    block.setting("limit", model.param.limit);
    block.setting("gain", model.param.gain);
    block.setting("gainlow", model.param.gainlow);
    block.setting("gainhigh", model.param.gainhigh);
    block.setting("range", model.param.range);
    block.setting("speed", model.param.speed);

    Peaking peaking(cols, rows);
    peaking.param.enabled = 1;
    VectorCase sharpened("peaking");
    sharpened.setting("gain", peaking.param.gain);
    sharpened.setting("coring", peaking.param.coring);
    sharpened.setting("limit", peaking.param.limit);
    sharpened.setting("reduct-thres", peaking.param.reductThres);
    sharpened.setting("reduct-gain", peaking.param.reductGain);

    constexpr int binWords = 2 * HstCmod::binCount + 8;
    Frame words(1, model.BinDataRoom(), 0);
    int number = 0;
    runBlock(block, frames, [&](const Frame& in, Frame& out) {
        model.MeasureFrame(number, in[0], words[0]);
        model.ProcessFrame(number, in[0], out[0]);
        cv::Mat_<float> slopes(1, 256);
        std::copy_n(model.getLocalGain(), 256, slopes.begin());
        Frame result(out.size(), 0);
        peaking.ProcessFrame(out[0], result[0], model.getLocalGain());
        sharpened.input("frame", out);
        sharpened.input("local-gain", slopes);
        sharpened.output("frame", result);
        model.Update(number++);
        block.output("bin-data", Frame(words.colRange(0, binWords)));
    });
    cases.push_back(block);
    cases.push_back(sharpened);
}

}  // namespace

std::vector<VectorCase> chainVectors(const VectorRequest& request)
{
    const std::vector<Frame> frames = drawStream(request);
    std::vector<VectorCase> cases = {temporalCase(frames), patternCase(frames), spatialCase(frames)};
    addDisplay(cases, frames);
    return cases;
}

}  // namespace vxapp
