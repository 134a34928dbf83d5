// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloatRegistration2.h"

#include <omp.h>

#include <algorithm>
#include <opencv2/core/utility.hpp>
#include <opencv2/video/tracking.hpp>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/ParallelExceptions.h"
#include "core/diagnostics/LogFacility.h"
#include "core/imaging/SymmetricFilter.h"
#include "core/registration/CornerFinder.h"
#include "core/registration/CornerFlow.h"
#include "core/registration/Displacement.h"
#include "core/registration/GradientRefinement.h"
#include "core/registration/GrayRange.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/SlidingWindow.h"

namespace halvor::vx {

namespace {

constexpr int trackingWindow = 21;  // side of the search window, pixels
constexpr int pyramidLevels = 3;    // above the base

VX_KERNEL void scaleToGray(const float* VX_RESTRICT in, float offset, float scale, int n,
                           float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] = (in[i] + offset) * scale;
}

// Results of the tracker for one of the threads that track frames at the same time.
struct Tracks
{
    std::vector<cv::Point2f> tracked;
    std::vector<unsigned char> status;
    std::vector<float> error;
    std::vector<cv::Point2f> flows;
};

}  // namespace

// The steps of a run, and what lies between them.
struct SrFloatRegistration2::Parts
{
    Parts(const cv::Size& size, int window)
        : frames(window),
          pyramids(window),
          blur(size),
          scaled(size),
          gray(size),
          cornerFinder(size),
          tracks(static_cast<std::size_t>(window)),
          refinement(size, window)
    {}

    SlidingWindow<cv::Mat_<float>> frames;  // smoothed
    SlidingWindow<std::vector<cv::Mat>> pyramids;
    SymmetricFilter blur;
    GrayRange grayRange;
    cv::Mat_<float> scaled;
    cv::Mat_<unsigned char> gray;
    CornerFinder cornerFinder;
    std::vector<Tracks> tracks;  // one for each worker
    std::vector<int> results;
    std::vector<PointI> wholeShifts;
    GradientRefinement refinement;
    std::vector<PointF> measured;
};

SrFloatRegistration2::SrFloatRegistration2(int frameWidth, int frameHeight, int window)
    : width_(frameWidth),
      height_(frameHeight),
      size_(frameWidth * frameHeight),
      windowSize_(window),
      regError_(EngineDefaults::regError),
      parts_(std::make_unique<Parts>(cv::Size(frameWidth, frameHeight), window))
{
    setBlurRadius(5);
}

SrFloatRegistration2::~SrFloatRegistration2() = default;

void SrFloatRegistration2::setBlurRadius(int radius)
{
    blurRadius_ = radius;
    const auto sigma = static_cast<double>(GradientRefinement::smoothingSigma(radius));
    // Without a radius the deviation decides on the length of the kernel.
    const int reach = radius >= 0 ? radius : cvRound(sigma * 8.0 + 1.0) / 2;
    parts_->blur.setTaps(gaussianKernel(reach, sigma));
}

void SrFloatRegistration2::prepareFrame(float* frame)
{
    Parts& parts = *parts_;
    cv::Mat_<float>& smoothed = parts.frames.push();
    std::vector<cv::Mat>& pyramid = parts.pyramids.push();

    const cv::Mat_<float> source(height_, width_, frame);
    parts.blur.run(source, smoothed);
    double min = 0.0;
    double max = 0.0;
    cv::minMaxIdx(smoothed, &min, &max);
    parts.grayRange.fit(min, max);
    scaleToGray(smoothed[0], parts.grayRange.grayOffset, parts.grayRange.grayScale, size_, parts.scaled[0]);
    parts.scaled.convertTo(parts.gray, CV_8U);
    cv::buildOpticalFlowPyramid(parts.gray, pyramid, cv::Size(trackingWindow, trackingWindow), pyramidLevels,
                                true, cv::BORDER_REFLECT_101, cv::BORDER_CONSTANT, true);
}

int SrFloatRegistration2::doRegistration(int count, int reference, float* const* rawFrames, PointF* shifts,
                                         char** masks, float** registeredFrames)
{
    const int result = registerFrames(count, reference, shifts, masks);
    if (result != 0)
        return result;

    if (!settleDisplacements(cv::Size(width_, height_), count, rawFrames, shifts, completeShifts_,
                             registeredFrames))
        throw Exception("Too large displacement",
                        VX_WHERE("halvor::vx::SrFloatRegistration2::doRegistration"));
    return 0;
}

void SrFloatRegistration2::getCompleteShifts(std::vector<PointF>& out)
{
    out = completeShifts_;
}

int SrFloatRegistration2::registerFrames(int count, int reference, PointF* shifts, char** masks)
{
    if (!initialize(count, reference, masks))
        return SuperResolution_noCorner;
    extractCornersRefImage(parts_->frames[reference]);
    const int result = trackFrames(count, reference);
    if (result != 0)
        return result;
    parts_->refinement.refineAll(parts_->frames.slots(), parts_->wholeShifts, reference, regError_,
                                 regErrBlurRadius_, masks, parts_->measured);
    std::copy(parts_->measured.begin(), parts_->measured.end(), shifts);
    return 0;
}

bool SrFloatRegistration2::initialize(int count, int reference, char** masks)
{
    for (int i = 0; i < windowSize_; ++i)
        std::fill_n(masks[i], size_, static_cast<char>(i == reference ? 1 : 0));
    // The engine's window holds more frames than this one when a frame was refused on its way here.
    const int needed = std::max(count, reference + 1);
    const auto& pyramids = parts_->pyramids.slots();
    const auto prepared =
        std::find_if(pyramids.begin(), pyramids.end(), [](const auto& p) { return p.empty(); });
    if (prepared - pyramids.begin() < needed)
        return false;
    parts_->refinement.setReference(parts_->frames[reference]);
    return true;
}

void SrFloatRegistration2::extractCornersRefImage(const cv::Mat_<float>& image)
{
    constexpr int maxCorners = 100;
    constexpr double qualityLevel = 0.1;
    constexpr double minDistance = 2.0;
    parts_->cornerFinder.find(image, maxCorners, qualityLevel, minDistance, refCorners_);
    VX_LOG(LogFacility::progress, "Num corners: " << refCorners_.size());
}

// Left to itself the tracker shares the corners of each frame's levels among threads: many short loops, and a
// wait behind each. Frames are shared instead, in one loop; what OpenCV runs inside a loop of its own stays
// on the calling thread.
int SrFloatRegistration2::trackFrames(int count, int reference)
{
    parts_->wholeShifts.assign(static_cast<std::size_t>(count), PointI{0, 0});
    parts_->results.assign(static_cast<std::size_t>(count), 0);
    const int others = std::max(count - 1, 0);
    ParallelExceptions failures;
    cv::parallel_for_(cv::Range(0, 1), [&](const cv::Range&) {
#pragma omp parallel for schedule(static) num_threads(std::min(omp_get_max_threads(), windowSize_))
        for (int other = 0; other < others; ++other) {
            const auto i = static_cast<std::size_t>(other < reference ? other : other + 1);
            failures.run(other, [&] {
                parts_->results[i] = registerWithCorners(omp_get_thread_num(), reference, static_cast<int>(i),
                                                         parts_->wholeShifts[i]);
            });
        }
    });
    failures.rethrow();
    const auto failed =
        std::find_if(parts_->results.begin(), parts_->results.end(), [](int result) { return result != 0; });
    return failed == parts_->results.end() ? 0 : *failed;
}

int SrFloatRegistration2::registerWithCorners(int worker, int reference, int frame, PointI& shift)
{
    shift = {0, 0};
    if (refCorners_.empty())
        return SuperResolution_noCorner;
    auto& [tracked, status, error, flows] = parts_->tracks[static_cast<std::size_t>(worker)];
    const cv::TermCriteria untilStill(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01);
    cv::calcOpticalFlowPyrLK(parts_->pyramids[reference], parts_->pyramids[frame], refCorners_, tracked,
                             status, error, cv::Size(trackingWindow, trackingWindow), pyramidLevels,
                             untilStill, 0, 0.0001);
    flows.clear();
    for (std::size_t i = 0; i < refCorners_.size(); ++i)
        if (status[i] != 0)
            flows.push_back(tracked[i] - refCorners_[i]);
    if (flows.empty())
        return SuperResolution_noCorner;

    const FlowInliers inliers = inliersNearMedian(flows);
    const cv::Point2f mean = inliers.sum * (1.0F / static_cast<float>(inliers.count));
    shift = roundToPixels({mean.x, mean.y});
    return 0;
}

}  // namespace halvor::vx
