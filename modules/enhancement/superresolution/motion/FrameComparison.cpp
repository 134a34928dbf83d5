// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/FrameComparison.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>

#include "core/base/Kernel.h"
#include "core/base/RowSums.h"
#include "enhancement/superresolution/motion/MotionSettings.h"

namespace halvor::vx {

namespace {

constexpr int sampleSpacing = 8;

VX_KERNEL void clipRow(const float* VX_RESTRICT in, float limit, int n, float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        const float low = in[i] > -limit ? in[i] : -limit;
        out[i] = low < limit ? low : limit;
    }
}

// error -= offset, its square; both 0 outside of the overlap.
VX_KERNEL void squaredErrorRow(const float* VX_RESTRICT error, const float* VX_RESTRICT offset,
                               const unsigned char* VX_RESTRICT overlap, int n, float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        const float kept = (error[i] - offset[i]) * static_cast<float>(overlap[i]);
        out[i] = kept * kept;
    }
}

// What is more than twice the noise's part, times the detail that smoothing took from the frame.
VX_KERNEL void varianceRow(const float* VX_RESTRICT squares, const float* VX_RESTRICT detail,
                           const float* VX_RESTRICT kept, float noise, int n, float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        const float excess = squares[i] > 2.0F * noise ? squares[i] - 2.0F * noise : 0.0F;
        const float slope = kept[i] > 1e-12F ? kept[i] : 1e-12F;
        const float ratio = detail[i] / slope;
        out[i] = 1.0F + MotionSettings::excessFactor * excess * (ratio > 1.0F ? ratio : 1.0F);
    }
}

VX_KERNEL void weightRow(const float* VX_RESTRICT variance, const unsigned char* VX_RESTRICT overlap,
                         const unsigned char* VX_RESTRICT defects, int n, float* VX_RESTRICT weight)
{
    for (int i = 0; i < n; ++i) {
        const float share = 1.0F / variance[i];
        const bool counts =
            static_cast<bool>((overlap[i] != 0) & (defects[i] == 0) & (share >= MotionSettings::leastWeight));
        weight[i] = counts ? share : 0.0F;
    }
}

// The difference to the prediction, clipped where an edge or a registration error may make it large.
VX_KERNEL void clippedDifferenceRow(const float* VX_RESTRICT frame, const float* VX_RESTRICT prediction,
                                    const float* VX_RESTRICT variance, const float* VX_RESTRICT slopes,
                                    const float* VX_RESTRICT mask, int n, float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        const float limit = 3.0F * std::sqrt(variance[i] + 0.01F * slopes[i]);
        const float difference = frame[i] - prediction[i];
        const float low = difference > -limit ? difference : -limit;
        out[i] = mask[i] * (low < limit ? low : limit);
    }
}

VX_KERNEL void withoutOffsetRow(const float* VX_RESTRICT frame, const float* VX_RESTRICT offset,
                                const float* VX_RESTRICT mask, int n, float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] = frame[i] - offset[i] / (mask[i] > 1e-3F ? mask[i] : 1e-3F);
}

struct WeighedSums
{
    double weight;
    double x;
    double y;
    double missed;
};

VX_KERNEL void sumRow(const float* VX_RESTRICT weight, const float* VX_RESTRICT dx,
                      const float* VX_RESTRICT dy, const float* VX_RESTRICT missed, int n, WeighedSums& sums)
{
    sums.weight += laneSum(n, [=](int i) { return weight[i]; });
    sums.x += laneSum(n, [=](int i) { return weight[i] * dx[i]; });
    sums.y += laneSum(n, [=](int i) { return weight[i] * dy[i]; });
    sums.missed += laneSum(n, [=](int i) { return weight[i] * (missed[i] * missed[i]); });
}

}  // namespace

FrameComparison::FrameComparison(const cv::Size& size)
    : size_(size),
      motion_(size),
      detailFilter_(gaussianFilter(size, MotionSettings::detailBlur)),
      slopeFilter_(gaussianFilter(size, 1.0)),
      excessFilter_(gaussianFilter(size, MotionSettings::excessBlur)),
      offsetFilter_(gaussianFilter(size, MotionSettings::offsetBlur)),
      variance_(size),
      weight_(size),
      value_(size),
      missed_(size),
      error_(size),
      squares_(size),
      blurred_(size),
      detail_(size),
      mask_(size),
      sorted_(static_cast<std::size_t>(size.area()))
{}

void FrameComparison::run(const MotionReference& reference, const cv::Mat_<float>& frame,
                          const cv::Mat_<unsigned char>& defects, const MotionSolver& start, FrameTaps& taps,
                          ComparedFrame& result)
{
    result.fits = motion_.find(reference, frame);
    if (!result.fits) {
        weight_.setTo(0.0F);
    } else {
        detailFilter_.run(frame, error_);
        squaredGradient(error_, squares_);
        excessFilter_.run(squares_, detail_);
        measureExcess();
        weigh(defects);
        takeOffsets(frame, start);
        sumUp(result);
    }
    for (int y = 0; y < size_.height; ++y)
        taps.setRow(y, motion_.dx()[y], motion_.dy()[y], weight_[y], value_[y]);
}

// Of the errors' magnitudes in the overlap: 4.5 times the median.
float FrameComparison::errorLimit()
{
    std::size_t count = 0;
    for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x)
            if (motion_.overlap()(y, x) != 0)
                sorted_[count++] = std::fabs(error_(y, x));
    return 4.5F * medianOf(std::span<float>(sorted_.data(), count));
}

void FrameComparison::measureExcess()
{
    const cv::Mat_<float>& smooth = motion_.smoothed();
    for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x)
            error_(y, x) =
                (smooth(y, x) - motion_.predicted()(y, x)) * static_cast<float>(motion_.overlap()(y, x));
    const float limit = errorLimit();
    for (int y = 0; y < size_.height; ++y)
        clipRow(error_[y], limit, size_.width, mask_[y]);
    offsetFilter_.run(mask_, blurred_);
    for (int y = 0; y < size_.height; ++y)
        squaredErrorRow(error_[y], blurred_[y], motion_.overlap()[y], size_.width, squares_[y]);
    excessFilter_.run(squares_, blurred_);
    squaredGradient(smooth, squares_);
    excessFilter_.run(squares_, error_);

    // What noise of deviation 1 leaves in the squared difference of two images that were smoothed this much.
    constexpr double blur = MotionSettings::registrationBlur;
    constexpr auto noise = static_cast<float>(2.0 / (4.0 * std::numbers::pi * blur * blur));
    for (int y = 0; y < size_.height; ++y)
        varianceRow(blurred_[y], detail_[y], error_[y], noise, size_.width, variance_[y]);
}

void FrameComparison::weigh(const cv::Mat_<unsigned char>& defects)
{
    for (int y = 0; y < size_.height; ++y)
        weightRow(variance_[y], motion_.overlap()[y], defects[y], size_.width, weight_[y]);
}

void FrameComparison::takeOffsets(const cv::Mat_<float>& frame, const MotionSolver& start)
{
    for (int y = 0; y < size_.height; ++y)
        predictRow(start.table(), start.estimate(), start.pictureSize(), y, motion_.dx()[y], motion_.dy()[y],
                   size_.width, missed_[y]);
    squaredGradient(missed_, squares_);
    slopeFilter_.run(squares_, detail_);
    motion_.overlap().convertTo(mask_, CV_32F);
    for (int y = 0; y < size_.height; ++y)
        clippedDifferenceRow(frame[y], missed_[y], variance_[y], detail_[y], mask_[y], size_.width,
                             error_[y]);
    offsetFilter_.run(error_, blurred_);
    offsetFilter_.run(mask_, squares_);
    for (int y = 0; y < size_.height; ++y) {
        withoutOffsetRow(frame[y], blurred_[y], squares_[y], size_.width, value_[y]);
        for (int x = 0; x < size_.width; ++x)
            missed_(y, x) = value_(y, x) - missed_(y, x);
    }
}

void FrameComparison::sumUp(ComparedFrame& result) const
{
    WeighedSums sums{};
    for (int y = 0; y < size_.height; ++y)
        sumRow(weight_[y], motion_.dx()[y], motion_.dy()[y], missed_[y], size_.width, sums);
    result.weight = sums.weight;
    result.missed = sums.missed;
    result.shift = sums.weight > 0.0 ? PointF{static_cast<float>(sums.x / sums.weight),
                                              static_cast<float>(sums.y / sums.weight)}
                                     : motion_.middle();
    float largest = 0.0F;
    for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x) {
            const float x2 = motion_.dx()(y, x) - result.shift.x;
            const float y2 = motion_.dy()(y, x) - result.shift.y;
            if (weight_(y, x) > 0.0F)
                largest = std::max(largest, x2 * x2 + y2 * y2);
        }
    result.largestLocal = std::sqrt(largest);
    std::size_t sample = 0;
    for (int y = 0; y < size_.height; y += sampleSpacing)
        for (int x = 0; x < size_.width; x += sampleSpacing)
            result.samples[sample++] = {{motion_.dx()(y, x), motion_.dy()(y, x)}, weight_(y, x)};
}

}  // namespace halvor::vx
