// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/Smoothing.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/base/Kernel.h"
#include "enhancement/superresolution/motion/MotionSettings.h"

namespace halvor::vx {

namespace {

constexpr float deviationOfMedian = 1.4826F;  // of a normal distribution, per median absolute deviation

VX_KERNEL void squaredGradientRow(const float* above, const float* own, const float* below, float downScale,
                                  int n, float* VX_RESTRICT out)
{
    for (int i = 1; i < n - 1; ++i) {
        const float across = 0.5F * (own[i + 1] - own[i - 1]);
        const float down = downScale * (below[i] - above[i]);
        out[i] = across * across + down * down;
    }
}

// Second differences in both directions.
VX_KERNEL void crossDifferences(const float* above, const float* own, const float* below, int n,
                                float* VX_RESTRICT out)
{
    constexpr float scale = 1.0F / 6.0F;
    for (int i = 0; i < n; ++i) {
        const float corners = (above[i] + above[i + 2]) + (below[i] + below[i + 2]);
        const float sides = (above[i + 1] + below[i + 1]) + (own[i] + own[i + 2]);
        out[i] = scale * (corners - 2.0F * sides + 4.0F * own[i + 1]);
    }
}

float endSlope(float before, float behind, float down)
{
    return (behind - before) * (behind - before) + down * down;
}

}  // namespace

SymmetricFilter gaussianFilter(const cv::Size& size, double deviation)
{
    const int radius = static_cast<int>(std::lround(deviation * 8.0 + 1.0)) / 2;
    SymmetricFilter filter(size);
    filter.setTaps(gaussianKernel(radius, deviation));
    return filter;
}

SmoothPyramid::SmoothPyramid(const cv::Size& size)
{
    cv::Size level = size;
    while (true) {
        const bool isFirst = plain_.empty();
        plain_.emplace_back(level);
        smoothed_.emplace_back(level);
        smoothing_.push_back(
            gaussianFilter(level, isFirst ? MotionSettings::registrationBlur : MotionSettings::coarseBlur));
        if (std::min(level.width, level.height) <= MotionSettings::leastLevel)
            return;
        filtered_.emplace_back(level);
        halving_.emplace_back(level);
        halving_.back().setTaps({0.0625F, 0.25F, 0.375F, 0.25F, 0.0625F});
        level = {(level.width + 1) / 2, (level.height + 1) / 2};
    }
}

void SmoothPyramid::build(const cv::Mat_<float>& image)
{
    image.copyTo(plain_.front());
    for (std::size_t level = 0; level < plain_.size(); ++level) {
        smoothing_[level].run(plain_[level], smoothed_[level]);
        if (level + 1 == plain_.size())
            return;
        halving_[level].run(plain_[level], filtered_[level]);
        cv::Mat_<float>& half = plain_[level + 1];
        for (int y = 0; y < half.rows; ++y)
            for (int x = 0; x < half.cols; ++x)
                half(y, x) = filtered_[level](2 * y, 2 * x);
    }
}

void squaredGradient(const cv::Mat_<float>& image, cv::Mat_<float>& out)
{
    out.create(image.size());
    const int last = image.cols - 1;
    for (int y = 0; y < image.rows; ++y) {
        const int above = std::max(y - 1, 0);
        const int below = std::min(y + 1, image.rows - 1);
        const float downScale = below - above == 2 ? 0.5F : 1.0F;
        squaredGradientRow(image[above], image[y], image[below], downScale, image.cols, out[y]);
        const auto down = [&](int x) { return downScale * (image(below, x) - image(above, x)); };
        out(y, 0) = endSlope(image(y, 0), image(y, std::min(1, last)), down(0));
        out(y, last) = endSlope(image(y, std::max(last - 1, 0)), image(y, last), down(last));
    }
}

float medianOf(std::span<float> values)
{
    if (values.empty())
        return 0.0F;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1)
        return *middle;
    return 0.5F * (*std::max_element(values.begin(), middle) + *middle);
}

float frameNoise(const cv::Mat_<float>& frame, std::vector<float>& scratch)
{
    // The mask's own margin, and one more that interpolated edges would spoil.
    const int width = frame.cols - 4;
    const int height = frame.rows - 4;
    if (width < 1 || height < 1)
        return 0.0F;
    for (int y = 0; y < height; ++y)
        crossDifferences(frame[y + 1] + 1, frame[y + 2] + 1, frame[y + 3] + 1, width,
                         scratch.data() + static_cast<std::ptrdiff_t>(y) * width);
    const std::span<float> responses(scratch.data(),
                                     static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const float centre = medianOf(responses);
    for (float& response : responses)
        response = std::fabs(response - centre);
    return deviationOfMedian * medianOf(responses);
}

}  // namespace halvor::vx
