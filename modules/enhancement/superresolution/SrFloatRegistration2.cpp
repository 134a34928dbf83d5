#include "enhancement/superresolution/SrFloatRegistration2.h"

#include <omp.h>

#include <algorithm>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/ParallelExceptions.h"
#include "core/diagnostics/LogFacility.h"
#include "core/imaging/CornerFlow.h"
#include "core/imaging/Displacement.h"

namespace halvor::vx {

namespace {

constexpr int trackingWindow = 21;  // side of the search window, pixels
constexpr int pyramidLevels = 3;    // above the base
constexpr int noCornerTracked = -9;

VX_KERNEL void scaleToGray(const float* VX_RESTRICT in, float offset, float scale, int n,
                           float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] = (in[i] + offset) * scale;
}

}  // namespace

SrFloatRegistration2::SrFloatRegistration2(int frameWidth, int frameHeight, int window)
    : width(frameWidth),
      height(frameHeight),
      size(frameWidth * frameHeight),
      windowSize(window),
      frames(static_cast<std::size_t>(window)),
      pyramids(static_cast<std::size_t>(window)),
      refinement_(cv::Size(frameWidth, frameHeight), window),
      scaled_(frameHeight, frameWidth),
      gray_(frameHeight, frameWidth),
      tracks_(static_cast<std::size_t>(window))
{}

void SrFloatRegistration2::prepareFrame(float* frame)
{
    if (frameCount < windowSize) {
        ++frameCount;
    } else {
        std::rotate(frames.begin(), frames.begin() + 1, frames.end());
        std::rotate(pyramids.begin(), pyramids.begin() + 1, pyramids.end());
    }
    const auto newest = static_cast<std::size_t>(frameCount - 1);
    cv::Mat_<float>& smoothed = frames[newest];

    const cv::Mat_<float> source(height, width, frame);
    const int kernelSize = 2 * blurRadius + 1;
    cv::GaussianBlur(source, smoothed, cv::Size(kernelSize, kernelSize),
                     GradientRefinement::smoothingSigma(blurRadius), 0.0, cv::BORDER_REFLECT_101);

    double min = 0.0;
    double max = 0.0;
    cv::minMaxIdx(smoothed, &min, &max);
    grayRange_.fit(min, max);
    scaleToGray(smoothed[0], grayRange_.grayOffset, grayRange_.grayScale, size, scaled_[0]);
    scaled_.convertTo(gray_, CV_8U);
    cv::buildOpticalFlowPyramid(gray_, pyramids[newest], cv::Size(trackingWindow, trackingWindow),
                                pyramidLevels, true, cv::BORDER_REFLECT_101, cv::BORDER_CONSTANT, true);
}

int SrFloatRegistration2::doRegistration(int count, int reference, float* const* rawFrames, PointF* shifts,
                                         char** masks, float** registeredFrames)
{
    const int result = registerFrames(count, reference, shifts, masks);
    if (result != 0)
        return result;

    if (!settleDisplacements(cv::Size(width, height), count, rawFrames, shifts, completeShifts,
                             registeredFrames))
        throw Exception("Too large displacement",
                        VX_WHERE("halvor::vx::SrFloatRegistration2::doRegistration"));
    return 0;
}

void SrFloatRegistration2::getCompleteShifts(std::vector<PointF>& out)
{
    out = completeShifts;
}

int SrFloatRegistration2::registerFrames(int count, int reference, PointF* shifts, char** masks)
{
    if (!initialize(count, reference, masks))
        return noCornerTracked;
    extractCornersRefImage(frames[static_cast<std::size_t>(reference)]);
    if (lastShifts.empty())
        lastShifts.resize(static_cast<std::size_t>(count));
    const int result = trackFrames(count, reference);
    if (result != 0)
        return result;
    refinement_.refineAll(frames, wholeShifts_, reference, regError, regErrBlurRadius, masks, measured_);
    std::copy(measured_.begin(), measured_.end(), shifts);
    lastShifts = measured_;
    return 0;
}

bool SrFloatRegistration2::initialize(int count, int reference, char** masks)
{
    for (int i = 0; i < windowSize; ++i)
        std::fill_n(masks[i], size, static_cast<char>(i == reference ? 1 : 0));
    // The engine's window holds more frames than this one when a frame was refused on its way here.
    const int needed = std::max(count, reference + 1);
    const auto prepared =
        std::find_if(pyramids.begin(), pyramids.end(), [](const auto& p) { return p.empty(); });
    if (prepared - pyramids.begin() < needed)
        return false;
    refinement_.setReference(frames[static_cast<std::size_t>(reference)]);
    return true;
}

void SrFloatRegistration2::extractCornersRefImage(const cv::Mat_<float>& image)
{
    constexpr int maxCorners = 100;
    constexpr double qualityLevel = 0.1;
    constexpr double minDistance = 2.0;
    constexpr int blockSize = 3;
    cv::goodFeaturesToTrack(image, refCorners, maxCorners, qualityLevel, minDistance, cv::noArray(),
                            blockSize, false, 0.04);
    VX_LOG(LogFacility::progress, "Num corners: " << refCorners.size());
}

// Left to itself the tracker shares the corners of each frame's levels among threads: many short loops, and a
// wait behind each. Frames are shared instead, in one loop; what OpenCV runs inside a loop of its own stays
// on the calling thread.
int SrFloatRegistration2::trackFrames(int count, int reference)
{
    wholeShifts_.assign(static_cast<std::size_t>(count), PointI{0, 0});
    results_.assign(static_cast<std::size_t>(count), 0);
    const int others = std::max(count - 1, 0);
    ParallelExceptions failures;
    cv::parallel_for_(cv::Range(0, 1), [&](const cv::Range&) {
#pragma omp parallel for schedule(static) num_threads(std::min(omp_get_max_threads(), windowSize))
        for (int other = 0; other < others; ++other) {
            const auto i = static_cast<std::size_t>(other < reference ? other : other + 1);
            failures.run(other, [&] {
                results_[i] = registerWithCorners(omp_get_thread_num(), reference, static_cast<int>(i),
                                                  wholeShifts_[i]);
            });
        }
    });
    failures.rethrow();
    const auto failed =
        std::find_if(results_.begin(), results_.end(), [](int result) { return result != 0; });
    return failed == results_.end() ? 0 : *failed;
}

int SrFloatRegistration2::registerWithCorners(int worker, int reference, int frame, PointI& shift)
{
    shift = {0, 0};
    if (refCorners.empty())
        return noCornerTracked;
    auto& [tracked, status, error, flows] = tracks_[static_cast<std::size_t>(worker)];
    const cv::TermCriteria untilStill(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01);
    cv::calcOpticalFlowPyrLK(pyramids[static_cast<std::size_t>(reference)],
                             pyramids[static_cast<std::size_t>(frame)], refCorners, tracked, status, error,
                             cv::Size(trackingWindow, trackingWindow), pyramidLevels, untilStill, 0, 0.0001);
    flows.clear();
    for (std::size_t i = 0; i < refCorners.size(); ++i)
        if (status[i] != 0)
            flows.push_back(tracked[i] - refCorners[i]);
    if (flows.empty())
        return noCornerTracked;

    const FlowInliers inliers = inliersNearMedian(flows);
    const cv::Point2f mean = inliers.sum * (1.0F / static_cast<float>(inliers.count));
    shift = roundToPixels({mean.x, mean.y});
    return 0;
}

}  // namespace halvor::vx
