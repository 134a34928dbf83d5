// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrIntRegistration.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <opencv2/video/tracking.hpp>
#include <sstream>
#include <string>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/imaging/SymmetricFilter.h"
#include "core/registration/CornerFinder.h"
#include "core/registration/CornerFlow.h"
#include "core/registration/Displacement.h"
#include "core/registration/FrameOverlap.h"
#include "core/registration/GradientRefinement.h"
#include "core/registration/GrayRange.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/EngineSettings.h"

namespace halvor::vx {

namespace {

constexpr int pyramidLevels = 3;  // above the base
constexpr int largestBlurRadius = 32767;

// Rounded to the nearest value, halves to the even one. What is no number, as in a flat first frame, is black.
VX_KERNEL void convertToGray(const short* VX_RESTRICT in, float offset, float scale, int n,
                             unsigned char* VX_RESTRICT out)
{
    constexpr float roundsOff = 12582912.0F;  // leaves the integer in the lowest bits of the sum
    for (int i = 0; i < n; ++i) {
        const float gray = (static_cast<float>(in[i]) + offset) * scale;
        const float positive = gray > 0.0F ? gray : 0.0F;
        const float bounded = positive < 255.0F ? positive : 255.0F;
        out[i] = static_cast<unsigned char>(std::bit_cast<std::uint32_t>(bounded + roundsOff));
    }
}

// target(r, c) = source(r + shift.y, c + shift.x), and 0 outside of the source.
template <typename Pixel>
void moveImage(const cv::Mat_<Pixel>& source, cv::Point_<short> shift, cv::Mat_<Pixel>& target)
{
    target.create(source.size());
    const auto [to, from, band, strip] = overlapOf(source.size(), {shift.x, shift.y});
    for (int y = band.y; y < band.y + band.height; ++y)
        std::fill_n(target[y], band.width, Pixel{0});
    for (int i = 0; i < to.height; ++i) {
        Pixel* out = target[to.y + i];
        std::fill_n(out + strip.x, strip.width, Pixel{0});
        std::copy_n(source[from.y + i] + from.x, to.width, out + to.x);
    }
}

cv::Point_<Fixpoint> fixpoints(float x, float y)
{
    return {Fixpoint(x), Fixpoint(y)};
}

cv::Point_<Fixpoint> negated(const cv::Point_<Fixpoint>& point)
{
    return {Fixpoint::neg(point.x), Fixpoint::neg(point.y)};
}

template <typename Value>
void growTo(std::vector<Value>& values, std::size_t count)
{
    if (values.size() < count)
        values.resize(count);
}

std::string constructorWhere()
{
    return VX_WHERE("halvor::vx::SrIntRegistration::SrIntRegistration");
}

int checkedWindow(unsigned int window)
{
    if (window == 0 || window > 32767)
        throw Exception("Invalid window: " + std::to_string(window) + " frames, expected 1 to 32767",
                        constructorWhere());
    return static_cast<int>(window);
}

std::string sizeText(const cv::Mat& image)
{
    return std::to_string(image.rows) + " rows and " + std::to_string(image.cols) + " columns";
}

}  // namespace

// The steps that make 8-bit images and find their corners, with their memory.
struct SrIntRegistration::Preparation
{
    explicit Preparation(const cv::Size& size) : blur(size), cornerFinder(size) {}

    GrayRange grayRange;
    SymmetricFilter blur;
    CornerFinder cornerFinder;
};

SrIntRegistration::SrIntRegistration(int frameCols, int frameRows, unsigned int window)
    : cols_(frameCols),
      rows_(frameRows),
      pixelCount_(pixelCount(frameCols, frameRows, constructorWhere())),
      window_(checkedWindow(window), Slot{OwnedImage<signed char>(frameRows, frameCols, std::int8_t{0}), {}}),
      preparation_(std::make_unique<Preparation>(cv::Size(frameCols, frameRows))),
      smoothedError_(frameRows, frameCols),
      diffX_(frameRows, frameCols),
      diffY_(frameRows, frameCols),
      gray_(frameRows, frameCols),
      smoothed_(frameRows, frameCols),
      error_(frameRows, frameCols),
      scratch_(frameRows, frameCols),
      movedMasks_(window, OwnedImage<signed char>(frameRows, frameCols)),
      movedFrames_(window, OwnedImage<short>(frameRows, frameCols))
{
    regErrorFix_.setExponentWidth(7);
    regErrorFix_.fromFloat(regError_);
    regErrorFix_.setMantissa(static_cast<short>(regErrorFix_.getMantissa() / 16));
    regErrorFix_.incrExponent(4);
    setBlurRadius(5);
}

SrIntRegistration::SrIntRegistration(const SrIntRegistration& other) = default;
SrIntRegistration& SrIntRegistration::operator=(const SrIntRegistration& other) = default;
SrIntRegistration::~SrIntRegistration() = default;

SrIntRegistration::Pyramid::Pyramid(const Pyramid& other)
{
    *this = other;
}

// Levels are windows of larger images, whose borders the tracker reads.
SrIntRegistration::Pyramid& SrIntRegistration::Pyramid::operator=(const Pyramid& other)
{
    if (this == &other)
        return *this;
    levels.clear();
    for (const cv::Mat& level : other.levels) {
        cv::Size whole;
        cv::Point place;
        level.locateROI(whole, place);
        cv::Mat all = level;
        all.adjustROI(whole.height, whole.height, whole.width, whole.width);
        levels.push_back(all.clone()(cv::Rect(place, level.size())));
    }
    return *this;
}

void SrIntRegistration::setBlurRadius(int radius)
{
    if (radius < 0 || radius > largestBlurRadius)
        throw Exception("Invalid blur radius: " + std::to_string(radius) + " pixels, expected 0 to " +
                            std::to_string(largestBlurRadius),
                        VX_WHERE("halvor::vx::SrIntRegistration::setBlurRadius"));
    const auto sigma = static_cast<double>(GradientRefinement::smoothingSigma(radius));
    preparation_->blur.setTaps(gaussianKernel(radius, sigma));
    blurRadius_ = radius;
}

int SrIntRegistration::prepareFrame(const cv::Mat_<short>& frame)
{
    if (frame.rows != rows_ || frame.cols != cols_)
        throw Exception("prepareFrame(): expected " + sizeText(gray_) + ", got " + sizeText(frame),
                        VX_WHERE("halvor::vx::SrIntRegistration::prepareFrame"));
    channel_.send("start prepareFrame", DebugLevel::step);
    window_.push();
    std::swap(pyramids_[0].levels, pyramids_[1].levels);

    double min = 0.0;
    double max = 0.0;
    cv::minMaxIdx(frame, &min, &max);
    const bool isReplaced = preparation_->grayRange.fit(min, max);
    const int result = isReplaced && window_.count() > 1 ? SuperResolution_windowRestarted : 0;
    for (int y = 0; y < rows_; ++y)
        convertToGray(frame[y], preparation_->grayRange.grayOffset, preparation_->grayRange.grayScale, cols_,
                      gray_[y]);

    channel_.send("start GaussianBlur", DebugLevel::step);
    sepFilter2D(gray_, smoothed_);
    channel_.send("end GaussianBlur", DebugLevel::step);
    channel_.send("start buildOpticalFlowPyramid", DebugLevel::step);
    buildPyramid(smoothed_);
    channel_.send("end buildOpticalFlowPyramid", DebugLevel::step);
    ++framesPrepared_;
    channel_.send("end prepareFrame", DebugLevel::step);
    return result;
}

void SrIntRegistration::clearFrames()
{
    corners_.clear();
    window_.clear();
}

int SrIntRegistration::doRegistrationVideo(const std::vector<cv::Mat_<short>>& frames,
                                           std::vector<cv::Point_<Fixpoint>>& subShifts,
                                           std::vector<cv::Point_<Fixpoint>>& totalShifts,
                                           std::vector<cv::Point_<short>>& roundedShifts,
                                           std::vector<cv::Mat_<signed char>>& masks,
                                           std::vector<cv::Mat_<short>>& shiftedFrames)
{
    channel_.send("start doRegistrationVideo", DebugLevel::step);
    if (frameCount() == 0) {
        channel_.send("end doRegistrationVideo", DebugLevel::step);
        return 0;
    }
    requireFrames(frames);
    growTo(subShifts, frameCount());
    growTo(totalShifts, frameCount());
    growTo(roundedShifts, frameCount());
    growTo(masks, frameCount());
    growTo(shiftedFrames, frameCount());

    const std::size_t last = frameCount() - 1;
    auto& [newestMask, newestShift] = window_.newest();
    newestShift = subShifts[last] = totalShifts[last] = fixpoints(0.0F, 0.0F);
    roundedShifts[last] = {0, 0};
    newestMask.setTo(1);
    masks[last] = newestMask;
    shiftedFrames[last] = frames[last];
    if (last > 0) {
        const std::size_t prev = last - 1;
        const cv::Point_<short> intShift =
            registerWithCorners(static_cast<unsigned int>(prev), static_cast<unsigned int>(last));
        prepareGradientsRefImage(0);
        auto& [mask, shift] = window_.slots()[prev];
        const cv::Point_<short> rounded = opticalFlow(0, 1, intShift, subShifts[prev], shift, mask);
        // So far they told how the newest frame lies against the one before it.
        subShifts[prev] = negated(subShifts[prev]);
        roundedShifts[prev] = {lowSigned16(-rounded.x), lowSigned16(-rounded.y)};
        shift = negated(shift);
        accumulateShifts(subShifts, totalShifts, roundedShifts);
        tellShifts(totalShifts);
        for (std::size_t i = 0; i < last; ++i) {
            // Into images of this object's own: those of the caller may be frames or masks of the window,
            // from a call when they were the newest.
            moveImage<short>(frames[i], roundedShifts[i], movedFrames_[i]);
            moveImage<signed char>(window_.slots()[i].mask, roundedShifts[i], movedMasks_[i]);
            shiftedFrames[i] = movedFrames_[i];
            masks[i] = movedMasks_[i];
        }
    }
    channel_.send("end doRegistrationVideo", DebugLevel::step);
    return 0;
}

void SrIntRegistration::requireFrames(const std::vector<cv::Mat_<short>>& frames) const
{
    const std::string where = VX_WHERE("halvor::vx::SrIntRegistration::doRegistrationVideo");
    if (frames.size() < frameCount())
        throw Exception("doRegistrationVideo(): expected " + std::to_string(frameCount()) + " frames, got " +
                            std::to_string(frames.size()),
                        where);
    for (std::size_t i = 0; i < frameCount(); ++i)
        if (frames[i].size() != gray_.size())
            throw Exception("doRegistrationVideo(): expected frames of " + sizeText(gray_) + ", got " +
                                sizeText(frames[i]),
                            where);
}

void SrIntRegistration::sepFilter2D(const cv::Mat_<unsigned char>& src, cv::Mat_<unsigned char>& dst) const
{
    preparation_->blur.run(src, dst);
}

void SrIntRegistration::buildPyramid(const cv::Mat_<unsigned char>& image)
{
    cv::buildOpticalFlowPyramid(image, pyramids_[1].levels, cv::Size(pyramidWindow_, pyramidWindow_),
                                pyramidLevels, true, cv::BORDER_REFLECT_101, cv::BORDER_CONSTANT, true);
}

void SrIntRegistration::extractCorners(const cv::Mat& image, std::vector<cv::Point_<float>>& corners,
                                       int maxCount) const
{
    constexpr double qualityLevel = 0.05;
    constexpr double minDistance = 2.0;
    channel_.send("start extractCorners", DebugLevel::step);
    preparation_->cornerFinder.find(cv::Mat_<unsigned char>(image), maxCount, qualityLevel, minDistance,
                                    corners);
    channel_.send("end extractCorners", DebugLevel::step);
}

void SrIntRegistration::trackCorners(const std::vector<cv::Mat>& prevPyramid,
                                     const std::vector<cv::Mat>& nextPyramid,
                                     const std::vector<cv::Point_<float>>& prevPoints,
                                     std::vector<cv::Point_<float>>& nextPoints,
                                     std::vector<unsigned char>& status, int window) const
{
    const cv::TermCriteria untilStill(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01);
    cv::calcOpticalFlowPyrLK(prevPyramid, nextPyramid, prevPoints, nextPoints, status, cv::noArray(),
                             cv::Size(window, window), pyramidLevels, untilStill, 0, 0.0001);
}

// The pair is always that of the two pyramids, whatever frames the arguments name.
cv::Point_<short> SrIntRegistration::registerWithCorners(unsigned int /*a*/, unsigned int /*b*/)
{
    constexpr std::size_t refillMark = 15;
    constexpr int fill = 100;
    constexpr std::size_t fewestFlows = 4;
    if (corners_.size() < refillMark)
        extractCorners(baseOf(0), corners_, fill);

    channel_.send("start registerWithCorners", DebugLevel::step);
    std::vector<cv::Point_<float>> tracked;
    std::vector<unsigned char> status;
    if (!corners_.empty())  // which the tracker refuses
        trackCorners(pyramids_[0].levels, pyramids_[1].levels, corners_, tracked, status, pyramidWindow_);
    std::vector<cv::Point_<float>> kept;
    std::vector<cv::Point_<float>> flows;
    for (std::size_t i = 0; i < tracked.size(); ++i) {
        if (status[i] == 0)
            continue;
        kept.push_back(tracked[i]);
        flows.push_back(tracked[i] - corners_[i]);
    }
    if (flows.size() < fewestFlows)
        throw Exception("Not enough stable correspondences",
                        VX_WHERE("halvor::vx::SrIntRegistration::registerWithCorners"));
    corners_ = std::move(kept);
    channel_.send("end registerWithCorners", DebugLevel::step);

    channel_.send("start getMeanFlow", DebugLevel::step);
    cv::Point_<short> shift;
    getMeanFlow(flows, shift);
    channel_.send("end getMeanFlow", DebugLevel::step);
    return shift;
}

void SrIntRegistration::getMeanFlow(const std::vector<cv::Point_<float>>& flows, cv::Point_<short>& out) const
{
    const FlowInliers inliers = inliersNearMedian(flows);
    if (inliers.count < 2)
        throw Exception("Not enough inlier", VX_WHERE("halvor::vx::SrIntRegistration::getMeanFlow"));
    const auto count = static_cast<float>(inliers.count);
    const PointI mean = roundToPixels({inliers.sum.x / count, inliers.sum.y / count});
    out = {lowSigned16(mean.x), lowSigned16(mean.y)};
}

// The newest pair's displacement is measured, each older one's is its own and those of its successors.
void SrIntRegistration::accumulateShifts(std::vector<cv::Point_<Fixpoint>>& subShifts,
                                         std::vector<cv::Point_<Fixpoint>>& totalShifts,
                                         std::vector<cv::Point_<short>>& roundedShifts) const
{
    const std::vector<Slot>& slots = window_.slots();
    const std::size_t prev = frameCount() - 2;
    totalShifts[prev] = slots[prev].relativeShift;
    float x = totalShifts[prev].x.toFloat();
    float y = totalShifts[prev].y.toFloat();
    for (std::size_t i = prev; i-- > 0;) {
        x += slots[i].relativeShift.x.toFloat();
        y += slots[i].relativeShift.y.toFloat();
        totalShifts[i] = fixpoints(x, y);
        const PointI whole = roundToPixels({x, y});
        roundedShifts[i] = {lowSigned16(whole.x), lowSigned16(whole.y)};
        subShifts[i] = fixpoints(x - static_cast<float>(whole.x), y - static_cast<float>(whole.y));
    }
}

void SrIntRegistration::tellShifts(const std::vector<cv::Point_<Fixpoint>>& totalShifts) const
{
    if (!channel_.isDebugActive(DebugLevel::step))
        return;
    for (std::size_t i = 0; i < frameCount(); ++i) {
        std::ostringstream line;
        line.imbue(std::locale::classic());
        line << i << ": " << totalShifts[i].x.toFloat() << '\t' << totalShifts[i].y.toFloat();
        channel_.send("Video registration: Accumulated shift ", line.str(), DebugLevel::step);
    }
}

}  // namespace halvor::vx
