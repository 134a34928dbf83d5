// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/FrameMotion.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>

#include "core/base/Kernel.h"
#include "enhancement/superresolution/motion/MotionSettings.h"

namespace halvor::vx {

namespace {

constexpr int coarseMargin = 6;  // pixels left out at the edges while a shift is looked for
constexpr int affineMargin = 4;

VX_KERNEL void overlapRow(const float* VX_RESTRICT dx, const float* VX_RESTRICT dy, int y, int lastX,
                          int lastY, unsigned char* VX_RESTRICT overlap)
{
    for (int x = 0; x <= lastX; ++x) {
        const float fromX = static_cast<float>(x) - dx[x];
        const float fromY = static_cast<float>(y) - dy[x];
        const bool within = static_cast<bool>((fromX >= 0.0F) & (fromX <= static_cast<float>(lastX)) &
                                              (fromY >= 0.0F) & (fromY <= static_cast<float>(lastY)));
        overlap[x] = within ? 1 : 0;
    }
}

// Half the sum of both images' central differences across; at the ends one-sided ones.
VX_KERNEL void slopeAcross(const float* VX_RESTRICT a, const float* VX_RESTRICT b, int n,
                           float* VX_RESTRICT out)
{
    for (int i = 1; i < n - 1; ++i)
        out[i] = 0.25F * ((a[i + 1] + b[i + 1]) - (a[i - 1] + b[i - 1]));
    out[0] = n > 1 ? 0.5F * ((a[1] + b[1]) - (a[0] + b[0])) : 0.0F;
    out[n - 1] = n > 1 ? 0.5F * ((a[n - 1] + b[n - 1]) - (a[n - 2] + b[n - 2])) : 0.0F;
}

VX_KERNEL void slopeDown(const float* aboveA, const float* aboveB, const float* belowA, const float* belowB,
                         float scale, int n, float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] = scale * ((belowA[i] + belowB[i]) - (aboveA[i] + aboveB[i]));
}

// Of an error of noise alone the weight is half: the error is the difference of two noisy images.
VX_KERNEL void robustWeights(const float* VX_RESTRICT error, const unsigned char* VX_RESTRICT overlap,
                             float limit, int n, float* VX_RESTRICT weight)
{
    for (int i = 0; i < n; ++i) {
        const float ratio = error[i] / limit;
        weight[i] = static_cast<float>(overlap[i]) * 0.5F / (1.0F + ratio * ratio);
    }
}

}  // namespace

MotionReference::MotionReference(const cv::Size& size) : pyramid_(size)
{
    for (int level = 0; level < pyramid_.levels(); ++level)
        splines_.emplace_back(pyramid_.smoothed(level).size());
}

void MotionReference::set(const cv::Mat_<float>& frame)
{
    pyramid_.build(frame);
    for (int level = 0; level < pyramid_.levels(); ++level)
        splines_[static_cast<std::size_t>(level)].fit(pyramid_.smoothed(level));
}

FrameMotion::FrameMotion(const cv::Size& size)
    : size_(size),
      pyramid_(size),
      points_(size),
      dx_(size),
      dy_(size),
      overlap_(size),
      predicted_(size),
      error_(size),
      sorted_(static_cast<std::size_t>(size.area())),
      across_(static_cast<std::size_t>(size.width)),
      down_(across_.size()),
      weight_(across_.size())
{
    for (int level = 0; level < pyramid_.levels(); ++level)
        fits_.emplace_back(pyramid_.smoothed(level).size());
}

bool FrameMotion::findAffine(const MotionReference& reference)
{
    affine_ = {};
    for (int level = pyramid_.levels() - 1; level >= 0; --level) {
        if (level < pyramid_.levels() - 1)
            affine_ = affine_.doubled();
        if (!fits_[static_cast<std::size_t>(level)].run(reference.level(level), pyramid_.smoothed(level),
                                                        AffineFit::Terms::shift, coarseMargin, affine_))
            return false;
    }
    return fits_.front().run(reference.level(0), pyramid_.smoothed(0), AffineFit::Terms::affine, affineMargin,
                             affine_) &&
           isPlausible();
}

// No hand turns or magnifies a scene by this much between two frames: such a fit has lost its hold.
bool FrameMotion::isPlausible() const
{
    constexpr double mostDistortion = 0.25;  // pixels per pixel
    return std::fabs(affine_.x[1]) < mostDistortion * size_.width &&
           std::fabs(affine_.y[1]) < mostDistortion * size_.width &&
           std::fabs(affine_.x[2]) < mostDistortion * size_.height &&
           std::fabs(affine_.y[2]) < mostDistortion * size_.height;
}

bool FrameMotion::find(const MotionReference& reference, const cv::Mat_<float>& frame)
{
    pyramid_.build(frame);
    if (!findAffine(reference))
        return false;
    points_.clear();
    predict(reference.level(0));
    for (int step = 0; step < MotionSettings::pointSteps; ++step) {
        const float limit = 3.0F * centreError();
        points_.beginStep();
        for (int y = 0; y < size_.height; ++y)
            addRow(y, limit);
        const float change = points_.finishStep();
        if (change < 0.0F)
            return false;
        predict(reference.level(0));
        if (change < MotionSettings::pointTolerance)
            break;
    }
    return true;
}

void FrameMotion::predict(const CubicSpline& reference)
{
    for (int y = 0; y < size_.height; ++y) {
        affine_.fillRow(size_, y, dx_[y], dy_[y]);
        points_.addToRow(y, dx_[y], dy_[y]);
        reference.sampleRow(y, dx_[y], dy_[y], predicted_[y]);
        overlapRow(dx_[y], dy_[y], y, size_.width - 1, size_.height - 1, overlap_[y]);
    }
}

// The error with its median taken off, 0 outside of the overlap; gives its robust deviation.
float FrameMotion::centreError()
{
    std::size_t count = 0;
    const cv::Mat_<float>& frame = smoothed();
    for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x)
            if (overlap_(y, x) != 0)
                sorted_[count++] = predicted_(y, x) - frame(y, x);
    const std::span<float> errors(sorted_.data(), count);
    const float centre = medianOf(errors);
    for (float& error : errors)
        error = std::fabs(error - centre);
    const float spread = 1.4826F * medianOf(errors);
    for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x)
            error_(y, x) = overlap_(y, x) != 0 ? predicted_(y, x) - frame(y, x) - centre : 0.0F;
    return std::max(spread, 1e-9F);
}

void FrameMotion::addRow(int y, float limit)
{
    const cv::Mat_<float>& frame = smoothed();
    const int above = std::max(y - 1, 0);
    const int below = std::min(y + 1, size_.height - 1);
    slopeAcross(predicted_[y], frame[y], size_.width, across_.data());
    slopeDown(predicted_[above], frame[above], predicted_[below], frame[below],
              below - above == 2 ? 0.25F : 0.5F, size_.width, down_.data());
    robustWeights(error_[y], overlap_[y], limit, size_.width, weight_.data());
    points_.add(y, {across_.data(), down_.data(), error_[y], weight_.data()});
}

}  // namespace halvor::vx
