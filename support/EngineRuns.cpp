// SPDX-License-Identifier: Apache-2.0
#include "support/EngineRuns.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <stdexcept>

#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/SrInt.h"
#include "enhancement/superresolution/reference/SuperResolution.h"
#include "support/CapturedOutput.h"
#include "support/FpgaEngine.h"
#include "support/PictureMeasures.h"

namespace vxsupport {

namespace {

using halvor::vx::SrFloat;
using halvor::vx::SrFloatRegistration1;
using halvor::vx::SrFloatRegistration2;
using halvor::vx::SuperResolution;

constexpr int pictureMargin = 12;

template <typename Engine>
EngineRun runOn(Engine& engine, const std::vector<cv::Mat_<float>>& frames, int referenceFrame)
{
    const int count = static_cast<int>(frames.size());
    engine.setReferenceIndex(count - 1 - referenceFrame);
    for (const cv::Mat_<float>& frame : frames)
        engine.addFrame(frame.template ptr<float>());
    EngineRun run;
    run.image.create(frames[0].size() * 2);
    run.result = engine.computeSR(run.image.ptr<float>());
    engine.getCompleteShifts(run.shifts);
    engine.getMasks(run.masks);
    run.iterations = engine.getIterations();
    return run;
}

template <typename Registration>
EngineRun runFast(const std::vector<cv::Mat_<float>>& frames, int referenceFrame)
{
    SrFloat<Registration> engine(frames[0].cols, frames[0].rows, static_cast<int>(frames.size()), 2.0F);
    return runOn(engine, frames, referenceFrame);
}

EngineRun runReference(const std::vector<cv::Mat_<float>>& frames, int referenceFrame)
{
    const CapturedOutput dropped;
    SuperResolution engine(frames[0].cols, frames[0].rows, static_cast<int>(frames.size()), 2.0F);
    return runOn(engine, frames, referenceFrame);
}

// Computes after each frame, since a call registers the newest pair alone.
template <typename Engine>
EngineRun runFixed(const std::vector<cv::Mat_<float>>& frames, int referenceFrame)
{
    constexpr double countsPerKelvin = 100.0;
    const std::size_t count = frames.size();
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < count; ++i)
        if (i != static_cast<std::size_t>(referenceFrame))
            order.push_back(i);
    order.push_back(static_cast<std::size_t>(referenceFrame));

    Engine engine(frames[0].cols, frames[0].rows, static_cast<unsigned>(count), 2.0F);
    EngineRun run;
    cv::Mat_<short> counts;
    cv::Mat_<short> image;
    for (const std::size_t frame : order) {
        frames[frame].convertTo(counts, CV_16S, countsPerKelvin);
        engine.addFrame(counts);
        engine.setSkipMinimization(frame != order.back());
        run.result = static_cast<float>(engine.computeSr(image));
    }
    image.convertTo(run.image, CV_32F, 1.0 / countsPerKelvin);
    std::vector<cv::Mat_<unsigned char>> masks;
    engine.getMasks(masks);
    run.shifts.resize(count);
    run.masks.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        run.shifts[order[i]] = engine.getTotalShift(static_cast<unsigned>(i));
        run.masks[order[i]] = masks[i];
    }
    run.iterations = engine.getCumIters();
    return run;
}

double largestDifference(const std::vector<PointF>& a, const std::vector<PointF>& b)
{
    double largest = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double difference = std::max(std::abs(a[i].x - b[i].x), std::abs(a[i].y - b[i].y));
        if (!(difference <= largest))
            largest = difference;
    }
    return largest;
}

void note(std::vector<std::string>& notes, std::string_view name, double found, double limit, bool fits)
{
    if (fits)
        return;
    std::ostringstream text;
    text << name << ": " << found << ", limit " << limit;
    notes.push_back(text.str());
}

}  // namespace

EngineRun runEngine(EngineKind kind, const std::vector<cv::Mat_<float>>& frames, int referenceFrame)
{
    if (frames.empty())
        throw std::invalid_argument("runEngine: no frames");
    switch (kind) {
        case EngineKind::production:
            return runFast<SrFloatRegistration2>(frames, referenceFrame);
        case EngineKind::phase:
            return runFast<SrFloatRegistration1>(frames, referenceFrame);
        case EngineKind::fixed:
            return runFixed<FixedEngine>(frames, referenceFrame);
        case EngineKind::fpga:
            return runFixed<FpgaEngine>(frames, referenceFrame);
        default:
            return runReference(frames, referenceFrame);
    }
}

Disagreement compareRuns(const EngineRun& a, const EngineRun& b)
{
    if (a.shifts.size() != b.shifts.size() || a.image.size() != b.image.size())
        throw std::invalid_argument("compareRuns: the runs are of different bursts");
    Disagreement found;
    found.shift = largestDifference(a.shifts, b.shifts);
    double differing = 0.0;
    double pixels = 0.0;
    for (std::size_t i = 0; i < a.masks.size(); ++i) {
        differing += cv::countNonZero(a.masks[i] != b.masks[i]);
        pixels += static_cast<double>(a.masks[i].total());
    }
    found.masks = differing / pixels;
    found.image = cv::norm(a.image, b.image, cv::NORM_L2) / std::sqrt(static_cast<double>(a.image.total()));
    if (a.result != 0.0F && b.result != 0.0F)
        found.result = std::abs(a.result - b.result);
    found.iterations = std::abs(a.iterations - b.iterations);
    return found;
}

RunError compareWithTruth(const EngineRun& run, const Burst& burst, int referenceFrame)
{
    cv::Mat_<float> bicubic;
    cv::resize(burst.frames[static_cast<std::size_t>(referenceFrame)], bicubic, burst.truth.size(), 0.0, 0.0,
               cv::INTER_CUBIC);
    return {largestDifference(run.shifts, burst.shifts),
            psnr(run.image, burst.truth, pictureMargin) - psnr(bicubic, burst.truth, pictureMargin)};
}

Burst checkBurst(SceneKind kind, cv::Size frame, std::uint64_t seed)
{
    BurstSettings settings;
    settings.scene.kind = kind;
    settings.scene.frame = frame;
    settings.scene.seed = seed;
    settings.seed = seed;
    settings.shifts = {{0.3F, -0.4F}, {0.0F, 0.0F}, {-0.45F, 0.2F}, {1.2F, 0.55F}, {0.1F, -1.7F}};
    return simulateBurst(settings);
}

std::vector<std::string> excesses(const Disagreement& found, const Disagreement& limits)
{
    std::vector<std::string> notes;
    const auto check = [&notes](std::string_view name, double value, double limit) {
        note(notes, name, value, limit, value <= limit);
    };
    check("shift [pixels]", found.shift, limits.shift);
    check("masks [share]", found.masks, limits.masks);
    check("image [K]", found.image, limits.image);
    check("achieved factor", found.result, limits.result);
    check("iterations", found.iterations, limits.iterations);
    return notes;
}

std::vector<std::string> excesses(const RunError& found, const RunError& limits)
{
    std::vector<std::string> notes;
    note(notes, "shift error [pixels]", found.shift, limits.shift, found.shift <= limits.shift);
    note(notes, "gain over bicubic [dB]", found.gain, limits.gain, found.gain >= limits.gain);
    return notes;
}

}  // namespace vxsupport
